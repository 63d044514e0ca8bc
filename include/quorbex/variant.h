// Variant: the one value type of the library.
//
// Every field value, every argument and result that the automation interface calls a variant is a
// quorbex::Variant. It has the kinds of a classic Basic variant and implements, in one place, their
// conversions and comparisons with the classic semantics:
//
//   kind      C++ payload            VarType code
//   Empty     -                      0   (never assigned; reads as 0 or "")
//   Null      -                      1   (no value; propagates through comparisons)
//   Integer   int16_t                2
//   Long      int32_t                3
//   Single    float                  4
//   Double    double                 5
//   Currency  Currency (int64/10^4)  6
//   Date      Date (day serial)      7
//   String    std::string (UTF-8)    8
//   Object    ObjectRef              9   (a shared reference to any library object)
//   Boolean   bool                   11  (True reads as -1 in numbers)
//   Byte      uint8_t                17
//
// Conversions that fail raise AutomationError with the runtime's number: 13 "Type mismatch" for text
// that is not a number or date, 6 "Overflow" for a number out of range, 94 "Invalid use of Null".
// Text<->number and text<->date conversions follow the thread's Locale (quorbex/locale.h).
#pragma once

#include <compare>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "quorbex/errors.h"
#include "quorbex/locale.h"

namespace quorbex {

class Variant;

// Base of every library object that can be held by a Variant (DataLayer, collections, records, ...).
class Object {
 public:
  virtual ~Object() = default;
  // What a plain (value) assignment of the object yields: its default property. Empty unless a class
  // has one.
  virtual Variant DefaultValue() const;
};
using ObjectRef = std::shared_ptr<Object>;

enum class VarType : int16_t {
  Empty = 0,
  Null = 1,
  Integer = 2,
  Long = 3,
  Single = 4,
  Double = 5,
  Currency = 6,
  Date = 7,
  String = 8,
  Object = 9,
  Boolean = 11,
  Byte = 17,
};

// Fixed point with four decimals, held as value * 10000.
struct Currency {
  int64_t scaled = 0;
  static Currency FromDouble(double value);  // rounds half to even; raises 6 when out of range
  double ToDouble() const noexcept { return static_cast<double>(scaled) / 10000.0; }
  auto operator<=>(const Currency&) const = default;
};

// The classic day serial: whole days since 1899-12-30, the time of day as the fraction.
struct Date {
  double serial = 0.0;
  auto operator<=>(const Date&) const = default;
};

struct NullValue {
  bool operator==(const NullValue&) const = default;
};
inline constexpr NullValue Null{};

class Variant {
 public:
  Variant() noexcept = default;  // Empty
  Variant(NullValue) noexcept : v_(NullValue{}) {}
  Variant(bool b) noexcept : v_(b) {}
  Variant(uint8_t b) noexcept : v_(b) {}
  Variant(int16_t i) noexcept : v_(i) {}
  Variant(int32_t l) noexcept : v_(l) {}
  // 64-bit integers become Long when they fit and Double otherwise.
  Variant(long l) noexcept;
  Variant(long long l) noexcept;
  // Unsigned integers (sizes, counts) likewise: Long when they fit, Double otherwise.
  Variant(unsigned int u) noexcept;
  Variant(unsigned long u) noexcept;
  Variant(unsigned long long u) noexcept;
  Variant(float f) noexcept : v_(f) {}
  Variant(double d) noexcept : v_(d) {}
  Variant(Currency c) noexcept : v_(c) {}
  Variant(Date d) noexcept : v_(d) {}
  Variant(const char* s) : v_(std::string(s ? s : "")) {}
  Variant(std::string s) noexcept : v_(std::move(s)) {}
  Variant(std::string_view s) : v_(std::string(s)) {}
  Variant(ObjectRef o) noexcept : v_(std::move(o)) {}
  template <class T>
    requires std::is_base_of_v<Object, T>
  Variant(std::shared_ptr<T> o) noexcept : v_(ObjectRef(std::move(o))) {}

