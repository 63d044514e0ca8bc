// The SQL text this backend writes: quoting, column and index definitions, and the few pieces of
// SQLite's schema text it reads back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/db/schema_objects.h"
#include "value/text_util.h"

namespace quorbex::db::internal::sqlite {

// "name" with inner double quotes doubled.
std::string Quote(std::string_view identifier);
// The declared type written for a type code (INTEGER, VARCHAR(n), DATETIME, ...); raises
// InvalidOperation "Invalid field data type." for a code the engine does not know.
std::string DeclaredType(int32_t code, int32_t size);
// The column's definition inside CREATE TABLE (`in_create`) or ALTER TABLE ADD COLUMN. An
// auto-increment Long becomes INTEGER PRIMARY KEY AUTOINCREMENT (CREATE TABLE only). Required is
// NOT NULL in CREATE TABLE and a CHECK rule when added later (SQLite adds NOT NULL columns only with a
// default). AllowZeroLength false on a text adds a CHECK rule.
std::string ColumnDefinition(const ColumnSpec& column, bool in_create);
// The CHECK rules ColumnDefinition writes, as they stand in the table's schema text.
std::string RequiredRule(std::string_view column);
std::string NonEmptyRule(std::string_view column);
// SQLite index names are unique per database, the engine's per table: the index is stored as
// "<table>.<name>" and shown without the prefix.
std::string PhysicalIndexName(std::string_view table, std::string_view name);
std::string DisplayIndexName(std::string_view table, std::string_view physical);
// Marks a unique index that was created as the table's primary index.
inline constexpr std::string_view kPrimaryMark = "/*primary*/";
// The query text of a CREATE VIEW statement (what follows its first top-level AS).
std::string ViewBody(std::string_view create_view);
// True for a lone table or query name (letters, digits, "_", or one [bracketed] or "quoted" name).
bool IsBareName(std::string_view text);
// The name without [brackets] or "quotes".
std::string Unbracket(std::string_view name);
// TrimStatement: the text without surrounding blanks and trailing semicolons; SameName: equality
// ignoring the case of A-Z, as SQLite compares identifiers.
using quorbex::internal::SameName;
using quorbex::internal::TrimStatement;

}  // namespace quorbex::db::internal::sqlite
