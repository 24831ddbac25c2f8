#include "index/sqlite.h"

#include "util/termination.h"

namespace keldo::index {
namespace {

// How often a writer waits for another process's transaction, with the busy time-out each time.
constexpr int kBusyAttempts = 4;

}  // namespace

std::string Row::Bytes(int column) const {
  const void* bytes = sqlite3_column_blob(statement_, column);
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
  return bytes == nullptr ? std::string() : std::string(static_cast<const char*>(bytes), size);
}

bool Sqlite::Execute(const char* sql) {
  return Check(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK);
}

bool Sqlite::Check(bool succeeded) {
  if (succeeded) return true;
  const int code = sqlite3_errcode(database_.get());
  was_busy_ = code == SQLITE_BUSY || code == SQLITE_LOCKED;
  problem_ = sqlite3_errmsg(database_.get());
  return false;
}

sqlite3_stmt* Sqlite::Prepared(const char* sql) {
  UniqueStatement& statement = statements_[sql];
  if (!statement) {
    sqlite3_stmt* raw = nullptr;
    Check(sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr) ==
          SQLITE_OK);
    statement.reset(raw);
  }
  return statement.get();
}

bool Sqlite::StepThroughRows(sqlite3_stmt* statement, const ReadRow& read) {
  int result = sqlite3_step(statement);
  for (; result == SQLITE_ROW; result = sqlite3_step(statement))
    read(Row(statement));
  return Check(result == SQLITE_DONE);
}

bool Sqlite::StepToEnd(sqlite3_stmt* statement) {
  for (int attempt = 1; true; ++attempt) {
    const int result = sqlite3_step(statement);
    if (result != SQLITE_BUSY || attempt == kBusyAttempts) return Check(result == SQLITE_DONE);
    sqlite3_reset(statement);
    LetTerminationIn();
  }
}

}  // namespace keldo::index
