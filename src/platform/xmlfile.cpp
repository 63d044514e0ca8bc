#include "platform/xmlfile.h"
#include "platform/xml_wellformed.h"

#include <pugixml.hpp>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <optional>

#include "platform/files.h"
#include "value/date_time.h"
#include "quorbex/frmProgress.h"
#include "value/utf8.h"
#include "value/text_util.h"

namespace quorbex::platform {

namespace {

// ---- UTF-8 and the characters XML 1.0 can carry -----------------------------------------------------

// The length of the well-formed UTF-8 sequence at s[i] and its code point; 0 when the bytes there are
// not one (stray continuation bytes, overlong forms, surrogates, values past U+10FFFF, cut sequences).
size_t DecodeUtf8(std::string_view s, size_t i, char32_t& cp) {
  const internal::utf8::Decoded decoded = internal::utf8::DecodeAt(s, i);
  if (!decoded.valid) return 0;
  cp = decoded.code_point;
  return decoded.length;
}

// XML 1.0's Char production.
bool IsXmlChar(char32_t cp) {
  if (cp < 0x20) return cp == 0x9 || cp == 0xA || cp == 0xD;
  return cp <= 0xD7FF || (cp >= 0xE000 && cp <= 0xFFFD) || (cp >= 0x10000 && cp <= 0x10FFFF);
}

// True when every byte of `text` can stand in an XML document as it is (escaped markup aside).
bool IsXmlSafe(std::string_view text) {
  size_t i = 0;
  while (i < text.size()) {
    const unsigned char b = static_cast<unsigned char>(text[i]);
    if (b >= 0x20 && b < 0x80) {
      ++i;
      continue;
    }
    char32_t cp;
    const size_t length = DecodeUtf8(text, i, cp);
    if (length == 0 || !IsXmlChar(cp)) return false;
    i += length;
  }
  return true;
}

// The backslash form of a text XML cannot carry: "\" becomes "\\" and each byte that is not part of
// an XML character becomes "\xHH". Everything else is kept, so the text stays readable.
std::string BackslashEscape(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size() + 8);
  size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (c == '\\') {
      out += "\\\\";
      ++i;
      continue;
    }
    char32_t cp;
    const size_t length = DecodeUtf8(text, i, cp);
    if (length == 0 || !IsXmlChar(cp)) {
      const auto b = static_cast<unsigned char>(c);
      out += "\\x";
      out += kHex[b >> 4];
      out += kHex[b & 0xF];
      ++i;
      continue;
    }
    out.append(text.substr(i, length));
    i += length;
  }
  return out;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Undoes BackslashEscape; nullopt for a backslash that starts neither "\\" nor "\xHH".
std::optional<std::string> BackslashUnescape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
      continue;
    }
    if (i + 1 < text.size() && text[i + 1] == '\\') {
      out += '\\';
      ++i;
    } else if (i + 3 < text.size() && text[i + 1] == 'x' && HexDigit(text[i + 2]) >= 0 && HexDigit(text[i + 3]) >= 0) {
      out += static_cast<char>(HexDigit(text[i + 2]) * 16 + HexDigit(text[i + 3]));
      i += 3;
    } else {
      return std::nullopt;
    }
  }
  return out;
}

// ---- Writing ----------------------------------------------------------------------------------------

// Element content, or with `attribute` an attribute value. Both get the markup characters as entities
// ("]]>" cannot arise since ">" is always escaped) and CR as a character reference so that the
// parser's line-end normalisation keeps it; an attribute value also gets the quote and the blanks a
// parser would turn into spaces.
void AppendEscaped(std::string& out, std::string_view text, bool attribute) {
  size_t run = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char* entity;
    switch (text[i]) {
      case '&': entity = "&amp;"; break;
      case '<': entity = "&lt;"; break;
      case '>': entity = "&gt;"; break;
      case '\r': entity = "&#13;"; break;
      case '"': entity = attribute ? "&quot;" : nullptr; break;
      case '\n': entity = attribute ? "&#10;" : nullptr; break;
      case '\t': entity = attribute ? "&#9;" : nullptr; break;
      default: continue;
    }
    if (entity == nullptr) continue;
    out.append(text.substr(run, i - run));
    out += entity;
    run = i + 1;
  }
  out.append(text.substr(run));
}

