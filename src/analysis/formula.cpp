#include "quorbex/Formula.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>

#include "quorbex/errors.h"
#include "quorbex/locale.h"
#include "value/number_text.h"
#include "value/text_util.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr std::string_view kPiText = "3.1415926535897932384626433832795";
// The degree conversions use this rounded constant rather than the exact one; results depend on it.
constexpr double kPiDegrees = 3.14159265358979;

constexpr std::string_view kNoProgress =
    "Formula cannot be reduced: an operator is missing between two values";

// A failure that stops the evaluation; its text becomes ErrorInfo.
class EvaluationStop : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[noreturn]] void Stop(std::string_view description) { throw EvaluationStop(std::string(description)); }
[[noreturn]] void Stop(int32_t runtime_error) { Stop(RuntimeErrorText(runtime_error)); }


// Cutting the text. The marking replaces, one after the other, "+" "-" "/" "*" "^" "SQRT" "1/x"
// "Rnd0".."Rnd4" "%" "(" ")" "+/-" by themselves framed in backslashes. None of the multi-character
// patterns contains a character framed before it, and no two patterns can overlap, so the framed
// occurrences are exactly those found by one left-to-right scan of the original text ("1/x" and
// "+/-" can never match once "+" and "/" are framed). That lets the parts be cut straight from the
// original text, and the marked text be written only when someone reads it.
size_t FramedTokenLength(std::string_view s, size_t i) noexcept {
  switch (s[i]) {
    case '+': case '-': case '/': case '*': case '^': case '%': case '(': case ')':
      return 1;
    case 'S':
      return s.substr(i, 4) == "SQRT" ? 4 : 0;
    case 'R':
      if (i + 3 < s.size() && s[i + 1] == 'n' && s[i + 2] == 'd' && s[i + 3] >= '0' && s[i + 3] <= '4') {
        return 4;
      }
      return 0;
    default:
      return 0;
  }
}

// Calls `piece` for each text between two backslashes of the marked form of `s`, in order. The text
// after the last backslash of the marked form is always empty and is not reported.
template <class F>
void ForEachPiece(std::string_view s, F&& piece) {
  size_t start = 0;
  size_t i = 0;
  while (i < s.size()) {
    if (s[i] == '\\') {
      piece(s.substr(start, i - start));
      start = ++i;
      continue;
    }
    size_t len = FramedTokenLength(s, i);
    if (len == 0) {
      ++i;
      continue;
    }
    piece(s.substr(start, i - start));
    piece(s.substr(i, len));
    i += len;
    start = i;
  }
  if (start < s.size()) piece(s.substr(start));
}

std::string MarkText(std::string_view s) {
  if (s.empty()) return {};
  std::string out;
  out.reserve(s.size() + s.size() / 2 + 2);
  size_t i = 0;
  while (i < s.size()) {
    size_t len = FramedTokenLength(s, i);
    if (len == 0) {
      out.push_back(s[i++]);
      continue;
    }
    out.push_back('\\');
    out.append(s.substr(i, len));
    out.push_back('\\');
    i += len;
  }
  if (out.back() != '\\') out.push_back('\\');
  return out;
}

// The text of a computed part: the shortest text that reads back as the same double.
std::string NumberText(double value, char decimal) {
  std::array<char, 64> buf{};
  auto res = std::to_chars(buf.data(), buf.data() + buf.size(), value);
  std::string text(buf.data(), res.ptr);
  if (decimal != '.') std::replace(text.begin(), text.end(), '.', decimal);
  return text;
}

enum class Op : uint8_t { kUnknown, kAdd, kSub, kMul, kDiv, kPow };

Op OperatorOf(std::string_view t) noexcept {
  if (t.size() != 1) return Op::kUnknown;
  switch (t[0]) {
    case '+': return Op::kAdd;
    case '-': return Op::kSub;
    case '*': return Op::kMul;
    case '/': return Op::kDiv;
    case '^': return Op::kPow;
    default: return Op::kUnknown;
  }
}

double ApplyModifier(std::string_view name, double x) {
  if (name == "%") return x / 100.0;
  if (name == "Sqrt" || name == "sqrt" || name == "SQRT") {
    if (x < 0) Stop(errnum::kInvalidProcedureCall);
    return std::sqrt(x);
  }
  if (name == "1/x") {
    if (x == 0) Stop(errnum::kDivisionByZero);
    return 1.0 / x;
  }
  if (name == "+/-") return x * -1.0;
  Stop(errnum::kInvalidProcedureCall);  // a modifier part whose text a reduction has replaced by a number
}

