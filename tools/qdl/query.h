#pragma once

#include <string>

namespace quorbex::qdl {

struct QueryOptions {
  std::string database;  // path (or connection string) of the database
  std::string sql;       // the SELECT to run
  bool csv = false;      // CSV even on a terminal
  int max_width = 40;    // the widest a column of the table gets, in character cells
};

// Runs the query on the database (opened read-only) and prints its rows: as an aligned table when
// standard output is a terminal, else (or with `csv`) as ";"-separated lines with a header line,
// a value holding ";", '"' or a line break in double quotes with inner quotes doubled. Returns the
// exit code; a failure prints one line, with the engine's message for a bad query.
int RunQuery(const QueryOptions& options);

}  // namespace quorbex::qdl
