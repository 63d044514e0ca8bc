#include "platform/db/sqlite/sqlite_connection.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "platform/db/errors.h"

namespace quorbex::db::internal::sqlite {

namespace {

int MillisecondsSince(std::chrono::steady_clock::time_point start) {
  return static_cast<int>(
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count());
}

}  // namespace

void RaiseSqlite(int rc, std::string_view message, const std::string& path, int waited_ms) {
  std::string msg(message);
  switch (rc & 0xff) {
    case SQLITE_BUSY: RaiseBusy(path, waited_ms);
    case SQLITE_LOCKED: Raise(ErrorKind::Busy, msg);
    case SQLITE_READONLY:
      Raise(ErrorKind::ReadOnly, "Cannot update '" + path + "': the database is read-only (" + msg + ").");
    case SQLITE_NOTADB: RaiseNotADatabase(path);
    case SQLITE_CORRUPT: Raise(ErrorKind::NotADatabase, "The database '" + path + "' is damaged (" + msg + ").");
    case SQLITE_CANTOPEN: Raise(ErrorKind::General, "Could not open '" + path + "': " + msg + ".");
    case SQLITE_CONSTRAINT: Raise(ErrorKind::Constraint, msg);
    case SQLITE_MISMATCH: Raise(ErrorKind::Conversion, msg);
    case SQLITE_FULL: Raise(ErrorKind::General, "Cannot write '" + path + "': " + msg + ".");
    case SQLITE_NOMEM: throw std::bad_alloc();
    case SQLITE_ERROR:
      if (msg.starts_with("no such ")) Raise(ErrorKind::NoSuchObject, msg);
      if (msg.find("syntax error") != std::string::npos || msg.starts_with("incomplete input") ||
          msg.starts_with("unrecognized token")) {
        Raise(ErrorKind::Syntax, msg);
      }
      if (msg.find("already exists") != std::string::npos) Raise(ErrorKind::AlreadyExists, msg);
      Raise(ErrorKind::General, msg);
    default: Raise(ErrorKind::General, msg.empty() ? std::string(sqlite3_errstr(rc)) : msg);
  }
}

Connection::Connection(sqlite3* db, std::string path, int busy_ms)
    : db_(db), path_(std::move(path)), busy_ms_(busy_ms) {
  // An idle pooled statement keeps the column names and types of the schema it was prepared on until
  // it is stepped again, and a recordset describes its columns before the first step. So the pool is
  // emptied whenever this connection prepares a statement that changes the schema; SQLite reports
  // each such statement to the authorizer while preparing it.
  sqlite3_set_authorizer(
      db_,
      [](void* self, int action, const char*, const char*, const char*, const char*) -> int {
        const bool changes_schema = (action >= SQLITE_CREATE_INDEX && action <= SQLITE_CREATE_VIEW) ||
                                    (action >= SQLITE_DROP_INDEX && action <= SQLITE_DROP_VIEW) ||
                                    action == SQLITE_ALTER_TABLE || action == SQLITE_ATTACH ||
                                    action == SQLITE_DETACH || action == SQLITE_CREATE_VTABLE ||
                                    action == SQLITE_DROP_VTABLE;
        if (changes_schema) static_cast<Connection*>(self)->schema_changing_ = true;
        return SQLITE_OK;
      },
      this);
}

Connection::~Connection() { Close(); }

void Connection::WaitWhenBusy() {
  busy_jitter_ = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this) >> 4) ^ static_cast<uint32_t>(::getpid());
  sqlite3_busy_handler(
      db_,
      [](void* self, int tries) -> int {
        auto& conn = *static_cast<Connection*>(self);
        const auto now = std::chrono::steady_clock::now();
        if (tries == 0) conn.busy_since_ = now;
        if (now - conn.busy_since_ >= std::chrono::milliseconds(conn.busy_ms_)) return 0;
        conn.busy_jitter_ = conn.busy_jitter_ * 1664525u + 1013904223u;
        const auto pause = std::chrono::microseconds(tries < 10 ? 200 : 1000 + (conn.busy_jitter_ >> 22));
        std::this_thread::sleep_for(pause);
        return 1;
      },
      this);
}