double RoundToFraction(double x, int digits) {
  const double scale = digits == 0 ? 1.0 : digits == 1 ? 10.0 : 100.0;
  const double whole = std::trunc(x);
  const double fraction = internal::RoundHalfEven((x - whole) * scale) / scale;
  return whole + fraction;
}

double ApplyFunction(std::string_view name, double x) {
  if (name == "Int" || name == "int" || name == "INT") return std::floor(x);
  if (name == "Rnd0" || name == "rnd0" || name == "RND0") return RoundToFraction(x, 0);
  if (name == "Rnd1" || name == "rnd1" || name == "RND1") return RoundToFraction(x, 1);
  if (name == "Rnd2" || name == "rnd2" || name == "RND2") return RoundToFraction(x, 2);
  if (name == "SIN-\u00B0") return std::sin(x * kPiDegrees / 180.0);
  if (name == "COSIN-\u00B0") return std::cos(x * kPiDegrees / 180.0);
  if (name == "TAN-\u00B0") return std::tan(x * kPiDegrees / 180.0);
  if (name == "ATAN-\u00B0") return std::atan(x) * 180.0 / kPiDegrees;
  if (name == "SIN-R") return std::sin(x);
  if (name == "COSIN-R") return std::sin(x);  // a sine by definition, kept for existing formulas
  if (name == "TAN-R") return std::tan(x);
  if (name == "ATAN-R") return std::atan(x);
  if (name == "Ln") {
    if (x <= 0) Stop(errnum::kInvalidProcedureCall);
    return std::log(x);
  }
  if (name == "EXP") return std::exp(x);
  Stop(errnum::kInvalidProcedureCall);  // a function part whose text a reduction has replaced by a number
}

}  // namespace

Formula::Formula() = default;
Formula::~Formula() = default;

Formula::Part& Formula::PartList::emplace_back() {
  if (size_ == capacity_) {
    auto grown = std::make_unique<Part[]>(capacity_ * 2);
    std::copy(data_, data_ + size_, grown.get());
    heap_ = std::move(grown);
    data_ = heap_.get();
    capacity_ *= 2;
  }
  Part& part = data_[size_++];
  part = Part{};
  return part;
}

void Formula::PartList::erase(size_t index) noexcept {
  std::copy(data_ + index + 1, data_ + size_, data_ + index);
  --size_;
}

const std::string& Formula::FormulaString() const {
  if (marked_pending_) {
    text_ = MarkText(source_);
    marked_pending_ = false;
  }
  return text_;
}

void Formula::FormulaString(std::string value) {
  text_ = std::move(value);
  marked_pending_ = false;
}

double Formula::CalcFormula() {
  try {
    const Locale& locale = Locale::Current();
    simple_locale_ = locale.decimal_separator.size() == 1 && locale.thousands_separator.size() <= 1;
    decimal_ = simple_locale_ ? locale.decimal_separator[0] : '\0';
    thousands_ = simple_locale_ && !locale.thousands_separator.empty() ? locale.thousands_separator[0] : '\0';

    MarkTokens();
    BuildParts(source_);
    if (has_errors_) return 0.0;

    for (;;) {
      size_t top = FindTopPart();
      if (top == 0) top = 1;
      const size_t count_before = parts_.size();
      lowered_operator_ = 0;
      bool changed = EvaluatePart(top);
      const bool removed_brackets = RemoveBrackets();
      const bool removed_empty = RemoveEmptyParts();
      if (parts_.size() == 1) {
        const double result = PartValue(parts_[0]);
        parts_.clear();
        return result;
      }
      if (!changed && !removed_brackets && !removed_empty) Stop(kNoProgress);
      if (lowered_operator_ != 0 && !removed_brackets && parts_.size() == count_before) {
        SkipOperatorWaits(lowered_operator_);
      }
    }
  } catch (const EvaluationStop& e) {
    error_info_ = e.what();
  } catch (const std::exception& e) {
    error_info_ = internal::FailureDescription(e);
  }
  has_errors_ = true;
  return 0.0;
}