void AppendContent(std::string& out, std::string_view text) { AppendEscaped(out, text, false); }
void AppendAttributeValue(std::string& out, std::string_view text) { AppendEscaped(out, text, true); }

// ` name="text"`, or the escaped text with ` name-escaped="1"` when XML cannot carry it as it is.
void AppendTextAttribute(std::string& out, const char* name, std::string_view text) {
  out += ' ';
  out += name;
  out += "=\"";
  if (IsXmlSafe(text)) {
    AppendAttributeValue(out, text);
    out += '"';
  } else {
    AppendAttributeValue(out, BackslashEscape(text));
    out += "\" ";
    out += name;
    out += "-escaped=\"1\"";
  }
}

template <class T>
void AppendInteger(std::string& out, T value) {
  char buffer[32];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, result.ptr);
}

template <class T>
void AppendHex(std::string& out, T bits) {
  char buffer[32];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, bits, 16);
  out.append(buffer, result.ptr);
}

// The shortest decimal text that reads back as exactly this number; NaN keeps its bits as
// "nan:" + hexadecimal, since a decimal NaN would lose its sign and payload.
template <class F>
void AppendFloat(std::string& out, F value) {
  if (std::isnan(value)) {
    using Bits = std::conditional_t<sizeof(F) == 4, uint32_t, uint64_t>;
    out += "nan:";
    AppendHex(out, std::bit_cast<Bits>(value));
    return;
  }
  char buffer[64];
  auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  out.append(buffer, result.ptr);
}

void AppendCurrency(std::string& out, Currency value) {
  const bool negative = value.scaled < 0;
  const uint64_t magnitude =
      negative ? static_cast<uint64_t>(0) - static_cast<uint64_t>(value.scaled) : static_cast<uint64_t>(value.scaled);
  if (negative) out += '-';
  AppendInteger(out, magnitude / 10000);
  uint64_t fraction = magnitude % 10000;
  if (fraction == 0) return;
  char digits[5] = {static_cast<char>('0' + fraction / 1000), static_cast<char>('0' + fraction / 100 % 10),
                    static_cast<char>('0' + fraction / 10 % 10), static_cast<char>('0' + fraction % 10), 0};
  size_t length = 4;
  while (digits[length - 1] == '0') --length;
  out += '.';
  out.append(digits, length);
}

// "yyyy-mm-dd hh:mm:ss" when that text gives back exactly this serial, else the serial itself.
void AppendDate(std::string& out, Date value) {
  if (std::isfinite(value.serial)) {
    try {
      const CivilDateTime civil = ToCivil(value);
      if (civil.year >= 100 && civil.year <= 9999 &&
          std::bit_cast<uint64_t>(MakeDate(civil).serial) == std::bit_cast<uint64_t>(value.serial)) {
        out += internal::FormatIsoDateTime(value.serial);
        return;
      }
    } catch (const std::exception&) {
      // Outside the calendar: the serial says it all.
    }
  }
  AppendFloat(out, value.serial);
}

const char* KindName(VarType type) {
  switch (type) {
    case VarType::Empty: return "Empty";
    case VarType::Null: return "Null";
    case VarType::Boolean: return "Boolean";
    case VarType::Byte: return "Byte";
    case VarType::Integer: return "Integer";
    case VarType::Long: return "Long";
    case VarType::Single: return "Single";
    case VarType::Double: return "Double";
    case VarType::Currency: return "Currency";
    case VarType::Date: return "Date";
    case VarType::String: return "String";
    case VarType::Object: return "Object";
  }
  return "Empty";
}

