// Jet's SQL turned into the mirror's (SQLite's): the stored queries of a Jet file rebuilt from their
// definition rows (MSysQueries) as SELECT texts, with Jet's syntax and common functions translated.
//
// Translated: [names] and "texts", #m/d/y# dates (ISO text, as the mirror stores dates), & for
// joining texts, True/False/Yes/No, Mod, Like wildcards (* ?), DISTINCTROW, TOP n, and the functions
// IIf, Nz, CCur, CDbl, CLng, CInt, CStr, Year, Month, Day, Hour, Minute, Second, Weekday, DatePart,
// Date, Now, Format (date patterns), Left, Right, Mid, Len, UCase, LCase, Trim, InStr, Replace, Int,
// Fix, Abs, Round, Val and the aggregates Sum, Avg, Count, Min, Max. Anything else is refused with a
// reason, never passed on half-translated.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace quorbex::db::internal::jet {

// Why a query or expression has no SQL form here; its what() is the reason shown to the user.
class Untranslatable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One row of MSysQueries.
struct QueryRow {
  int attribute = 0;
  int flag = 0;
  std::string name1, name2, expression;
  std::string order;  // the raw Order bytes: rows of one attribute sort by them
};

// A stored query of the file: `sql` is its SELECT for the mirror, or empty with `reason` saying why
// it has none.
struct StoredQuery {
  std::string name;
  std::string sql;
  std::string reason;
};

// Rebuilds one stored query from its rows (any order).
StoredQuery RebuildQuery(const std::string& name, std::vector<QueryRow> rows);

// A Jet expression (or a whole Jet SELECT text) in SQLite's syntax; raises Untranslatable.
std::string TranslateExpression(std::string_view jet);

// "name" in double quotes, inner quotes doubled.
std::string QuoteName(std::string_view name);

}  // namespace quorbex::db::internal::jet