  VarType Type() const noexcept {
    // Follows the order of the alternatives in v_.
    constexpr VarType kTypes[] = {VarType::Empty,    VarType::Null, VarType::Boolean, VarType::Byte,
                                  VarType::Integer,  VarType::Long, VarType::Single,  VarType::Double,
                                  VarType::Currency, VarType::Date, VarType::String,  VarType::Object};
    static_assert(std::size(kTypes) == std::variant_size_v<decltype(v_)>);
    return kTypes[v_.index()];
  }

  bool IsEmpty() const noexcept { return v_.index() == 0; }
  bool IsNull() const noexcept { return std::holds_alternative<NullValue>(v_); }
  bool IsObject() const noexcept { return std::holds_alternative<ObjectRef>(v_); }
  bool IsString() const noexcept { return std::holds_alternative<std::string>(v_); }
  bool IsBoolean() const noexcept { return std::holds_alternative<bool>(v_); }
  bool IsDateValue() const noexcept { return std::holds_alternative<Date>(v_); }
  // True for the number kinds: Byte, Integer, Long, Single, Double, Currency (not Boolean, not Date).
  bool IsNumberKind() const noexcept;

  // Unchecked access to the payload; the caller has checked Type().
  bool AsBoolean() const { return std::get<bool>(v_); }
  uint8_t AsByte() const { return std::get<uint8_t>(v_); }
  int16_t AsInteger() const { return std::get<int16_t>(v_); }
  int32_t AsLong() const { return std::get<int32_t>(v_); }
  float AsSingle() const { return std::get<float>(v_); }
  double AsDouble() const { return std::get<double>(v_); }
  Currency AsCurrency() const { return std::get<Currency>(v_); }
  Date AsDate() const { return std::get<Date>(v_); }
  const std::string& AsString() const { return std::get<std::string>(v_); }
  const ObjectRef& AsObject() const { return std::get<ObjectRef>(v_); }

  // Exact equality of kind and payload (Null equals Null, 1 as Long differs from 1 as Double). For the
  // classic "=" use Compare / Equals below.
  bool SameAs(const Variant& other) const noexcept { return v_ == other.v_; }