void Formula::MarkTokens() {
  // A second calculation works on the marked text of the first, as the text reads then.
  if (marked_pending_) FormulaString();
  if (parts_.empty()) {
    retired_sources_.clear();
  } else {
    retired_sources_.push_back(std::move(source_));  // leftover parts of a failed run point into it
  }
  source_ = std::move(text_);
  text_.clear();
  if (source_.empty()) {
    has_errors_ = true;
    error_info_ = "No Formulastring";
    return;
  }
  marked_pending_ = true;
}

void Formula::BuildParts(std::string_view source) {
  int32_t counter = 0;
  int32_t level = 0;
  int32_t base = 0;
  ForEachPiece(source, [&](std::string_view token) {
    if (++counter > std::numeric_limits<int16_t>::max()) {
      Stop("Overflow: the formula has more than 32767 parts");
    }
    Part& part = parts_.emplace_back();
    part.text = token;
    part.type = ClassifyToken(token);
    switch (part.type) {
      case PartType::kModifier: base = 5; break;
      case PartType::kFunction: base = 4; break;
      case PartType::kOperator: base = token == "^" ? 3 : (token == "*" || token == "/") ? 2 : 1; break;
      case PartType::kOpen: level += 10; break;
      case PartType::kClose: level -= 10; break;
      default:
        base = 0;
        if (token == "Pi") part.text = kPiText;
        break;
    }
    const int32_t prio = level + base;
    if (prio > std::numeric_limits<int16_t>::max() || prio < std::numeric_limits<int16_t>::min()) {
      Stop("Overflow: brackets nested too deeply");
    }
    part.prio = static_cast<int16_t>(prio);
  });
}

Formula::PartType Formula::ClassifyToken(std::string_view t) noexcept {
  if (t.empty()) return PartType::kValue;
  // Numbers are by far the most common token; only "1/x" starts with a digit among the names.
  if (internal::IsAsciiDigit(t[0]) && t != "1/x") return PartType::kValue;
  // "Var1".."Var20" are values, as is everything that matches no name below.
  if (t.size() == 1) {
    switch (t[0]) {
      case '+': case '-': case '*': case '/': case '^': return PartType::kOperator;
      case '%': return PartType::kModifier;
      case '(': return PartType::kOpen;
      case ')': return PartType::kClose;
      default: return PartType::kValue;
    }
  }
  static constexpr std::array<std::string_view, 4> kModifiers = {"sqrt", "+/-", "Sqrt", "1/x"};
  static constexpr std::array<std::string_view, 14> kFunctions = {
      "Int",  "Rnd0",  "Rnd1", "Rnd2", "SIN-\u00B0", "SIN-R", "COSIN-\u00B0", "COSIN-R", "TAN-\u00B0", "TAN-R",
      "ATAN-\u00B0", "ATAN-R", "Ln", "EXP"};
  if (t.starts_with("Var")) return PartType::kValue;
  for (std::string_view m : kModifiers) {
    if (t == m) return PartType::kModifier;
  }
  for (std::string_view f : kFunctions) {
    if (t == f) return PartType::kFunction;
  }
  return PartType::kValue;
}

size_t Formula::FindTopPart() const noexcept {
  int16_t best = 0;
  size_t index = 0;
  for (size_t i = 0; i < parts_.size(); ++i) {
    if (parts_[i].prio > best) {
      best = parts_[i].prio;
      index = i + 1;
    }
  }
  return index;
}

Formula::Part& Formula::At(size_t index) {
  if (index == 0 || index > parts_.size()) {
    Stop("Subscript out of range: the formula has no part " + std::to_string(index));
  }
  return parts_[index - 1];
}

void Formula::SetPart(size_t index, double value) {
  if (std::isnan(value)) Stop(errnum::kInvalidProcedureCall);
  if (std::isinf(value)) Stop(errnum::kOverflow);
  Part& part = At(index);
  part.number = value == 0.0 ? 0.0 : value;  // no negative zero
  part.is_number = true;
  part.text = {};
}

void Formula::ClearPart(size_t index) noexcept {
  Part& part = parts_[index - 1];
  part.prio = 0;
  part.text = {};
  part.is_number = false;
  part.type = PartType::kNone;
}

void Formula::CountIgnoredError() {
  if (ignored_errors_ == std::numeric_limits<int32_t>::max()) Stop(errnum::kOverflow);
  ++ignored_errors_;
}

