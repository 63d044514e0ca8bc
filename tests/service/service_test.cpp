#include "service/modService.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/guid.h"
#include "platform/message_box.h"
#include "quorbex/locale.h"
#include "service/thread_state.h"
#include "support/platform_fakes.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

std::vector<std::string> Items(const std::shared_ptr<Collection<std::string>>& pieces) {
  EXPECT_NE(pieces, nullptr);
  return pieces ? pieces->Items() : std::vector<std::string>{};
}

using Pieces = std::vector<std::string>;

TEST(GetToken, KeepsTheLastPieceOnlyAtSemicolons) {
  EXPECT_EQ(GetToken("a;b", ";", 1), "a");
  EXPECT_EQ(GetToken("a;b", ";", 2), "b");
  EXPECT_EQ(GetToken("a;b", ";", 3), "");
  EXPECT_EQ(GetToken("a b", " ", 1), "a");
  EXPECT_EQ(GetToken("a b", " ", 2), "");
  // The sentinel is appended whatever the delimiter, and can show up in a piece.
  EXPECT_EQ(GetToken("a*b", "*", 2), "b;");
  EXPECT_EQ(GetToken("x;", ";", 2), "");
  EXPECT_EQ(GetToken("", ";", 1), "");
  EXPECT_EQ(GetToken("", ";", 2), "");
  EXPECT_EQ(GetToken("a;b", ";", 0), "");
  EXPECT_EQ(GetToken("a;b", ";", -3), "");
  EXPECT_EQ(GetToken("a;b", "", 1), "");
}

TEST(GetToken, CutsAtLongAndNonAsciiDelimiters) {
  const std::string sql = "SELECT * FROM T WHERE ID=5 WHERE x";
  EXPECT_EQ(GetToken(sql, "WHERE", 1), "SELECT * FROM T ");
  EXPECT_EQ(GetToken(sql, "WHERE", 2), " ID=5 ");
  EXPECT_EQ(GetToken(sql, "WHERE", 3), "");
  EXPECT_EQ(GetToken("xäyäz", "ä", 2), "y");
  EXPECT_EQ(GetToken("xäyäz", "ä", 3), "");
  EXPECT_EQ(GetToken("ä;ö", ";", 2), "ö");
  // Overlapping finds: each search starts one character after the previous find.
  EXPECT_EQ(GetToken("a;;;b", ";;", 1), "a");
  EXPECT_EQ(GetToken("a;;;b", ";;", 2), "");
  // Broken UTF-8 is cut like any other text.
  EXPECT_EQ(GetToken("\xff;\xc3", ";", 2), "\xc3");
  EXPECT_EQ(GetToken("a\xc3;b", "\xc3", 1), "a");
}

TEST(SplitToCollection, StopsAtTheFirstEmptyPiece) {
  EXPECT_EQ(Items(SplitToCollection("a;b;c", ";", false, false, false)), (Pieces{"a", "b", "c"}));
  // At a blank the last word is lost, and a single word gives nothing.
  EXPECT_EQ(Items(SplitToCollection("Hello World Foo", " ", false, true, true)), (Pieces{"hello", "world"}));
  EXPECT_EQ(Items(SplitToCollection("single", " ", false, true, true)), Pieces{});
  EXPECT_EQ(Items(SplitToCollection(";a;b", ";", false, false, false)), Pieces{});
  EXPECT_EQ(Items(SplitToCollection("a;;b", ";", false, false, false)), Pieces{"a"});
  EXPECT_EQ(Items(SplitToCollection("", ";", false, false, false)), Pieces{});
  EXPECT_EQ(Items(SplitToCollection(" a ; b ;c", ";", true, false, true)), (Pieces{"A", "B", "C"}));
  EXPECT_EQ(Items(SplitToCollection("a;  ;b", ";", false, false, true)), Pieces{"a"});  // blank piece ends it
  EXPECT_EQ(Items(SplitToCollection("Äb;Öc", ";", true, true, false)), (Pieces{"äb", "öc"}));  // lower wins
  EXPECT_EQ(Items(SplitToCollection("a;b", "", false, false, false)), Pieces{});
  // The sentinel leaks into pieces at "*"; at most as many pieces as the text has characters.
  EXPECT_EQ(Items(SplitToCollection("a", "*", false, false, false)), Pieces{"a;"});
  EXPECT_EQ(Items(SplitToCollection("ab", "*", false, false, false)), Pieces{"ab;"});
  EXPECT_EQ(Items(SplitToCollection("*", "*", false, false, false)), Pieces{});
}

