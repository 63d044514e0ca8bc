#include "value/number_text.h"
#include "value/text_util.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <system_error>

namespace quorbex::internal {

namespace {

int HexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A hexadecimal or octal literal takes the smallest of Integer and Long its digits fit, as two's
// complement: &HFFFF is -1, &H10000 is 65536, &HFFFFFFFF is -1 again.
double HexOctValue(uint64_t bits) {
  if (bits <= 0xFFFF) return static_cast<int16_t>(static_cast<uint16_t>(bits));
  return static_cast<int32_t>(static_cast<uint32_t>(bits));
}

// Collects the digits of a decimal number in plain ASCII for std::from_chars, which is exact and
// ignores the process locale. Short numbers stay on the stack.
class DigitBuffer {
 public:
  void Push(char c) {
    if (size_ < sizeof(small_)) {
      small_[size_++] = c;
      return;
    }
    if (large_.empty()) large_.assign(small_, size_);
    large_.push_back(c);
    ++size_;
  }
  const char* data() const { return large_.empty() ? small_ : large_.data(); }
  std::size_t size() const { return size_; }

 private:
  char small_[64];
  std::string large_;
  std::size_t size_ = 0;
};

// Parses the collected digits. `magnitude` is the decimal exponent of the leading digit, used to tell
// an overflow from an underflow when from_chars reports that the value is out of range.
NumberScan Convert(const DigitBuffer& digits, long magnitude, bool negative) {
  double value = 0.0;
  const auto [ptr, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  (void)ptr;
  if (ec == std::errc::result_out_of_range) {
    if (magnitude > 0) return {ScanStatus::kOverflow, 0.0};
    value = 0.0;
  } else if (ec != std::errc()) {
    return {ScanStatus::kNotNumber, 0.0};
  }
  if (!std::isfinite(value)) return {ScanStatus::kOverflow, 0.0};
  return {ScanStatus::kOk, negative ? -value : value};
}

bool StartsWithAt(std::string_view text, std::size_t i, std::string_view what) {
  return !what.empty() && text.substr(i, what.size()) == what;
}

}  // namespace

NumberScan ScanNumber(std::string_view text, const Locale& locale) {
  std::size_t i = 0;
  const std::size_t n = text.size();
  auto skip_blanks = [&] {
    while (i < n && IsBlank(text[i])) ++i;
  };
  skip_blanks();
  bool negative = false;
  bool signed_lead = false;
  bool parens = false;
  if (i < n && text[i] == '(') {
    parens = true;
    ++i;
    skip_blanks();
  }
  if (i < n && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    signed_lead = true;
    ++i;
  }
  // Trailing sign, closing parenthesis and blanks; anything else left over makes the whole text no
  // number. Returns the sign of the value (+1 / -1), or 0 when the rest is malformed.
  auto finish = [&]() -> double {
    double sign = negative ? -1.0 : 1.0;
    skip_blanks();
    if (!signed_lead && i < n && (text[i] == '+' || text[i] == '-')) {
      if (text[i] == '-') sign = -sign;
      ++i;
      skip_blanks();
    }
    if (parens) {
      if (i >= n || text[i] != ')' || sign < 0) return 0.0;
      ++i;
      sign = -sign;
      skip_blanks();
    }
    return i == n ? sign : 0.0;
  };

  if (i + 1 < n && text[i] == '&') {
    const char kind = text[i + 1];
    const bool hex = kind == 'H' || kind == 'h';
    std::size_t j = i + ((hex || kind == 'O' || kind == 'o') ? 2 : 1);
    const int base = hex ? 16 : 8;
    uint64_t bits = 0;
    std::size_t count = 0;
    bool overflow = false;
    for (; j < n; ++j) {
      const int d = HexValue(text[j]);
      if (d < 0 || d >= base) break;
      if (!overflow) bits = bits * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
      if (bits > 0xFFFFFFFFULL) overflow = true;
      ++count;
    }
    if (count == 0) return {};
    i = j;
    const double sign = finish();
    if (sign == 0.0) return {};
    if (overflow) return {ScanStatus::kOverflow, 0.0};
    return {ScanStatus::kOk, sign * HexOctValue(bits)};
  }

  const std::string_view decimal = locale.decimal_separator;
  const std::string_view thousands =
      locale.thousands_separator != locale.decimal_separator ? std::string_view(locale.thousands_separator)
                                                              : std::string_view();
  DigitBuffer digits;
  long magnitude = 0;
  bool any_digit = false;
  bool leading_zeros = true;
  while (i < n) {
    if (IsAsciiDigit(text[i])) {
      digits.Push(text[i]);
      any_digit = true;
      if (leading_zeros && text[i] != '0') leading_zeros = false;
      if (!leading_zeros) ++magnitude;
      ++i;
    } else if (any_digit && !thousands.empty() && text[i] == thousands[0] && StartsWithAt(text, i, thousands)) {
      i += thousands.size();
    } else {
      break;
    }
  }
  if (StartsWithAt(text, i, decimal)) {
    i += decimal.size();
    digits.Push('.');
    while (i < n && IsAsciiDigit(text[i])) {
      digits.Push(text[i]);
      if (leading_zeros && text[i] != '0') leading_zeros = false;
      if (leading_zeros) --magnitude;
      any_digit = true;
      ++i;
    }
  }
  if (!any_digit) return {};
  if (i < n && (text[i] == 'e' || text[i] == 'E' || text[i] == 'd' || text[i] == 'D')) {
    ++i;
    digits.Push('e');
    bool exponent_negative = false;
    if (i < n && (text[i] == '+' || text[i] == '-')) {
      exponent_negative = text[i] == '-';
      digits.Push(text[i]);
      ++i;
    }
    long exponent = 0;
    std::size_t count = 0;
    while (i < n && IsAsciiDigit(text[i])) {
      digits.Push(text[i]);
      if (exponent < 100000) exponent = exponent * 10 + (text[i] - '0');
      ++count;
      ++i;
    }
    if (count == 0) return {};
    magnitude += exponent_negative ? -exponent : exponent;
  }
  const double sign = finish();
  if (sign == 0.0) return {};
  NumberScan result = Convert(digits, leading_zeros ? 0 : magnitude, false);
  result.value *= sign;
  return result;
}

double ScanLeadingNumber(std::string_view text) {
  std::size_t i = 0;
  const std::size_t n = text.size();
  auto skip = [&] {
    while (i < n && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n')) ++i;
  };
  skip();
  bool negative = false;
  if (i < n && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
    skip();
  }
  if (i + 1 < n && text[i] == '&') {
    const char kind = text[i + 1];
    const bool hex = kind == 'H' || kind == 'h';
    const bool oct = kind == 'O' || kind == 'o';
    if (!hex && !oct) return 0.0;
    i += 2;
    const int base = hex ? 16 : 8;
    uint64_t bits = 0;
    while (true) {
      skip();
      if (i >= n) break;
      const int d = HexValue(text[i]);
      if (d < 0 || d >= base) break;
      bits = bits * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
      if (bits > 0xFFFFFFFFULL) RaiseRuntimeError(errnum::kOverflow);
      ++i;
    }
    const double v = HexOctValue(bits);
    return negative ? -v : v;
  }

  DigitBuffer digits;
  long magnitude = 0;
  bool any_digit = false;
  bool leading_zeros = true;
  auto take_digits = [&](bool fraction) {
    while (true) {
      skip();
      if (i >= n || !IsAsciiDigit(text[i])) break;
      digits.Push(text[i]);
      any_digit = true;
      if (leading_zeros && text[i] != '0') leading_zeros = false;
      if (!fraction && !leading_zeros) ++magnitude;
      if (fraction && leading_zeros) --magnitude;
      ++i;
    }
  };
  take_digits(false);
  skip();
  if (i < n && text[i] == '.') {
    ++i;
    digits.Push('.');
    take_digits(true);
  }
  if (!any_digit) return 0.0;
  skip();
  if (i < n && (text[i] == 'e' || text[i] == 'E' || text[i] == 'd' || text[i] == 'D')) {
    // The exponent counts only when digits follow; "12e" is 12.
    std::size_t j = i + 1;
    auto skip_at = [&] {
      while (j < n && (text[j] == ' ' || text[j] == '\t' || text[j] == '\n')) ++j;
    };
    skip_at();
    bool exponent_negative = false;
    std::string exponent_text;
    if (j < n && (text[j] == '+' || text[j] == '-')) {
      exponent_negative = text[j] == '-';
      ++j;
    }
    long exponent = 0;
    while (true) {
      skip_at();
      if (j >= n || !IsAsciiDigit(text[j])) break;
      exponent_text.push_back(text[j]);
      if (exponent < 100000) exponent = exponent * 10 + (text[j] - '0');
      ++j;
    }
    if (!exponent_text.empty()) {
      digits.Push('e');
      if (exponent_negative) digits.Push('-');
      for (char c : exponent_text) digits.Push(c);
      magnitude += exponent_negative ? -exponent : exponent;
    }
  }
  const NumberScan result = Convert(digits, leading_zeros ? 0 : magnitude, negative);
  if (result.status == ScanStatus::kOverflow) {
    RaiseRuntimeError(errnum::kOverflow);
  }
  return result.value;
}

std::string FormatFloating(double value, bool single, const Locale& locale) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value < 0 ? "-Infinity" : "Infinity";
  if (value == 0.0) return "0";  // also for -0
  char buffer[64];
  const auto result = single ? std::to_chars(buffer, buffer + sizeof buffer, static_cast<float>(value),
                                             std::chars_format::general, 7)
                             : std::to_chars(buffer, buffer + sizeof buffer, value,
                                             std::chars_format::general, 15);
  std::string out;
  out.reserve(static_cast<std::size_t>(result.ptr - buffer) + 2);
  for (const char* p = buffer; p != result.ptr; ++p) {
    if (*p == '.') {
      out += locale.decimal_separator;
    } else if (*p == 'e') {
      out.push_back('E');
    } else {
      out.push_back(*p);
    }
  }
  return out;
}

DecimalDigits SignificantDigits(double value) {
  char buffer[32];
  const auto [end, ec] =
      std::to_chars(buffer, buffer + sizeof buffer, std::fabs(value), std::chars_format::scientific, 14);
  DecimalDigits result;
  if (ec != std::errc()) return result;
  const char* p = buffer;
  for (; p != end && *p != 'e'; ++p) {
    if (*p >= '0' && *p <= '9') result.digits = result.digits * 10 + (*p - '0');
  }
  if (p != end) std::from_chars(p + (p[1] == '+' ? 2 : 1), end, result.exponent);
  return result;
}

double RoundHalfEven(double x) noexcept {
  double r = std::round(x);
  if (std::fabs(x - std::trunc(x)) == 0.5) r = 2.0 * std::round(x / 2.0);
  return r;
}

int64_t DivideRoundHalfEven(int64_t value, int power) {
  int64_t divisor = 1;
  for (int k = 0; k < power; ++k) divisor *= 10;
  const int64_t quotient = value / divisor;
  const int64_t rest = value % divisor;
  const int64_t twice = rest * 2;  // |rest| < 10^18, so no overflow
  if (twice > divisor || (twice == divisor && (quotient & 1))) return quotient + 1;
  if (twice < -divisor || (twice == -divisor && (quotient & 1))) return quotient - 1;
  return quotient;
}

std::string FormatCurrency(Currency value, const Locale& locale) {
  const bool negative = value.scaled < 0;
  // Unsigned arithmetic keeps the most negative value representable.
  const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(value.scaled) : static_cast<uint64_t>(value.scaled);
  std::string out = negative ? "-" : "";
  out += std::to_string(magnitude / 10000);
  uint64_t fraction = magnitude % 10000;
  if (fraction != 0) {
    std::string digits = std::to_string(fraction);
    digits.insert(0, 4 - digits.size(), '0');
    while (digits.back() == '0') digits.pop_back();
    out += locale.decimal_separator;
    out += digits;
  }
  return out;
}

}  // namespace quorbex::internal
