// keldothumbctl index mask: which thumbnails are wanted for a directory.
#pragma once

#include <iosfwd>
#include <string>

namespace keldo::ctl {

/// What the user asked for.
struct IndexMaskRequest {
  enum class Action { kShow, kSet, kRemove };

  std::string directory;
  Action action = Action::kShow;
  int mask = 0;  ///< For kSet.
  bool video = false;
  bool json = false;
};

/// Carries the request out on the database at `database_path` and prints what then holds for the
/// directory to `out`. Returns 0; or 1 after a message on `err` when it cannot be done.
[[nodiscard]] int RunIndexMask(const IndexMaskRequest& request, const std::string& database_path,
                               std::ostream& out, std::ostream& err);

}  // namespace keldo::ctl