TEST(ReplaceText, ReplacesEveryExactOccurrence) {
  EXPECT_EQ(ReplaceText("a-b-c", "-", "+"), "a+b+c");
  EXPECT_EQ(ReplaceText("Abc abc", "abc", "x"), "Abc x");
  EXPECT_EQ(ReplaceText("aaa", "aa", "b"), "ba");
  EXPECT_EQ(ReplaceText("ab", "b", "bb"), "abb");
  EXPECT_EQ(ReplaceText("text", "", "x"), "text");
  EXPECT_EQ(ReplaceText("", "a", "b"), "");
  EXPECT_EQ(ReplaceText("Grüße", "ü", "ue"), "Grueße");
}

TEST(CleanText, KeepsOnlyWhatAFileNameCanCarry) {
  EXPECT_EQ(CleanText("31.12.2024 13:04:05"), "31122024130405");
  EXPECT_EQ(CleanText("2024-05-06 13:04:05"), "20240506130405");
  EXPECT_EQ(CleanText("O'Neil-Smith_x@y#z"), "ONeilSmithxyz");
  EXPECT_EQ(CleanText("Müller Größe"), "MuellerGroeße");
  EXPECT_EQ(CleanText("éàãñ âêôûòó"), "eaanaeouoo");
  EXPECT_EQ(CleanText("ÄÖÜ É"), "ÄÖÜÉ");  // only lower-case letters are replaced
  EXPECT_EQ(CleanText("&:,;/\\%*´{}[]~<>\"x"), "x");
  EXPECT_EQ(CleanText("1) a\r\n2) b\rc\nd"), "1)a2)bcd");
  EXPECT_EQ(CleanText(""), "");
  EXPECT_EQ(CleanText("\xff.\xfe"), "\xff\xfe");
}

TEST(SortKeyText, LowerCasesAndFoldsUmlautsToUe) {
  std::string text = "Äpfel";
  EXPECT_EQ(SortKeyText(text), "uepfel");
  EXPECT_EQ(text, "uepfel");  // changed in place
  EXPECT_EQ(SortKeyText(std::string("Öl")), "uel");
  EXPECT_EQ(SortKeyText(std::string("Über")), "ueber");
  EXPECT_EQ(SortKeyText(std::string("Élan è à û â ô")), "elan e a u a o");
  EXPECT_EQ(SortKeyText(std::string("ß ñ")), "ß ñ");
  EXPECT_EQ(SortKeyText(std::string("")), "");
  EXPECT_EQ(SortKeyText(std::string("A\xff")), "a\xff");
}

TEST(NewGUIDText, Is32UpperHexDigitsInByteOrder) {
  std::string first = NewGUIDText();
  ASSERT_EQ(first.size(), 32u);
  EXPECT_EQ(first.find_first_not_of("0123456789ABCDEF"), std::string::npos) << first;
  EXPECT_EQ(first[12], '4');  // the version digit
  EXPECT_NE(first, NewGUIDText());

  auto source = std::make_shared<test::FakeGuidSource>();
  platform::GuidScope scope(source);
  source->Queue({0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0x4D, 0xEF, 0x80, 0x01, 0x02, 0x03, 0x04, 0x05, 0x0A, 0xFF});
  EXPECT_EQ(NewGUIDText(), "0123456789AB4DEF800102030405" "0AFF");
  source->SetFailing(true);
  EXPECT_EQ(NewGUIDText(), "");
}

TEST(TimeStampName, UsesHoursMinutesAndSeconds) {
  auto clock = std::make_shared<test::FakeClock>(MakeDate({2024, 5, 6, 13, 4, 5}));
  platform::ClockScope scope(clock);
  EXPECT_EQ(TimeStampName(), "DataLayer_130405");
  clock->Set(DateSerial(2024, 5, 7));
  EXPECT_EQ(TimeStampName(), "DataLayer_000000");
}

TEST(Conversions, ToTextNeverFailsWhileTheOthersRaise) {
  LocaleScope german(Locale::German());
  EXPECT_EQ(ToText(Variant(Null)), "");
  EXPECT_EQ(ToText(Variant()), "");
  EXPECT_EQ(ToText(Variant(3.5)), "3,5");
  EXPECT_EQ(ToText(Variant("text")), "text");
  EXPECT_EQ(NullToText(Variant(Null)), "");
  EXPECT_EQ(NullToText(Variant(int32_t{42})), "42");
  EXPECT_EQ(ToLong(Variant("12")), 12);
  EXPECT_EQ(ToLong(Variant(2.5)), 2);  // half to even
  try {
    ToLong(Variant("abc"));
    FAIL();
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), errnum::kTypeMismatch);
  }
  try {
    ToLong(Variant(Null));
    FAIL();
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), errnum::kInvalidUseOfNull);
  }
  try {
    ToLong(Variant(3e10));
    FAIL();
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), errnum::kOverflow);
  }
}

