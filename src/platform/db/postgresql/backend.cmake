# The PostgreSQL backend, for databases on a server: built when libpq (libpq-dev) is present.
find_package(PostgreSQL)
if(PostgreSQL_FOUND)
  quorbex_backend(postgresql QUORBEX_WITH_POSTGRESQL PostgreSQL::PostgreSQL)
else()
  message(WARNING "libpq (libpq-dev) not found: the PostgreSQL backend is switched off, and postgresql:// "
                  "connection strings are refused.")
endif()
