#include "index/index_database.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "util/handles.h"
#include "util/path.h"
#include "util/termination.h"

namespace keldo::index {
namespace {

constexpr int kSchemaVersion = 1;

// One piece of the wait for another process's transaction: a writer waits four times, two seconds
// in all, and lets a termination request in between.
constexpr int kBusyMilliseconds = 500;

// While the database is being made SQLite does not wait by itself: two processes that both want to
// turn the log on would wait for each other, so one of them gets an error at once and tries again.
constexpr auto kCreationPause = std::chrono::milliseconds(10);
constexpr auto kCreationLimit = std::chrono::seconds(2);

// Paths are bytes, so they are blobs: a text column would be compared and shown as UTF-8.
constexpr const char* kSchema =
    "CREATE TABLE masks(directory BLOB NOT NULL, type INTEGER NOT NULL, mask INTEGER NOT NULL,"
    " PRIMARY KEY(directory, type)) WITHOUT ROWID;"
    "CREATE TABLE resolutions(path BLOB NOT NULL PRIMARY KEY, width INTEGER NOT NULL,"
    " height INTEGER NOT NULL, thumb_path BLOB NOT NULL, thumb_width INTEGER NOT NULL,"
    " thumb_height INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE versions(path BLOB NOT NULL PRIMARY KEY, version INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE finished(path BLOB NOT NULL PRIMARY KEY, time INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE conversion(type INTEGER NOT NULL PRIMARY KEY, is_on INTEGER NOT NULL);"
    "CREATE TABLE media(path BLOB NOT NULL, database INTEGER NOT NULL, width INTEGER NOT NULL,"
    " height INTEGER NOT NULL, rotation INTEGER NOT NULL, bitrate INTEGER NOT NULL,"
    " PRIMARY KEY(path, database)) WITHOUT ROWID;"
    "PRAGMA user_version=1;";

std::string ErrnoText() {
  return std::generic_category().message(errno);
}

// Makes the directory and an empty file with the modes that let everybody read, whatever the umask.
// SQLite gives the files beside it the same mode. False with errno set.
bool MakeFile(const std::string& path) {
  const std::string directory = std::filesystem::path(path).parent_path().native();
  if (::mkdir(directory.c_str(), 0755) == 0) {
    if (::chmod(directory.c_str(), 0755) != 0) return false;
  } else if (errno != EEXIST) {
    return false;
  }
  const UniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!fd.valid()) return errno == EEXIST;
  return ::fchmod(fd.get(), 0644) == 0;
}

}  // namespace

IndexDatabase::OpenResult IndexDatabase::OpenFile(const std::string& path) {
  OpenResult result;
  sqlite3* raw = nullptr;
  const int opened = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
  std::unique_ptr<IndexDatabase> index(new IndexDatabase(UniqueSqlite(raw)));
  if (opened != SQLITE_OK) {
    result.problem = raw == nullptr ? sqlite3_errstr(opened) : sqlite3_errmsg(raw);
    return result;
  }
  sqlite3_busy_timeout(raw, kBusyMilliseconds);
  // Keep the files beside the database when the last writer closes it: a reader without the right
  // to make them could not read the database.
  int keep = 1;
  sqlite3_file_control(raw, "main", SQLITE_FCNTL_PERSIST_WAL, &keep);
  result.database = std::move(index);
  return result;
}

IndexDatabase::OpenResult IndexDatabase::Open(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    const bool missing = errno == ENOENT || errno == ENOTDIR;
    return {.database = nullptr, .missing = missing, .problem = ErrnoText()};
  }
  OpenResult result = OpenFile(path);
  if (!result.database || result.database->HasOurSchema()) return result;
  result.problem = result.database->problem();
  result.database.reset();
  return result;
}

IndexDatabase::OpenResult IndexDatabase::OpenOrCreate(const std::string& path) {
  if (!MakeFile(path)) return {.database = nullptr, .missing = false, .problem = ErrnoText()};
  OpenResult result = OpenFile(path);
  if (!result.database) return result;
  if (result.database->MakeSchemaInTurn()) return result;
  result.problem = result.database->problem();
  result.database.reset();
  return result;
}

std::optional<int> IndexDatabase::SchemaVersion() {
  std::optional<int> version;
  const bool read =
      sqlite_.Read("PRAGMA user_version", [&](const Row& row) { version = row.Number(0); });
  return read ? version : std::nullopt;
}

