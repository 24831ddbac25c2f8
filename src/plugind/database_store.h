// The index that the daemon serves: the embedded index's database.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

#include "index/index_database.h"
#include "plugind/index_store.h"

namespace keldo::plugind {

/// Opens the database, which it makes where it is missing, and opens it anew when it fails or has
/// been replaced. Without a database the defaults are answered and nothing can be noted; each
/// trouble is logged once until it is over.
class DatabaseStore : public IndexStore {
 public:
  explicit DatabaseStore(std::string path);

  [[nodiscard]] int Version(std::string_view path) override;
  [[nodiscard]] bool AddFinished(std::string_view path) override;
  [[nodiscard]] bool IsConversionOn(_tag_THUMB_TYPE_ type) override;
  [[nodiscard]] std::optional<keldoindexutils::MediaInfo> FindMedia(std::string_view path,
                                                                    int database) override;

 private:
  // A trouble that is logged when it comes and not again while it lasts.
  class Trouble {
   public:
    void Note(const char* what, const std::string& problem);
    void Clear() { last_.clear(); }

   private:
    std::string last_;
  };

  [[nodiscard]] index::IndexDatabase* Database();
  [[nodiscard]] bool IsReplaced() const;
  // Runs an operation on the database; false without one, or when it fails.
  template <typename Operation>
  [[nodiscard]] bool Use(Trouble& trouble, const char* what, const Operation& operation);

  std::string path_;
  std::unique_ptr<index::IndexDatabase> database_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::chrono::steady_clock::time_point open_again_;
  Trouble opening_;
  Trouble reading_;
  Trouble writing_;
};

}  // namespace keldo::plugind
