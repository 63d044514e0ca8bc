// Numbers to text and back, shared by the conversions and comparisons of Variant.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "quorbex/locale.h"
#include "quorbex/variant.h"

namespace quorbex::internal {

enum class ScanStatus { kOk, kNotNumber, kOverflow };

struct NumberScan {
  ScanStatus status = ScanStatus::kNotNumber;
  double value = 0.0;
};

// Reads the whole text as a number in `locale`: blanks around it, a leading or trailing sign or
// parentheses for a negative, thousands separators in the integer part, the decimal separator, an
// exponent (E or D), or &H / &O integers.
NumberScan ScanNumber(std::string_view text, const Locale& locale);

// The leading number of the text with "." as decimal point; blanks, tabs and line feeds anywhere are
// skipped. Raises 6 for a number beyond the range of Double.
double ScanLeadingNumber(std::string_view text);

// The classic text of a Double (15 significant digits) or a Single (7): the shortest of those digits,
// in exponent form ("1E+20", "1E-05") outside the range printf's %G writes plainly; the locale's
// decimal separator.
std::string FormatFloating(double value, bool single, const Locale& locale);
std::string FormatCurrency(Currency value, const Locale& locale);

// The 15 significant decimal digits of |value| (> 0, finite) as an integer, and the decimal exponent of
// the first: |value| ~ digits * 10^(exponent - 14).
struct DecimalDigits {
  int64_t digits = 0;
  int exponent = 0;
};
DecimalDigits SignificantDigits(double value);

// `x` rounded to a whole number, halves to the even neighbour (2.5 is 2, 3.5 is 4, -0.5 is -0), as
// the runtime's conversions round; independent of the rounding mode the process may have set.
double RoundHalfEven(double x) noexcept;

// Divides by 10^power (0 <= power <= 18), rounding half to even.
int64_t DivideRoundHalfEven(int64_t value, int power);

}  // namespace quorbex::internal
