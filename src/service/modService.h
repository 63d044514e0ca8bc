// The library's shared free routines: text splitting and cleaning, conversions that must not fail,
// the value comparison behind filters and searches, GUID and time-stamp names, and the thread's error
// channel and message routine.
//
// None of them keeps state of its own; the per-thread state they read and write is State()
// (service/thread_state.h). Texts are UTF-8; invalid UTF-8 and empty texts are handled like any other
// text. Unless a comment says otherwise a routine does not throw; those that convert values let the
// value module's AutomationError (13 "Type mismatch", 94 "Invalid use of Null", 6 "Overflow") through.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "quorbex/byref.h"
#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex::internal {

// The text that GetToken appends before it searches: a semicolon and eleven asterisks.
inline constexpr std::string_view kTokenSentinel = ";***********";

// Piece `n` (1-based) of `text` cut at `delimiter`, after appending kTokenSentinel to the text
// whatever the delimiter. Each search for the delimiter starts one character after the previous find;
// a piece is the text between the end of the (n-1)-th find (or the start) and the n-th find. When
// fewer than n delimiters are found the result is "". Because of the sentinel a text cut at ";" yields
// its last piece, while at any other delimiter the piece after the last delimiter is lost:
// GetToken("a;b", ";", 2) == "b" but GetToken("a b", " ", 2) == "". Callers rely on this.
// "" also for n < 1 and for an empty delimiter.
std::string GetToken(std::string_view text, std::string_view delimiter, int32_t n);

// GetToken pieces 1, 2, ... (at most as many as the text has characters), each upper-cased when
// `upper`, then lower-cased when `lower`, then trimmed of blanks when `trim`; stops before the first
// piece that is then empty. Always a collection, empty when the first piece is empty.
std::shared_ptr<Collection<std::string>> SplitToCollection(std::string_view text, std::string_view delimiter,
                                                           bool upper, bool lower, bool trim);

// Every occurrence of `find` replaced by `replacement`, left to right, case-sensitive; the text as it
// is when `find` is empty.
std::string ReplaceText(std::string_view text, std::string_view find, std::string_view replacement);

// A text fit for file names: removes ' . - _ @ # & blank : , ; / \ % * ´ { } [ ] ~ < > the double
// quote, CR and LF, and replaces ä ü ö by ae ue oe and é à ã â ê ô û ò ó ñ by their plain letters (lower
// case only: upper-case letters with accents stay). "31.12.2024 13:04:05" becomes "31122024130405".
std::string CleanText(std::string_view text);

// The sort key of a text: lower-cased, then ü, ä and ö each become "ue" (all three: the sort order
// relies on it), é è become e, à â become a, û becomes u, ô becomes o. Stores the key into `text` and
// returns it.
std::string SortKeyText(ByRef<std::string> text);

// A new GUID as 32 upper-case hexadecimal digits without braces or hyphens; "" when the platform
// cannot create one.
std::string NewGUIDText();

// "DataLayer_" followed by the hours, minutes and seconds of the local time, two digits each
// ("DataLayer_130405"): a name for temporary objects.
std::string TimeStampName();

// The local date and time as "yyyymmdd_hhmmss" ("20261123_130405"): a suffix that tells apart the
// files one program keeps of the same original (callers add "_2", "_3" when it is taken).
std::string UniqueSuffix();

// The value's text form; "" when it has none (Null, an object without a text default, ...). Never throws.
std::string ToText(const Variant& value);
// "" for Null, else the value's text form; raises AutomationError when the value has none.
std::string NullToText(const Variant& value);
// The value as a 32-bit integer (rounded half to even); raises AutomationError 13 or 6 when it is not
// a number or out of range, 94 for Null.
int32_t ToLong(const Variant& value);

// When the upper-cased `sql` contains "WHERE ID =" or "WHERE ID=": the upper-cased text before its
// first "WHERE" (a String variant); otherwise `sql` unchanged.
Variant SelectPartBeforeWhereID(const std::string& sql);

// The test "value strOperator compareValue" of filters and searches. Null on either side counts as "".
// The mode: a compare value that starts with "*" tests the end of the value, one that ends with "*"
// its start, one with both its middle (all three case-insensitive); two dates (or texts that read as
// dates) compare as dates, two numbers (or numeric texts) as numbers, which wins over everything
// before; anything else compares upper-cased texts by character codes. Operators: "=", "<>", ">",
// ">=", "<", "<="; any other text gives False. With the wildcard modes "=" means "ends with / starts
// with / contains" and the ordering operators compare the cut-out parts.
// Raises AutomationError 5 ("Invalid procedure call or argument") for a compare value of exactly "*",
// and lets conversion errors of the value module through.
bool CompareValues(const Variant& value, const Variant& compareValue, const std::string& strOperator);

// CompareValues with the compare value and the operator fixed, for testing many values against one:
// what depends on those two alone (the wildcard pattern, whether the compare value reads as a number or
// a date, its number, date and upper-cased text) is worked out once, when first needed. Matches(v)
// gives what CompareValues(v, compareValue, strOperator) gives and raises what it raises, under the
// locale in force while the test is used (keep one test within one call).
class ValueTest {
 public:
  ValueTest(const Variant& compareValue, const std::string& strOperator);
  bool Matches(const Variant& value);

 private:
  enum class Operator : uint8_t { None, Equal, Differ, Greater, GreaterOrEqual, Less, LessOrEqual };
  enum class Wildcard : uint8_t { None, EndsWith, StartsWith, Contains };
  template <class T>
  bool Apply(const T& a, const T& b) const;
  // The text a wildcard pattern stands for, upper-cased; raises 5 for a lone "*".
  const std::string& Wanted();

  Variant right_;        // the compare value, Null as ""
  std::string pattern_;  // its text form
  Operator op_ = Operator::None;
  Wildcard wildcard_ = Wildcard::None;
  std::optional<bool> right_is_number_, right_is_date_;
  std::optional<double> right_number_;
  std::optional<Date> right_date_;
  std::optional<std::string> right_upper_, wanted_;
};

// The three typed comparers behind CompareValues: `a strOperator b`; False for an unknown operator.
bool CompareNumbers(double a, double b, const std::string& strOperator);
bool CompareDates(Date a, Date b, const std::string& strOperator);
bool CompareTexts(std::string_view a, std::string_view b, const std::string& strOperator);

// The thread's error channel. "" clears the collected text and restarts the numbering; any other text
// is appended as CR LF + number + ") " + text, numbers counting from 1.
void AppendErrorStatus(const std::string& text);

// Shows a message box through the platform handler and returns the button pressed; while the thread's
// SuppressAllMessages switch is on, appends `text` to the error channel instead and returns 0.
int32_t MessageRoutine(const std::string& text, int32_t style, const std::string& title);

}  // namespace quorbex::internal
