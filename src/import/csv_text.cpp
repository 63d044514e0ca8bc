#include "import/csv_text.h"

#include <cstring>
#include <unordered_set>

#include "quorbex/text.h"
#include "value/utf8.h"

namespace quorbex::internal {

std::string_view WithoutByteOrderMark(std::string_view text) noexcept {
  if (text.size() >= 3 && text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  return text;
}

bool CsvLineReader::Next(std::string_view& line) noexcept {
  if (pos_ >= text_.size()) return false;
  const char* begin = text_.data() + pos_;
  const size_t left = text_.size() - pos_;
  const void* found = std::memchr(begin, '\n', left);
  size_t length;
  if (found) {
    length = static_cast<size_t>(static_cast<const char*>(found) - begin);
    pos_ += length + 1;
  } else {
    length = left;
    pos_ = text_.size();
  }
  if (length > 0 && begin[length - 1] == '\r' && (found || pos_ == text_.size())) --length;
  line = std::string_view(begin, length);
  return true;
}

void SplitCsvLine(std::string_view line, std::vector<std::string_view>& values) {
  values.clear();
  size_t start = 0;
  for (;;) {
    const size_t end = line.find(';', start);
    const std::string_view part = line.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    if (part.empty()) return;
    values.push_back(part);
    if (end == std::string_view::npos) return;
    start = end + 1;
  }
}

std::string CheckCsvText(std::string_view text) {
  size_t line = 1;
  size_t line_start = 0;
  const auto where = [&](size_t i) {
    return "line " + std::to_string(line) + ", byte " + std::to_string(i - line_start + 1);
  };
  // The length of the line from line_start to `end` (its LF or the end of the text), without a CR.
  const auto too_long = [&](size_t end) {
    size_t length = end - line_start;
    if (length > 0 && text[end - 1] == '\r') --length;
    return length > kMaxCsvLineBytes;
  };
  const auto long_line = [&] {
    return "line " + std::to_string(line) + " is longer than 1 MB (" + std::to_string(kMaxCsvLineBytes) +
           " bytes), so this is not a file of lines";
  };
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = bytes[i];
    if (c >= 0x20 && c < 0x80) {
      ++i;
    } else if (c == '\n') {
      if (too_long(i)) return long_line();
      ++line;
      line_start = ++i;
    } else if (c == 0) {
      return "the file holds a NUL byte (" + where(i) + "), so it is not a text file";
    } else if (c < 0x80) {
      ++i;
    } else {
      const utf8::Decoded decoded = utf8::DecodeAt(text, i);
      if (!decoded.valid) {
        return "the text is not valid UTF-8 (" + where(i) + "); a file in another encoding must be converted to "
               "UTF-8 first";
      }
      i += decoded.length;
    }
  }
  if (too_long(text.size())) return long_line();
  return {};
}

std::string CheckCsvHeader(std::string_view header, std::vector<std::string>& names) {
  names.clear();
  size_t position = 0;
  size_t first_empty = 0;
  size_t start = 0;
  for (;;) {
    const size_t end = header.find(';', start);
    const std::string name = Trim(header.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    ++position;
    if (name.empty()) {
      if (first_empty == 0) first_empty = position;
    } else if (first_empty != 0) {
      return "the header has an empty field name at position " + std::to_string(first_empty) +
             ", before the name '" + name + "'";
    } else {
      names.push_back(name);
    }
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  if (names.empty()) return "the header holds no field name";
  std::unordered_set<std::string> seen;
  for (const std::string& name : names) {
    if (!seen.insert(LCase(name)).second) return "the header has the field name '" + name + "' twice";
  }
  return {};
}

std::string TableNameFromPath(std::string_view path) {
  const size_t slash = path.find_last_of("/\\");
  std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t dot = name.rfind('.');
  if (dot != std::string_view::npos) name = name.substr(0, dot);
  std::string trimmed = Trim(name);
  return trimmed.empty() ? std::string("undefined") : trimmed;
}

}  // namespace quorbex::internal
