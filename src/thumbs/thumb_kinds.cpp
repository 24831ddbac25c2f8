#include "thumbs/thumb_kinds.h"

#include <syslog.h>

#include "index/index_database.h"

namespace keldo {
namespace {

constexpr const char* kSource = "keldomk_util";

}  // namespace

// The index does not know the table. It wants every kind where no mask is set.
static_assert(index::kAllKinds == kAllKinds);

static_assert(std::all_of(kThumbKindTable.begin(), kThumbKindTable.end(), [](const auto& row) {
  return &kThumbKindTable.at(static_cast<std::size_t>(row.kind)) == &row;
}));

const ThumbKindInfo* FindKind(std::string_view file_name) {
  const auto* const row =
      std::find_if(kThumbKindTable.begin(), kThumbKindTable.end(), [&](const auto& kind) {
        return file_name == kind.underscore_name || file_name == kind.colon_name;
      });
  return row == kThumbKindTable.end() ? nullptr : row;
}

bool IsKindWanted(const std::string& file_name, ThumbSizeMask mask) {
  if (const ThumbKindInfo* kind = FindKind(file_name)) return Wants(mask, kind->kind);
  syslog(LOG_ERR, "%s:%d [Error] invalid thumb filename: %s", kSource, 118, file_name.c_str());
  return false;
}

}  // namespace keldo
