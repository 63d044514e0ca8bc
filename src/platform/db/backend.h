// The backends behind DBEngine, and what each must do.
//
// DBEngine asks the backends of the list (Backends(), in backends.cpp) in turn which one takes a name:
// a connection string by its scheme, a file by its first bytes. Nothing outside src/platform/db knows
// which engine holds a database, and nothing here names a backend but the list.
//
// The contract of a backend:
// - Open / Create / Compact as declared below; every failure raises db::EngineError through Raise()
//   (errors.h). A backend turns its engine's own error codes into an ErrorKind in one function of its
//   connection file, and nowhere else.
// - Database::Supports answers what the backend can do, truthfully: callers ask it before they write
//   (DataLayer's Save and RemoveRecord, the schema calls) and refuse with a clear text when the answer is
//   no. A read-only backend answers false to UpdatableRecordsets, SchemaChanges and StoredQueries.
// - Values travel only as bound parameters. Placeholders are "?" in the SQL texts the library writes,
//   numbered in order; a backend whose engine spells them otherwise translates them.
// - A recordset is updatable when every column comes from one base table, that table's key (primary
//   key or a full unique index) is among the columns, and each row stands for one row of the table (see
//   query_shape.h: no self-join, aggregate, DISTINCT, GROUP BY or set operation).
// - Recordsets keep their rows in a RowCache (row_cache.h); the backend supplies describing, fetching
//   and writing rows.
// - The table catalogue lists system tables first, so position 0 is never a user table.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "quorbex/engine.h"

namespace quorbex::db::internal {

// What DBEngine hands a backend along with the path.
struct OpenOptions {
  bool exclusive = false;
  bool read_only = false;
  int32_t busy_timeout_ms = 5000;
  std::string connect;
  std::string system_db;
  std::string user;
  std::string password;
};

class Backend {
 public:
  virtual ~Backend() = default;
  virtual const char* Name() const = 0;
  // True when `name` is a connection string this backend takes (a server's URI or key=value string);
  // such names are never looked up as files.
  virtual bool TakesConnectionString(std::string_view /*name*/) const { return false; }
  // True when a file that starts with `header` (up to 100 bytes) belongs to this backend.
  virtual bool Recognizes(std::string_view header) const = 0;
  // True for the backend that DBEngine::CreateDatabase uses for a new file (the embedded default).
  virtual bool CreatesFiles() const { return false; }
  // Opens an existing database of this backend's format.
  virtual std::shared_ptr<Database> Open(const std::string& path, const OpenOptions& options) = 0;
  // Creates a new, empty database (the path does not exist) and opens it.
  virtual std::shared_ptr<Database> Create(const std::string& path, const OpenOptions& options) = 0;
  // Writes a compacted copy of `source` to `destination` (which does not exist).
  virtual void Compact(const std::string& source, const std::string& destination, const OpenOptions& options) = 0;
};

// The backends built into this library, in the order DBEngine asks them.
std::span<Backend* const> Backends();

}  // namespace quorbex::db::internal
