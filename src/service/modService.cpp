#include "service/modService.h"

#include <climits>
#include <cstdio>
#include <optional>
#include <utility>

#include "platform/clock.h"
#include "platform/guid.h"
#include "platform/message_box.h"
#include "quorbex/errors.h"
#include "quorbex/text.h"
#include "service/thread_state.h"

namespace quorbex::internal {

namespace {

// Byte length of the character that starts `s` (1 for a broken sequence), so that "one character
// further" never lands inside a multi-byte character.
size_t CharLength(std::string_view s) {
  if (s.empty()) return 1;
  auto b0 = static_cast<unsigned char>(s[0]);
  size_t length = b0 < 0x80 ? 1 : (b0 >> 5) == 0x6 ? 2 : (b0 >> 4) == 0xE ? 3 : (b0 >> 3) == 0x1E ? 4 : 1;
  if (length > s.size()) return 1;
  for (size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) return 1;
  }
  return length;
}

// Hands out the GetToken pieces 1, 2, 3, ... in one pass, so that splitting a text is linear instead
// of searching it from the start again for every piece.
class TokenWalker {
 public:
  TokenWalker(std::string_view text, std::string_view delimiter) : delimiter_(delimiter) {
    text_.reserve(text.size() + kTokenSentinel.size());
    text_.append(text);
    text_.append(kTokenSentinel);
  }

  // The next piece, or nullopt once the delimiter is not found any more (and from then on).
  std::optional<std::string_view> Next() {
    if (done_ || delimiter_.empty()) {
      done_ = true;
      return std::nullopt;
    }
    size_t found = text_.find(delimiter_, search_from_);
    if (found == std::string::npos) {
      done_ = true;
      return std::nullopt;
    }
    size_t start = have_previous_ ? previous_ + delimiter_.size() : 0;
    // Overlapping finds (a delimiter such as ";;" in ";;;") leave nothing between them.
    std::string_view piece = found > start ? std::string_view(text_).substr(start, found - start) : std::string_view();
    previous_ = found;
    have_previous_ = true;
    search_from_ = found + CharLength(std::string_view(text_).substr(found));
    return piece;
  }

 private:
  std::string text_;
  std::string_view delimiter_;
  size_t previous_ = 0;
  bool have_previous_ = false;
  size_t search_from_ = 0;
  bool done_ = false;
};

std::string ReplaceAll(std::string text, std::string_view find, std::string_view replacement) {
  if (find.empty() || text.find(find) == std::string::npos) return text;
  return ReplaceText(text, find, replacement);
}

std::string HexByte(uint8_t byte) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  return {kDigits[byte >> 4], kDigits[byte & 0x0F]};
}

template <class T>
bool ApplyOperator(const T& a, const T& b, const std::string& op) {
  if (op == "=") return a == b;
  if (op == "<>") return a != b;
  if (op == ">") return a > b;
  if (op == ">=") return a >= b;
  if (op == "<") return a < b;
  if (op == "<=") return a <= b;
  return false;
}

}  // namespace

std::string GetToken(std::string_view text, std::string_view delimiter, int32_t n) {
  if (n < 1 || delimiter.empty()) return "";
  TokenWalker walker(text, delimiter);
  std::optional<std::string_view> piece;
  for (int32_t i = 1; i <= n; ++i) {
    piece = walker.Next();
    if (!piece) return "";
  }
  return std::string(*piece);
}

std::shared_ptr<Collection<std::string>> SplitToCollection(std::string_view text, std::string_view delimiter,
                                                           bool upper, bool lower, bool trim) {
  auto pieces = std::make_shared<Collection<std::string>>();
  TokenWalker walker(text, delimiter);
  const int32_t limit = Len(text);
  for (int32_t n = 1; n <= limit; ++n) {
    auto raw = walker.Next();
    if (!raw) break;
    std::string piece(*raw);
    if (upper) piece = UCase(piece);
    if (lower) piece = LCase(piece);
    if (trim) piece = Trim(piece);
    if (piece.empty()) break;
    pieces->Add(std::move(piece));
  }
  return pieces;
}

std::string ReplaceText(std::string_view text, std::string_view find, std::string_view replacement) {
  if (find.empty()) return std::string(text);
  std::string out;
  out.reserve(text.size());
  size_t from = 0;
  for (size_t found = text.find(find); found != std::string_view::npos; found = text.find(find, from)) {
    out.append(text, from, found - from);
    out.append(replacement);
    from = found + find.size();
  }
  out.append(text, from, std::string_view::npos);
  return out;
}