sqlite3* Connection::Handle() const {
  if (db_ == nullptr) Raise(ErrorKind::Closed, text::kDatabaseClosed);
  return db_;
}

bool Connection::ReadOnly() const { return !refusal_.empty() || sqlite3_db_readonly(Handle(), "main") == 1; }

void StmtPool::Flush() {
  for (auto& [text, statement] : idle) sqlite3_finalize(statement.stmt);
  idle.clear();
}

StmtPool::~StmtPool() { Flush(); }

void StmtDeleter::operator()(sqlite3_stmt* stmt) const {
  auto owner = pool.lock();
  if (owner && !owner->closed && !key.empty() && owner->idle.size() < StmtPool::kLimit) {
    sqlite3_reset(stmt);
    sqlite3_clear_bindings(stmt);
    owner->idle.emplace(key, StmtPool::Idle{stmt, tail_offset});
    return;
  }
  sqlite3_finalize(stmt);
}

Stmt Connection::Prepare(std::string_view sql, std::string_view* tail) const {
  sqlite3* handle = Handle();
  std::string key(sql);
  if (auto it = pool_->idle.find(key); it != pool_->idle.end()) {
    StmtPool::Idle idle = it->second;
    pool_->idle.erase(it);
    if (tail != nullptr) *tail = sql.substr(idle.tail_offset);
    return Stmt(idle.stmt, StmtDeleter{pool_, std::move(key), idle.tail_offset});
  }
  sqlite3_stmt* stmt = nullptr;
  const char* end = nullptr;
  const auto start = std::chrono::steady_clock::now();
  int rc = sqlite3_prepare_v2(handle, sql.data(), static_cast<int>(sql.size()), &stmt, &end);
  if (rc != SQLITE_OK) {
    std::string message = sqlite3_errmsg(handle);
    sqlite3_finalize(stmt);
    RaiseError(rc, message, MillisecondsSince(start));
  }
  if (schema_changing_) {
    schema_changing_ = false;
    pool_->Flush();
  }
  const auto tail_offset = static_cast<size_t>(end - sql.data());
  if (tail != nullptr) *tail = sql.substr(tail_offset);
  if (stmt == nullptr) return Stmt(nullptr, StmtDeleter{});
  return Stmt(stmt, StmtDeleter{pool_, std::move(key), tail_offset});
}

int Connection::Step(sqlite3_stmt* stmt) const {
  // The busy handler waits inside sqlite3_step, so the time the step took is the time waited when it
  // ends busy: a lock SQLite must not wait for (to avoid a deadlock) fails at once, and says so.
  const auto start = std::chrono::steady_clock::now();
  int rc = sqlite3_step(stmt);
  if (schema_changing_) {
    // A pooled schema statement was prepared again inside the step.
    schema_changing_ = false;
    pool_->Flush();
  }
  if (rc == SQLITE_ROW || rc == SQLITE_DONE) return rc;
  std::string message = sqlite3_errmsg(db_);
  sqlite3_reset(stmt);
  RaiseError(rc, message, MillisecondsSince(start));
}

int64_t Connection::Exec(std::string_view sql) const {
  int64_t changed = 0;
  while (!sql.empty()) {
    std::string_view tail;
    Stmt stmt = Prepare(sql, &tail);
    sql = tail;
    if (!stmt) continue;  // blanks or a comment
    while (Step(stmt.get()) == SQLITE_ROW) {
    }
    changed = sqlite3_changes64(db_);
  }
  return changed;
}

void Connection::Fail(int rc) const {
  RaiseError(rc, db_ != nullptr ? sqlite3_errmsg(db_) : sqlite3_errstr(rc), busy_ms_);
}

