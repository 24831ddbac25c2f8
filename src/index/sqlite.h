// SQLite's objects as owning pointers, and the few operations on them that we use.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string_view>

namespace keldo::index {

struct CloseSqlite {
  void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
struct FinalizeSqlite {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

using UniqueSqlite = std::unique_ptr<sqlite3, CloseSqlite>;
using UniqueStatement = std::unique_ptr<sqlite3_stmt, FinalizeSqlite>;

/// Binds bytes that live until the statement is reset.
inline bool BindBytes(sqlite3_stmt* statement, int index, std::string_view bytes) {
  return sqlite3_bind_blob64(statement, index, bytes.data(), bytes.size(), nullptr) == SQLITE_OK;
}

inline bool BindNumber(sqlite3_stmt* statement, int index, int number) {
  return sqlite3_bind_int(statement, index, number) == SQLITE_OK;
}

/// Resets a prepared statement at the end of its use, which lets go of its locks and bindings.
class StatementUse {
 public:
  explicit StatementUse(sqlite3_stmt* statement) : statement_(statement) {}
  ~StatementUse() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;

 private:
  sqlite3_stmt* statement_;
};

}  // namespace keldo::index