bool IndexDatabase::HasOurSchema() {
  const std::optional<int> version = SchemaVersion();
  // Commits need not reach the disk one by one: what is lost is measured or set again. The log is
  // emptied when the last process closes the database, so that a run that changes nothing neither
  // reads it at its start nor writes it back at its end.
  if (version == kSchemaVersion) {
    return sqlite_.Execute("PRAGMA synchronous=NORMAL; PRAGMA journal_size_limit=0");
  }
  if (version) {
    sqlite_.set_problem("the database has version " + std::to_string(*version) + ", not " +
                        std::to_string(kSchemaVersion));
  }
  return false;
}

// Several processes may do this at once; the first to get its transaction finds version 0.
bool IndexDatabase::MakeSchema() {
  if (SchemaVersion() != 0) return true;
  if (!sqlite_.Execute("PRAGMA journal_mode=WAL") || !sqlite_.Execute("BEGIN IMMEDIATE")) {
    return false;
  }
  // Closing the database rolls an unfinished transaction back.
  return (SchemaVersion() != 0 || sqlite_.Execute(kSchema)) && sqlite_.Execute("COMMIT");
}

bool IndexDatabase::MakeSchemaInTurn() {
  const auto deadline = std::chrono::steady_clock::now() + kCreationLimit;
  while (true) {
    sqlite_.forget_busy();
    if (MakeSchema() && HasOurSchema()) return true;
    if (!was_busy() || std::chrono::steady_clock::now() >= deadline) return false;
    if (sqlite_.in_transaction() && !sqlite_.Execute("ROLLBACK")) return false;
    LetTerminationIn();
    std::this_thread::sleep_for(kCreationPause);
  }
}

// All directories up to the root are looked up within one transaction, which costs two system
// calls; without it each of them would.
bool IndexDatabase::FindMask(std::string_view directory, int type,
                             std::optional<MaskEntry>& found) {
  found.reset();
  if (!sqlite_.Write("BEGIN")) return false;
  bool read = true;
  for (; read && !found && !directory.empty(); directory = ParentOfKey(directory)) {
    const auto take = [&](const Row& row) {
      found = {.mask = row.Number(0), .directory = std::string(directory)};
    };
    read = sqlite_.Read("SELECT mask FROM masks WHERE directory=?1 AND type=?2", take, directory,
                        type);
  }
  // A failed read can end the transaction too. The reason to keep is then the read's.
  if (!read && !sqlite_.in_transaction()) return false;
  return sqlite_.Write("COMMIT") && read;
}

bool IndexDatabase::SetMask(std::string_view directory, int type, int mask) {
  return sqlite_.Write(
      "INSERT INTO masks(directory, type, mask) VALUES(?1, ?2, ?3)"
      " ON CONFLICT(directory, type) DO UPDATE SET mask=excluded.mask",
      directory, type, mask);
}

bool IndexDatabase::RemoveMask(std::string_view directory, int type) {
  return sqlite_.Write("DELETE FROM masks WHERE directory=?1 AND type=?2", directory, type);
}

bool IndexDatabase::ListMasks(std::vector<MaskRecord>& masks) {
  masks.clear();
  return sqlite_.Read("SELECT directory, type, mask FROM masks ORDER BY directory, type",
                      [&](const Row& row) {
                        masks.push_back({row.Bytes(0), row.Number(1), row.Number(2)});
                      });
}

bool IndexDatabase::SetResolution(const Measured& photo, const Measured& thumbnail) {
  return sqlite_.Write("INSERT OR REPLACE INTO resolutions VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
                       photo.path, photo.width, photo.height, thumbnail.path, thumbnail.width,
                       thumbnail.height);
}

bool IndexDatabase::FindResolution(std::string_view path, std::optional<Measured>& found) {
  found.reset();
  const auto take = [&](const Row& row) {
    found = {std::string(path), row.Number(0), row.Number(1)};
  };
  return sqlite_.Read("SELECT width, height FROM resolutions WHERE path=?1", take, path);
}

bool IndexDatabase::FindMeasuredThumbnail(std::string_view path, std::optional<Measured>& found) {
  found.reset();
  const auto take = [&](const Row& row) { found = {row.Bytes(0), row.Number(1), row.Number(2)}; };
  return sqlite_.Read("SELECT thumb_path, thumb_width, thumb_height FROM resolutions WHERE path=?1",
                      take, path);
}

bool IndexDatabase::FindVersion(std::string_view path, std::optional<int>& found) {
  found.reset();
  const auto take = [&](const Row& row) { found = row.Number(0); };
  return sqlite_.Read("SELECT version FROM versions WHERE path=?1", take, path);
}

