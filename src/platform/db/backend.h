// The backends behind DBEngine: each one opens, creates and compacts the databases of one engine.
// DBEngine picks the backend by the file's first bytes (or the connection string), so nothing outside
// src/platform/db knows which engine holds a database.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "quorbex/engine.h"

namespace quorbex::db {

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
  // True when a file that starts with `header` (up to 100 bytes) belongs to this backend.
  virtual bool Recognizes(std::string_view header) const = 0;
  // Opens an existing database of this backend's format.
  virtual std::shared_ptr<Database> Open(const std::string& path, const OpenOptions& options) = 0;
  // Creates a new, empty database (the path does not exist) and opens it.
  virtual std::shared_ptr<Database> Create(const std::string& path, const OpenOptions& options) = 0;
  // Writes a compacted copy of `source` to `destination` (which does not exist).
  virtual void Compact(const std::string& source, const std::string& destination, const OpenOptions& options) = 0;
};

// The SQLite backend (sqlite/sqlite_backend.cpp).
Backend& SqliteBackend();

}  // namespace quorbex::db
