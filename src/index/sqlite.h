// One open SQLite file, its statements prepared once and kept.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
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

/// The current row of a query.
class Row {
 public:
  explicit Row(sqlite3_stmt* statement) : statement_(statement) {}

  [[nodiscard]] int Number(int column) const { return sqlite3_column_int(statement_, column); }
  [[nodiscard]] std::int64_t LongNumber(int column) const {
    return sqlite3_column_int64(statement_, column);
  }
  [[nodiscard]] std::string Bytes(int column) const;

 private:
  sqlite3_stmt* statement_;
};

/// Runs statements on an open database. The SQL is a literal, by whose address its statement is
/// kept; "?1", "?2" ... stand for the values, numbers or bytes. Silent: after a failure problem()
/// says why.
class Sqlite {
 public:
  using ReadRow = std::function<void(const Row& row)>;

  explicit Sqlite(UniqueSqlite database) : database_(std::move(database)) {}

  /// Calls `read` for each row that the query finds. Does not retry a busy database.
  template <typename... Values>
  [[nodiscard]] bool Read(const char* sql, const ReadRow& read, const Values&... values) {
    const StatementUse use(Prepared(sql));
    return BindAll(use.get(), values...) && StepThroughRows(use.get(), read);
  }

  /// Runs a statement that gives no rows, again for a while where another process holds the
  /// database. Lets termination requests in between the attempts.
  template <typename... Values>
  [[nodiscard]] bool Write(const char* sql, const Values&... values) {
    const StatementUse use(Prepared(sql));
    return BindAll(use.get(), values...) && StepToEnd(use.get());
  }

  /// Runs statements without values, and keeps none of them.
  [[nodiscard]] bool Execute(const char* sql);

  [[nodiscard]] bool in_transaction() const { return sqlite3_get_autocommit(database_.get()) == 0; }
  [[nodiscard]] const std::string& problem() const { return problem_; }
  [[nodiscard]] bool was_busy() const { return was_busy_; }

  void set_problem(std::string problem) { problem_ = std::move(problem); }
  void forget_busy() { was_busy_ = false; }

 private:
  // Resets a statement at the end of its use, which releases its locks and bindings.
  class StatementUse {
   public:
    explicit StatementUse(sqlite3_stmt* statement) : statement_(statement) {}
    ~StatementUse() {
      if (statement_ == nullptr) return;
      sqlite3_reset(statement_);
      sqlite3_clear_bindings(statement_);
    }
    StatementUse(const StatementUse&) = delete;
    StatementUse& operator=(const StatementUse&) = delete;

    [[nodiscard]] sqlite3_stmt* get() const { return statement_; }

   private:
    sqlite3_stmt* statement_;
  };

  static bool Bind(sqlite3_stmt* statement, int index, std::string_view bytes) {
    // The bytes live until the statement is reset.
    return sqlite3_bind_blob64(statement, index, bytes.data(), bytes.size(), nullptr) == SQLITE_OK;
  }
  static bool Bind(sqlite3_stmt* statement, int index, std::int64_t number) {
    return sqlite3_bind_int64(statement, index, number) == SQLITE_OK;
  }
  template <typename... Values>
  bool BindAll(sqlite3_stmt* statement, const Values&... values) {
    int index = 0;
    return statement != nullptr && Check((Bind(statement, ++index, values) && ... && (index >= 0)));
  }

  // Passes `succeeded` on; remembers why when it is false.
  bool Check(bool succeeded);
  [[nodiscard]] sqlite3_stmt* Prepared(const char* sql);
  [[nodiscard]] bool StepThroughRows(sqlite3_stmt* statement, const ReadRow& read);
  [[nodiscard]] bool StepToEnd(sqlite3_stmt* statement);

  UniqueSqlite database_;
  std::map<const char*, UniqueStatement> statements_;
  std::string problem_;
  bool was_busy_ = false;
};

}  // namespace keldo::index
