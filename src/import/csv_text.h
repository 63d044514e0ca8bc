// Reading the text of an import file: its lines, the values of a line, and the checks a file must pass
// before anything is imported from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quorbex::internal {

// The longest line an import takes, in bytes (line break not counted).
constexpr size_t kMaxCsvLineBytes = 1024 * 1024;

// The text after a UTF-8 byte-order mark, or all of it when there is none.
std::string_view WithoutByteOrderMark(std::string_view text) noexcept;

// Walks the lines of a text: each ends at LF, a CR right before the LF or at the very end of the text
// is dropped, a last line without a line break is a line, and a line break at the end adds no line.
class CsvLineReader {
 public:
  explicit CsvLineReader(std::string_view text) noexcept : text_(text) {}
  // The next line into `line`; false at the end.
  bool Next(std::string_view& line) noexcept;
  // How far the reader has got, in bytes.
  size_t Offset() const noexcept { return pos_; }

 private:
  std::string_view text_;
  size_t pos_ = 0;
};

// The values of a line: the parts between ";" from the first up to the first empty one (not
// included). `values` is cleared first; its storage is reused from line to line.
void SplitCsvLine(std::string_view line, std::vector<std::string_view>& values);

// Why the text cannot be imported: a NUL byte, invalid UTF-8 or a line longer than kMaxCsvLineBytes,
// with the line (1-based, counted from the start of the text given) and the byte where it was found;
// "" when it can be.
std::string CheckCsvText(std::string_view text);

// Why the field names of a header cannot be used: none at all, an empty name followed by a non-empty
// one, or a name twice (compared in lower case, as DataLayer::FieldID compares); "" when they can.
// `names` receives the trimmed names up to the first empty one.
std::string CheckCsvHeader(std::string_view header, std::vector<std::string>& names);

// The table name for a file path: the part after the last "/" or "\", without its extension (from the
// last "."), trimmed of blanks; "undefined" when that is empty.
std::string TableNameFromPath(std::string_view path);

}  // namespace quorbex::internal
