#include "plugind/index_store.h"

#include <sys/stat.h>
#include <syslog.h>

#include <ctime>
#include <utility>

#include "util/path.h"

namespace keldo::plugind {
namespace {

using index::IndexDatabase;

// A database that cannot be opened is not tried again with every request.
constexpr std::chrono::seconds kOpenPause{5};
constexpr int kVideoDatabase = 1;

}  // namespace

DatabaseStore::DatabaseStore(std::string path) : path_(std::move(path)) {
  // Opened at the start, so that the log says at once what is wrong with it.
  static_cast<void>(Database());
}

void DatabaseStore::OngoingProblem::Log(const char* what, const std::string& problem) {
  if (std::exchange(last_, problem) == problem) return;
  syslog(LOG_ERR, "cannot %s: %s", what, problem.c_str());
}

// Somebody may remove the file and create a new one; nobody else would then read what we write to
// the old one.
bool DatabaseStore::IsReplaced() const {
  struct stat file {};
  return ::stat(path_.c_str(), &file) != 0 || file.st_dev != device_ || file.st_ino != inode_;
}

IndexDatabase* DatabaseStore::Database() {
  if (database_ && IsReplaced()) database_.reset();
  const auto now = Clock::now();
  if (database_ || now < open_again_) return database_.get();
  IndexDatabase::OpenResult opened = IndexDatabase::OpenOrCreate(path_);
  struct stat file {};
  if (!opened.database || ::stat(path_.c_str(), &file) != 0) {
    opening_.Log("open the index", path_ + ": " + opened.problem);
    open_again_ = now + kOpenPause;
    return nullptr;
  }
  opening_.Clear();
  database_ = std::move(opened.database);
  device_ = file.st_dev;
  inode_ = file.st_ino;
  return database_.get();
}

template <typename Operation>
bool DatabaseStore::Use(OngoingProblem& ongoing, const char* what, const Operation& operation) {
  IndexDatabase* database = Database();
  if (database == nullptr) return false;
  if (operation(*database)) {
    ongoing.Clear();
    return true;
  }
  ongoing.Log(what, database->problem());
  if (!database->was_busy()) database_.reset();
  return false;
}

int DatabaseStore::Version(std::string_view path) {
  std::optional<int> version;
  const bool read = Use(reading_, "read the index", [&](IndexDatabase& database) {
    return database.FindVersion(PathKey(path), version);
  });
  return read ? version.value_or(0) : 0;
}

bool DatabaseStore::AddFinished(std::string_view path) {
  return Use(writing_, "write to the index", [&](IndexDatabase& database) {
    return database.AddFinished(PathKey(path), std::time(nullptr));
  });
}

bool DatabaseStore::IsConversionOn(_tag_THUMB_TYPE_ type) {
  std::optional<bool> on;
  const bool read = Use(reading_, "read the index",
                        [&](IndexDatabase& database) { return database.FindConversion(type, on); });
  return read ? on.value_or(true) : true;
}

// For photos, the index also has the sizes that were reported when they were converted.
std::optional<index::MediaRecord> DatabaseStore::FindMedia(std::string_view path,
                                                           int database_number) {
  std::optional<index::MediaRecord> found;
  const bool read = Use(reading_, "read the index", [&](IndexDatabase& database) {
    const std::string key = PathKey(path);
    if (!database.FindMedia(key, database_number, found)) return false;
    if (found || database_number == kVideoDatabase) return true;
    std::optional<index::Measured> photo;
    if (!database.FindResolution(key, photo)) return false;
    if (photo) found = {.path = key, .width = photo->width, .height = photo->height};
    return true;
  });
  return read ? found : std::nullopt;
}

}  // namespace keldo::plugind
