#include "support/error_of.h"
#include "quorbex/text.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "quorbex/errors.h"
#include "value/failure.h"
#include "value/text_util.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

using test::ErrorOf;

// "Ärger" and friends, spelled as bytes so the test does not depend on the source encoding.
const std::string kAerger = "\xc3\x84rger";     // Ärger
const std::string kaerger = "\xc3\xa4rger";     // ärger
const std::string kStrasse = "Stra\xc3\x9f" "e";  // Straße

TEST(Text, CaseMappingCoversUnicode) {
  EXPECT_EQ(LCase(kAerger), kaerger);
  EXPECT_EQ(UCase(kaerger), "\xc3\x84RGER");
  EXPECT_EQ(UCase("\xc3\xa9t\xc3\xa9"), "\xc3\x89T\xc3\x89");  // été -> ÉTÉ
  EXPECT_EQ(LCase("\xce\xa3\xce\x9f\xce\xa6"), "\xcf\x83\xce\xbf\xcf\x86");  // ΣΟΦ -> σοφ
  EXPECT_EQ(UCase(kStrasse), "STRA\xc3\x9f" "E");  // ß has no single upper-case letter
  EXPECT_EQ(LCase("MiXeD 123 !?"), "mixed 123 !?");
  EXPECT_EQ(UCase(""), "");
}

TEST(Text, InvalidUtf8PassesThroughAndCountsPerByte) {
  const std::string broken = "A\xff" "b\xc3";  // stray byte, then a truncated sequence at the end
  EXPECT_EQ(UCase(broken), "A\xff" "B\xc3");
  EXPECT_EQ(LCase(broken), "a\xff" "b\xc3");
  EXPECT_EQ(Len(broken), 4);
  EXPECT_EQ(Mid(broken, 2, 1), "\xff");
  EXPECT_EQ(Right(broken, 1), "\xc3");
  // Overlong encodings and encoded surrogates are broken bytes too.
  EXPECT_EQ(Len("\xc0\xaf"), 2);
  EXPECT_EQ(Len("\xed\xa0\x80"), 3);
  EXPECT_EQ(UCase("\xed\xa0\x80x"), "\xed\xa0\x80X");
  // A lone lead byte never matches inside a well-formed character.
  EXPECT_EQ(InStr(kaerger, "\xc3"), 0);
  EXPECT_EQ(Replace(kaerger, "\xc3", "X"), kaerger);
  EXPECT_EQ(InStr("x\xc3" "a" + kaerger, "\xc3"), 2);
  // A stray continuation byte matches only where it stands alone.
  EXPECT_EQ(InStr(kaerger + "\xa4", "\xa4"), 6);
}

TEST(Text, PositionsCountCharacters) {
  EXPECT_EQ(Len(kStrasse), 6);
  EXPECT_EQ(Len(""), 0);
  EXPECT_EQ(Left(kaerger, 1), "\xc3\xa4");
  EXPECT_EQ(Left(kaerger, 99), kaerger);
  EXPECT_EQ(Left(kaerger, 0), "");
  EXPECT_EQ(Right(kStrasse, 2), "\xc3\x9f" "e");
  EXPECT_EQ(Right(kStrasse, 0), "");
  EXPECT_EQ(Right("abc", 10), "abc");
  EXPECT_EQ(Mid(kStrasse, 5), "\xc3\x9f" "e");
  EXPECT_EQ(Mid(kStrasse, 5, 1), "\xc3\x9f");
  EXPECT_EQ(Mid("abc", 4), "");
  EXPECT_EQ(Mid("abc", 10, 2), "");
  EXPECT_EQ(Mid("abc", 2, 0), "");
  EXPECT_EQ(ErrorOf([] { Left("abc", -1); }), errnum::kInvalidProcedureCall);
  EXPECT_EQ(ErrorOf([] { Right("abc", -1); }), errnum::kInvalidProcedureCall);
  EXPECT_EQ(ErrorOf([] { Mid("abc", 0); }), errnum::kInvalidProcedureCall);
  EXPECT_EQ(ErrorOf([] { Mid("abc", 1, -2); }), errnum::kInvalidProcedureCall);
}

TEST(Text, InStrFindsCharacterPositions) {
  EXPECT_EQ(InStr(kStrasse, "e"), 6);
  EXPECT_EQ(InStr("abcabc", "bc"), 2);
  EXPECT_EQ(InStr("abcabc", "bc", 3), 5);
  EXPECT_EQ(InStr("abcabc", "x"), 0);
  EXPECT_EQ(InStr("abc", "C"), 0);  // binary compare
  EXPECT_EQ(InStr("abc", "", 2), 2);
  EXPECT_EQ(InStr("abc", "", 4), 4);
  EXPECT_EQ(InStr("abc", "", 5), 0);
  EXPECT_EQ(InStr("abc", "a", 9), 0);
  EXPECT_EQ(InStr("", "a"), 0);
  EXPECT_EQ(ErrorOf([] { InStr("abc", "a", 0); }), errnum::kInvalidProcedureCall);
}

