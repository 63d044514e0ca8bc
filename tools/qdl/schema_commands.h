// qdl tables, qdl update and qdl compact: schema work on a database from the shell.
#pragma once

#include <string>

namespace quorbex::qdl {

// Prints each user table with its fields (name, type code and type) and its indexes. Returns the exit
// code.
int RunTables(const std::string& database);

// Applies the numbered actions of a script file to the database through the update runner. One action
// per line, "number;code;Option1;Option2;Option3" (codes: 1 create table, 2 delete table, 3 append field,
// 4 remove field, 5 set index); blank lines and lines starting with "#" are skipped. Lines are checked
// before anything runs; the actions above a malformed line are applied and the run stops there with
// the line's number and the reason. Prints what was applied and what was skipped as applied before.
int RunUpdate(const std::string& database, const std::string& script);

// Compacts the database file in place, keeping the original beside it; prints both sizes.
int RunCompact(const std::string& database);

}  // namespace quorbex::qdl