bool Formula::EvaluatePart(size_t k) {
  Part& part = At(k);
  switch (part.type) {
    case PartType::kModifier: {
      const double x = PartValue(At(k - 1));
      SetPart(k - 1, ApplyModifier(part.is_number ? std::string_view{} : part.text, x));
      ClearPart(k);
      return true;
    }
    case PartType::kOperator: {
      const bool left_closes = At(k - 1).type == PartType::kClose;
      const bool right_opens = At(k + 1).type == PartType::kOpen;
      if (left_closes || right_opens) {
        // The bracket next to it still holds unevaluated parts; they have the higher priority.
        if (part.prio == std::numeric_limits<int16_t>::min()) Stop(errnum::kOverflow);
        --part.prio;
        lowered_operator_ = k;
        return true;
      }
      const double a = PartValue(parts_[k - 2]);
      const double b = PartValue(parts_[k]);
      const Op op = part.is_number ? Op::kUnknown : OperatorOf(part.text);
      double result = 0.0;
      switch (op) {
        case Op::kAdd: result = a + b; break;
        case Op::kSub: result = a - b; break;
        case Op::kMul: result = a * b; break;
        case Op::kDiv:
          if (b == 0.0) {
            result = 0.0;
            error_info_ = "Cannot divide by 0";
            CountIgnoredError();
          } else {
            result = a / b;
          }
          break;
        case Op::kPow: result = std::pow(a, b); break;
        case Op::kUnknown: Stop(errnum::kInvalidProcedureCall);  // an operator part overwritten by a modifier
      }
      SetPart(k - 1, result);
      ClearPart(k);
      ClearPart(k + 1);
      return true;
    }
    case PartType::kFunction: {
      if (At(k + 3).type != PartType::kClose) {
        // The argument is not a single value yet.
        const bool changed = part.prio != 0;
        part.prio = 0;
        return changed;
      }
      const double x = PartValue(parts_[k + 1]);
      const double result = ApplyFunction(part.is_number ? std::string_view{} : part.text, x);
      SetPart(k, result);
      parts_[k - 1].type = PartType::kValue;
      ClearPart(k + 1);
      ClearPart(k + 2);
      ClearPart(k + 3);
      return true;
    }
    case PartType::kOpen: {
      const bool changed = part.prio != 0;
      part.prio = 0;
      const bool closes = At(k + 2).type == PartType::kClose;
      const bool after_function = k >= 2 && parts_[k - 2].type == PartType::kFunction;
      if (closes && !after_function) {
        ClearPart(k);
        ClearPart(k + 2);
        return true;
      }
      return changed;
    }
    case PartType::kValue: {
      const bool changed = part.prio != 0;
      part.prio = 0;
      // A bracket around a single value disappears unless it belongs to a function. Neighbours
      // outside the list never match.
      const bool opens_before = k >= 2 && parts_[k - 2].type == PartType::kOpen;
      const bool closes_after = k < parts_.size() && parts_[k].type == PartType::kClose;
      const bool function_before = k >= 3 && parts_[k - 3].type == PartType::kFunction;
      if (opens_before && closes_after && k >= 3 && !function_before) {
        ClearPart(k - 1);
        ClearPart(k + 1);
        return true;
      }
      return changed;
    }
    case PartType::kClose:
    case PartType::kNone: {
      const bool changed = part.prio != 0;
      part.prio = 0;
      return changed;
    }
  }
  return false;
}

bool Formula::RemoveBrackets() {
  bool changed = false;
  size_t scan = 0;       // 0-based: the parts before `scan` hold no closing bracket
  size_t opens_seen = 0;  // opening brackets among the parts before `scan`
  for (;;) {
    size_t m = scan;
    while (m < parts_.size() && parts_[m].type != PartType::kClose) {
      if (parts_[m].type == PartType::kOpen) ++opens_seen;
      ++m;
    }
    if (m == parts_.size()) break;
    // The first opening bracket at most two places before the closing one (so around at most one
    // part) forms a pair with it.
    size_t open = m;
    if (m >= 2 && parts_[m - 2].type == PartType::kOpen) {
      open = m - 2;
    } else if (m >= 1 && parts_[m - 1].type == PartType::kOpen) {
      open = m - 1;
    }
    if (open != m) {
      parts_.erase(m);
      parts_.erase(open);
      // The parts before `open` are unchanged; go on from there.
      scan = open;
      opens_seen = 0;
      for (size_t i = 0; i < open; ++i) {
        if (parts_[i].type == PartType::kOpen) ++opens_seen;
      }
      changed = true;
      continue;
    }
    if (opens_seen == 0) {
      // A closing bracket with no opening one before it.
      parts_.erase(m);
      CountIgnoredError();
      return true;
    }
    return changed;  // the brackets still hold unevaluated parts
  }
  // No closing bracket is left: every opening one is stray.
  for (size_t i = 0; i < parts_.size();) {
    if (parts_[i].type == PartType::kOpen) {
      CountIgnoredError();
      parts_.erase(i);
      changed = true;
    } else {
      ++i;
    }
  }
  return changed;
}