// An object reference cannot be written; what a plain assignment would store, its default value, is.
Variant Writable(const Variant& value) {
  if (!value.IsObject()) return value;
  try {
    Variant plain = value.AsObject() ? value.AsObject()->DefaultValue() : Variant();
    return plain.IsObject() ? Variant() : plain;
  } catch (const std::exception&) {
    return {};
  }
}

// The kind attribute, any escape mark, the closing of the start tag, the content and the end tag.
void AppendValueAndClose(std::string& out, const Variant& stored, std::string_view element) {
  const Variant value = Writable(stored);
  const VarType type = value.Type();
  out += " kind=\"";
  out += KindName(type);
  out += '"';
  const auto open = [&]() { out += '>'; };
  switch (type) {
    case VarType::Empty:
    case VarType::Null:
    case VarType::Object:
      out += "/>\n";
      return;
    case VarType::String: {
      const std::string& text = value.AsString();
      if (text.empty()) {
        out += "/>\n";
        return;
      }
      if (IsXmlSafe(text)) {
        open();
        AppendContent(out, text);
      } else {
        out += " escaped=\"1\">";
        AppendContent(out, BackslashEscape(text));
      }
      break;
    }
    case VarType::Boolean: open(); out += value.AsBoolean() ? "True" : "False"; break;
    case VarType::Byte: open(); AppendInteger(out, static_cast<int>(value.AsByte())); break;
    case VarType::Integer: open(); AppendInteger(out, value.AsInteger()); break;
    case VarType::Long: open(); AppendInteger(out, value.AsLong()); break;
    case VarType::Single: open(); AppendFloat(out, value.AsSingle()); break;
    case VarType::Double: open(); AppendFloat(out, value.AsDouble()); break;
    case VarType::Currency: open(); AppendCurrency(out, value.AsCurrency()); break;
    case VarType::Date: open(); AppendDate(out, value.AsDate()); break;
  }
  out += "</";
  out += element;
  out += ">\n";
}

// Shows the progress window during a long write or read: records `done` of `total`, passed on to the
// window whenever the whole percentage moves.
class Progress {
 public:
  Progress(bool enabled, int64_t total, std::string caption)
      : enabled_(enabled && total > 0), total_(total), caption_(std::move(caption)) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Step(int64_t done) {
    if (!enabled_) return;
    const int64_t percent = done * 100 / total_;
    if (shown_ && percent == percent_) return;
    percent_ = percent;
    shown_ = true;
    // The window counts in 32 bits; a larger table is shown in proportion.
    const int64_t scale = total_ / std::numeric_limits<int32_t>::max() + 1;
    int32_t position = static_cast<int32_t>(done / scale);
    int32_t total = static_cast<int32_t>(total_ / scale);
    form_.SetProgress(position, total, caption_);
    form_.Show();
  }

 private:
  bool enabled_;
  int64_t total_;
  std::string caption_;
  frmProgress form_;  // closes the window when the write or read ends
  int64_t percent_ = 0;
  bool shown_ = false;
};

// ---- Reading ----------------------------------------------------------------------------------------

// A failure while reading: the message that follows "ReadXML: <path>: ".
struct ReadFailure {
  std::string message;
};

