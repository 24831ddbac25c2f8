// What the daemon knows: the index, behind an interface so that answering can be tested without a
// database.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "index/index_database.h"
#include "platform/index_ipc.h"
#include "util/deadline.h"

namespace keldo::plugind {

/// The index as the requests see it. Paths are absolute and otherwise as the client sent them.
class IndexStore {
 public:
  IndexStore() = default;
  virtual ~IndexStore() = default;
  IndexStore(const IndexStore&) = delete;
  IndexStore& operator=(const IndexStore&) = delete;

  /// The index version of a file; 0 for one that the index does not know.
  [[nodiscard]] virtual int Version(std::string_view path) = 0;

  /// Records that the work on a file was finished at this time. Its version stays as it is: a
  /// version means that the index itself has registered the file, and new thumbnails then follow
  /// the existing ones instead of the photo's orientation tag. False when it could not be recorded.
  [[nodiscard]] virtual bool AddFinished(std::string_view path) = 0;

  /// Whether conversion is switched on; true unless somebody switched it off.
  [[nodiscard]] virtual bool IsConversionOn(_tag_THUMB_TYPE_ type) = 0;

  /// The record of a file in the database that `database` names (1: videos). None when the index
  /// does not know the file.
  [[nodiscard]] virtual std::optional<index::MediaRecord> FindMedia(std::string_view path,
                                                                    int database) = 0;
};

/// Opens the database, or creates it where it is missing, and reopens it after a failure or when
/// the file was replaced. Without a database it answers with the defaults and records nothing. Logs
/// each problem once while it lasts.
class DatabaseStore : public IndexStore {
 public:
  explicit DatabaseStore(std::string path);

  [[nodiscard]] int Version(std::string_view path) override;
  [[nodiscard]] bool AddFinished(std::string_view path) override;
  [[nodiscard]] bool IsConversionOn(_tag_THUMB_TYPE_ type) override;
  [[nodiscard]] std::optional<index::MediaRecord> FindMedia(std::string_view path,
                                                            int database) override;

 private:
  // A problem that is logged once while it lasts.
  class OngoingProblem {
   public:
    void Log(const char* what, const std::string& problem);
    void Clear() { last_.clear(); }

   private:
    std::string last_;
  };

  [[nodiscard]] index::IndexDatabase* Database();
  [[nodiscard]] bool IsReplaced() const;
  // Runs an operation on the database; false without one, or when it fails.
  template <typename Operation>
  [[nodiscard]] bool Use(OngoingProblem& ongoing, const char* what, const Operation& operation);

  std::string path_;
  std::unique_ptr<index::IndexDatabase> database_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  Clock::time_point open_again_;
  OngoingProblem opening_;
  OngoingProblem reading_;
  OngoingProblem writing_;
};

}  // namespace keldo::plugind
