#pragma once

#include <string>

namespace quorbex::qdl {

struct ImportOptions {
  std::string file;        // the ";"-separated file, its first line the field names
  std::string database;    // path of the database (a SQLite file is created when missing)
  std::string table;       // the table to fill; "" for the file's name without its extension
};

// Reads the file through a CSV import job into a DataLayer, creates the table when the database lacks
// it, and writes all records with one Save, all in one transaction: the table ends up with every
// record or, on any failure, as it was (a table the command created is gone again). Shows a progress
// bar on a terminal and prints a summary. Writes no session log. Returns the exit code; a failure prints one line.
//
// A table the command creates has a column per field, in field order, holding text (the import keeps
// every value as text). Its key is the field named "id" (any case), which the import adds as "ID" with
// a GUID per record when the header has none of its own; a header whose "id;" test passes without an
// "id" field (for example "BundeslandID;...") gets an auto-increment "id" column at the end. An
// existing table must have the file's fields as its columns, in the same order (plus that "id" at the
// end, when the file has none); otherwise nothing is written. An empty line of the file is a record
// without values, which Save passes by: the summary counts such lines apart.
int RunImport(const ImportOptions& options);

}  // namespace quorbex::qdl
