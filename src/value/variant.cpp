#include "quorbex/variant.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include "quorbex/text.h"
#include "value/date_time.h"
#include "value/number_text.h"

namespace quorbex {

using namespace internal;

static_assert(sizeof(Variant) <= 40, "a Variant is held per field value; keep it small");

namespace {


[[noreturn]] void Raise(int32_t number) { RaiseRuntimeError(number); }

// An Object stands for its default value in every conversion and comparison. A default value that is
// itself an object is followed a few steps; a cycle ends as a type mismatch instead of a hang.
Variant Dereference(const Variant& v) {
  Variant current = v;
  for (int depth = 0; depth < 8; ++depth) {
    if (!current.IsObject()) return current;
    const ObjectRef& object = current.AsObject();
    if (!object) Raise(errnum::kObjectNotSet);
    Variant next = object->DefaultValue();
    current = std::move(next);
  }
  Raise(errnum::kTypeMismatch);
}

// Number kinds, Boolean, Date and Empty as a double; false for the rest.
bool NumericValue(const Variant& v, double& out) {
  switch (v.Type()) {
    case VarType::Empty: out = 0.0; return true;
    case VarType::Boolean: out = v.AsBoolean() ? -1.0 : 0.0; return true;
    case VarType::Byte: out = v.AsByte(); return true;
    case VarType::Integer: out = v.AsInteger(); return true;
    case VarType::Long: out = v.AsLong(); return true;
    case VarType::Single: out = v.AsSingle(); return true;
    case VarType::Double: out = v.AsDouble(); return true;
    case VarType::Currency: out = v.AsCurrency().ToDouble(); return true;
    case VarType::Date: out = v.AsDate().serial; return true;
    default: return false;
  }
}

double TextToDouble(const std::string& text) {
  const internal::NumberScan scan = internal::ScanNumber(text, Locale::Current());
  if (scan.status == internal::ScanStatus::kOverflow) Raise(errnum::kOverflow);
  if (scan.status != internal::ScanStatus::kOk) Raise(errnum::kTypeMismatch);
  return scan.value;
}

// The value of any variant as a double, with the errors of the classic conversions.
double ToDouble(const Variant& input) {
  const Variant v = input.IsObject() ? Dereference(input) : Variant();
  const Variant& value = input.IsObject() ? v : input;
  double d = 0.0;
  if (NumericValue(value, d)) return d;
  if (value.IsNull()) Raise(errnum::kInvalidUseOfNull);
  if (value.IsString()) return TextToDouble(value.AsString());
  Raise(errnum::kTypeMismatch);
}

// Rounds half to even and checks the range of the target integer.
template <class Int>
Int RoundToInteger(double d) {
  const double r = internal::RoundHalfEven(d);
  if (!(r >= static_cast<double>(std::numeric_limits<Int>::min()) &&
        r <= static_cast<double>(std::numeric_limits<Int>::max()))) {
    Raise(errnum::kOverflow);
  }
  return static_cast<Int>(r);
}

template <class Int>
Int ToInteger(const Variant& v) {
  switch (v.Type()) {
    case VarType::Byte: return RoundToInteger<Int>(v.AsByte());
    case VarType::Integer: return RoundToInteger<Int>(v.AsInteger());
    case VarType::Long: return RoundToInteger<Int>(v.AsLong());
    case VarType::Currency: {
      // Exact for the whole range of Currency, where a double would lose the last digits.
      const int64_t scaled = v.AsCurrency().scaled;
      int64_t whole = scaled / 10000;
      const int64_t rest = scaled % 10000;
      if (rest > 5000 || (rest == 5000 && (whole & 1))) ++whole;
      if (rest < -5000 || (rest == -5000 && (whole & 1))) --whole;
      if (whole < std::numeric_limits<Int>::min() || whole > std::numeric_limits<Int>::max()) {
        Raise(errnum::kOverflow);
      }
      return static_cast<Int>(whole);
    }
    default: return RoundToInteger<Int>(ToDouble(v));
  }
}

// Orders two doubles; NaN (which no conversion yields, but a Double may hold) sorts after numbers so
// that the order stays total.
std::strong_ordering OrderDoubles(double a, double b) {
  if (a < b) return std::strong_ordering::less;
  if (a > b) return std::strong_ordering::greater;
  if (a == b) return std::strong_ordering::equal;
  const bool a_nan = std::isnan(a);
  const bool b_nan = std::isnan(b);
  if (a_nan && b_nan) return std::strong_ordering::equal;
  return a_nan ? std::strong_ordering::greater : std::strong_ordering::less;
}

std::strong_ordering OrderTexts(const std::string& a, const std::string& b) {
  const int c = a.compare(b);  // char_traits<char> compares as unsigned bytes: code point order
  return c < 0 ? std::strong_ordering::less : c > 0 ? std::strong_ordering::greater : std::strong_ordering::equal;
}

// A number (or Boolean, Date, Empty) against a text: as numbers when the text reads as one (a Date
// also against a text that reads as a date), otherwise the number is the lesser.
std::strong_ordering OrderNumberAndText(const Variant& number, double value, const std::string& text) {
  const Locale& locale = Locale::Current();
  if (number.IsDateValue()) {
    if (const std::optional<Date> d = internal::ScanDate(text, locale)) return OrderDoubles(value, d->serial);
  }
  const internal::NumberScan scan = internal::ScanNumber(text, locale);
  if (scan.status == internal::ScanStatus::kOk) return OrderDoubles(value, scan.value);
  return std::strong_ordering::less;
}

}  // namespace

Variant Object::DefaultValue() const { return Variant(); }

namespace {
template <class Int>
Variant IntegerVariant(Int value) noexcept {
  if (std::in_range<int32_t>(value)) return Variant(static_cast<int32_t>(value));
  return Variant(static_cast<double>(value));
}
}  // namespace

Variant::Variant(long l) noexcept : Variant(IntegerVariant(l)) {}
Variant::Variant(long long l) noexcept : Variant(IntegerVariant(l)) {}
Variant::Variant(unsigned int u) noexcept : Variant(IntegerVariant(u)) {}
Variant::Variant(unsigned long u) noexcept : Variant(IntegerVariant(u)) {}
Variant::Variant(unsigned long long u) noexcept : Variant(IntegerVariant(u)) {}

bool Variant::IsNumberKind() const noexcept {
  switch (Type()) {
    case VarType::Byte:
    case VarType::Integer:
    case VarType::Long:
    case VarType::Single:
    case VarType::Double:
    case VarType::Currency: return true;
    default: return false;
  }
}

Currency Currency::FromDouble(double value) {
  if (!std::isfinite(value) || std::fabs(value) >= 922337203685477.5808) Raise(errnum::kOverflow);
  if (value == 0.0) return Currency{};
  // Rounds the decimal value the number stands for (its 15 significant digits, as CStr shows it), not
  // the binary one: 0.00015 is a hair below the half in binary, yet becomes 0.0002 as users expect.
  const internal::DecimalDigits d = internal::SignificantDigits(value);
  // value = digits * 10^(exponent - 14); scaled = value * 10^4.
  const int shift = d.exponent - 10;
  int64_t scaled = d.digits;
  if (shift >= 0) {
    for (int k = 0; k < shift; ++k) {
      if (scaled > std::numeric_limits<int64_t>::max() / 10) Raise(errnum::kOverflow);
      scaled *= 10;
    }
  } else {
    scaled = shift < -16 ? 0 : internal::DivideRoundHalfEven(scaled, -shift);
  }
  return Currency{value < 0 ? -scaled : scaled};
}

double Round(double value, int32_t digits) {
  if (digits < 0) Raise(errnum::kInvalidProcedureCall);
  if (!std::isfinite(value) || value == 0.0) return value;
  const internal::DecimalDigits d = internal::SignificantDigits(value);
  // Digits kept of the 15: those before the decimal point plus `digits` after it.
  const int64_t kept = int64_t{d.exponent} + 1 + digits;
  if (kept >= 15) return value;
  if (kept < 0) return std::copysign(0.0, value);
  const int64_t rounded = internal::DivideRoundHalfEven(d.digits, static_cast<int>(15 - kept));
  // rounded * 10^-digits, read back from its decimal text so the result is the nearest double.
  char buffer[48];
  auto [end, ec] = std::to_chars(buffer, buffer + 32, rounded);
  *end++ = 'e';
  *end++ = '-';
  end = std::to_chars(end, buffer + sizeof buffer, digits).ptr;
  double result = 0.0;
  std::from_chars(buffer, end, result);
  return value < 0 ? -result : result;
}

// ---- Tests ----------------------------------------------------------------------------------------

bool IsEmpty(const Variant& v) noexcept { return v.IsEmpty(); }
bool IsNull(const Variant& v) noexcept { return v.IsNull(); }
bool IsObject(const Variant& v) noexcept { return v.IsObject(); }

bool IsNumeric(const Variant& v) noexcept {
  switch (v.Type()) {
    case VarType::Empty:
    case VarType::Boolean: return true;
    case VarType::String:
      try {
        return internal::ScanNumber(v.AsString(), Locale::Current()).status == internal::ScanStatus::kOk;
      } catch (...) {  // only allocation can fail here
        return false;
      }
    default: return v.IsNumberKind();
  }
}

bool IsDate(const Variant& v) noexcept {
  if (v.IsDateValue()) return true;
  if (!v.IsString()) return false;
  try {
    return internal::ScanDate(v.AsString(), Locale::Current()).has_value();
  } catch (...) {  // only allocation can fail here
    return false;
  }
}

// ---- Conversions ----------------------------------------------------------------------------------

std::string CStr(const Variant& input) {
  const Locale& locale = Locale::Current();
  const Variant v = input.IsObject() ? Dereference(input) : Variant();
  const Variant& value = input.IsObject() ? v : input;
  switch (value.Type()) {
    case VarType::Empty: return {};
    case VarType::Null: Raise(errnum::kInvalidUseOfNull);
    case VarType::Boolean: return value.AsBoolean() ? "True" : "False";
    case VarType::Byte: return std::to_string(value.AsByte());
    case VarType::Integer: return std::to_string(value.AsInteger());
    case VarType::Long: return std::to_string(value.AsLong());
    case VarType::Single: return internal::FormatFloating(value.AsSingle(), true, locale);
    case VarType::Double: return internal::FormatFloating(value.AsDouble(), false, locale);
    case VarType::Currency: return internal::FormatCurrency(value.AsCurrency(), locale);
    case VarType::Date: return internal::FormatDateIn(value.AsDate(), locale);
    case VarType::String: return value.AsString();
    case VarType::Object: break;  // Dereference never leaves one
  }
  Raise(errnum::kTypeMismatch);
}

double CDbl(const Variant& v) { return ToDouble(v); }

int32_t CLng(const Variant& v) { return ToInteger<int32_t>(v); }
int16_t CInt(const Variant& v) { return ToInteger<int16_t>(v); }
uint8_t CByte(const Variant& v) { return ToInteger<uint8_t>(v); }

float CSng(const Variant& v) {
  const double d = ToDouble(v);
  if (std::isfinite(d) && std::fabs(d) > static_cast<double>(std::numeric_limits<float>::max())) {
    Raise(errnum::kOverflow);
  }
  return static_cast<float>(d);
}

Currency CCur(const Variant& v) {
  switch (v.Type()) {
    case VarType::Currency: return v.AsCurrency();
    case VarType::Byte: return Currency{int64_t{v.AsByte()} * 10000};
    case VarType::Integer: return Currency{int64_t{v.AsInteger()} * 10000};
    case VarType::Long: return Currency{int64_t{v.AsLong()} * 10000};
    default: return Currency::FromDouble(ToDouble(v));
  }
}

bool CBool(const Variant& input) {
  const Variant v = input.IsObject() ? Dereference(input) : Variant();
  const Variant& value = input.IsObject() ? v : input;
  if (value.IsBoolean()) return value.AsBoolean();
  if (value.IsString()) {
    const std::string word = LCase(Trim(value.AsString()));
    if (word == "true") return true;
    if (word == "false") return false;
    return TextToDouble(value.AsString()) != 0.0;
  }
  return ToDouble(value) != 0.0;
}

Date CDate(const Variant& input) {
  const Variant v = input.IsObject() ? Dereference(input) : Variant();
  const Variant& value = input.IsObject() ? v : input;
  if (value.IsDateValue()) return value.AsDate();
  if (value.IsString()) {
    if (std::optional<Date> d = internal::ScanDate(value.AsString(), Locale::Current())) return *d;
    Raise(errnum::kTypeMismatch);
  }
  const double serial = ToDouble(value);
  if (!internal::IsValidSerial(serial)) Raise(errnum::kOverflow);
  return Date{serial};
}

double Val(std::string_view text) { return internal::ScanLeadingNumber(text); }
double Val(const std::string& text) { return internal::ScanLeadingNumber(text); }
double Val(const char* text) { return text ? internal::ScanLeadingNumber(text) : 0.0; }

double Val(const Variant& v) {
  if (v.IsString()) return internal::ScanLeadingNumber(v.AsString());
  return internal::ScanLeadingNumber(CStr(v));
}

std::optional<double> ParseNumber(std::string_view text) {
  const internal::NumberScan scan = internal::ScanNumber(text, Locale::Current());
  if (scan.status != internal::ScanStatus::kOk) return std::nullopt;
  return scan.value;
}

// ---- Comparison -----------------------------------------------------------------------------------

namespace {

std::optional<std::strong_ordering> CompareValues(const Variant& a, const Variant& b) {
  if (a.IsNull() || b.IsNull()) return std::nullopt;

  if (a.IsString() && b.IsString()) return OrderTexts(a.AsString(), b.AsString());
  if (a.IsString() && b.IsEmpty()) return OrderTexts(a.AsString(), std::string());
  if (a.IsEmpty() && b.IsString()) return OrderTexts(std::string(), b.AsString());

  double x = 0.0, y = 0.0;
  const bool a_number = NumericValue(a, x);
  const bool b_number = NumericValue(b, y);
  if (a_number && b_number) {
    if (a.Type() == VarType::Currency && b.Type() == VarType::Currency) {
      return a.AsCurrency().scaled <=> b.AsCurrency().scaled;
    }
    return OrderDoubles(x, y);
  }
  if (a_number && b.IsString()) return OrderNumberAndText(a, x, b.AsString());
  if (a.IsString() && b_number) {
    const std::strong_ordering r = OrderNumberAndText(b, y, a.AsString());
    return 0 <=> r;
  }
  Raise(errnum::kTypeMismatch);
}

}  // namespace

std::optional<std::strong_ordering> Compare(const Variant& a, const Variant& b) {
  // The kinds a sort meets most, first.
  const VarType ta = a.Type();
  if (ta == b.Type()) {
    switch (ta) {
      case VarType::Double: return OrderDoubles(a.AsDouble(), b.AsDouble());
      case VarType::Long: return a.AsLong() <=> b.AsLong();
      case VarType::String: return OrderTexts(a.AsString(), b.AsString());
      default: break;
    }
  }
  if (a.IsObject() || b.IsObject()) {
    return CompareValues(a.IsObject() ? Dereference(a) : a, b.IsObject() ? Dereference(b) : b);
  }
  return CompareValues(a, b);
}

bool Equals(const Variant& a, const Variant& b) {
  if (a.IsString() && b.IsString()) return a.AsString() == b.AsString();  // the commonest case, without ordering
  const std::optional<std::strong_ordering> r = Compare(a, b);
  return r.has_value() && *r == std::strong_ordering::equal;
}

}  // namespace quorbex
