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
  // Format patterns in the classic notation: yyyy, mm, dd for dates; hh, nn, ss for times.
  std::string short_date_format = "yyyy-mm-dd";
  std::string long_time_format = "hh:nn:ss";

  // "." decimal point, "," thousands, ISO dates (yyyy-mm-dd hh:nn:ss).
  static Locale C();
  // "," decimal comma, "." thousands, dd.mm.yyyy and hh:nn:ss.
  static Locale German();
  // US English: "." decimal point, "," thousands, m/d/yyyy and h:nn:ss AM/PM written as 24-hour hh:nn:ss.
  static Locale English();
  // Built from the process's LC_NUMERIC and LC_TIME; C() for "C" and "POSIX".
  static Locale FromProcess();

  // The calling thread's locale.
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
