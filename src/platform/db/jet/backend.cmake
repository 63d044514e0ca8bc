# The Jet backend (read-only .mdb/.accdb files): built when libmdb (mdbtools-dev) is present. Its
# mirror lives in SQLite, so it needs the SQLite backend too.
find_package(SQLite3)
find_package(PkgConfig)
if(PkgConfig_FOUND)
  pkg_check_modules(LIBMDB IMPORTED_TARGET libmdb)
endif()
if(LIBMDB_FOUND AND SQLite3_FOUND)
  quorbex_backend(jet QUORBEX_WITH_JET PkgConfig::LIBMDB)
else()
  message(STATUS "libmdb (mdbtools-dev) or sqlite3 not found: Jet/ACE files are recognised but not read.")
endif()
