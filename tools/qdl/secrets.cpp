#include "tools/qdl/secrets.h"

#include <regex>

namespace quorbex::qdl {

std::string MaskSecrets(std::string_view text) {
  static const std::regex uri_password(R"((\b[A-Za-z][A-Za-z0-9+.-]*://[^:/@\s]*:)[^@\s]*@)");
  static const std::regex key_password(R"((\bpassword\s*=\s*)('(?:[^'\\]|\\.)*'|[^\s]*))", std::regex::icase);
  std::string masked = std::regex_replace(std::string(text), uri_password, "$1***@");
  return std::regex_replace(masked, key_password, "$1***");
}

}  // namespace quorbex::qdl
