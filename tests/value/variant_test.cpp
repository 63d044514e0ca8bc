#include "support/error_of.h"
#include "quorbex/variant.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace quorbex {

namespace {

using test::ErrorOf;

class Named : public Object {
 public:
  explicit Named(Variant v) : value_(std::move(v)) {}
  Variant DefaultValue() const override { return value_; }

 private:
  Variant value_;
};

class Plain : public Object {};

TEST(Variant, KindsAndSize) {
  EXPECT_LE(sizeof(Variant), 40u);
  EXPECT_EQ(Variant().Type(), VarType::Empty);
  EXPECT_EQ(Variant(Null).Type(), VarType::Null);
  EXPECT_EQ(Variant(true).Type(), VarType::Boolean);
  EXPECT_EQ(Variant(uint8_t{7}).Type(), VarType::Byte);
  EXPECT_EQ(Variant(int16_t{7}).Type(), VarType::Integer);
  EXPECT_EQ(Variant(7).Type(), VarType::Long);
  EXPECT_EQ(Variant(7.0f).Type(), VarType::Single);
  EXPECT_EQ(Variant(7.0).Type(), VarType::Double);
  EXPECT_EQ(Variant(Currency{70000}).Type(), VarType::Currency);
  EXPECT_EQ(Variant(Date{1.0}).Type(), VarType::Date);
  EXPECT_EQ(Variant("x").Type(), VarType::String);
  EXPECT_EQ(Variant(std::make_shared<Plain>()).Type(), VarType::Object);
  // 64-bit integers: Long when they fit, Double otherwise.
  EXPECT_EQ(Variant(5L).Type(), VarType::Long);
  EXPECT_EQ(Variant(5000000000LL).Type(), VarType::Double);
  EXPECT_EQ(Variant(5000000000LL).AsDouble(), 5e9);
  EXPECT_EQ(Variant(std::size_t{3}).AsLong(), 3);
  EXPECT_EQ(Variant(4000000000u).Type(), VarType::Double);
  EXPECT_EQ(Variant(-2147483648LL).Type(), VarType::Long);
  EXPECT_TRUE(Variant(1.5).IsNumberKind());
  EXPECT_FALSE(Variant(true).IsNumberKind());
  EXPECT_FALSE(Variant(Date{}).IsNumberKind());
  EXPECT_FALSE(Variant(1).SameAs(Variant(1.0)));
  EXPECT_TRUE(Variant(Null).SameAs(Variant(Null)));
}

TEST(Variant, CStrOfEachKindInCLocale) {
  LocaleScope scope(Locale::C());
  EXPECT_EQ(CStr(Variant()), "");
  EXPECT_EQ(CStr(true), "True");
  EXPECT_EQ(CStr(false), "False");
  EXPECT_EQ(CStr(uint8_t{255}), "255");
  EXPECT_EQ(CStr(int16_t{-32768}), "-32768");
  EXPECT_EQ(CStr(-2147483647 - 1), "-2147483648");
  EXPECT_EQ(CStr(0.1 + 0.2), "0.3");
  EXPECT_EQ(CStr(1e20), "1E+20");
  EXPECT_EQ(CStr(-0.5), "-0.5");
  EXPECT_EQ(CStr(-0.0), "0");
  EXPECT_EQ(CStr(1.0 / 3.0), "0.333333333333333");
  EXPECT_EQ(CStr(123456789012345.0), "123456789012345");
  EXPECT_EQ(CStr(1e15), "1E+15");
  EXPECT_EQ(CStr(0.0001), "0.0001");
  EXPECT_EQ(CStr(0.00001), "1E-05");
  EXPECT_EQ(CStr(0.1f), "0.1");
  EXPECT_EQ(CStr(1234567.0f), "1234567");
  EXPECT_EQ(CStr(16777216.0f), "1.677722E+07");
  EXPECT_EQ(CStr(Currency{15000}), "1.5");
  EXPECT_EQ(CStr(Currency{-1}), "-0.0001");
  EXPECT_EQ(CStr(Currency{std::numeric_limits<int64_t>::min()}), "-922337203685477.5808");
  EXPECT_EQ(CStr("text"), "text");
  EXPECT_EQ(CStr(Date{43831.5}), "2020-01-01 12:00:00");
  EXPECT_EQ(ErrorOf([] { CStr(Null); }), errnum::kInvalidUseOfNull);
}

TEST(Variant, CStrAndCDblFollowTheGermanLocale) {
  LocaleScope scope(Locale::German());
  EXPECT_EQ(CStr(0.1 + 0.2), "0,3");
  EXPECT_EQ(CStr(-1.5e-7), "-1,5E-07");
  EXPECT_EQ(CStr(Currency{12345}), "1,2345");
  EXPECT_EQ(CDbl("1,5"), 1.5);
  // "." groups thousands here, so "1.5" is fifteen, as the classic runtime reads it.
  EXPECT_EQ(CDbl("1.5"), 15.0);
  EXPECT_EQ(CDbl("1.234.567,25"), 1234567.25);
  EXPECT_EQ(CLng("2,5"), 2);
  EXPECT_TRUE(IsNumeric("-1,5E3"));
  EXPECT_FALSE(IsNumeric("1,5,"));
  // Val always reads "." as decimal point, so the German text form of 1.5 reads as 1.
  EXPECT_EQ(Val(Variant(1.5)), 1.0);
  EXPECT_EQ(Val("1.5"), 1.5);
}

TEST(Variant, TextToNumberInCLocale) {
  LocaleScope scope(Locale::C());
  EXPECT_EQ(CDbl("  -12.5  "), -12.5);
  EXPECT_EQ(CDbl("1,000.5"), 1000.5);
  EXPECT_EQ(CDbl("1e3"), 1000.0);
  EXPECT_EQ(CDbl("1D3"), 1000.0);
  EXPECT_EQ(CDbl(".5"), 0.5);
  EXPECT_EQ(CDbl("5."), 5.0);
  EXPECT_EQ(CDbl("12-"), -12.0);
  EXPECT_EQ(CDbl("(12)"), -12.0);
  EXPECT_EQ(CDbl("&H1F"), 31.0);
  EXPECT_EQ(CDbl("&HFFFF"), -1.0);
  EXPECT_EQ(CDbl("&O17"), 15.0);
  EXPECT_EQ(CDbl("0.1"), 0.1);  // exact, whatever the process locale says
  EXPECT_EQ(ErrorOf([] { CDbl("abc"); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CDbl(""); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CDbl("1e"); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CDbl("-(1)"); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CDbl("1 2"); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CDbl("1e400"); }), errnum::kOverflow);
  EXPECT_EQ(CDbl("1e-400"), 0.0);
  EXPECT_EQ(ErrorOf([] { CDbl(Null); }), errnum::kInvalidUseOfNull);
  EXPECT_EQ(ErrorOf([] { CDbl(std::string("\xff\xfe")); }), errnum::kTypeMismatch);
  EXPECT_EQ(CDbl(Variant()), 0.0);
  EXPECT_EQ(CDbl(true), -1.0);
  EXPECT_EQ(CDbl(Date{2.25}), 2.25);
  EXPECT_EQ(ParseNumber("x"), std::nullopt);
  EXPECT_EQ(ParseNumber(" 7 "), 7.0);
}

TEST(Variant, IntegerConversionsRoundHalfToEvenAndCheckRange) {
  LocaleScope scope(Locale::C());
  EXPECT_EQ(CInt(2.5), 2);
  EXPECT_EQ(CInt(3.5), 4);
  EXPECT_EQ(CInt(-2.5), -2);
  EXPECT_EQ(CInt(-3.5), -4);
  EXPECT_EQ(CLng(0.5), 0);
  EXPECT_EQ(CLng(1.5), 2);
  EXPECT_EQ(CLng(2.6), 3);
  EXPECT_EQ(CLng("  3.5 "), 4);
  EXPECT_EQ(CByte(254.5), 254);
  EXPECT_EQ(CInt(32767.4), 32767);
  EXPECT_EQ(CInt(-32768.5), -32768);
  EXPECT_EQ(ErrorOf([] { CInt(32767.5); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { CInt(40000); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { CLng(2147483647.5); }), errnum::kOverflow);
  EXPECT_EQ(CLng(-2147483648.4), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(ErrorOf([] { CByte(-1); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { CByte(true); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { CLng(std::nan("")); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { CLng(std::numeric_limits<double>::infinity()); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { CLng("seven"); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CInt(Null); }), errnum::kInvalidUseOfNull);
  EXPECT_EQ(CInt(true), -1);
  EXPECT_EQ(CLng(Currency{25000}), 2);
  EXPECT_EQ(CLng(Currency{35000}), 4);
  EXPECT_EQ(CLng(Currency{-25001}), -3);
  EXPECT_EQ(ErrorOf([] { CLng(Currency{std::numeric_limits<int64_t>::max()}); }), errnum::kOverflow);
}

TEST(Variant, CurrencySingleBoolean) {
  LocaleScope scope(Locale::C());
  // Halves of the decimal value go to the even neighbour, whatever the binary fraction says.
  EXPECT_EQ(CCur(1.23455).scaled, 12346);
  EXPECT_EQ(CCur(1.23445).scaled, 12344);
  EXPECT_EQ(CCur(0.00005).scaled, 0);
  EXPECT_EQ(CCur(0.00015).scaled, 2);
  EXPECT_EQ(CCur(-2.71828).scaled, -27183);
  EXPECT_EQ(CCur(1e-20).scaled, 0);
  EXPECT_EQ(CCur(922337203685477.0).scaled, 9223372036854770000);
  EXPECT_EQ(CCur(123456789.1234).scaled, 1234567891234);
  EXPECT_EQ(CCur("12.5").scaled, 125000);
  EXPECT_EQ(CCur(7).scaled, 70000);
  EXPECT_EQ(ErrorOf([] { CCur(1e15); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { Currency::FromDouble(-1e300); }), errnum::kOverflow);
  EXPECT_FLOAT_EQ(CSng("0.1"), 0.1f);
  EXPECT_EQ(ErrorOf([] { CSng(1e39); }), errnum::kOverflow);
  EXPECT_TRUE(CBool(" TRUE "));
  EXPECT_FALSE(CBool("false"));
  EXPECT_TRUE(CBool("2"));
  EXPECT_FALSE(CBool("0"));
  EXPECT_TRUE(CBool(-0.5));
  EXPECT_FALSE(CBool(Variant()));
  EXPECT_EQ(ErrorOf([] { CBool("maybe"); }), errnum::kTypeMismatch);
  EXPECT_EQ(ErrorOf([] { CBool(Null); }), errnum::kInvalidUseOfNull);
}

TEST(Variant, RoundGoesHalfToEvenOnTheDecimalValue) {
  EXPECT_EQ(Round(2.5), 2.0);
  EXPECT_EQ(Round(3.5), 4.0);
  EXPECT_EQ(Round(-2.5), -2.0);
  EXPECT_EQ(Round(0.125, 2), 0.12);
  EXPECT_EQ(Round(0.135, 2), 0.14);
  EXPECT_EQ(Round(0.285, 2), 0.28);
  EXPECT_EQ(Round(2.675, 2), 2.68);
  EXPECT_EQ(Round(1.23456789, 4), 1.2346);
  EXPECT_EQ(Round(123456.7, 0), 123457.0);
  EXPECT_EQ(Round(0.0004, 3), 0.0);
  EXPECT_EQ(Round(0.0006, 3), 0.001);
  EXPECT_EQ(Round(1e20, 2), 1e20);
  EXPECT_EQ(Round(1.0 / 3.0, 20), 1.0 / 3.0);
  EXPECT_TRUE(std::isnan(Round(std::nan(""), 2)));
  EXPECT_EQ(ErrorOf([] { Round(1.5, -1); }), errnum::kInvalidProcedureCall);
}

TEST(Variant, ValReadsTheLeadingNumber) {
  LocaleScope scope(Locale::German());  // Val ignores the locale
  EXPECT_EQ(Val("    1615 198th Street N.E."), 1615198.0);
  EXPECT_EQ(Val("12abc"), 12.0);
  EXPECT_EQ(Val(" - 5"), -5.0);
  EXPECT_EQ(Val("2.5e2x"), 250.0);
  EXPECT_EQ(Val("2.5e"), 2.5);
  EXPECT_EQ(Val("1,5"), 1.0);
  EXPECT_EQ(Val(".5"), 0.5);
  EXPECT_EQ(Val(""), 0.0);
  EXPECT_EQ(Val("abc"), 0.0);
  EXPECT_EQ(Val("-"), 0.0);
  EXPECT_EQ(Val("&HFF"), 255.0);
  EXPECT_EQ(Val("&HFFFF"), -1.0);
  EXPECT_EQ(Val("&H10000"), 65536.0);
  EXPECT_EQ(Val("&O777"), 511.0);
  EXPECT_EQ(Val("&Hzz"), 0.0);
  EXPECT_EQ(Val("1\t2\n3"), 123.0);
  EXPECT_EQ(ErrorOf([] { Val("1e999"); }), errnum::kOverflow);
  EXPECT_EQ(ErrorOf([] { Val("&H123456789"); }), errnum::kOverflow);
  EXPECT_EQ(Val(Variant(true)), 0.0);  // "True"
  EXPECT_EQ(Val(Variant(int16_t{42})), 42.0);
  EXPECT_EQ(ErrorOf([] { Val(Variant(Null)); }), errnum::kInvalidUseOfNull);
}

// Each scanner is handed the first `length` bytes of a longer text; what follows must not count.
TEST(Variant, NumberScansStopAtTheEndOfTheirText) {
  LocaleScope scope(Locale::C());
  struct Case {
    const char* text;
    size_t length;
    std::optional<double> parsed;  // ParseNumber
    double val;                    // Val
  };
  const Case cases[] = {
      {"1234", 3, 123.0, 123.0},       {"1.25", 3, 1.2, 1.2},         {"1.5", 2, 1.0, 1.0},
      {"1e57", 3, 1e5, 1e5},           {"2e5", 2, std::nullopt, 2.0}, {"1e-5", 3, std::nullopt, 1.0},
      {"&H1F", 3, 1.0, 1.0},           {"&O17", 3, 1.0, 1.0},         {"12-", 2, 12.0, 12.0},
      {"(12)", 3, std::nullopt, 0.0},  {"12 x", 3, 12.0, 12.0},       {"- 5", 2, std::nullopt, 0.0},
      {"1,000", 2, 1.0, 1.0},           {"-7", 1, std::nullopt, 0.0},  {"9", 0, std::nullopt, 0.0},
  };
  for (const Case& c : cases) {
    const std::string_view view(c.text, c.length);
    EXPECT_EQ(ParseNumber(view), c.parsed) << c.text << " cut to " << c.length;
    EXPECT_EQ(Val(view), c.val) << c.text << " cut to " << c.length;
  }
}

TEST(Variant, NumberTextsReadTheirSignsSeparatorsAndExponents) {
  struct Case {
    const char* text;
    std::optional<double> parsed;
  };
  {
    LocaleScope scope(Locale::C());
    const Case cases[] = {
        {"+12", 12.0},      {"-12", -12.0},        {"12+", 12.0},         {"12 -", -12.0},
        {"( 12 )", -12.0},  {"(12-)", std::nullopt}, {"(-12)", std::nullopt}, {"-12-", std::nullopt},
        {"+-1", std::nullopt}, {"(12", std::nullopt}, {"12)", std::nullopt}, {"007", 7.0},
        {"0.0025", 0.0025}, {"1E+3", 1000.0},      {"2.5e-2", 0.025},     {"1.5D2", 150.0},
        {"1e308", 1e308},   {"1,2,3", 123.0},      {"1..5", std::nullopt}, {"1.5.", std::nullopt},
        {",1", std::nullopt}, {"1 000", std::nullopt}, {"&HFFFFFFFF", -1.0}, {"&H", std::nullopt},
    };
    for (const Case& c : cases) EXPECT_EQ(ParseNumber(c.text), c.parsed) << c.text;
    // A tiny number written with many zeros is 0, not an overflow.
    EXPECT_EQ(ParseNumber("0." + std::string(400, '0') + "1e5"), 0.0);
    EXPECT_EQ(ParseNumber(std::string(400, '0') + "1e-400"), 0.0);
  }
  {
    LocaleScope scope(Locale::German());
    const Case cases[] = {
        {"1.000,5", 1000.5}, {"-1.000,5", -1000.5}, {"1,5e1", 15.0}, {"0,05", 0.05},
        {",5", 0.5},         {".5", std::nullopt},  {"1,5,5", std::nullopt},
    };
    for (const Case& c : cases) EXPECT_EQ(ParseNumber(c.text), c.parsed) << c.text;
  }
  // Val: "." always, blanks anywhere inside, a sign only in front.
  const std::pair<const char*, double> leading[] = {
      {"+ 1 2", 12.0}, {"-.5", -0.5}, {"1 . 5", 1.5}, {"12-3", 12.0}, {"1e 2", 100.0}, {"1e+2x", 100.0},
      {"1e-2", 0.01},  {"&o10", 8.0}, {"-&H10", -16.0}, {"0.000", 0.0}, {"--1", 0.0},
  };
  for (const auto& [text, value] : leading) EXPECT_EQ(Val(text), value) << text;
}

TEST(Variant, IsNumericAcceptsNumbersOnly) {
  LocaleScope scope(Locale::C());
  EXPECT_TRUE(IsNumeric(Variant()));
  EXPECT_TRUE(IsNumeric(true));
  EXPECT_TRUE(IsNumeric(3.5));
  EXPECT_TRUE(IsNumeric(Currency{1}));
  EXPECT_TRUE(IsNumeric(" 1,234.5 "));
  EXPECT_TRUE(IsNumeric("-1e-3"));
  EXPECT_TRUE(IsNumeric("&HFF"));
  EXPECT_FALSE(IsNumeric(Null));
  EXPECT_FALSE(IsNumeric(Date{1}));
  EXPECT_FALSE(IsNumeric(""));
  EXPECT_FALSE(IsNumeric(" "));
  EXPECT_FALSE(IsNumeric("."));
  EXPECT_FALSE(IsNumeric("-"));
  EXPECT_FALSE(IsNumeric("12abc"));
  EXPECT_FALSE(IsNumeric(",5"));
  EXPECT_FALSE(IsNumeric("1e400"));
  EXPECT_FALSE(IsNumeric(std::make_shared<Named>(Variant(1))));
}

TEST(Variant, CompareFollowsTheClassicRules) {
  LocaleScope scope(Locale::C());
  using std::strong_ordering;
  EXPECT_EQ(Compare(1, 2.5), strong_ordering::less);
  EXPECT_EQ(Compare(int16_t{3}, Currency{30000}), strong_ordering::equal);
  EXPECT_EQ(Compare(Currency{1}, Currency{2}), strong_ordering::less);
  EXPECT_EQ(Compare(Null, 1), std::nullopt);
  EXPECT_EQ(Compare("a", Null), std::nullopt);
  EXPECT_EQ(Compare(Null, Null), std::nullopt);
  EXPECT_FALSE(Equals(Null, Null));
  // Texts by character codes: upper case before lower case, "ä" (U+00E4) after "z".
  EXPECT_EQ(Compare("B", "a"), strong_ordering::less);
  EXPECT_EQ(Compare("z", "\xc3\xa4"), strong_ordering::less);
  EXPECT_EQ(Compare("abc", "abcd"), strong_ordering::less);
  EXPECT_FALSE(Equals("a", "A"));
  // Number against text: as numbers when the text is numeric, otherwise the number is less.
  EXPECT_EQ(Compare(10, "9"), strong_ordering::greater);
  EXPECT_EQ(Compare("9", 10), strong_ordering::less);
  EXPECT_TRUE(Equals(1.5, " 1.5 "));
  EXPECT_EQ(Compare(1000000, "abc"), strong_ordering::less);
  EXPECT_EQ(Compare("abc", 1000000), strong_ordering::greater);
  // Empty is 0 against numbers and "" against texts.
  EXPECT_TRUE(Equals(Variant(), 0));
  EXPECT_TRUE(Equals(Variant(), ""));
  EXPECT_TRUE(Equals(Variant(), Variant()));
  EXPECT_EQ(Compare(Variant(), "0"), strong_ordering::less);
  EXPECT_EQ(Compare(Variant(), -1), strong_ordering::greater);
  // Booleans as -1 / 0, dates by serial.
  EXPECT_TRUE(Equals(true, -1));
  EXPECT_TRUE(Equals(false, 0.0));
  EXPECT_EQ(Compare(true, false), strong_ordering::less);
  EXPECT_TRUE(Equals(Date{43831.0}, 43831));
  EXPECT_TRUE(Equals(Date{43831.0}, "2020-01-01"));
  EXPECT_EQ(Compare(Date{43831.0}, "2020-01-02"), strong_ordering::less);
  // NaN keeps the order total instead of being equal to everything.
  EXPECT_EQ(Compare(std::nan(""), 1.0), strong_ordering::greater);
  EXPECT_TRUE(Equals(-0.0, 0.0));

  // Each pair of kinds, both ways round: the reversed pair gives the reversed order.
  const std::pair<Variant, Variant> lesser_first[] = {
      {1, 2},          {int16_t{-3}, int16_t{4}}, {1.5, 2.5},   {"a", "b"},         {Variant(), "a"},
      {"", "a"},       {1, 2.5},                  {2, "10"},    {Date{1.0}, Date{2.0}}, {Currency{1}, Currency{2}},
      {true, false},   {Variant(), 1},            {int16_t{5}, 6.0}, {"1.5", 2},    {uint8_t{7}, 8},
  };
  for (const auto& [a, b] : lesser_first) {
    EXPECT_EQ(Compare(a, b), strong_ordering::less) << CStr(a) << " against " << CStr(b);
    EXPECT_EQ(Compare(b, a), strong_ordering::greater) << CStr(b) << " against " << CStr(a);
    EXPECT_EQ(Compare(a, a), strong_ordering::equal) << CStr(a);
    EXPECT_FALSE(Equals(a, b)) << CStr(a) << " against " << CStr(b);
  }
}

TEST(Variant, CompareUnderGermanLocaleReadsDecimalCommas) {
  LocaleScope scope(Locale::German());
  EXPECT_TRUE(Equals(1.5, "1,5"));
  EXPECT_TRUE(Equals(1500, "1.500"));
  EXPECT_EQ(Compare(2, "10,5"), std::strong_ordering::less);
  EXPECT_TRUE(Equals(Date{43831.0}, "01.01.2020"));
}

TEST(Variant, ObjectsConvertThroughTheirDefaultValue) {
  LocaleScope scope(Locale::C());
  const auto plain = std::make_shared<Plain>();
  EXPECT_TRUE(Plain().DefaultValue().IsEmpty());
  EXPECT_EQ(CStr(plain), "");
  const auto named = std::make_shared<Named>(Variant(2.5));
  EXPECT_EQ(CStr(named), "2.5");
  EXPECT_EQ(CDbl(named), 2.5);
  EXPECT_EQ(CLng(named), 2);
  EXPECT_TRUE(Equals(named, 2.5));
  const auto nested = std::make_shared<Named>(Variant(named));
  EXPECT_EQ(CStr(nested), "2.5");
  EXPECT_EQ(ErrorOf([] { CStr(std::make_shared<Named>(Variant(Null))); }), errnum::kInvalidUseOfNull);
  EXPECT_EQ(ErrorOf([] { CStr(ObjectRef()); }), 91);
  EXPECT_TRUE(IsObject(plain));
  EXPECT_FALSE(IsObject(1));
}

}  // namespace
}  // namespace quorbex
