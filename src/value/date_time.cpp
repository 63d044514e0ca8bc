#include "value/date_time.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <vector>

#include "quorbex/errors.h"
#include "quorbex/text.h"
#include "value/text_util.h"

namespace quorbex {

using namespace internal;

namespace {

// Days since 1970-01-01 of a proleptic Gregorian date (H. Hinnant's algorithm).
constexpr int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

struct YearMonthDay {
  int64_t year;
  int month;
  int day;
};

constexpr YearMonthDay CivilFromDays(int64_t z) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  const int d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  const int m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  return {yoe + era * 400 + (m <= 2), m, d};
}

// Day 0 of the serial.
constexpr int64_t kSerialEpoch = DaysFromCivil(1899, 12, 30);
static_assert(DaysFromCivil(100, 1, 1) - kSerialEpoch == -657434);
static_assert(DaysFromCivil(9999, 12, 31) - kSerialEpoch == 2958465);

int64_t FloorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// The serial day of year/month/day, months and days outside their range rolling over.
int64_t SerialDay(int64_t year, int64_t month, int64_t day) {
  const int64_t month0 = month - 1;
  year += FloorDiv(month0, 12);
  const int64_t m = month0 - FloorDiv(month0, 12) * 12 + 1;
  return DaysFromCivil(year, m, 1) - kSerialEpoch + (day - 1);
}

// Joins a serial day and a time of day with the classic rule for days before 1899-12-30: the integer
// part is the day, the fraction the time in absolute terms, so 06:00 of day -1 is -1.25.
double JoinSerial(int64_t day, double day_fraction) {
  const auto whole = static_cast<double>(day);
  return day >= 0 ? whole + day_fraction : whole - day_fraction;
}

bool IsLeap(int64_t y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

int DaysInMonth(int64_t y, int m) {
  static constexpr std::array<int, 12> kDays{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && IsLeap(y) ? 29 : kDays[static_cast<std::size_t>(m - 1)];
}

// Two-digit years as the classic runtime reads them: 00-29 are 2000-2029, 30-99 are 1930-1999.
int64_t WindowYear(int64_t year) {
  if (year >= 0 && year <= 29) return year + 2000;
  if (year >= 30 && year <= 99) return year + 1900;
  return year;
}

[[noreturn]] void RaiseBadDate() { RaiseRuntimeError(errnum::kInvalidProcedureCall); }

Date MakeChecked(int64_t day, int64_t seconds_of_day) {
  day += FloorDiv(seconds_of_day, 86400);
  seconds_of_day -= FloorDiv(seconds_of_day, 86400) * 86400;
  const double serial = JoinSerial(day, static_cast<double>(seconds_of_day) / 86400.0);
  if (!internal::IsValidSerial(serial)) RaiseBadDate();
  return Date{serial};
}

// ---- Parsing ----------------------------------------------------------------------------------------

struct Token {
  enum Kind { kNumber, kWord, kSeparator } kind;
  std::string_view text;
  int64_t value = 0;  // numbers
};

bool IsWordByte(char c) {
  const auto u = static_cast<unsigned char>(c);
  return (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || u >= 0x80;
}

// Splits the text into numbers, words and single separator characters; blanks only separate.
// Fails (empty result) on numbers too long to be part of a date.
bool Tokenize(std::string_view s, std::vector<Token>& out) {
  std::size_t i = 0;
  while (i < s.size()) {
    const char c = s[i];
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      ++i;
    } else if (internal::IsAsciiDigit(c)) {
      std::size_t j = i;
      int64_t value = 0;
      while (j < s.size() && internal::IsAsciiDigit(s[j])) {
        if (j - i >= 9) return false;
        value = value * 10 + (s[j] - '0');
        ++j;
      }
      out.push_back({Token::kNumber, s.substr(i, j - i), value});
      i = j;
    } else if (IsWordByte(c)) {
      std::size_t j = i;
      while (j < s.size() && IsWordByte(s[j])) ++j;
      out.push_back({Token::kWord, s.substr(i, j - i), 0});
      i = j;
    } else {
      out.push_back({Token::kSeparator, s.substr(i, 1), 0});
      ++i;
    }
  }
  return true;
}

// 1-12 for an English or German month name or its usual abbreviation, 0 otherwise.
int MonthFromName(std::string_view word) {
  struct Name {
    std::string_view text;
    int month;
  };
  static constexpr Name kNames[] = {
      {"january", 1},  {"jan", 1},       {"januar", 1},   {"jän", 1},     {"jänner", 1},
      {"february", 2}, {"feb", 2},       {"februar", 2},  {"march", 3},   {"mar", 3},
      {"märz", 3},     {"mär", 3},       {"mrz", 3},      {"april", 4},   {"apr", 4},
      {"may", 5},      {"mai", 5},       {"june", 6},     {"jun", 6},     {"juni", 6},
      {"july", 7},     {"jul", 7},       {"juli", 7},     {"august", 8},  {"aug", 8},
      {"september", 9}, {"sep", 9},      {"sept", 9},     {"october", 10}, {"oct", 10},
      {"oktober", 10}, {"okt", 10},      {"november", 11}, {"nov", 11},   {"december", 12},
      {"dec", 12},     {"dezember", 12}, {"dez", 12},
  };
  if (word.size() > 12) return 0;
  const std::string lower = LCase(word);
  for (const Name& n : kNames) {
    if (n.text == lower) return n.month;
  }
  return 0;
}

struct CivilDay {
  int64_t year, month, day;
};

class DateParser {
 public:
  DateParser(const std::vector<Token>& tokens, const Locale& locale) : t_(tokens), locale_(locale) {}

  std::optional<Date> Parse() {
    const std::optional<CivilDay> date = ParseDatePart();
    if (date) {
      const int64_t day = SerialDay(date->year, date->month, date->day);
      if (AtEnd()) return Finish(day, 0.0);
      // ISO's "T" between date and time.
      if (Peek(Token::kWord) && (t_[pos_].text == "T" || t_[pos_].text == "t")) ++pos_;
      const std::optional<double> time = ParseTimePart();
      if (!time || !AtEnd()) return std::nullopt;
      return Finish(day, *time);
    }
    pos_ = 0;
    const std::optional<double> time = ParseTimePart();
    if (!time || !AtEnd()) return std::nullopt;
    return Date{*time};
  }

 private:
  static std::optional<Date> Finish(int64_t day, double fraction) {
    const double serial = JoinSerial(day, fraction);
    if (!internal::IsValidSerial(serial)) return std::nullopt;
    return Date{serial};
  }

  bool AtEnd() const { return pos_ == t_.size(); }
  bool Peek(Token::Kind kind, std::size_t ahead = 0) const {
    return pos_ + ahead < t_.size() && t_[pos_ + ahead].kind == kind;
  }
  bool PeekSeparator(std::string_view allowed, std::size_t ahead = 0) const {
    return Peek(Token::kSeparator, ahead) && allowed.find(t_[pos_ + ahead].text[0]) != std::string_view::npos;
  }

  static std::optional<CivilDay> Validate(int64_t year, int64_t year_digits, int64_t month, int64_t day) {
    if (year_digits <= 2) year = WindowYear(year);
    if (year < 100 || year > 9999 || month < 1 || month > 12 || day < 1) return std::nullopt;
    if (day > DaysInMonth(year, static_cast<int>(month))) return std::nullopt;
    return CivilDay{year, month, day};
  }

  bool IsDateSeparator(char c) const {
    if (c == '/' || c == '-' || c == '.') return true;
    return locale_.date_separator.size() == 1 && c == locale_.date_separator[0];
  }

  std::optional<CivilDay> ParseDatePart() {
    // Three numbers: 4-digit year first always reads as year-month-day, otherwise the locale's order.
    if (Peek(Token::kNumber) && Peek(Token::kSeparator, 1) && Peek(Token::kNumber, 2) &&
        Peek(Token::kSeparator, 3) && Peek(Token::kNumber, 4)) {
      const char sep = t_[pos_ + 1].text[0];
      if (IsDateSeparator(sep) && t_[pos_ + 3].text[0] == sep) {
        const Token& a = t_[pos_];
        const Token& b = t_[pos_ + 2];
        const Token& c = t_[pos_ + 4];
        std::optional<CivilDay> result;
        if (a.text.size() >= 3 || locale_.date_order == DateOrder::YMD) {
          if (b.text.size() <= 2 && c.text.size() <= 2)
            result = Validate(a.value, static_cast<int64_t>(a.text.size()), b.value, c.value);
        } else if (a.text.size() <= 2 && b.text.size() <= 2) {
          if (locale_.date_order == DateOrder::DMY) {
            result = Validate(c.value, static_cast<int64_t>(c.text.size()), b.value, a.value);
          } else {
            result = Validate(c.value, static_cast<int64_t>(c.text.size()), a.value, b.value);
          }
        }
        if (result) pos_ += 5;
        return result;
      }
    }
    // Day, month name, year: "31 Dec 2020", "31-Dec-2020", "31. Dezember 2020".
    if (Peek(Token::kNumber)) {
      std::size_t k = 1;
      if (PeekSeparator(".", k)) ++k;
      if (Peek(Token::kWord, k)) {
        const int month = MonthFromName(t_[pos_ + k].text);
        if (month == 0) return std::nullopt;
        ++k;
        if (PeekSeparator(".-,/", k)) ++k;
        if (!Peek(Token::kNumber, k)) return std::nullopt;
        const Token& year = t_[pos_ + k];
        const std::optional<CivilDay> result =
            t_[pos_].text.size() <= 2
                ? Validate(year.value, static_cast<int64_t>(year.text.size()), month, t_[pos_].value)
                : std::nullopt;
        if (result) pos_ += k + 1;
        return result;
      }
      return std::nullopt;
    }
    // Month name, day, year: "Dec 31, 2020", "December 31 2020".
    if (Peek(Token::kWord)) {
      const int month = MonthFromName(t_[pos_].text);
      if (month == 0) return std::nullopt;
      std::size_t k = 1;
      if (PeekSeparator(".-/", k)) ++k;
      if (!Peek(Token::kNumber, k) || t_[pos_ + k].text.size() > 2) return std::nullopt;
      const int64_t day = t_[pos_ + k].value;
      ++k;
      if (PeekSeparator(",-/", k)) ++k;
      if (!Peek(Token::kNumber, k)) return std::nullopt;
      const Token& year = t_[pos_ + k];
      const std::optional<CivilDay> result =
          Validate(year.value, static_cast<int64_t>(year.text.size()), month, day);
      if (result) pos_ += k + 1;
      return result;
    }
    return std::nullopt;
  }

  // "h:nn", "h:nn:ss", "h:nn:ss.fff", each with an optional AM/PM, or "h AM". The day fraction.
  std::optional<double> ParseTimePart() {
    if (!Peek(Token::kNumber) || t_[pos_].text.size() > 2) return std::nullopt;
    const int64_t hour = t_[pos_].value;
    std::size_t k = 1;
    int64_t minute = 0, second = 0;
    double fraction = 0.0;
    if (PeekSeparator(":", k)) {
      if (!Peek(Token::kNumber, k + 1) || t_[pos_ + k + 1].text.size() > 2) return std::nullopt;
      minute = t_[pos_ + k + 1].value;
      k += 2;
      if (PeekSeparator(":", k)) {
        if (!Peek(Token::kNumber, k + 1) || t_[pos_ + k + 1].text.size() > 2) return std::nullopt;
        second = t_[pos_ + k + 1].value;
        k += 2;
        // Fractions of a second after "." or the locale's decimal separator, as databases write them.
        const bool decimal_mark =
            PeekSeparator(".", k) || (locale_.decimal_separator.size() == 1 &&
                                      PeekSeparator(locale_.decimal_separator, k));
        if (decimal_mark && Peek(Token::kNumber, k + 1)) {
          const std::string_view digits = t_[pos_ + k + 1].text;
          fraction = static_cast<double>(t_[pos_ + k + 1].value) /
                     std::pow(10.0, static_cast<double>(digits.size()));
          k += 2;
        }
      }
    } else if (!Peek(Token::kWord, k)) {
      return std::nullopt;  // a bare number is no time
    }
    int64_t h = hour;
    if (Peek(Token::kWord, k)) {
      const std::string marker = LCase(t_[pos_ + k].text);
      if (marker != "am" && marker != "pm") return std::nullopt;
      if (hour < 1 || hour > 12) return std::nullopt;
      h = hour % 12 + (marker == "pm" ? 12 : 0);
      ++k;
    }
    if (h > 23 || minute > 59 || second > 59) return std::nullopt;
    pos_ += k;
    return (static_cast<double>(h * 3600 + minute * 60 + second) + fraction) / 86400.0;
  }

  const std::vector<Token>& t_;
  const Locale& locale_;
  std::size_t pos_ = 0;
};

// ---- Formatting -----------------------------------------------------------------------------------

void AppendPadded(std::string& out, int64_t value, std::size_t width) {
  std::string digits = std::to_string(value < 0 ? -value : value);
  if (value < 0) out.push_back('-');
  if (digits.size() < width) out.append(width - digits.size(), '0');
  out += digits;
}

bool MatchesNoCase(std::string_view pattern, std::size_t i, std::string_view word) {
  if (pattern.size() - i < word.size()) return false;
  for (std::size_t k = 0; k < word.size(); ++k) {
    char c = pattern[i + k];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != word[k]) return false;
  }
  return true;
}

// Renders a pattern in the classic notation: yyyy, yy, mm, m, dd, d, hh, h, nn, n, ss, s and AM/PM
// (which switches the hours to a 12-hour clock); every other character is copied.
std::string RenderPattern(std::string_view pattern, const CivilDateTime& c) {
  const bool twelve_hour = pattern.find("AM/PM") != std::string_view::npos ||
                           pattern.find("am/pm") != std::string_view::npos;
  std::string out;
  for (std::size_t i = 0; i < pattern.size();) {
    const char p = pattern[i];
    const char lower = (p >= 'A' && p <= 'Z') ? static_cast<char>(p - 'A' + 'a') : p;
    std::size_t run = 1;
    while (i + run < pattern.size() && pattern[i + run] == p) ++run;
    if (MatchesNoCase(pattern, i, "am/pm")) {
      const bool pm = c.hour >= 12;
      out += p == 'A' ? (pm ? "PM" : "AM") : (pm ? "pm" : "am");
      i += 5;
      continue;
    }
    switch (lower) {
      case 'y':
        if (run >= 4) {
          AppendPadded(out, c.year, 4), i += 4;
        } else if (run >= 2) {
          AppendPadded(out, ((c.year % 100) + 100) % 100, 2), i += 2;
        } else {
          out.push_back(p), ++i;
        }
        break;
      case 'm':
      case 'd':
      case 'h':
      case 'n':
      case 's': {
        int value = lower == 'm' ? c.month : lower == 'd' ? c.day : lower == 'n' ? c.minute : lower == 's' ? c.second : c.hour;
        if (lower == 'h' && twelve_hour) value = value % 12 == 0 ? 12 : value % 12;
        const std::size_t width = run >= 2 ? 2 : 1;
        AppendPadded(out, value, width);
        i += width;
        break;
      }
      default:
        out.push_back(p);
        ++i;
        break;
    }
  }
  return out;
}

// ---- ISO text ---------------------------------------------------------------------------------------

// `n` ASCII digits at `pos` as a number.
bool IsoDigits(std::string_view s, std::size_t pos, std::size_t n, int& out) {
  if (pos + n > s.size()) return false;
  int v = 0;
  for (std::size_t i = pos; i < pos + n; ++i) {
    if (!internal::IsAsciiDigit(s[i])) return false;
    v = v * 10 + (s[i] - '0');
  }
  out = v;
  return true;
}

// "HH:MM[:SS[.fff]]" from `pos` to the end (a trailing "Z" allowed); seconds of the day.
std::optional<double> ParseIsoTime(std::string_view s, std::size_t pos) {
  int h = 0, mi = 0, sec = 0;
  if (!IsoDigits(s, pos, 2, h) || pos + 2 >= s.size() || s[pos + 2] != ':' || !IsoDigits(s, pos + 3, 2, mi)) {
    return std::nullopt;
  }
  pos += 5;
  double fraction = 0.0;
  if (pos < s.size() && s[pos] == ':') {
    if (!IsoDigits(s, pos + 1, 2, sec)) return std::nullopt;
    pos += 3;
    if (pos < s.size() && s[pos] == '.') {
      ++pos;
      double scale = 0.1;
      const std::size_t start = pos;
      while (pos < s.size() && internal::IsAsciiDigit(s[pos])) {
        fraction += (s[pos] - '0') * scale;
        scale /= 10.0;
        ++pos;
      }
      if (pos == start) return std::nullopt;
    }
  }
  if (pos < s.size() && s[pos] == 'Z') ++pos;
  if (pos != s.size()) return std::nullopt;
  if (h > 23 || mi > 59 || sec > 59) return std::nullopt;
  return h * 3600.0 + mi * 60.0 + sec + fraction;
}

}  // namespace

namespace internal {

bool IsValidSerial(double serial) noexcept {
  if (!std::isfinite(serial)) return false;
  const double day = std::trunc(serial);
  return day >= kFirstSerialDay && day <= kLastSerialDay;
}

std::optional<Date> ScanDate(std::string_view text, const Locale& locale) {
  std::vector<Token> tokens;
  tokens.reserve(12);
  if (!Tokenize(text, tokens) || tokens.empty() || tokens.size() > 16) return std::nullopt;
  return DateParser(tokens, locale).Parse();
}

std::string FormatDateIn(Date d, const Locale& locale) {
  const CivilDateTime c = ToCivil(d);
  const bool has_day = !(c.year == 1899 && c.month == 12 && c.day == 30);
  const bool has_time = c.hour != 0 || c.minute != 0 || c.second != 0;
  if (!has_day) return RenderPattern(locale.long_time_format, c);
  if (!has_time) return RenderPattern(locale.short_date_format, c);
  return RenderPattern(locale.short_date_format, c) + " " + RenderPattern(locale.long_time_format, c);
}

std::optional<double> ParseIsoDateTime(std::string_view s) {
  s = TrimBlanks(s);
  if (s.size() >= 5 && s[2] == ':') {  // a bare time
    const auto seconds = ParseIsoTime(s, 0);
    if (!seconds) return std::nullopt;
    return JoinSerial(0, *seconds / 86400.0);
  }
  int y = 0, m = 0, d = 0;
  if (s.size() < 10 || !IsoDigits(s, 0, 4, y) || s[4] != '-' || !IsoDigits(s, 5, 2, m) || s[7] != '-' ||
      !IsoDigits(s, 8, 2, d)) {
    return std::nullopt;
  }
  if (m < 1 || m > 12 || d < 1 || d > DaysInMonth(y, m)) return std::nullopt;
  double seconds = 0.0;
  if (s.size() > 10) {
    if (s[10] != ' ' && s[10] != 'T') return std::nullopt;
    const auto t = ParseIsoTime(s, 11);
    if (!t) return std::nullopt;
    seconds = *t;
  }
  return JoinSerial(DaysFromCivil(y, m, d) - kSerialEpoch, seconds / 86400.0);
}

std::string FormatIsoDateTime(double serial) {
  if (!std::isfinite(serial)) return std::string();
  const double whole = std::trunc(serial);
  const double fraction = std::fabs(serial - whole);
  auto days = static_cast<int64_t>(whole);
  auto seconds = static_cast<int64_t>(std::llround(fraction * 86400.0));
  if (seconds >= 86400) {  // rounded up to the next midnight
    seconds -= 86400;
    days += 1;
  }
  const YearMonthDay ymd = CivilFromDays(days + kSerialEpoch);
  char buf[96];
  std::snprintf(buf, sizeof buf, "%04lld-%02d-%02d %02lld:%02lld:%02lld", static_cast<long long>(ymd.year),
                ymd.month, ymd.day, static_cast<long long>(seconds / 3600), static_cast<long long>(seconds / 60 % 60),
                static_cast<long long>(seconds % 60));
  return buf;
}

}  // namespace internal

Date DateSerial(int year, int month, int day) {
  return MakeChecked(SerialDay(WindowYear(year), month, day), 0);
}

double TimeSerial(int hour, int minute, int second) {
  return static_cast<double>(int64_t{hour} * 3600 + int64_t{minute} * 60 + second) / 86400.0;
}

Date MakeDate(const CivilDateTime& civil) {
  return MakeChecked(SerialDay(civil.year, civil.month, civil.day),
                     int64_t{civil.hour} * 3600 + int64_t{civil.minute} * 60 + civil.second);
}

CivilDateTime ToCivil(Date d) {
  double serial = std::isfinite(d.serial) ? d.serial : 0.0;
  // Far outside the classic range the result is meaningless anyway; the clamp keeps the arithmetic
  // defined.
  if (serial > 1e9) serial = 1e9;
  if (serial < -1e9) serial = -1e9;
  const double whole = std::trunc(serial);
  auto day = static_cast<int64_t>(whole);
  auto seconds = static_cast<int64_t>(std::llround(std::fabs(serial - whole) * 86400.0));
  if (seconds >= 86400) {
    ++day;
    seconds -= 86400;
  }
  const YearMonthDay ymd = CivilFromDays(day + kSerialEpoch);
  CivilDateTime c;
  c.year = static_cast<int>(ymd.year);
  c.month = ymd.month;
  c.day = ymd.day;
  c.hour = static_cast<int>(seconds / 3600);
  c.minute = static_cast<int>(seconds / 60 % 60);
  c.second = static_cast<int>(seconds % 60);
  return c;
}

Date Now() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (localtime_r(&now, &local) == nullptr) return Date{};
  return MakeDate({local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
                   local.tm_sec});
}

std::string FormatDate(Date d) { return internal::FormatDateIn(d, Locale::Current()); }

std::optional<Date> ParseDate(std::string_view text) { return internal::ScanDate(text, Locale::Current()); }

}  // namespace quorbex
