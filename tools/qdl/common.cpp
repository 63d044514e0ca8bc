#include "tools/qdl/common.h"

#include <cstdio>
#include <regex>

#include "tools/qdl/secrets.h"

namespace quorbex::qdl {

std::string OneLine(const std::string& text) {
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
  return MaskSecrets(out);
}

std::string Reports(const std::string& error_status) {
  // Each entry is CR LF + number + ") " + text; the numbers are dropped.
  static const std::regex entry(R"(\r\n[0-9]+\) )");
  std::string out = std::regex_replace(error_status, entry, "\n");
  while (!out.empty() && out.front() == '\n') out.erase(0, 1);
  return out;
}

int Fail(const std::string& command, const std::string& message) {
  std::fprintf(stderr, "qdl %s: %s\n", command.c_str(), OneLine(message).c_str());
  return 1;
}

}  // namespace quorbex::qdl
