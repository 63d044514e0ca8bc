#include "platform/db/query_shape.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "value/text_util.h"

namespace quorbex::db::internal {
namespace {

enum class TokenKind { Word, QuotedName, Punct, Literal, End };

struct Token {
  TokenKind kind = TokenKind::End;
  std::string text;  // a word upper-cased; a quoted name as it stands; a punctuation character
};

bool IsWordByte(unsigned char c) { return std::isalnum(c) || c == '_' || c == '$' || c >= 0x80; }

// Splits SQL into words, quoted names, literals and punctuation; skips blanks and comments.
class Tokenizer {
 public:
  explicit Tokenizer(std::string_view sql) : sql_(sql) {}

  Token Next() {
    SkipBlanksAndComments();
    if (pos_ >= sql_.size()) return {};
    const char c = sql_[pos_];
    if (c == '\'') return {TokenKind::Literal, Quoted('\'', '\'')};
    if (c == '"') return {TokenKind::QuotedName, Quoted('"', '"')};
    if (c == '`') return {TokenKind::QuotedName, Quoted('`', '`')};
    if (c == '[') return {TokenKind::QuotedName, Quoted('[', ']')};
    if (IsWordByte(static_cast<unsigned char>(c))) {
      size_t begin = pos_;
      while (pos_ < sql_.size() && IsWordByte(static_cast<unsigned char>(sql_[pos_]))) ++pos_;
      return {TokenKind::Word, quorbex::internal::UpperAscii(sql_.substr(begin, pos_ - begin))};
    }
    ++pos_;
    return {TokenKind::Punct, std::string(1, c)};
  }

 private:
  void SkipBlanksAndComments() {
    while (pos_ < sql_.size()) {
      if (std::isspace(static_cast<unsigned char>(sql_[pos_]))) {
        ++pos_;
      } else if (sql_.substr(pos_, 2) == "--") {
        size_t end = sql_.find('\n', pos_);
        pos_ = end == std::string_view::npos ? sql_.size() : end + 1;
      } else if (sql_.substr(pos_, 2) == "/*") {
        size_t end = sql_.find("*/", pos_ + 2);
        pos_ = end == std::string_view::npos ? sql_.size() : end + 2;
      } else {
        return;
      }
    }
  }

  // The text between an opening and a closing character; a doubled closing character stands for one.
  std::string Quoted(char open, char close) {
    (void)open;
    std::string text;
    ++pos_;
    while (pos_ < sql_.size()) {
      char c = sql_[pos_++];
      if (c == close) {
        if (close != ']' && pos_ < sql_.size() && sql_[pos_] == close) {
          text += close;
          ++pos_;
          continue;
        }
        break;
      }
      text += c;
    }
    return text;
  }

