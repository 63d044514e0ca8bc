# The SQLite backend, the embedded default: built when the sqlite3 client library is present.
find_package(SQLite3)
if(SQLite3_FOUND)
  quorbex_backend(sqlite QUORBEX_WITH_SQLITE SQLite::SQLite3)
else()
  message(WARNING "sqlite3 (libsqlite3-dev) not found: the SQLite backend is switched off, and new "
                  "database files cannot be created.")
endif()