void Connection::RaiseError(int rc, std::string_view message, int waited_ms) const {
  if ((rc & 0xff) == SQLITE_READONLY && !refusal_.empty()) internal::Raise(ErrorKind::ReadOnly, refusal_);
  RaiseSqlite(rc, message, path_, waited_ms);
}

void Connection::RefuseWrites(std::string reason) {
  Exec("PRAGMA query_only = 1");
  refusal_ = std::move(reason);
}

int64_t Connection::SchemaVersion(const std::string& schema) const {
  Stmt stmt = Prepare("PRAGMA \"" + schema + "\".schema_version");
  return Step(stmt.get()) == SQLITE_ROW ? sqlite3_column_int64(stmt.get(), 0) : -1;
}

std::shared_ptr<const void> Connection::Recall(const std::string& key, int64_t version) const {
  auto it = facts_.find(key);
  if (it == facts_.end() || it->second.first != version) return nullptr;
  return it->second.second;
}

void Connection::Remember(const std::string& key, int64_t version, std::shared_ptr<const void> facts) const {
  facts_[key] = {version, std::move(facts)};
}

void Connection::Register(const std::shared_ptr<Closable>& item) {
  // Forget items that ended on their own, so that a long-lived connection does not collect them.
  std::erase_if(items_, [](const std::weak_ptr<Closable>& w) { return w.expired(); });
  items_.push_back(item);
}

void Connection::Close() {
  if (db_ == nullptr) return;
  auto items = std::move(items_);
  items_.clear();
  for (auto& weak : items) {
    if (auto item = weak.lock()) item->CloseFromDatabase();
  }
  // Idle statements end with the connection; ones still in use are finalized when released (close_v2
  // keeps the handle alive until then).
  pool_->closed = true;
  for (auto& [text, idle] : pool_->idle) sqlite3_finalize(idle.stmt);
  pool_->idle.clear();
  sqlite3_close_v2(db_);
  db_ = nullptr;
}

void Bind(const Connection& conn, sqlite3_stmt* stmt, int index, const Stored& value) {
  int rc = SQLITE_OK;
  switch (value.kind) {
    case Stored::Kind::Null: rc = sqlite3_bind_null(stmt, index); break;
    case Stored::Kind::Integer: rc = sqlite3_bind_int64(stmt, index, value.integer); break;
    case Stored::Kind::Real: rc = sqlite3_bind_double(stmt, index, value.real); break;
    case Stored::Kind::Text:
      rc = sqlite3_bind_text64(stmt, index, value.bytes.data(), value.bytes.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
      break;
    case Stored::Kind::Blob:
      rc = sqlite3_bind_blob64(stmt, index, value.bytes.data(), value.bytes.size(), SQLITE_TRANSIENT);
      break;
  }
  if (rc != SQLITE_OK) conn.Fail(rc);
}

Variant ReadColumn(sqlite3_stmt* stmt, int column, int32_t code) {
  switch (sqlite3_column_type(stmt, column)) {
    case SQLITE_INTEGER: return DecodeInteger(sqlite3_column_int64(stmt, column), code);
    case SQLITE_FLOAT: return DecodeReal(sqlite3_column_double(stmt, column), code);
    case SQLITE_TEXT: {
      const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
      int n = sqlite3_column_bytes(stmt, column);
      return DecodeText(std::string_view(p, static_cast<size_t>(n)), code);
    }
    case SQLITE_BLOB: {
      const auto* p = static_cast<const char*>(sqlite3_column_blob(stmt, column));
      int n = sqlite3_column_bytes(stmt, column);
      return DecodeBlob(std::string_view(p ? p : "", static_cast<size_t>(n)), code);
    }
    default: return Variant(Null);
  }
}

std::string ColumnText(sqlite3_stmt* stmt, int column) {
  const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
  if (p == nullptr) return std::string();
  return std::string(p, static_cast<size_t>(sqlite3_column_bytes(stmt, column)));
}

}  // namespace quorbex::db::internal::sqlite