TEST(SelectPartBeforeWhereID, CutsOnlyAtAnIdCondition) {
  EXPECT_EQ(CStr(SelectPartBeforeWhereID("select * from t where id = 5")), "SELECT * FROM T ");
  EXPECT_EQ(CStr(SelectPartBeforeWhereID("Select a From T Where ID=5")), "SELECT A FROM T ");
  EXPECT_EQ(CStr(SelectPartBeforeWhereID("select * from t where name = 'x'")), "select * from t where name = 'x'");
  EXPECT_EQ(CStr(SelectPartBeforeWhereID("")), "");
  EXPECT_TRUE(SelectPartBeforeWhereID("x").IsString());
}

// CompareValues reads "value operator compareValue".
struct CompareCase {
  Variant value;
  std::string op;
  Variant compare;
  bool expected;
};

void ExpectCompare(const std::vector<CompareCase>& cases, const char* locale_name) {
  for (const auto& c : cases) {
    EXPECT_EQ(CompareValues(c.value, c.compare, c.op), c.expected)
        << locale_name << ": " << ToText(c.value) << " " << c.op << " " << ToText(c.compare);
  }
}

TEST(CompareValues, WildcardsTestEndStartAndMiddleInAnyCase) {
  for (const Locale& locale : {Locale::C(), Locale::German()}) {
    LocaleScope scope(locale);
    ExpectCompare(
        {
            {"Hamburg", "=", "*BURG", true},
            {"Hamburg", "=", "*bur", false},
            {"Hamburg", "<>", "*burg", false},
            {"Hamburg", "=", "ham*", true},
            {"Hamburg", "<>", "HAM*", false},
            {"Hamburg", "=", "*MBU*", true},
            {"Hamburg", "=", "*xyz*", false},
            {"Hamburg", "<>", "*xyz*", true},
            {"g", "=", "*burg", false},             // shorter than the pattern
            {"Bremen", ">", "a*", true},            // "B" > "A": the ordering compares the cut-out parts
            {"Hamburg", ">", "*A*", false},         // found: both operands are "A"
            {"Hamburg", ">=", "*A*", true},
            {"Hamburg", "<", "*Z*", true},          // not found: "HAMBURG" < "Z"
            {"Straße", "=", "*SSE", false},         // no special folding of ß
            {"Äpfel", "=", "äp*", true},            // upper-casing covers umlauts
            {"anything", "=", "**", true},          // empty middle: found everywhere
            {Variant(Null), "=", "*x", false},
            {Variant(Null), "<>", "a*", true},
            {"\xff\xfe", "=", "*\xfe", true},       // broken UTF-8 does not crash
        },
        locale.decimal_separator.c_str());
  }
}

TEST(CompareValues, NumbersWinOverDatesAndTexts) {
  for (const Locale& locale : {Locale::C(), Locale::German()}) {
    LocaleScope scope(locale);
    ExpectCompare(
        {
            {int32_t{100}, ">", int32_t{100}, false},
            {int32_t{100}, ">=", int32_t{100}, true},
            {int32_t{101}, ">", int32_t{100}, true},
            {"10", ">", "9", true},                  // as texts "10" < "9"
            {"10", "=", 10.0, true},
            {int32_t{5}, "<>", int32_t{5}, false},
            {2.5, "<", int32_t{3}, true},
            {2.5, "<=", 2.5, true},
            {int32_t{1}, "==", int32_t{1}, false},   // unknown operator
            {int32_t{1}, "=>", int32_t{1}, false},
            {int32_t{1}, "", int32_t{1}, false},
        },
        locale.decimal_separator.c_str());
  }
  {
    LocaleScope german(Locale::German());
    EXPECT_TRUE(CompareValues("1,5", 1.4, ">"));
    EXPECT_TRUE(CompareValues("1,5", "1,50", "="));
  }
  {
    LocaleScope c(Locale::C());
    EXPECT_TRUE(CompareValues("1.5", 1.4, ">"));
    EXPECT_TRUE(CompareValues("1.5", "1.50", "="));
  }
}

TEST(CompareValues, DatesCompareAsDatesInTheirLocale) {
  {
    LocaleScope german(Locale::German());
    // As texts "05" < "31". (A bare "05.01.2024" also reads as a number with "." grouping, and numbers
    // win; the times keep these two texts dates.)
    EXPECT_TRUE(CompareValues("05.01.2024 10:00:00", "31.12.2023 09:00:00", ">"));
    EXPECT_TRUE(CompareValues(DateSerial(2024, 1, 5), "05.01.2024", "="));
    EXPECT_TRUE(CompareValues(DateSerial(2024, 1, 5), "31.12.2023", ">"));
    EXPECT_TRUE(CompareValues(DateSerial(2024, 1, 5), DateSerial(2024, 1, 6), "<"));
  }
  {
    LocaleScope c(Locale::C());
    EXPECT_TRUE(CompareValues("2024-01-05", "2023-12-31", ">"));
    EXPECT_TRUE(CompareValues(DateSerial(2024, 1, 5), "2024-01-05", "="));
    EXPECT_TRUE(CompareValues("2024-01-05 10:00:00", "2024-01-05", ">"));
  }
}

