#include "platform/db/sqlite/sqlite_dialect.h"

#include "platform/db/errors.h"
#include "platform/db/types.h"

namespace quorbex::db::internal::sqlite {
namespace {

using quorbex::internal::IsBlank;
using quorbex::internal::LowerAscii;

bool IsWordChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}

}  // namespace


std::string DeclaredType(int32_t code, int32_t size) {
  switch (code) {
    case 1: return "BOOLEAN";
    case 2: return "BYTE";
    case 3: return "SMALLINT";
    case 4: return "INTEGER";
    case 5: return "CURRENCY";
    case 6: return "REAL";
    case 7: return "DOUBLE";
    case 8: return "DATETIME";
    case 10: return "VARCHAR(" + std::to_string(size > 0 ? size : 255) + ")";
    case 11: return "BLOB";
    case 12: return "LONGTEXT";
    // Two words on purpose: "TEXT" gives the column text affinity, so SQLite never turns a GUID of
    // digits into a number.
    case 15: return "GUID TEXT";
    default: Raise(ErrorKind::InvalidOperation, "Invalid field data type (" + std::to_string(code) + ").");
  }
}

std::string RequiredRule(std::string_view column) { return "CHECK (" + Quote(column) + " IS NOT NULL)"; }

std::string NonEmptyRule(std::string_view column) { return "CHECK (" + Quote(column) + " <> '')"; }

std::string ColumnDefinition(const ColumnSpec& column, bool in_create) {
  if (column.name.empty()) Raise(ErrorKind::InvalidOperation, "A field needs a name.");
  std::string def = Quote(column.name) + " ";
  if ((column.attributes & 16) != 0) {
    if (column.type != 4 && column.type != 3 && column.type != 2) {
      Raise(ErrorKind::InvalidOperation, "Only a Long field can be an auto-increment field ('" + column.name + "').");
    }
    if (!in_create) {
      Raise(ErrorKind::NotSupported,
            "An auto-increment field can only be created with its table ('" + column.name + "').");
    }
    return def + "INTEGER PRIMARY KEY AUTOINCREMENT";
  }
  def += DeclaredType(column.type, column.size);
  if (column.required) def += in_create ? " NOT NULL" : " " + RequiredRule(column.name);
  if (!column.allow_zero_length && IsTextCode(column.type)) def += " " + NonEmptyRule(column.name);
  return def;
}



std::string ViewBody(std::string_view sql) {
  int depth = 0;
  for (size_t i = 0; i < sql.size(); ++i) {
    char c = sql[i];
    if (c == '\'' || c == '"' || c == '`' || c == '[') {
      char close = c == '[' ? ']' : c;
      size_t j = sql.find(close, i + 1);
      if (j == std::string_view::npos) break;
      i = j;
    } else if (c == '-' && i + 1 < sql.size() && sql[i + 1] == '-') {
      size_t j = sql.find('\n', i);
      if (j == std::string_view::npos) break;
      i = j;
    } else if (c == '/' && i + 1 < sql.size() && sql[i + 1] == '*') {
      size_t j = sql.find("*/", i + 2);
      if (j == std::string_view::npos) break;
      i = j + 1;
    } else if (c == '(') {
      ++depth;
    } else if (c == ')') {
      --depth;
    } else if (depth == 0 && (c == 'a' || c == 'A') && i + 1 < sql.size() && LowerAscii(sql[i + 1]) == 's' &&
               (i == 0 || !IsWordChar(sql[i - 1])) && (i + 2 >= sql.size() || !IsWordChar(sql[i + 2]))) {
      std::string_view body = sql.substr(i + 2);
      while (!body.empty() && IsBlank(body.front())) body.remove_prefix(1);
      return std::string(TrimStatement(body));
    }
  }
  return std::string(sql);
}




}  // namespace quorbex::db::internal::sqlite
