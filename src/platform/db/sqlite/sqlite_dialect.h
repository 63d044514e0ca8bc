// The SQL text this backend writes: quoting, column and index definitions, and the few pieces of
// SQLite's schema text it reads back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/db/schema_objects.h"
#include "platform/db/sql_text.h"
#include "value/text_util.h"

namespace quorbex::db::internal::sqlite {

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
// Marks a unique index that was created as the table's primary index.
inline constexpr std::string_view kPrimaryMark = "/*primary*/";
// The query text of a CREATE VIEW statement (what follows its first top-level AS).
std::string ViewBody(std::string_view create_view);

}  // namespace quorbex::db::internal::sqlite
