// The lean baseline of the loading benchmarks: a plain sqlite3 prepare/step loop that copies every value
// of a query's result into a std::vector<Variant>, each as the variant of its stored kind.
#pragma once

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "quorbex/variant.h"

namespace quorbex::bench {


inline std::unique_ptr<std::vector<Variant>> ReadAllWithSqlite(const std::string& path, const char* sql) {
  auto cells = std::make_unique<std::vector<Variant>>();
  sqlite3* db = nullptr;
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
      sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) != SQLITE_OK) {
    std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(db));
    std::exit(1);
  }
  const int n = sqlite3_column_count(stmt);
  while (sqlite3_step(stmt) == SQLITE_ROW) {
    for (int j = 0; j < n; ++j) {
      switch (sqlite3_column_type(stmt, j)) {
        case SQLITE_INTEGER: cells->emplace_back(static_cast<long long>(sqlite3_column_int64(stmt, j))); break;
        case SQLITE_FLOAT: cells->emplace_back(sqlite3_column_double(stmt, j)); break;
        case SQLITE_TEXT:
          cells->emplace_back(std::string(reinterpret_cast<const char*>(sqlite3_column_text(stmt, j)),
                                          static_cast<size_t>(sqlite3_column_bytes(stmt, j))));
          break;
        default: cells->emplace_back(Null); break;
      }
    }
  }
  sqlite3_finalize(stmt);
  sqlite3_close(db);
  return cells;
}

}  // namespace quorbex::bench