TEST(CompareValues, TextsCompareCaseInsensitivelyAndNullIsEmptyText) {
  for (const Locale& locale : {Locale::C(), Locale::German()}) {
    LocaleScope scope(locale);
    ExpectCompare(
        {
            {"abc", "=", "ABC", true},
            {"abc", "<>", "ABD", true},
            {"b", ">", "A", true},
            {"Zebra", "<", "apfel", false},
            {"äbc", "=", "ÄBC", true},
            {Variant(Null), "=", "", true},
            {Variant(Null), "=", Variant(Null), true},
            {"x", "=", Variant(Null), false},
            {"x", ">", Variant(Null), true},
            {"", "<", "a", true},
            {true, "=", "TRUE", true},
        },
        locale.decimal_separator.c_str());
  }
}

TEST(CompareValues, LoneAsteriskRaisesInvalidProcedureCall) {
  try {
    CompareValues("anything", "*", "=");
    FAIL() << "no error for a lone *";
  } catch (const AutomationError& e) {
    EXPECT_EQ(e.Number(), errnum::kInvalidProcedureCall);
  }
  EXPECT_THROW(CompareValues(Variant(Null), "*", "<>"), AutomationError);
}

// A prepared test keeps what it learnt about the compare value; over values of every kind, one after
// another, it must answer (or raise) exactly as a fresh CompareValues does for each.
TEST(CompareValues, PreparedTestAnswersAsEachSingleComparison) {
  Locale::SetCurrent(Locale::C());
  const std::vector<Variant> values = {Variant(5),        Variant("5"),   Variant(4.5),    Variant("abc"),
                                       Variant("ABCD"),   Variant(""),    Variant(Null),   Variant(),
                                       Variant(true),     Variant("2024-01-05"), Variant(DateSerial(2024, 1, 5)),
                                       Variant("x5"),     Variant(int16_t(7)), Variant("*")};
  const std::vector<Variant> compares = {Variant(5), Variant("5"), Variant("abc"), Variant("ab*"), Variant("*cd"),
                                         Variant("*b*"), Variant("*"), Variant(Null), Variant("2024-01-05"),
                                         Variant(DateSerial(2024, 1, 6))};
  // 1/0 for the answer, -number for an error.
  const auto outcome = [](auto&& test) -> int {
    try {
      return test() ? 1 : 0;
    } catch (const AutomationError& e) {
      return -e.Number();
    }
  };
  for (const Variant& compare : compares) {
    for (const std::string op : {"=", "<>", ">", ">=", "<", "<=", "?"}) {
      ValueTest prepared(compare, op);
      for (const Variant& value : values) {
        EXPECT_EQ(outcome([&] { return prepared.Matches(value); }),
                  outcome([&] { return CompareValues(value, compare, op); }))
            << ToText(value) << " " << op << " " << ToText(compare);
      }
    }
  }
}

class ErrorChannel : public ::testing::Test {
 protected:
  void SetUp() override { State() = ThreadState{}; }
  void TearDown() override { State() = ThreadState{}; }
};

TEST_F(ErrorChannel, NumbersEntriesAndRestartsAfterClear) {
  AppendErrorStatus("A");
  AppendErrorStatus("B");
  EXPECT_EQ(State().error_text, "\r\n1) A\r\n2) B");
  EXPECT_EQ(State().error_count, 2);
  AppendErrorStatus("");
  EXPECT_EQ(State().error_text, "");
  EXPECT_EQ(State().error_count, 0);
  AppendErrorStatus("C");
  EXPECT_EQ(State().error_text, "\r\n1) C");
}

TEST_F(ErrorChannel, MessageRoutineCollectsInsteadOfAskingWhenSuppressed) {
  auto boxes = std::make_shared<test::FakeMessageBox>();
  platform::MessageBoxScope scope(boxes);
  boxes->Answer(platform::vbNo);
  EXPECT_EQ(MessageRoutine("Speichern?", platform::vbYesNo | platform::vbQuestion, "DataLayer"), platform::vbNo);
  ASSERT_EQ(boxes->Count(), 1u);
  EXPECT_EQ(boxes->Prompts()[0].title, "DataLayer");
  EXPECT_EQ(State().error_text, "");

  State().suppress_all_messages = true;
  EXPECT_EQ(MessageRoutine("Speichern?", platform::vbYesNo, "DataLayer"), 0);
  EXPECT_EQ(boxes->Count(), 1u);
  EXPECT_EQ(State().error_text, "\r\n1) Speichern?");
}

}  // namespace
}  // namespace quorbex