 private:
  std::variant<std::monostate, NullValue, bool, uint8_t, int16_t, int32_t, float, double, Currency, Date,
               std::string, ObjectRef>
      v_;
};

// ---- Tests ----------------------------------------------------------------------------------------
bool IsEmpty(const Variant& v) noexcept;
bool IsNull(const Variant& v) noexcept;
bool IsObject(const Variant& v) noexcept;
// True for a number kind, a Boolean and Empty, and for a text that reads as a number in the current
// locale (blanks around it, a leading or trailing sign or parentheses, thousands separators in the
// integer part, the decimal separator, an exponent with E or D, &H/&O integers); False for a Date,
// Null, an Object, "" and any other text, including a number beyond the range of Double. Under a
// decimal comma "1.5" is numeric (fifteen, "." groups thousands), as the classic runtime has it.
bool IsNumeric(const Variant& v) noexcept;
// A Date, or a text that reads as a date and/or time in the current locale: three numbers joined by
// "/", "-", "." or the locale's separator in the locale's order (a 4-digit first number always reads
// as year-month-day, so ISO yyyy-mm-dd works everywhere; 2-digit years 00-29 are 20xx, 30-99 19xx),
// or day, month name, year ("31 Dec 2020", "1. März 2021") and month name, day, year ("Dec 31, 2020"),
// English or German names; optionally followed (after a blank or ISO's "T") by a time "h:nn[:ss[.fff]]"
// with an optional AM/PM; or a time alone. The date must exist and lie in 0100..9999. A number is no
// date (IsDate(5) and IsDate("5") are False).
bool IsDate(const Variant& v) noexcept;

// ---- Conversions ----------------------------------------------------------------------------------
// Text form: numbers with the locale's decimal separator (Double with up to 15 significant digits,
// Single with 7), Boolean "True"/"False", Date in the short date and long time format (the time is
// left out at midnight, the date for a bare time), Empty "". Null raises 94; an Object its default.
// Doubles switch to the exponent form outside 1E-05..1E+15: CStr(1e20) is "1E+20".
//
// Every conversion below reads an Object as its DefaultValue() (an empty reference raises 91 "Object
// variable or With block variable not set"), Null raises 94, Empty is 0, True is -1, a Date its serial,
// and a text is read with ParseNumber: a text that is no number raises 13, one beyond Double raises 6.
std::string CStr(const Variant& v);
double CDbl(const Variant& v);
// Round half to even (CInt(2.5) is 2, CInt(3.5) is 4); out of range raises 6 "Overflow".
int32_t CLng(const Variant& v);
int16_t CInt(const Variant& v);
uint8_t CByte(const Variant& v);
float CSng(const Variant& v);  // beyond the range of Single raises 6
// Four decimals, halves of the decimal value to the even neighbour; beyond +-922337203685477 raises 6.
Currency CCur(const Variant& v);
// Numbers: not 0. Texts: "True"/"False" in any letter case and blanks around, or a numeric text.
bool CBool(const Variant& v);
// A text must satisfy IsDate (otherwise 13); a number is taken as a serial (outside 0100..9999: 6).
Date CDate(const Variant& v);
// The leading number of the text form, "." as decimal point whatever the locale; 0 when none.
// Blanks, tabs and line feeds anywhere are skipped ("1 2" is 12); "&H"/"&O" read hexadecimal and octal
// integers (&HFFFF is -1, as an Integer). Null raises 94 (it has no text form); a number beyond Double
// raises 6. A number's text form follows the locale, so under a decimal comma Val(1.5) is 1.
double Val(const Variant& v);
double Val(std::string_view text);
double Val(const std::string& text);  // these two keep Val("...") from being ambiguous
double Val(const char* text);

// `value` rounded to `digits` decimal places, halves to the even neighbour (Round(2.5) is 2,
// Round(0.125, 2) is 0.12). The decimal value the number stands for is rounded (its 15 significant
// digits, as CStr shows it), so Round(0.285, 2) is 0.28 although the binary 0.285 lies a hair below.
// NaN and infinities come back unchanged; digits < 0 raises 5.
double Round(double value, int32_t digits = 0);

// Parsing with the current locale; nullopt when the text is not a number / date.
std::optional<double> ParseNumber(std::string_view text);
std::optional<Date> ParseDate(std::string_view text);

// ---- Comparison -----------------------------------------------------------------------------------
// The classic comparison of two variants: Null on either side gives Null (nullopt); numbers compare as
// numbers, texts by character codes (binary compare), a number against a text that reads as a number as
// numbers (otherwise the number is less than the text), Empty as 0 against a number and as "" against
// a text, Booleans as -1/0, Dates by their serial (against a text that reads as a date, by both
// serials). Objects compare by their DefaultValue(). Texts are read as numbers and dates in the current
// locale.
std::optional<std::strong_ordering> Compare(const Variant& a, const Variant& b);
// The classic "a = b" as a Boolean test: False when either side is Null.
bool Equals(const Variant& a, const Variant& b);

// ---- Dates ----------------------------------------------------------------------------------------
struct CivilDateTime {
  int year = 1899, month = 12, day = 30, hour = 0, minute = 0, second = 0;
};
// Serials count days since 1899-12-30. Before that day the integer part is the day and the fraction
// the time of day in absolute terms: 1899-12-29 06:00 is -1.25 (so such serials do not order by time).
//
// Months and days outside their range roll over (month 13 is January of the next year, day 0 the last
// day of the month before); years 0-29 are 2000-2029 and 30-99 are 1930-1999. A result outside
// 0100-01-01..9999-12-31 raises 5 "Invalid procedure call or argument".
Date DateSerial(int year, int month, int day);
double TimeSerial(int hour, int minute, int second);   // the fraction of a day (may exceed 1)
// Like DateSerial with the time of day added (hours, minutes, seconds roll over too), but the year is
// taken as it is. Raises 5 outside 0100..9999.
Date MakeDate(const CivilDateTime& civil);
// Rounded to the nearest second. A serial outside 0100..9999 gives a civil date outside that range, a
// NaN gives 1899-12-30; neither raises.
CivilDateTime ToCivil(Date d);
// Local date and time from the system clock, to the second. Code that a test must be able to run on
// a fake clock asks platform::NowLocal() instead.
Date Now();
// The date and time in the locale's short date and long time formats ("FormatDateTime" general form):
// the time is left out at midnight, the date on day 0 (1899-12-30). Same text as CStr of a Date.
std::string FormatDate(Date d);

}  // namespace quorbex