std::string CleanText(std::string_view text) {
  // The order of the steps is part of the result for broken UTF-8 (a removal can join two bytes into
  // a character a later step replaces), so it stays exactly as listed.
  static const std::pair<std::string_view, std::string_view> kSteps[] = {
      {"'", ""},   {".", ""},   {"-", ""},  {"_", ""},  {"@", ""},  {"#", ""},
      {"ä", "ae"}, {"ü", "ue"}, {"ö", "oe"}, {"é", "e"}, {"à", "a"}, {"ã", "a"}, {"ñ", "n"},
      {"&", ""},   {" ", ""},   {":", ""},  {",", ""},  {";", ""},  {"/", ""},  {"\\", ""}, {"%", ""},
      {"*", ""},   {"´", ""},   {"{", ""},  {"}", ""},  {"[", ""},  {"]", ""},  {"~", ""},  {"<", ""},
      {">", ""},
      {"â", "a"},  {"ê", "e"},  {"ô", "o"}, {"û", "u"}, {"ò", "o"}, {"ó", "o"},
      {"\"", ""},  {"\r\n", ""}, {"\r", ""}, {"\n", ""},
  };
  std::string out(text);
  for (const auto& [find, replacement] : kSteps) out = ReplaceAll(std::move(out), find, replacement);
  return out;
}

std::string SortKeyText(ByRef<std::string> text) {
  static const std::pair<std::string_view, std::string_view> kSteps[] = {
      {"ü", "ue"}, {"ä", "ue"}, {"ö", "ue"}, {"é", "e"}, {"è", "e"},
      {"à", "a"},  {"û", "u"},  {"â", "a"},  {"ô", "o"},
  };
  std::string key = LCase(*text);
  for (const auto& [find, replacement] : kSteps) key = ReplaceAll(std::move(key), find, replacement);
  *text = key;
  return key;
}

std::string NewGUIDText() {
  auto guid = platform::CreateGuid();
  if (!guid) return "";
  std::string text;
  text.reserve(32);
  for (uint8_t byte : *guid) text += HexByte(byte);
  return text;
}

std::string TimeStampName() {
  CivilDateTime now = ToCivil(platform::NowLocal());
  char digits[16];
  std::snprintf(digits, sizeof digits, "%02d%02d%02d", now.hour % 100, now.minute % 100, now.second % 100);
  return std::string("DataLayer_") + digits;
}

std::string UniqueSuffix() {
  CivilDateTime now = ToCivil(platform::NowLocal());
  char digits[32];
  std::snprintf(digits, sizeof digits, "%04d%02d%02d_%02d%02d%02d", now.year % 10000, now.month % 100,
                now.day % 100, now.hour % 100, now.minute % 100, now.second % 100);
  return digits;
}

std::string ToText(const Variant& value) {
  try {
    return CStr(value);
  } catch (...) {
    return "";
  }
}

std::string NullToText(const Variant& value) {
  if (value.IsNull()) return "";
  return CStr(value);
}

int32_t ToLong(const Variant& value) { return CLng(value); }

Variant SelectPartBeforeWhereID(const std::string& sql) {
  std::string upper = UCase(sql);
  if (upper.find("WHERE ID =") != std::string::npos || upper.find("WHERE ID=") != std::string::npos) {
    return Variant(GetToken(upper, "WHERE", 1));
  }
  return Variant(sql);
}

bool CompareNumbers(double a, double b, const std::string& strOperator) { return ApplyOperator(a, b, strOperator); }

bool CompareDates(Date a, Date b, const std::string& strOperator) {
  return ApplyOperator(a.serial, b.serial, strOperator);
}

bool CompareTexts(std::string_view a, std::string_view b, const std::string& strOperator) {
  // string_view compares bytes as unsigned, which for UTF-8 is the order of the character codes.
  return ApplyOperator(a, b, strOperator);
}

bool CompareValues(const Variant& value, const Variant& compareValue, const std::string& strOperator) {
  return ValueTest(compareValue, strOperator).Matches(value);
}

namespace {

const Variant& NullAsEmptyText(const Variant& value) {
  static const Variant kEmptyText{std::string()};
  return value.IsNull() ? kEmptyText : value;
}

}  // namespace

ValueTest::ValueTest(const Variant& compareValue, const std::string& strOperator)
    : right_(NullAsEmptyText(compareValue)), pattern_(ToText(right_)) {
  if (strOperator == "=") op_ = Operator::Equal;
  else if (strOperator == "<>") op_ = Operator::Differ;
  else if (strOperator == ">") op_ = Operator::Greater;
  else if (strOperator == ">=") op_ = Operator::GreaterOrEqual;
  else if (strOperator == "<") op_ = Operator::Less;
  else if (strOperator == "<=") op_ = Operator::LessOrEqual;
  // The wildcard test looks at the compare value's text form; one without a text form has no "*".
  const bool leading_star = !pattern_.empty() && pattern_.front() == '*';
  const bool trailing_star = !pattern_.empty() && pattern_.back() == '*';
  if (leading_star) wildcard_ = Wildcard::EndsWith;
  if (trailing_star) wildcard_ = Wildcard::StartsWith;
  if (leading_star && trailing_star) wildcard_ = Wildcard::Contains;
}

