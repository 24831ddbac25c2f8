#include "index/index_database.h"

#include <fcntl.h>
#include <sys/stat.h>

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

// Another process's transaction is waited for in pieces, between which a termination request is let
// in: two seconds in all.
constexpr int kBusyMilliseconds = 500;
constexpr int kBusyAttempts = 4;

// While the database is being made SQLite does not wait by itself: two processes that both want to
// turn the log on would wait for each other, so one of them is told at once and tries again.
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

IndexDatabase::IndexDatabase(UniqueSqlite database) : database_(std::move(database)) {}

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
  // The files beside the database stay when the last writer goes: a reader that may not make them
  // could not read the database without them.
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

bool IndexDatabase::Check(bool succeeded) {
  if (succeeded) return true;
  const int code = sqlite3_errcode(database_.get());
  was_busy_ = code == SQLITE_BUSY || code == SQLITE_LOCKED;
  problem_ = sqlite3_errmsg(database_.get());
  return false;
}

bool IndexDatabase::Execute(const char* sql) {
  return Check(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK);
}

sqlite3_stmt* IndexDatabase::Prepared(UniqueStatement& statement, const char* sql) {
  if (!statement) {
    sqlite3_stmt* raw = nullptr;
    Check(sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr) ==
          SQLITE_OK);
    statement.reset(raw);
  }
  return statement.get();
}

std::optional<int> IndexDatabase::SchemaVersion() {
  UniqueStatement statement;
  if (Prepared(statement, "PRAGMA user_version") == nullptr) return std::nullopt;
  if (!Check(sqlite3_step(statement.get()) == SQLITE_ROW)) return std::nullopt;
  return sqlite3_column_int(statement.get(), 0);
}

bool IndexDatabase::HasOurSchema() {
  const std::optional<int> version = SchemaVersion();
  // Commits need not reach the disk one by one: what is lost is measured or set again. The log is
  // emptied when the last process closes the database, so that a run that changes nothing neither
  // reads it at its start nor writes it back at its end.
  if (version == kSchemaVersion) {
    return Execute("PRAGMA synchronous=NORMAL; PRAGMA journal_size_limit=0");
  }
  if (version) {
    problem_ = "the database has version " + std::to_string(*version) + ", not " +
               std::to_string(kSchemaVersion);
  }
  return false;
}

// Several processes may do this at once; the first to get its transaction finds version 0.
bool IndexDatabase::MakeSchema() {
  if (SchemaVersion() != 0) return true;
  if (!Execute("PRAGMA journal_mode=WAL") || !Execute("BEGIN IMMEDIATE")) return false;
  // Closing the database takes an unfinished transaction back.
  return (SchemaVersion() != 0 || Execute(kSchema)) && Execute("COMMIT");
}

bool IndexDatabase::MakeSchemaInTurn() {
  const auto deadline = std::chrono::steady_clock::now() + kCreationLimit;
  while (true) {
    was_busy_ = false;
    if (MakeSchema() && HasOurSchema()) return true;
    if (!was_busy_ || std::chrono::steady_clock::now() >= deadline) return false;
    if (sqlite3_get_autocommit(database_.get()) == 0 && !Execute("ROLLBACK")) return false;
    LetTerminationIn();
    std::this_thread::sleep_for(kCreationPause);
  }
}

bool IndexDatabase::Write(sqlite3_stmt* statement) {
  for (int attempt = 1; true; ++attempt) {
    const int result = sqlite3_step(statement);
    if (result != SQLITE_BUSY || attempt == kBusyAttempts) return Check(result == SQLITE_DONE);
    sqlite3_reset(statement);
    LetTerminationIn();
  }
}

bool IndexDatabase::FindMaskInTransaction(std::string_view directory, int type,
                                          std::optional<MaskEntry>& found) {
  sqlite3_stmt* statement =
      Prepared(find_mask_, "SELECT mask FROM masks WHERE directory=?1 AND type=?2");
  if (statement == nullptr) return false;
  for (; !directory.empty(); directory = ParentOfKey(directory)) {
    const StatementUse use(statement);
    if (!Check(BindBytes(statement, 1, directory) && BindNumber(statement, 2, type))) return false;
    const int result = sqlite3_step(statement);
    if (result == SQLITE_ROW) {
      found = {.mask = sqlite3_column_int(statement, 0), .directory = std::string(directory)};
      return true;
    }
    if (!Check(result == SQLITE_DONE)) return false;
  }
  return true;
}

// All directories up to the root are looked up within one transaction, which costs two system
// calls; without it each of them would.
bool IndexDatabase::FindMask(std::string_view directory, int type,
                             std::optional<MaskEntry>& found) {
  found.reset();
  sqlite3_stmt* begin = Prepared(begin_, "BEGIN");
  sqlite3_stmt* commit = Prepared(commit_, "COMMIT");
  if (begin == nullptr || commit == nullptr) return false;
  const StatementUse begin_use(begin);
  if (!Check(sqlite3_step(begin) == SQLITE_DONE)) return false;
  const bool read = FindMaskInTransaction(directory, type, found);
  const StatementUse commit_use(commit);
  const bool ended = sqlite3_step(commit) == SQLITE_DONE;
  return read && Check(ended);
}

bool IndexDatabase::SetMask(std::string_view directory, int type, int mask) {
  UniqueStatement statement;
  return Prepared(statement,
                  "INSERT INTO masks(directory, type, mask) VALUES(?1, ?2, ?3)"
                  " ON CONFLICT(directory, type) DO UPDATE SET mask=excluded.mask") != nullptr &&
         Check(BindBytes(statement.get(), 1, directory) && BindNumber(statement.get(), 2, type) &&
               BindNumber(statement.get(), 3, mask)) &&
         Write(statement.get());
}

bool IndexDatabase::RemoveMask(std::string_view directory, int type) {
  UniqueStatement statement;
  return Prepared(statement, "DELETE FROM masks WHERE directory=?1 AND type=?2") != nullptr &&
         Check(BindBytes(statement.get(), 1, directory) && BindNumber(statement.get(), 2, type)) &&
         Write(statement.get());
}

bool IndexDatabase::SetResolution(const Measured& photo, const Measured& thumbnail) {
  sqlite3_stmt* statement = Prepared(
      set_resolution_, "INSERT OR REPLACE INTO resolutions VALUES(?1, ?2, ?3, ?4, ?5, ?6)");
  if (statement == nullptr) return false;
  const StatementUse use(statement);
  int index = 0;
  for (const Measured* file : {&photo, &thumbnail}) {
    if (!Check(BindBytes(statement, ++index, file->path) &&
               BindNumber(statement, ++index, file->width) &&
               BindNumber(statement, ++index, file->height))) {
      return false;
    }
  }
  return Write(statement);
}

}  // namespace keldo::index