template <class T>
std::optional<T> ParseInteger(std::string_view text) {
  text = internal::TrimBlanks(text);
  T value{};
  auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

template <class F>
std::optional<F> ParseFloat(std::string_view text) {
  using Bits = std::conditional_t<sizeof(F) == 4, uint32_t, uint64_t>;
  text = internal::TrimBlanks(text);
  if (text.starts_with("nan:")) {
    text.remove_prefix(4);
    Bits bits{};
    auto result = std::from_chars(text.data(), text.data() + text.size(), bits, 16);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || text.empty()) return std::nullopt;
    return std::bit_cast<F>(bits);
  }
  F value{};
  auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

std::optional<Currency> ParseCurrency(std::string_view text) {
  text = internal::TrimBlanks(text);
  const bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  const size_t point = text.find('.');
  std::string_view whole = text.substr(0, point);
  std::string_view fraction = point == std::string_view::npos ? std::string_view() : text.substr(point + 1);
  if (whole.empty() || fraction.size() > 4 || (point != std::string_view::npos && fraction.empty())) return std::nullopt;
  uint64_t magnitude = 0;
  for (char c : whole) {
    if (c < '0' || c > '9') return std::nullopt;
    if (magnitude > (std::numeric_limits<uint64_t>::max() - 9) / 10) return std::nullopt;
    magnitude = magnitude * 10 + static_cast<uint64_t>(c - '0');
  }
  if (magnitude > std::numeric_limits<uint64_t>::max() / 10000) return std::nullopt;
  uint64_t scaled = magnitude * 10000;
  uint64_t unit = 1000;
  for (char c : fraction) {
    if (c < '0' || c > '9') return std::nullopt;
    scaled += static_cast<uint64_t>(c - '0') * unit;
    unit /= 10;
  }
  const uint64_t limit = static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (negative ? 1 : 0);
  if (scaled > limit) return std::nullopt;
  Currency result;
  result.scaled = negative ? static_cast<int64_t>(static_cast<uint64_t>(0) - scaled) : static_cast<int64_t>(scaled);
  return result;
}

std::optional<Date> ParseDateValue(std::string_view text) {
  text = internal::TrimBlanks(text);
  if (text.size() == 19 && text[4] == '-' && text[7] == '-' && text[10] == ' ' && text[13] == ':' && text[16] == ':') {
    // Within the classic range only: a data file never holds a date the library cannot.
    const auto serial = internal::ParseIsoDateTime(text);
    if (!serial || !internal::IsValidSerial(*serial)) return std::nullopt;
    return Date{*serial};
  }
  auto serial = ParseFloat<double>(text);
  if (!serial) return std::nullopt;
  return Date{*serial};
}

std::optional<bool> ParseBoolean(std::string_view text) {
  text = internal::TrimBlanks(text);
  if (text == "True" || text == "true" || text == "1") return true;
  if (text == "False" || text == "false" || text == "0") return false;
  return std::nullopt;
}

// The text of an element or attribute, undoing the backslash escape when `escaped`.
std::string_view Unescaped(std::string_view text, bool escaped, std::string& buffer, const std::string& what) {
  if (!escaped) return text;
  auto plain = BackslashUnescape(text);
  if (!plain) throw ReadFailure{what + " has a broken escape sequence"};
  buffer = std::move(*plain);
  return buffer;
}

bool IsMarked(const pugi::xml_attribute& attribute) {
  const std::string_view value = attribute.value();
  return value == "1" || value == "True" || value == "true";
}

// At most `limit` bytes of `text` for a message, never ending inside a UTF-8 sequence.
std::string Shortened(std::string_view text, size_t limit = 64) {
  if (text.size() <= limit) return std::string(text);
  size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return std::string(text.substr(0, end)) + "...";
}

// One <Field>: its value, read as its kind.
Variant ReadValue(std::string_view kind, std::string_view text, bool escaped, const std::string& where) {
  const auto bad = [&](std::string_view kind_name) {
    return ReadFailure{where + ": \"" + Shortened(text) + "\" is not a valid " + std::string(kind_name) + " value"};
  };
  if (kind == "String") {
    if (!escaped) return Variant(std::string(text));
    auto plain = BackslashUnescape(text);
    if (!plain) throw ReadFailure{where + ": the text has a broken escape sequence"};
    return Variant(std::move(*plain));
  }
  if (kind == "Null") return Variant(Null);
  if (kind == "Empty" || kind == "Object") return Variant();
  auto take = [&](auto parsed) -> Variant {
    if (!parsed) throw bad(kind);
    return Variant(*parsed);
  };
  if (kind == "Long") return take(ParseInteger<int32_t>(text));
  if (kind == "Double") return take(ParseFloat<double>(text));
  if (kind == "Date") return take(ParseDateValue(text));
  if (kind == "Boolean") return take(ParseBoolean(text));
  if (kind == "Integer") return take(ParseInteger<int16_t>(text));
  if (kind == "Byte") return take(ParseInteger<uint8_t>(text));
  if (kind == "Single") return take(ParseFloat<float>(text));
  if (kind == "Currency") return take(ParseCurrency(text));
  throw ReadFailure{where + ": unknown kind \"" + Shortened(kind) + "\""};
}

}  // namespace