template <class T>
bool ValueTest::Apply(const T& a, const T& b) const {
  switch (op_) {
    case Operator::Equal: return a == b;
    case Operator::Differ: return a != b;
    case Operator::Greater: return a > b;
    case Operator::GreaterOrEqual: return a >= b;
    case Operator::Less: return a < b;
    case Operator::LessOrEqual: return a <= b;
    case Operator::None: break;
  }
  return false;
}

const std::string& ValueTest::Wanted() {
  if (!wanted_) {
    switch (wildcard_) {
      case Wildcard::EndsWith: wanted_ = UCase(Mid(pattern_, 2)); break;
      case Wildcard::StartsWith: wanted_ = UCase(Left(pattern_, Len(pattern_) - 1)); break;
      case Wildcard::Contains: {
        // A lone "*" is both first and last character: the middle would have length -1.
        const int32_t middle = Len(pattern_) - 2;
        if (middle < 0) RaiseRuntimeError(errnum::kInvalidProcedureCall);
        wanted_ = UCase(Mid(pattern_, 2, middle));
        break;
      }
      case Wildcard::None: wanted_ = std::string(); break;
    }
  }
  return *wanted_;
}

bool ValueTest::Matches(const Variant& value) {
  const Variant& left = NullAsEmptyText(value);
  // Two numbers compare as numbers, else two dates as dates, whatever the pattern says. The compare
  // value's side of each test is made once, when first asked. The plain number kinds, the bulk of
  // what filters meet, are read without the general conversion.
  std::optional<double> plain;
  switch (left.Type()) {
    case VarType::Long: plain = left.AsLong(); break;
    case VarType::Double: plain = left.AsDouble(); break;
    case VarType::Integer: plain = left.AsInteger(); break;
    case VarType::Byte: plain = left.AsByte(); break;
    case VarType::Single: plain = left.AsSingle(); break;
    default: break;
  }
  if (plain || IsNumeric(left)) {
    if (!right_is_number_) right_is_number_ = IsNumeric(right_);
    if (*right_is_number_) {
      const double a = plain ? *plain : CDbl(left);
      if (!right_number_) right_number_ = CDbl(right_);
      return Apply(a, *right_number_);
    }
  }
  if (IsDate(left)) {
    if (!right_is_date_) right_is_date_ = IsDate(right_);
    if (*right_is_date_) {
      const Date a = CDate(left);
      if (!right_date_) right_date_ = CDate(right_);
      return Apply(a.serial, right_date_->serial);
    }
  }
  switch (wildcard_) {
    case Wildcard::EndsWith: {
      const std::string& wanted = Wanted();
      return Apply<std::string_view>(UCase(Right(CStr(left), Len(wanted))), wanted);
    }
    case Wildcard::StartsWith: {
      const std::string& wanted = Wanted();
      return Apply<std::string_view>(UCase(Left(CStr(left), Len(wanted))), wanted);
    }
    case Wildcard::Contains: {
      const std::string& wanted = Wanted();
      const std::string whole = UCase(CStr(left));
      // Found: the value's operand is the occurrence itself, which equals the wanted text.
      if (whole.find(wanted) != std::string::npos) return Apply<std::string_view>(wanted, wanted);
      return Apply<std::string_view>(whole, wanted);
    }
    case Wildcard::None: break;
  }
  const std::string whole = UCase(CStr(left));
  if (!right_upper_) right_upper_ = UCase(CStr(right_));
  // string_view compares bytes as unsigned, which for UTF-8 is the order of the character codes.
  return Apply<std::string_view>(whole, *right_upper_);
}

void AppendErrorStatus(const std::string& text) {
  ThreadState& state = State();
  if (text.empty()) {
    state.error_text.clear();
    state.error_count = 0;
    return;
  }
  if (state.error_count < INT32_MAX) ++state.error_count;
  state.error_text += "\r\n";
  state.error_text += std::to_string(state.error_count);
  state.error_text += ") ";
  state.error_text += text;
}

int32_t MessageRoutine(const std::string& text, int32_t style, const std::string& title) {
  if (State().suppress_all_messages) {
    AppendErrorStatus(text);
    return 0;
  }
  return platform::MsgBox(text, style, title);
}

}  // namespace quorbex::internal
