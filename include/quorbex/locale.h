// Locale: the settings that drive every conversion between text and numbers or dates.
//
// Each thread has a current Locale. It starts as Locale::FromProcess() (LC_NUMERIC and LC_TIME of the
// process; "C"/"POSIX" give "." and ISO dates) and can be replaced with SetCurrent or, for a scope,
// LocaleScope. Tests set the locale they assume.
#pragma once

#include <string>

namespace quorbex {

enum class DateOrder { YMD, DMY, MDY };

struct Locale {
  std::string decimal_separator = ".";
  std::string thousands_separator = ",";
  DateOrder date_order = DateOrder::YMD;
  std::string date_separator = "-";
  // Format patterns in the classic notation: yyyy, yy, mm, m, dd, d for dates; hh, h, nn, n, ss, s for
  // times, with "AM/PM" for a 12-hour clock. Other characters are written as they are.
  std::string short_date_format = "yyyy-mm-dd";
  std::string long_time_format = "hh:nn:ss";

  // "." decimal point, "," thousands, ISO dates (yyyy-mm-dd hh:nn:ss).
  static Locale C();
  // "," decimal comma, "." thousands, dd.mm.yyyy and hh:nn:ss.
  static Locale German();
  // US English: "." decimal point, "," thousands, m/d/yyyy, and the time as 24-hour hh:nn:ss rather
  // than h:nn:ss AM/PM.
  static Locale English();
  // Built from the process's LC_NUMERIC and LC_TIME: the locale the program selected with setlocale,
  // or while that is still "C", the one the environment names (LC_ALL, LC_NUMERIC / LC_TIME, LANG).
  // C() for "C", "POSIX" and their UTF-8 variants, and for a locale that is not installed. The decimal
  // and thousands separators, the date order, separator and short date format, and the long time
  // format come from the locale's RADIXCHAR, THOUSEP, D_FMT and T_FMT.
  static Locale FromProcess();

  // The calling thread's locale. A thread starts with FromProcess() as it was when the library first
  // needed a locale.
  static const Locale& Current();
  static void SetCurrent(const Locale& locale);
};

// Sets the thread's locale for the lifetime of the object and restores the previous one afterwards.
class LocaleScope {
 public:
  explicit LocaleScope(const Locale& locale) : saved_(Locale::Current()) { Locale::SetCurrent(locale); }
  ~LocaleScope() { Locale::SetCurrent(saved_); }
  LocaleScope(const LocaleScope&) = delete;
  LocaleScope& operator=(const LocaleScope&) = delete;

 private:
  Locale saved_;
};

}  // namespace quorbex