// ---- XmlTable -----------------------------------------------------------------------------------------

int32_t XmlTable::FieldCount(int32_t record) const {
  if (record < 1 || record > RecordCount()) return 0;
  return static_cast<int32_t>(rows[static_cast<size_t>(record - 1)].cells.size());
}

XmlRecordMarks XmlTable::RecordMarks(int32_t record) const {
  if (record < 1 || record > RecordCount()) return {};
  return rows[static_cast<size_t>(record - 1)].marks;
}

XmlDataSource::FieldView XmlTable::Field(int32_t record, int32_t field) const {
  if (field < 1 || field > FieldCount(record)) return {};
  const Cell& cell = rows[static_cast<size_t>(record - 1)].cells[static_cast<size_t>(field - 1)];
  return FieldView{cell.name, cell.type, &cell.value, cell.marks};
}

void XmlTable::Begin(std::string_view query_text, int32_t record_count) {
  query = std::string(query_text);
  rows.clear();
  rows.reserve(static_cast<size_t>(std::max(record_count, 0)));
}

void XmlTable::BeginRecord(int32_t field_count, const XmlRecordMarks& marks) {
  rows.push_back(Row{marks, {}});
  rows.back().cells.reserve(static_cast<size_t>(std::max(field_count, 0)));
}

void XmlTable::AddField(std::string_view name, int32_t type, Variant value, const XmlFieldMarks& marks) {
  if (rows.empty()) rows.emplace_back();
  rows.back().cells.push_back(Cell{std::string(name), type, std::move(value), marks});
}

void XmlTable::Discard() {
  query.clear();
  rows.clear();
}

// ---- Names --------------------------------------------------------------------------------------------

