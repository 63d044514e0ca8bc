// SQL text every backend writes or reads the same way: quoted names, index names, and telling a lone
// table name from a statement.
#pragma once

#include <string>
#include <string_view>

#include "value/text_util.h"

namespace quorbex::db::internal {

// "name" with inner double quotes doubled: standard SQL, which every backend here reads.
std::string Quote(std::string_view identifier);
// Index names are unique per database (or schema), the engine's per table: an index is stored as
// "<table>.<name>" and shown without the prefix.
std::string PhysicalIndexName(std::string_view table, std::string_view name);
std::string DisplayIndexName(std::string_view table, std::string_view physical);
// True for a lone table or query name (letters, digits, "_", or one [bracketed] or "quoted" name).
bool IsBareName(std::string_view text);
// The name without [brackets] or "quotes".
std::string Unbracket(std::string_view name);
// Alphabetical order of names with the letter case of A-Z ignored (as catalogues list them).
bool NameBefore(std::string_view a, std::string_view b);
// TrimStatement: the text without surrounding blanks and trailing semicolons; SameName: equality
// ignoring the case of A-Z.
using quorbex::internal::SameName;
using quorbex::internal::TrimStatement;

}  // namespace quorbex::db::internal
