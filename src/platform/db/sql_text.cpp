#include "platform/db/sql_text.h"

#include <algorithm>

namespace quorbex::db::internal {
namespace {

bool IsWordChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}

}  // namespace

std::string Quote(std::string_view identifier) {
  std::string out = "\"";
  for (char c : identifier) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
  return out;
}

std::string PhysicalIndexName(std::string_view table, std::string_view name) {
  return std::string(table) + "." + std::string(name);
}

std::string DisplayIndexName(std::string_view table, std::string_view physical) {
  if (physical.size() > table.size() + 1 && physical[table.size()] == '.' &&
      SameName(physical.substr(0, table.size()), table)) {
    return std::string(physical.substr(table.size() + 1));
  }
  return std::string(physical);
}

bool IsBareName(std::string_view text) {
  if (text.empty()) return false;
  if (text.size() >= 3 && text.front() == '[' && text.back() == ']') {
    return text.substr(1, text.size() - 2).find(']') == std::string_view::npos;
  }
  if (text.size() >= 3 && text.front() == '"' && text.back() == '"') {
    return text.substr(1, text.size() - 2).find('"') == std::string_view::npos;
  }
  for (char c : text) {
    if (!IsWordChar(c)) return false;
  }
  return true;
}

std::string Unbracket(std::string_view name) {
  if (name.size() >= 2 && ((name.front() == '[' && name.back() == ']') || (name.front() == '"' && name.back() == '"'))) {
    return std::string(name.substr(1, name.size() - 2));
  }
  return std::string(name);
}

bool NameBefore(std::string_view a, std::string_view b) {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return static_cast<unsigned char>(quorbex::internal::LowerAscii(x)) <
           static_cast<unsigned char>(quorbex::internal::LowerAscii(y));
  });
}

}  // namespace quorbex::db::internal
