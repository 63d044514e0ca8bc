#include <gtest/gtest.h>

#include <optional>
#include <string_view>
#include <thread>

#include "support/error_of.h"
#include "quorbex/locale.h"
#include "quorbex/variant.h"
#include "value/locale_info.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

using test::ErrorOf;

void ExpectCivil(const CivilDateTime& c, int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  EXPECT_EQ(c.year, y);
  EXPECT_EQ(c.month, mo);
  EXPECT_EQ(c.day, d);
  EXPECT_EQ(c.hour, h);
  EXPECT_EQ(c.minute, mi);
  EXPECT_EQ(c.second, s);
}

TEST(Date, SerialCountsDaysFrom18991230) {
  EXPECT_EQ(DateSerial(1899, 12, 30).serial, 0.0);
  EXPECT_EQ(DateSerial(1900, 1, 1).serial, 2.0);
  EXPECT_EQ(DateSerial(2020, 1, 1).serial, 43831.0);
  EXPECT_EQ(DateSerial(100, 1, 1).serial, -657434.0);
  EXPECT_EQ(DateSerial(9999, 12, 31).serial, 2958465.0);
  ExpectCivil(ToCivil(Date{43831.0}), 2020, 1, 1);
  ExpectCivil(ToCivil(Date{60.0}), 1900, 2, 28);  // no phantom 1900-02-29
  ExpectCivil(ToCivil(Date{61.0}), 1900, 3, 1);
}

TEST(Date, DateSerialRollsOverAndWindowsTwoDigitYears) {
  EXPECT_EQ(DateSerial(2020, 13, 1).serial, DateSerial(2021, 1, 1).serial);
  EXPECT_EQ(DateSerial(2020, 1, 0).serial, DateSerial(2019, 12, 31).serial);
  EXPECT_EQ(DateSerial(2020, 0, 1).serial, DateSerial(2019, 12, 1).serial);
  EXPECT_EQ(DateSerial(2020, -11, 1).serial, DateSerial(2019, 1, 1).serial);
  EXPECT_EQ(DateSerial(2020, -12, 1).serial, DateSerial(2018, 12, 1).serial);
  EXPECT_EQ(DateSerial(2020, -25, 31).serial, DateSerial(2017, 12, 1).serial);
  // Times before midnight roll back to the day before, also before 1899-12-30.
  EXPECT_EQ(MakeDate({2020, 1, 2, -6, 0, 0}).serial, DateSerial(2020, 1, 1).serial + 0.75);
  EXPECT_EQ(MakeDate({1899, 12, 29, -6, 0, 0}).serial, -2.75);
  EXPECT_EQ(MakeDate({1899, 12, 29, 30, 0, 0}).serial, 0.25);
  EXPECT_EQ(DateSerial(2020, 2, 30).serial, DateSerial(2020, 3, 1).serial);
  EXPECT_EQ(DateSerial(2021, 1, -30).serial, DateSerial(2020, 12, 1).serial);
  EXPECT_EQ(DateSerial(20, 1, 1).serial, DateSerial(2020, 1, 1).serial);
  EXPECT_EQ(DateSerial(75, 1, 1).serial, DateSerial(1975, 1, 1).serial);
  EXPECT_EQ(ErrorOf([] { DateSerial(10000, 1, 1); }), errnum::kInvalidProcedureCall);
  EXPECT_EQ(ErrorOf([] { DateSerial(2000, 2147483647, 2147483647); }), errnum::kInvalidProcedureCall);
  EXPECT_DOUBLE_EQ(TimeSerial(6, 0, 0), 0.25);
  EXPECT_DOUBLE_EQ(TimeSerial(25, 0, 0), 25.0 / 24.0);
}

TEST(Date, BeforeEpochTheFractionIsTheTimeOfDay) {
  // -1.25 is 1899-12-29 06:00, not 18:00.
  ExpectCivil(ToCivil(Date{-1.25}), 1899, 12, 29, 6);
  ExpectCivil(ToCivil(Date{-0.5}), 1899, 12, 30, 12);
  ExpectCivil(ToCivil(Date{-2.75}), 1899, 12, 28, 18);
  EXPECT_EQ(MakeDate({1899, 12, 29, 6, 0, 0}).serial, -1.25);
  EXPECT_EQ(MakeDate({1800, 1, 1, 0, 0, 0}).serial, DateSerial(1800, 1, 1).serial);
  const Date old = MakeDate({1850, 7, 14, 13, 45, 30});
  ExpectCivil(ToCivil(old), 1850, 7, 14, 13, 45, 30);
  EXPECT_LT(old.serial, 0.0);
  // Seconds round to the nearest, carrying into the next day.
  ExpectCivil(ToCivil(Date{43831.0 + 0.99999999}), 2020, 1, 2);
  ExpectCivil(ToCivil(Date{-1.99999999}), 1899, 12, 30);
  // Time past midnight rolls over in MakeDate.
  ExpectCivil(ToCivil(MakeDate({2020, 12, 31, 24, 0, 30})), 2021, 1, 1, 0, 0, 30);
  // Garbage in, no crash.
  ToCivil(Date{std::numeric_limits<double>::quiet_NaN()});
  ToCivil(Date{1e300});
}

