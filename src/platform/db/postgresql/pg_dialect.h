// The SQL text this backend writes and the connection strings it takes: column definitions with the
// rules that carry the engine's type codes, "?" placeholders as "$n", splitting and classifying
// statements, and connection strings without their password.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/schema_objects.h"
#include "platform/db/sql_text.h"

namespace quorbex::db::internal::postgresql {

// True for a connection string this backend takes: a postgresql:// or postgres:// URI, or a libpq
// key=value string that starts with host= or dbname=.
bool IsConnectionString(std::string_view name);
// The connection string without its password (a URI's user part, a "password" parameter or key), so
// that it can be shown, logged and kept as the database's name.
std::string WithoutPassword(std::string_view conninfo);

// The server type written for a type code (integer, varchar(n), timestamp, ...); raises
// InvalidOperation "Invalid field data type." for a code the engine does not know.
std::string DeclaredType(int32_t code, int32_t size);
// The column's definition inside CREATE TABLE (`in_create`) or ALTER TABLE ADD COLUMN. An
// auto-increment field is an identity column (CREATE TABLE only; the table's key is added there).
// Byte is a smallint with a range rule, AllowZeroLength false a rule against the empty text, and
// Required added to an existing table a rule that leaves the rows already there alone. The rules are
// named with the prefixes below, which is how the catalogue tells a Byte from an Integer.
std::string ColumnDefinition(const ColumnSpec& column, bool in_create);
inline constexpr std::string_view kByteRule = "qdl_byte_";
inline constexpr std::string_view kNonEmptyRule = "qdl_nonempty_";
inline constexpr std::string_view kRequiredRule = "qdl_required_";
// The comment that marks a unique index created as a primary index.
inline constexpr std::string_view kPrimaryComment = "primary";

// `sql` with each "?" placeholder outside quotes and comments written "$1", "$2", ...; `count`
// receives how many there were.
std::string NumberPlaceholders(std::string_view sql, int* count);
// The statements of a text, split at the semicolons outside quotes, comments and dollar quotes; blank
// ones are left out.
std::vector<std::string_view> SplitStatements(std::string_view sql);
// The first word of a statement, upper-cased, after blanks, opening parentheses and comments.
std::string FirstKeyword(std::string_view sql);
// True for a statement that only reads (SELECT, WITH, VALUES, TABLE, SHOW, EXPLAIN).
bool IsQuery(std::string_view sql);

}  // namespace quorbex::db::internal::postgresql