TEST(Text, TrimRemovesSpacesOnlyAndReplaceIsLiteral) {
  EXPECT_EQ(Trim("  a b  "), "a b");
  EXPECT_EQ(Trim("\ta\t"), "\ta\t");
  EXPECT_EQ(Trim("   "), "");
  EXPECT_EQ(LTrim("  a "), "a ");
  EXPECT_EQ(RTrim("  a "), "  a");
  EXPECT_EQ(Replace("a.b.c", ".", "::"), "a::b::c");
  EXPECT_EQ(Replace("aaa", "aa", "b"), "ba");
  EXPECT_EQ(Replace("abc", "", "x"), "abc");
  EXPECT_EQ(Replace("abc", "b", ""), "ac");
  EXPECT_EQ(Replace(kStrasse, "\xc3\x9f", "ss"), "Strasse");
}

TEST(TextUtil, BlanksTrimsAndNames) {
  // The six ASCII white-space characters are blanks, nothing else is (not even a non-breaking space).
  for (char c : std::string(" \t\n\r\f\v")) EXPECT_TRUE(internal::IsBlank(c)) << int(c);
  for (char c : std::string("x0;\0\xA0")) EXPECT_FALSE(internal::IsBlank(c)) << int(c);
  EXPECT_EQ(internal::TrimBlanks(" \t a b \r\n"), "a b");
  EXPECT_EQ(internal::TrimBlanks(" \t "), "");
  EXPECT_EQ(internal::TrimSpaces(" \ta\t "), "\ta\t");  // the classic Trim: spaces only
  EXPECT_EQ(internal::TrimStatementEnd(" SELECT 1 ; ;\r\n"), " SELECT 1");
  EXPECT_EQ(internal::TrimStatement("\n SELECT ';' ;"), "SELECT ';'");
  EXPECT_EQ(internal::TrimStatement(";;"), "");

  EXPECT_TRUE(internal::SameName("LogPath", "LOGPATH"));
  EXPECT_FALSE(internal::SameName("LogPath", "LogPat"));
  EXPECT_FALSE(internal::SameName(kAerger, kaerger));  // only A-Z fold
  EXPECT_FALSE(internal::SameName("a@", "A`"));          // the neighbours of A-Z and a-z do not

  EXPECT_TRUE(internal::IsAscii("abc~\x7f"));
  EXPECT_FALSE(internal::IsAscii(kaerger));
  EXPECT_TRUE(internal::IsAsciiDigit('0') && internal::IsAsciiDigit('9'));
  EXPECT_FALSE(internal::IsAsciiDigit('/') || internal::IsAsciiDigit(':'));
  std::string mixed = "AZaz@[" + kAerger;
  internal::LowerAsciiInPlace(mixed);
  EXPECT_EQ(mixed, "azaz@[" "\xc3\x84rger");
  EXPECT_EQ(internal::UpperAscii("az{`" + kaerger), "AZ{`" "\xc3\xa4RGER");
}

TEST(Errors, RuntimeTextsAndOperationFailures) {
  const AutomationError error = RuntimeError(errnum::kDivisionByZero, "Here");
  EXPECT_EQ(error.Number(), 11);
  EXPECT_EQ(error.Source(), "Here");
  EXPECT_EQ(error.Description(), "Division by zero");
  EXPECT_STREQ(RuntimeErrorText(errnum::kOutOfMemory), "Out of memory");
  EXPECT_STREQ(RuntimeErrorText(errnum::kObjectNotSet), "Object variable or With block variable not set");
  EXPECT_STREQ(RuntimeErrorText(errnum::kInvalidPropertyValue), "Invalid property value");
  EXPECT_STREQ(RuntimeErrorText(4242), "Application-defined or object-defined error");

  EXPECT_EQ(internal::OperationError("TrimField", RuntimeError(errnum::kTypeMismatch)), "TrimField: Type mismatch");
  EXPECT_EQ(internal::OperationError("FillCBO", std::bad_alloc()), "FillCBO: Out of memory");
  EXPECT_EQ(internal::OperationError("GetRecordset", std::runtime_error("no such table: x")),
            "GetRecordset: no such table: x");
}

}  // namespace
}  // namespace quorbex