bool IsXmlElementName(std::string_view name) {
  if (name.empty()) return false;
  const auto start_char = [](char32_t c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || (c >= 0xC0 && c <= 0xD6) ||
           (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) || (c >= 0x370 && c <= 0x37D) ||
           (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
           (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF);
  };
  const auto name_char = [&](char32_t c) {
    return start_char(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
  };
  size_t i = 0;
  bool first = true;
  while (i < name.size()) {
    char32_t cp;
    const size_t length = DecodeUtf8(name, i, cp);
    if (length == 0) return false;
    if (first ? !start_char(cp) : !name_char(cp)) return false;
    first = false;
    i += length;
  }
  return true;
}

// ---- XmlDataFile --------------------------------------------------------------------------------------

void XmlDataFile::WriteXML() {
  error_.clear();
  try {
    if (!output_) {
      error_ = "WriteXML: no data to write (OutputDataBinding is not set)";
      return;
    }
    if (path_.empty()) {
      error_ = "WriteXML: no file path given";
      return;
    }
    if (!IsXmlElementName(root_)) {
      error_ = "WriteXML: '" + root_ + "' is not a valid XML element name for the root element";
      return;
    }
    const XmlDataSource& source = *output_;
    const int32_t records = std::max(source.RecordCount(), 0);
    Progress progress(!disable_progress_, records, "Writing XML...");

    std::string out;
    out.reserve(256 + static_cast<size_t>(records) * static_cast<size_t>(std::max(source.FieldCount(1), 1)) * 64);
    out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<";
    out += root_;
    out += " format=\"";
    out += kFormat;
    out += "\" version=\"";
    out += kVersion;
    out += "\" records=\"";
    AppendInteger(out, records);
    out += "\">\n  <Query";
    const std::string query = source.Query();
    if (query.empty()) {
      out += "/>\n";
    } else if (IsXmlSafe(query)) {
      out += '>';
      AppendContent(out, query);
      out += "</Query>\n";
    } else {
      out += " escaped=\"1\">";
      AppendContent(out, BackslashEscape(query));
      out += "</Query>\n";
    }

    for (int32_t r = 1; r <= records; ++r) {
      const XmlRecordMarks marks = source.RecordMarks(r);
      const int32_t fields = std::max(source.FieldCount(r), 0);
      out += "  <Record";
      if (marks.changed) out += " changed=\"1\"";
      if (marks.newly_added) out += " new=\"1\"";
      if (fields == 0) {
        out += "/>\n";
        progress.Step(r);
        continue;
      }
      out += ">\n";
      for (int32_t f = 1; f <= fields; ++f) {
        const XmlDataSource::FieldView field = source.Field(r, f);
        out += "    <Field";
        AppendTextAttribute(out, "name", field.name);
        out += " type=\"";
        AppendInteger(out, field.type);
        out += '"';
        if (field.marks.changed) out += " changed=\"1\"";
        if (field.marks.status_set) out += field.marks.status ? " status=\"True\"" : " status=\"False\"";
        static const Variant kEmpty;
        AppendValueAndClose(out, field.value ? *field.value : kEmpty, "Field");
      }
      out += "  </Record>\n";
      progress.Step(r);
    }
    out += "</";
    out += root_;
    out += ">\n";

    if (!WriteFile(path_, out)) error_ = "WriteXML: cannot write the file '" + path_ + "'";
  } catch (const std::exception& e) {
    error_ = std::string("WriteXML: ") + e.what();
  }
}

void XmlDataFile::ReadXML() {
  error_.clear();
  query_.clear();
  if (!input_) input_ = std::make_shared<XmlTable>();
  XmlDataSink& sink = *input_;
  const std::string prefix = "ReadXML: '" + path_ + "': ";
  try {
    if (path_.empty()) throw ReadFailure{"ReadXML: no file path given"};
    if (!FileExists(path_)) throw ReadFailure{"ReadXML: file '" + path_ + "' not found"};
    std::optional<std::string> content = ReadFile(path_);
    if (!content) throw ReadFailure{"the file cannot be read"};
    if (auto problem = XmlWellFormednessProblem(*content)) throw ReadFailure{"not well-formed XML (" + *problem + ")"};
    // Parsed in place: the document's texts point into `content`, which outlives it.
    pugi::xml_document document;
    const pugi::xml_parse_result parsed = document.load_buffer_inplace(
        content->data(), content->size(), pugi::parse_default | pugi::parse_ws_pcdata_single, pugi::encoding_auto);
    if (!parsed) {
      throw ReadFailure{std::string("not well-formed XML (") + parsed.description() + " at byte " +
                        std::to_string(parsed.offset) + ")"};
    }
    const pugi::xml_node root = document.document_element();
    if (std::string_view(root.attribute("format").value()) != kFormat) {
      throw ReadFailure{"not a Quorbex DataLayer data file (the root element <" + std::string(root.name()) +
                        "> has no format=\"" + std::string(kFormat) + "\")"};
    }
    if (std::string_view(root.attribute("version").value()) != kVersion) {
      throw ReadFailure{"data file version \"" + std::string(root.attribute("version").value()) +
                        "\" cannot be read; this library reads version " + std::string(kVersion)};
    }
    const auto announced = ParseInteger<int32_t>(root.attribute("records").value());
    if (!announced || *announced < 0) throw ReadFailure{"the root element has no valid records count"};

    // Structure first, so that a damaged file is refused before anything reaches the sink.
    pugi::xml_node query_node;
    int32_t records = 0;
    for (pugi::xml_node child = root.first_child(); child; child = child.next_sibling()) {
      if (child.type() != pugi::node_element) continue;
      const std::string_view name = child.name();
      if (name == "Record") {
        ++records;
      } else if (name == "Query" && !query_node) {
        query_node = child;
      } else {
        throw ReadFailure{"unexpected element <" + std::string(name) + "> in the root element"};
      }
    }
    if (!query_node) throw ReadFailure{"the <Query> element is missing"};
    if (records != *announced) {
      throw ReadFailure{"the file announces " + std::to_string(*announced) + " records but holds " +
                        std::to_string(records) + "; it is incomplete or damaged"};
    }
    std::string buffer;
    const std::string_view query =
        Unescaped(query_node.child_value(), IsMarked(query_node.attribute("escaped")), buffer, "the query text");
    query_ = std::string(query);

    Progress progress(!disable_progress_, records, "Reading XML...");
    sink.Begin(query_, records);
    int32_t r = 0;
    std::string name_buffer;
    for (pugi::xml_node record = root.child("Record"); record; record = record.next_sibling("Record")) {
      ++r;
      int32_t fields = 0;
      for (pugi::xml_node child = record.first_child(); child; child = child.next_sibling()) {
        if (child.type() != pugi::node_element) continue;
        if (std::strcmp(child.name(), "Field") != 0) {
          throw ReadFailure{"record " + std::to_string(r) + ": unexpected element <" + child.name() + ">"};
        }
        ++fields;
      }
      sink.BeginRecord(fields, XmlRecordMarks{IsMarked(record.attribute("changed")), IsMarked(record.attribute("new"))});
      int32_t f = 0;
      for (pugi::xml_node field = record.child("Field"); field; field = field.next_sibling("Field")) {
        ++f;
        std::string_view name, kind, type_text;
        bool name_escaped = false, escaped = false, has_kind = false;
        XmlFieldMarks marks;
        for (pugi::xml_attribute a = field.first_attribute(); a; a = a.next_attribute()) {
          const char* an = a.name();
          if (std::strcmp(an, "name") == 0) name = a.value();
          else if (std::strcmp(an, "type") == 0) type_text = a.value();
          else if (std::strcmp(an, "kind") == 0) kind = a.value(), has_kind = true;
          else if (std::strcmp(an, "escaped") == 0) escaped = IsMarked(a);
          else if (std::strcmp(an, "name-escaped") == 0) name_escaped = IsMarked(a);
          else if (std::strcmp(an, "changed") == 0) marks.changed = IsMarked(a);
          else if (std::strcmp(an, "status") == 0) marks.status_set = true, marks.status = IsMarked(a);
        }
        const auto where = [&]() {
          return "record " + std::to_string(r) + ", field " + std::to_string(f) + " (\"" + Shortened(name) + "\")";
        };
        if (!has_kind) throw ReadFailure{where() + ": the field has no kind"};
        int32_t type = 0;
        if (!type_text.empty()) {
          auto parsed_type = ParseInteger<int32_t>(type_text);
          if (!parsed_type) throw ReadFailure{where() + ": \"" + std::string(type_text) + "\" is not a type code"};
          type = *parsed_type;
        }
        if (name_escaped) name = Unescaped(name, true, name_buffer, where() + ": the name");
        Variant value = ReadValue(kind, field.child_value(), escaped, where());
        sink.AddField(name, type, std::move(value), marks);
      }
      progress.Step(r);
    }
    sink.End();
    root_ = root.name();
  } catch (const ReadFailure& failure) {
    error_ = failure.message.starts_with("ReadXML: ") ? failure.message : prefix + failure.message;
  } catch (const std::exception& e) {
    error_ = prefix + e.what();
  }
  if (!error_.empty()) {
    // Whatever the sink got, or still held from an earlier read, goes: a failed read loads nothing.
    query_.clear();
    try {
      sink.Discard();
    } catch (...) {
    }
  }
}

}  // namespace quorbex::platform
