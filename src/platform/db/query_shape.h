// What a SELECT text says about whether its rows can be written back one by one.
//
// A backend knows which base table and column each result column comes from, but not whether a row of
// the result stands for exactly one row of that table: a table joined with itself shows one table's
// columns from two different rows, and an aggregate, DISTINCT, GROUP BY or a set operation (UNION,
// INTERSECT, EXCEPT) folds several rows into one. Both backends share this reading of the text.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorbex::db::internal {

struct QueryShape {
  // An aggregate function, DISTINCT, GROUP BY, HAVING or a set operation in the query itself or in a
  // table expression of its FROM clause (subqueries in the select list, WHERE or ON do not count:
  // they shape no result row).
  bool folds_rows = false;
  // Every table name the FROM clauses name (query and table expressions), lower-cased, without the
  // schema qualifier, in order, repeated as often as it is named.
  std::vector<std::string> tables;
};

// Reads the shape of a SELECT text. Strings, quoted names and comments are read as SQL reads them.
QueryShape ReadQueryShape(std::string_view sql);

// Whether a result whose columns all come from `table` shows each of that table's rows at most once:
// the table is named exactly once among the FROM clauses of the query and of the views it reads, and
// nothing folds rows. `view_sql` gives the SELECT text of a view by name (nullopt for anything else).
bool ShowsOneRowPerTableRow(std::string_view sql, std::string_view table,
                            const std::function<std::optional<std::string>(const std::string&)>& view_sql);

}  // namespace quorbex::db::internal
