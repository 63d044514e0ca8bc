#include "tools/qdl/common.h"

#include <cstdio>
#include <regex>

namespace quorbex::qdl {

std::string PasswordIn(const std::string& database) {
  std::smatch match;
  static const std::regex url(R"(^[A-Za-z][A-Za-z0-9+.-]*://[^:/@]*:([^@]*)@)");
  if (std::regex_search(database, match, url)) return match[1].str();
  static const std::regex keyword(R"((?:^|\s)password\s*=\s*('[^']*'|\S+))", std::regex::icase);
  if (std::regex_search(database, match, keyword)) {
    std::string value = match[1].str();
    if (value.size() >= 2 && value.front() == '\'') value = value.substr(1, value.size() - 2);
    return value;
  }
  return {};
}

std::string OneLine(const std::string& text, const std::string& database) {
  std::string out;
  bool in_break = false;
  for (char c : text) {
    if (c == '\r' || c == '\n') {
      in_break = true;
      continue;
    }
    if (in_break && !out.empty()) out += "; ";
    in_break = false;
    out += c;
  }
  const std::string password = PasswordIn(database);
  if (!password.empty()) {
    for (size_t at = out.find(password); at != std::string::npos; at = out.find(password, at + 3)) {
      out.replace(at, password.size(), "***");
    }
  }
  return out;
}

std::string Reports(const std::string& error_status) {
  // Each entry is CR LF + number + ") " + text; the numbers are dropped.
  static const std::regex entry(R"(\r\n[0-9]+\) )");
  std::string out = std::regex_replace(error_status, entry, "\n");
  while (!out.empty() && out.front() == '\n') out.erase(0, 1);
  return out;
}

int Fail(const std::string& command, const std::string& message, const std::string& database) {
  std::fprintf(stderr, "qdl %s: %s\n", command.c_str(), OneLine(message, database).c_str());
  return 1;
}

}  // namespace quorbex::qdl