  std::string_view sql_;
  size_t pos_ = 0;
};

bool IsAggregate(const std::string& word) {
  static constexpr std::array<std::string_view, 12> kAggregates = {
      "COUNT", "SUM", "AVG", "MIN", "MAX", "TOTAL", "GROUP_CONCAT", "STRING_AGG", "ARRAY_AGG", "EVERY",
      "BOOL_AND", "BOOL_OR"};
  return std::find(kAggregates.begin(), kAggregates.end(), word) != kAggregates.end();
}

bool EndsFromClause(const std::string& word) {
  static constexpr std::array<std::string_view, 11> kEnds = {"WHERE", "GROUP", "ORDER", "LIMIT", "HAVING", "WINDOW",
                                                             "UNION", "INTERSECT", "EXCEPT", "OFFSET", "RETURNING"};
  return std::find(kEnds.begin(), kEnds.end(), word) != kEnds.end();
}

bool FoldsRows(const std::string& word) {
  return word == "DISTINCT" || word == "GROUP" || word == "HAVING" || word == "UNION" || word == "INTERSECT" ||
         word == "EXCEPT";
}

// One level of parentheses. A level is transparent when its rows become the query's rows: the query
// itself, and a table expression in a FROM clause. Anything else (a subquery in the select list, WHERE
// or ON; a function's arguments; a CTE's body) is opaque, and what it holds is not read.
struct Level {
  bool opaque = false;
  bool in_from = false;        // between FROM and the end of the FROM clause
  bool expect_table = false;   // the next name is a table (after FROM, JOIN or a comma of the FROM list)
  bool after_table = false;    // a table name was just read (a "." then qualifies it)
};

}  // namespace

QueryShape ReadQueryShape(std::string_view sql) {
  QueryShape shape;
  Tokenizer tokens(sql);
  std::vector<Level> levels(1);
  Token previous;
  for (Token token = tokens.Next(); token.kind != TokenKind::End; previous = token, token = tokens.Next()) {
    Level& level = levels.back();
    if (token.kind == TokenKind::Punct) {
      const char c = token.text[0];
      if (c == '(') {
        const bool table_expression = level.expect_table;
        const bool aggregate_call = previous.kind == TokenKind::Word && IsAggregate(previous.text);
        if (!level.opaque && aggregate_call) shape.folds_rows = true;
        level.expect_table = false;
        level.after_table = false;
        // A table expression is a subquery or a parenthesized join, which starts with a table.
        levels.push_back({level.opaque || !table_expression, table_expression, table_expression, false});
      } else if (c == ')') {
        if (levels.size() > 1) levels.pop_back();
      } else if (c == ',' && level.in_from) {
        level.expect_table = true;
        level.after_table = false;
      } else if (c == '.' && level.after_table) {
        // schema.table: the name that follows replaces the qualifier just read.
        level.expect_table = true;
        level.after_table = false;
        if (!level.opaque && !shape.tables.empty()) shape.tables.pop_back();
      } else {
        level.expect_table = false;
        level.after_table = false;
      }
      continue;
    }
    if (token.kind == TokenKind::Literal) {
      level.expect_table = false;
      level.after_table = false;
      continue;
    }
    const bool word = token.kind == TokenKind::Word;
    if (word && (token.text == "FROM" || token.text == "JOIN")) {
      level.in_from = true;
      level.expect_table = true;
      level.after_table = false;
      continue;
    }
    if (word && !level.opaque && FoldsRows(token.text)) shape.folds_rows = true;
    if (word && EndsFromClause(token.text)) {
      level.in_from = false;
      level.expect_table = false;
      level.after_table = false;
      continue;
    }
    if (level.expect_table && word && (token.text == "SELECT" || token.text == "WITH" || token.text == "VALUES")) {
      level.in_from = false;  // a subquery: its own FROM comes later
      level.expect_table = false;
      continue;
    }
    if (level.expect_table) {
      if (!level.opaque) {
        std::string name = token.text;
        quorbex::internal::LowerAsciiInPlace(name);
        shape.tables.push_back(std::move(name));
      }
      level.expect_table = false;
      level.after_table = true;
      continue;
    }
    level.after_table = false;
  }
  return shape;
}

namespace {

// How often `table` is named in `sql` and in the views it reads; -1 when rows are folded on the way.
int CountTable(std::string_view sql, const std::string& table,
               const std::function<std::optional<std::string>(const std::string&)>& view_sql, int depth) {
  if (depth > 16) return -1;  // views over views this deep: do not trust the reading
  const QueryShape shape = ReadQueryShape(sql);
  if (shape.folds_rows) return -1;
  int count = 0;
  for (const auto& name : shape.tables) {
    if (name == table) {
      ++count;
    } else if (auto body = view_sql(name)) {
      int inner = CountTable(*body, table, view_sql, depth + 1);
      if (inner < 0) return -1;
      count += inner;
    }
  }
  return count;
}

}  // namespace

bool ShowsOneRowPerTableRow(std::string_view sql, std::string_view table,
                            const std::function<std::optional<std::string>(const std::string&)>& view_sql) {
  std::string lower(table);
  quorbex::internal::LowerAsciiInPlace(lower);
  return CountTable(sql, lower, view_sql, 0) == 1;
}

}  // namespace quorbex::db::internal