bool Formula::RemoveEmptyParts() {
  return parts_.erase_if([](const Part& p) { return p.IsEmpty(); }) != 0;
}

void Formula::SkipOperatorWaits(size_t k) {
  // An operator waiting for the bracket beside it is lowered by 1 per step while it stays the top
  // part and nothing else changes. Lower it at once to where another part (or none) would be taken
  // instead; the outcome is the same as stepping.
  int32_t best_before = 0;
  int32_t best_after = std::numeric_limits<int16_t>::min();
  for (size_t i = 0; i < parts_.size(); ++i) {
    if (i + 1 < k) best_before = std::max<int32_t>(best_before, parts_[i].prio);
    if (i + 1 > k) best_after = std::max<int32_t>(best_after, parts_[i].prio);
  }
  const int32_t floor = std::max({best_before, best_after - 1, 0});
  Part& part = parts_[k - 1];
  if (part.prio > floor) part.prio = static_cast<int16_t>(floor);
}

double Formula::PartValue(const Part& part) const {
  if (part.is_number) return part.number;
  if (!simple_locale_) return PartValue(part.text, '\0', '\0');
  return PartValue(part.text, decimal_, thousands_);
}

double Formula::PartValue(std::string_view text, char decimal, char thousands) {
  if (text.empty()) return 0.0;
  // Fast path for plain numbers (digits and at most one decimal separator), which any reading with
  // the locale's conventions gives the same value. Up to 15 digits the value is the digits as an
  // integer divided by a power of ten, which one IEEE division rounds correctly.
  if (decimal != '\0') {
    uint64_t mantissa = 0;
    int digits = 0;
    int fraction_digits = 0;
    bool separator = false;
    bool plain = true;
    for (const char c : text) {
      if (internal::IsAsciiDigit(c)) {
        mantissa = mantissa * 10 + static_cast<uint64_t>(c - '0');
        ++digits;
        fraction_digits += separator ? 1 : 0;
        if (digits > 15) {
          plain = false;
          break;
        }
      } else if (c == decimal && c != thousands && !separator) {
        separator = true;
      } else {
        plain = false;
        break;
      }
    }
    if (plain && digits > 0) {
      static constexpr double kPowers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                           1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
      return static_cast<double>(mantissa) / kPowers[fraction_digits];
    }
    if (digits > 15 && text.size() < 64) {
      // Long digit strings: the library's own exact reading.
      std::array<char, 64> buf{};
      bool ok = true;
      bool seen = false;
      for (size_t i = 0; i < text.size() && ok; ++i) {
        const char c = text[i];
        if (internal::IsAsciiDigit(c)) {
          buf[i] = c;
        } else if (c == decimal && c != thousands && !seen) {
          seen = true;
          buf[i] = '.';
        } else {
          ok = false;
        }
      }
      double value = 0.0;
      if (ok) {
        auto res = std::from_chars(buf.data(), buf.data() + text.size(), value);
        if (res.ec == std::errc() && res.ptr == buf.data() + text.size() && std::isfinite(value)) return value;
      }
    }
  }
  double value = 0.0;
  if (auto parsed = ParseNumber(text)) {
    value = *parsed;
  } else {
    value = Val(text);
  }
  if (std::isnan(value)) Stop(errnum::kInvalidProcedureCall);
  if (std::isinf(value)) Stop(errnum::kOverflow);
  return value;
}

std::string Formula::JoinParts() const {
  std::string out;
  for (const Part& p : parts_) {
    if (p.is_number) {
      out += NumberText(p.number, simple_locale_ ? decimal_ : '.');
    } else {
      out.append(p.text);
    }
  }
  return out;
}

}  // namespace quorbex
