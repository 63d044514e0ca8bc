// One SQLite connection, shared by a Database and everything opened on it, plus the small helpers
// every SQLite source uses (statements, binding, error translation).
//
// Thread safety: a connection belongs to the thread that opened it (it is opened without SQLite's
// own mutex).
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/db/row_cache.h"
#include "platform/db/types.h"
#include "quorbex/engine.h"

namespace quorbex::db::internal::sqlite {

// Prepared statements of one connection that are not in use, by their SQL text. Preparing is most of
// the cost of a small statement, and writing back runs the same few statements for every record.
struct StmtPool {
  struct Idle {
    sqlite3_stmt* stmt;
    size_t tail_offset;  // where the text after the statement begins
  };
  std::unordered_multimap<std::string, Idle> idle;
  bool closed = false;
  static constexpr size_t kLimit = 64;
  // Finalizes every idle statement.
  void Flush();
  ~StmtPool();
};

// Ends a statement: back to its pool (reset, bindings cleared) while there is room, else finalized.
struct StmtDeleter {
  std::weak_ptr<StmtPool> pool;
  std::string key;  // the SQL text the statement was prepared from; empty: never pooled
  size_t tail_offset = 0;
  void operator()(sqlite3_stmt* stmt) const;
};
using Stmt = std::unique_ptr<sqlite3_stmt, StmtDeleter>;

// Turns a SQLite result code and message into the engine's error. Busy and read-only errors name the
// file; SQL errors keep SQLite's own text ("no such table: x", "near \"FORM\": syntax error").
// `waited_ms` is how long the failing call waited for a lock (named in the Busy text).
[[noreturn]] void RaiseSqlite(int rc, std::string_view message, const std::string& path, int waited_ms);

class Connection {
 public:
  Connection(sqlite3* db, std::string path, int busy_ms);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The handle; raises Closed once the connection was closed.
  sqlite3* Handle() const;
  const std::string& Path() const { return path_; }
  // Changes the name the connection reports (an in-memory database named after what it copies).
  void SetPath(std::string path) { path_ = std::move(path); }
  int BusyMs() const { return busy_ms_; }
  // Installs the busy handler: a call that meets another connection's lock retries every millisecond
  // or two until the busy timeout has passed. SQLite's own timeout sleeps up to 100 ms between tries,
  // and a writer that commits and begins again within that gap can keep another waiting for its whole
  // timeout; short, slightly random sleeps let each waiter in at the next gap.
  void WaitWhenBusy();
  bool IsOpen() const { return db_ != nullptr; }
  // True when the main database cannot be written (opened read-only, write-protected, or refusing
  // writes after RefuseWrites).
  bool ReadOnly() const;
  // From now on every change to the database (rows, schema, views, temporary objects included) fails
  // with ErrorKind::ReadOnly and `reason` as its text: a database that is a read-only copy of another
  // one (the Jet mirror) says where its data comes from and what to do instead.
  void RefuseWrites(std::string reason);

  // Prepares one statement (the first of `sql`), or takes an idle one prepared from the same text;
  // raises with the engine's text. `tail` receives the rest of the text when given.
  Stmt Prepare(std::string_view sql, std::string_view* tail = nullptr) const;
  // Steps once; returns SQLITE_ROW or SQLITE_DONE, raises on anything else (after resetting).
  int Step(sqlite3_stmt* stmt) const;
  // Runs every statement of `sql`, discarding rows; returns the rows changed by the last one.
  int64_t Exec(std::string_view sql) const;
  // Raises the error the connection reports for `rc`.
  [[noreturn]] void Fail(int rc) const;
  // Raises `rc` with `message` (RaiseSqlite, or the refusal text of RefuseWrites).
  [[noreturn]] void RaiseError(int rc, std::string_view message, int waited_ms) const;

  // The schema cookie of `schema` ("main", "temp", ...): it changes with every schema change.
  int64_t SchemaVersion(const std::string& schema) const;
  // Facts derived from the schema (a table's key, ...), remembered under a key together with the
  // schema cookie they were read at; Recall gives them back only while that cookie is current.
  std::shared_ptr<const void> Recall(const std::string& key, int64_t version) const;
  void Remember(const std::string& key, int64_t version, std::shared_ptr<const void> facts) const;

  void Register(const std::shared_ptr<Closable>& item);
  // Ends every registered item, then the connection.
  void Close();

 private:
  sqlite3* db_;
  std::string path_;
  int busy_ms_;
  std::string refusal_;  // set by RefuseWrites
  std::chrono::steady_clock::time_point busy_since_;
  uint32_t busy_jitter_ = 0;
  std::vector<std::weak_ptr<Closable>> items_;
  std::shared_ptr<StmtPool> pool_ = std::make_shared<StmtPool>();
  // Set while preparing a statement that changes the schema (see the constructor).
  mutable bool schema_changing_ = false;
  mutable std::unordered_map<std::string, std::pair<int64_t, std::shared_ptr<const void>>> facts_;
};

// Binds a stored value to the 1-based parameter `index`.
void Bind(const Connection& conn, sqlite3_stmt* stmt, int index, const Stored& value);
// The column as a Variant for a column of type `code` (see DecodeInteger and friends).
Variant ReadColumn(sqlite3_stmt* stmt, int column, int32_t code);
// Column `column` of the current row as text (empty for NULL).
std::string ColumnText(sqlite3_stmt* stmt, int column);

}  // namespace quorbex::db::internal::sqlite