bool IndexDatabase::SetVersion(std::string_view path, int version) {
  return sqlite_.Write("INSERT OR REPLACE INTO versions(path, version) VALUES(?1, ?2)", path,
                       version);
}

bool IndexDatabase::FindFinished(std::string_view path, std::optional<std::int64_t>& time) {
  time.reset();
  const auto take = [&](const Row& row) { time = row.LongNumber(0); };
  return sqlite_.Read("SELECT time FROM finished WHERE path=?1", take, path);
}

bool IndexDatabase::AddFinished(std::string_view path, std::int64_t time) {
  return sqlite_.Write("INSERT OR REPLACE INTO finished(path, time) VALUES(?1, ?2)", path, time);
}

bool IndexDatabase::FindConversion(int type, std::optional<bool>& on) {
  on.reset();
  const auto take = [&](const Row& row) { on = row.Number(0) != 0; };
  return sqlite_.Read("SELECT is_on FROM conversion WHERE type=?1", take, type);
}

bool IndexDatabase::SetConversion(int type, bool on) {
  return sqlite_.Write("INSERT OR REPLACE INTO conversion(type, is_on) VALUES(?1, ?2)", type, on);
}

bool IndexDatabase::FindMedia(std::string_view path, int database,
                              std::optional<MediaRecord>& found) {
  found.reset();
  std::vector<MediaRecord> records;
  if (!ListMedia(path, records)) return false;
  const auto record = std::find_if(records.begin(), records.end(), [&](const MediaRecord& media) {
    return media.database == database;
  });
  if (record != records.end()) found = std::move(*record);
  return true;
}

bool IndexDatabase::ListMedia(std::string_view path, std::vector<MediaRecord>& records) {
  records.clear();
  const auto take = [&](const Row& row) {
    records.push_back({.path = std::string(path),
                       .width = row.Number(0),
                       .height = row.Number(1),
                       .orientation = row.Number(2),
                       .bit_rate = row.Number(3),
                       .database = row.Number(4)});
  };
  return sqlite_.Read(
      "SELECT width, height, rotation, bitrate, database FROM media WHERE path=?1"
      " ORDER BY database",
      take, path);
}

bool IndexDatabase::SetMedia(const MediaRecord& media) {
  return sqlite_.Write(
      "INSERT OR REPLACE INTO media(path, width, height, rotation, bitrate, database)"
      " VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
      media.path, media.width, media.height, media.orientation, media.bit_rate, media.database);
}

bool IndexDatabase::CountRecords(IndexCounts& counts) {
  counts = {};
  const auto take = [&](const Row& row) {
    counts = {row.LongNumber(0), row.LongNumber(1), row.LongNumber(2), row.LongNumber(3)};
  };
  return sqlite_.Read(
      "SELECT (SELECT count(*) FROM resolutions), (SELECT count(*) FROM versions),"
      " (SELECT count(*) FROM finished), (SELECT count(DISTINCT path) FROM media)",
      take);
}

namespace {

struct EmbeddedIndex {
  std::string path = kDatabasePath;
  bool looked_for = false;
  std::unique_ptr<IndexDatabase> database;
};

EmbeddedIndex& Index() {
  static EmbeddedIndex index;
  return index;
}

IndexDatabase* Database() {
  EmbeddedIndex& index = Index();
  if (!index.looked_for) {
    index.looked_for = true;
    index.database = IndexDatabase::Open(index.path).database;
  }
  return index.database.get();
}

}  // namespace

int WantedKinds(std::string_view directory, int type) {
  IndexDatabase* database = Database();
  if (database == nullptr) return kAllKinds;
  std::optional<MaskEntry> entry;
  if (!database->FindMask(PathKey(directory), type, entry) && !database->was_busy()) {
    Index().database.reset();  // damaged, or not ours to read: it will not get better
  }
  return entry ? entry->mask : kAllKinds;
}

void NoteResolution(const Measured& photo, const Measured& thumbnail) {
  IndexDatabase* database = Database();
  if (database == nullptr) return;
  // Masks can still be read from a database that we may not write, so it is kept whatever happens.
  static_cast<void>(
      database->SetResolution({PathKey(photo.path), photo.width, photo.height},
                              {PathKey(thumbnail.path), thumbnail.width, thumbnail.height}));
}

void UseIndexAt(const std::string& path) {
  Index() = EmbeddedIndex{.path = path, .looked_for = false, .database = nullptr};
}

}  // namespace keldo::index