TEST(Date, CDateFromNumbersAndTexts) {
  LocaleScope scope(Locale::C());
  EXPECT_EQ(CDate(43831.5).serial, 43831.5);
  EXPECT_EQ(CDate(true).serial, -1.0);
  EXPECT_EQ(CDate(Variant()).serial, 0.0);
  EXPECT_EQ(CDate("2020-01-31").serial, DateSerial(2020, 1, 31).serial);
  EXPECT_EQ(CDate("2020-01-31 06:00").serial, DateSerial(2020, 1, 31).serial + 0.25);
  EXPECT_EQ(CDate("2020-01-31T06:00:00").serial, DateSerial(2020, 1, 31).serial + 0.25);
  EXPECT_EQ(ErrorOf([] { CDate(1e10); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { CDate("2020-02-30"); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CDate("43831"); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CDate(Null); }), errnum::kInvalidUseOfNull);
}

TEST(Date, IsDateFollowsTheLocale) {
  {
    LocaleScope scope(Locale::C());
    EXPECT_TRUE(IsDate("2020-12-31"));
    EXPECT_TRUE(IsDate(" 2020-12-31 23:59:59 "));
    EXPECT_TRUE(IsDate("2020-12-31 23:59:59.250"));
    EXPECT_TRUE(IsDate("2020/12/31"));
    EXPECT_TRUE(IsDate("13:45"));
    EXPECT_TRUE(IsDate("1:45 PM"));
    EXPECT_TRUE(IsDate("31 Dec 2020"));
    EXPECT_TRUE(IsDate("December 31, 2020"));
    EXPECT_TRUE(IsDate(Date{5}));
    EXPECT_TRUE(IsDate("2020-02-29"));
    EXPECT_FALSE(IsDate("2021-02-29"));
    EXPECT_FALSE(IsDate("31.12.2020"));  // year-month-day order here
    EXPECT_FALSE(IsDate("24:00"));
    EXPECT_FALSE(IsDate("12:60"));
    EXPECT_FALSE(IsDate("13:00 PM"));
    EXPECT_FALSE(IsDate("2020-12-31 x"));
    EXPECT_FALSE(IsDate("2020-12"));
    EXPECT_FALSE(IsDate("12"));
    EXPECT_FALSE(IsDate(""));
    EXPECT_FALSE(IsDate(43831.0));
    EXPECT_FALSE(IsDate(Null));
    EXPECT_FALSE(IsDate("0099-01-01"));
    EXPECT_FALSE(IsDate(std::string("2020-01-01\xff")));
    EXPECT_FALSE(IsDate("1234567890123-1-1"));
  }
  {
    LocaleScope scope(Locale::German());
    EXPECT_TRUE(IsDate("31.12.2020"));
    EXPECT_TRUE(IsDate("31.12.2020 13:45:00"));
    EXPECT_TRUE(IsDate("2020-12-31"));  // ISO always
    EXPECT_TRUE(IsDate("1. M\xc3\xa4rz 2021"));
    EXPECT_TRUE(IsDate("31.12.20"));
    EXPECT_FALSE(IsDate("12.31.2020"));
    EXPECT_FALSE(IsDate("1,5"));
    EXPECT_EQ(CDate("1. M\xc3\x84RZ 2021").serial, DateSerial(2021, 3, 1).serial);
    EXPECT_EQ(CDate("31.12.20").serial, DateSerial(2020, 12, 31).serial);
    EXPECT_EQ(CDate("5.1.1850").serial, DateSerial(1850, 1, 5).serial);
    EXPECT_EQ(CDate("100-01-05").serial, DateSerial(100, 1, 5).serial);  // a long first number is the year
  }
  {
    LocaleScope scope(Locale::English());
    EXPECT_TRUE(IsDate("12/31/2020"));
    EXPECT_FALSE(IsDate("31/12/2020"));
    EXPECT_EQ(CDate("1/5/2020").serial, DateSerial(2020, 1, 5).serial);
  }
}

// ParseDate is handed the first `length` bytes of a longer text; what follows must not count.
TEST(Date, DateScansStopAtTheEndOfTheirTextAndCheckEachBoundary) {
  LocaleScope scope(Locale::C());
  const double day = DateSerial(2020, 12, 31).serial;
  const double none = -1e9;  // no date
  struct Case {
    const char* text;
    size_t length;
    double serial;
  };
  const Case cases[] = {
      {"2020-12-315", 10, day},
      {"2020-12-31 13:45:30", 16, day + TimeSerial(13, 45, 0)},
      {"2020-12-31 13:45:309", 19, day + TimeSerial(13, 45, 30)},
      {"2020-12-31 23:59:59.2505", 23, day + (86399 + 0.25) / 86400.0},
      {"31 Dec 20201", 11, day},
      {"Dec 31, 20201", 12, day},
      {"12:59", 4, TimeSerial(12, 5, 0)},
      {"1:45 PM", 6, none},
      {"2020-12-31T", 11, none},
      // Each field at and just past its limit; the separators must agree.
      {"2020-12-31 23:59:59", 19, day + TimeSerial(23, 59, 59)},
      {"00:00", 5, 0.0},
      {"12 AM", 5, 0.0},
      {"12 PM", 5, 0.5},
      {"11:59 PM", 8, TimeSerial(23, 59, 0)},
      {"0 AM", 4, none},
      {"2020-12-31 24:00", 16, none},
      {"2020-12-31 23:60", 16, none},
      {"2020-12-31 23:59:60", 19, none},
      {"2020-04-30", 10, DateSerial(2020, 4, 30).serial},
      {"2020-04-31", 10, none},
      {"2000-02-29", 10, DateSerial(2000, 2, 29).serial},
      {"1900-02-29", 10, none},
      {"2100-02-29", 10, none},
      {"2020-00-10", 10, none},
      {"2020-13-10", 10, none},
      {"2020-12-00", 10, none},
      {"2020-12.31", 10, none},
      {"2020.12.31", 10, day},
      {"0100-01-01", 10, DateSerial(100, 1, 1).serial},
      {"9999-12-31", 10, DateSerial(9999, 12, 31).serial},
      {"29-12-31", 8, DateSerial(2029, 12, 31).serial},
      {"30-12-31", 8, DateSerial(1930, 12, 31).serial},
      {"31 Foo 2020", 11, none},
  };
  for (const Case& c : cases) {
    const std::optional<Date> parsed = ParseDate(std::string_view(c.text, c.length));
    if (c.serial == none) {
      EXPECT_FALSE(parsed.has_value()) << c.text << " cut to " << c.length;
    } else {
      ASSERT_TRUE(parsed.has_value()) << c.text << " cut to " << c.length;
      EXPECT_DOUBLE_EQ(parsed->serial, c.serial) << c.text << " cut to " << c.length;
    }
  }
}

TEST(Date, FormatUsesShortDateAndLongTime) {
  const Date noon = MakeDate({2020, 1, 31, 12, 5, 9});
  {
    LocaleScope scope(Locale::C());
    EXPECT_EQ(FormatDate(noon), "2020-01-31 12:05:09");
    EXPECT_EQ(CStr(DateSerial(2020, 1, 31)), "2020-01-31");
    EXPECT_EQ(CStr(Date{0.25}), "06:00:00");
    EXPECT_EQ(CStr(Date{0.0}), "00:00:00");
    EXPECT_EQ(CStr(Date{-1.25}), "1899-12-29 06:00:00");
    EXPECT_EQ(CStr(DateSerial(100, 1, 1)), "0100-01-01");
  }
  {
    LocaleScope scope(Locale::German());
    EXPECT_EQ(FormatDate(noon), "31.01.2020 12:05:09");
  }
  {
    LocaleScope scope(Locale::English());
    EXPECT_EQ(FormatDate(noon), "1/31/2020 12:05:09");
  }
  {
    Locale twelve = Locale::English();
    twelve.long_time_format = "h:nn:ss AM/PM";
    LocaleScope scope(twelve);
    EXPECT_EQ(FormatDate(noon), "1/31/2020 12:05:09 PM");
    EXPECT_EQ(FormatDate(MakeDate({2020, 1, 31, 0, 30, 0})), "1/31/2020 12:30:00 AM");
    EXPECT_EQ(CDate("1/31/2020 12:30:00 AM").serial, MakeDate({2020, 1, 31, 0, 30, 0}).serial);
  }
}

TEST(Date, TextDateTextRoundTripsInEveryLocale) {
  const Date samples[] = {MakeDate({2020, 2, 29, 23, 59, 59}), DateSerial(1850, 7, 14),
                          MakeDate({1899, 12, 29, 6, 0, 0}), MakeDate({1899, 12, 30, 18, 30, 0}),
                          DateSerial(9999, 12, 31), MakeDate({101, 3, 4, 5, 6, 7})};
  for (const Locale& locale : {Locale::C(), Locale::German(), Locale::English()}) {
    LocaleScope scope(locale);
    for (const Date d : samples) {
      const std::string text = CStr(d);
      ASSERT_TRUE(IsDate(text)) << text;
      EXPECT_EQ(CDate(text).serial, d.serial) << text;
      EXPECT_EQ(CStr(CDate(text)), text);
    }
  }
}

TEST(Date, NowIsTodayInLocalTime) {
  const Date now = Now();
  const CivilDateTime c = ToCivil(now);
  EXPECT_GE(c.year, 2024);
  EXPECT_LE(c.year, 2200);
}

TEST(Locale, ScopesAreNestedAndPerThread) {
  Locale::SetCurrent(Locale::C());
  {
    LocaleScope german(Locale::German());
    EXPECT_EQ(Locale::Current().decimal_separator, ",");
    std::string other_thread;
    std::thread([&] {
      Locale::SetCurrent(Locale::C());
      other_thread = CStr(1.5);
    }).join();
    EXPECT_EQ(other_thread, "1.5");
    EXPECT_EQ(CStr(1.5), "1,5");
    {
      LocaleScope english(Locale::English());
      EXPECT_EQ(Locale::Current().date_order, DateOrder::MDY);
    }
    EXPECT_EQ(Locale::Current().date_order, DateOrder::DMY);
  }
  EXPECT_EQ(Locale::Current().decimal_separator, ".");
}

TEST(Locale, ProcessLocaleCIsTheCLocale) {
  // The test runner does not select a locale, and the only ones installed here are C variants.
  const Locale p = Locale::FromProcess();
  if (p.decimal_separator == "." && p.date_order == DateOrder::YMD) {
    EXPECT_EQ(p.short_date_format, "yyyy-mm-dd");
    EXPECT_EQ(p.long_time_format, "hh:nn:ss");
  }
  const Locale c = Locale::C();
  EXPECT_EQ(c.decimal_separator, ".");
  EXPECT_EQ(c.date_separator, "-");
  const Locale g = Locale::German();
  EXPECT_EQ(g.short_date_format, "dd.mm.yyyy");
}

TEST(Locale, BuiltFromTheCLibrarysLocaleData) {
  const Locale de = internal::LocaleFromLangInfo(",", ".", "%d.%m.%Y", "%T");
  EXPECT_EQ(de.decimal_separator, ",");
  EXPECT_EQ(de.thousands_separator, ".");
  EXPECT_EQ(de.date_order, DateOrder::DMY);
  EXPECT_EQ(de.date_separator, ".");
  EXPECT_EQ(de.short_date_format, "dd.mm.yyyy");
  EXPECT_EQ(de.long_time_format, "hh:nn:ss");

  const Locale us = internal::LocaleFromLangInfo(".", ",", "%m/%d/%Y", "%r");
  EXPECT_EQ(us.date_order, DateOrder::MDY);
  EXPECT_EQ(us.date_separator, "/");
  EXPECT_EQ(us.short_date_format, "mm/dd/yyyy");
  EXPECT_EQ(us.long_time_format, "hh:nn:ss AM/PM");
  {
    LocaleScope scope(us);
    const Date d = MakeDate({2020, 1, 31, 15, 5, 9});
    EXPECT_EQ(CStr(d), "01/31/2020 03:05:09 PM");
    EXPECT_EQ(CDate(CStr(d)).serial, d.serial);
  }

  const Locale gb = internal::LocaleFromLangInfo(".", ",", "%d/%m/%y", "%H:%M:%S");
  EXPECT_EQ(gb.date_order, DateOrder::DMY);
  EXPECT_EQ(gb.short_date_format, "dd/mm/yy");
  const Locale iso = internal::LocaleFromLangInfo(".", "", "%F", "%R");
  EXPECT_EQ(iso.date_order, DateOrder::YMD);
  EXPECT_EQ(iso.date_separator, "-");
  EXPECT_EQ(iso.short_date_format, "yyyy-mm-dd");
  EXPECT_EQ(iso.long_time_format, "hh:nn");
  EXPECT_EQ(iso.thousands_separator, "");
  // Weekday names have no counterpart and are dropped; a thousands separator equal to the decimal
  // separator would make every number ambiguous and is dropped too.
  const Locale odd = internal::LocaleFromLangInfo(",", ",", "%a %d.%m.%Y", "%H.%M");
  EXPECT_EQ(odd.thousands_separator, "");
  EXPECT_EQ(odd.date_order, DateOrder::DMY);
  EXPECT_EQ(odd.short_date_format, "dd.mm.yyyy");
  // Missing data keeps the C settings.
  const Locale empty = internal::LocaleFromLangInfo("", "", "", "");
  EXPECT_EQ(empty.decimal_separator, ".");
  EXPECT_EQ(empty.short_date_format, "yyyy-mm-dd");
}

}  // namespace
}  // namespace quorbex
