#include "platform/db/jet/jet_dialect.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <functional>
#include <set>

#include "value/text_util.h"

namespace quorbex::db::internal::jet {
namespace {

using quorbex::internal::UpperAscii;

std::string LowerText(std::string text) {
  quorbex::internal::LowerAsciiInPlace(text);
  return text;
}

enum class Kind { Space, String, Date, Bracket, Word, Number, Punct };

struct Token {
  Kind kind;
  std::string text;  // String: the content; Bracket: the name; others: as written
};

bool IsWordStart(unsigned char c) { return std::isalpha(c) || c == '_' || c >= 0x80; }
bool IsWordChar(unsigned char c) { return std::isalnum(c) || c == '_' || c >= 0x80 || c == '$'; }

std::vector<Token> Tokenize(std::string_view s) {
  std::vector<Token> out;
  size_t i = 0;
  while (i < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (std::isspace(c)) {
      while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
      out.push_back({Kind::Space, " "});
    } else if (c == '"' || c == '\'') {
      std::string content;
      size_t j = i + 1;
      for (;; ++j) {
        if (j >= s.size()) throw Untranslatable("a text literal is not closed");
        if (s[j] == static_cast<char>(c)) {
          if (j + 1 < s.size() && s[j + 1] == static_cast<char>(c)) {
            content += s[j++];
            continue;
          }
          break;
        }
        content += s[j];
      }
      out.push_back({Kind::String, content});
      i = j + 1;
    } else if (c == '[') {
      size_t j = s.find(']', i + 1);
      if (j == std::string_view::npos) throw Untranslatable("a [name] is not closed");
      out.push_back({Kind::Bracket, std::string(s.substr(i + 1, j - i - 1))});
      i = j + 1;
    } else if (c == '#') {
      size_t j = s.find('#', i + 1);
      if (j == std::string_view::npos) throw Untranslatable("a #date# is not closed");
      out.push_back({Kind::Date, std::string(s.substr(i + 1, j - i - 1))});
      i = j + 1;
    } else if (std::isdigit(c) || (c == '.' && i + 1 < s.size() && std::isdigit(static_cast<unsigned char>(s[i + 1])))) {
      size_t j = i;
      while (j < s.size() && (std::isalnum(static_cast<unsigned char>(s[j])) || s[j] == '.')) ++j;
      out.push_back({Kind::Number, std::string(s.substr(i, j - i))});
      i = j;
    } else if (IsWordStart(c)) {
      size_t j = i;
      while (j < s.size() && IsWordChar(static_cast<unsigned char>(s[j]))) ++j;
      out.push_back({Kind::Word, std::string(s.substr(i, j - i))});
      i = j;
    } else {
      std::string p(1, static_cast<char>(c));
      if (i + 1 < s.size() && ((c == '<' && (s[i + 1] == '>' || s[i + 1] == '=')) || (c == '>' && s[i + 1] == '='))) {
        p += s[i + 1];
      }
      out.push_back({Kind::Punct, p});
      i += p.size();
    }
  }
  return out;
}

std::string SqlText(std::string_view content) {
  std::string out = "'";
  for (char c : content) {
    if (c == '\'') out += '\'';
    out += c;
  }
  return out + "'";
}

// #m/d/y [h:m[:s] [AM|PM]]# or #y-m-d ...# as the mirror's ISO text. Two-digit years: below 30 is
// 20xx, as Jet reads them.
std::string JetDate(const std::string& text) {
  // The numbers in order, with how many digits each has.
  std::vector<std::pair<int, size_t>> numbers;
  for (size_t i = 0; i < text.size();) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) {
      ++i;
      continue;
    }
    size_t j = i;
    int value = 0;
    while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j])) && j - i < 9) value = value * 10 + (text[j++] - '0');
    numbers.push_back({value, j - i});
    i = j;
  }
  const bool iso = text.find('-') != std::string::npos;
  if (numbers.size() < 3 || (!iso && text.find('/') == std::string::npos)) {
    throw Untranslatable("the date #" + text + "# cannot be read");
  }
  int year = iso ? numbers[0].first : numbers[2].first;
  const size_t year_digits = iso ? numbers[0].second : numbers[2].second;
  const int month = iso ? numbers[1].first : numbers[0].first;
  const int day = iso ? numbers[2].first : numbers[1].first;
  if (year_digits <= 2) year += year < 30 ? 2000 : 1900;
  int h = numbers.size() > 3 ? numbers[3].first : 0;
  const int m = numbers.size() > 4 ? numbers[4].first : 0;
  const int sec = numbers.size() > 5 ? numbers[5].first : 0;
  const std::string upper = UpperAscii(text);
  if (upper.find("PM") != std::string::npos && h < 12) h += 12;
  if (upper.find("AM") != std::string::npos && h == 12) h = 0;
  if (month < 1 || month > 12 || day < 1 || day > 31 || h > 23 || m > 59 || sec > 59) {
    throw Untranslatable("the date #" + text + "# cannot be read");
  }
  char buf[48];
  std::snprintf(buf, sizeof buf, "'%04d-%02d-%02d %02d:%02d:%02d'", year, month, day, h, m, sec);
  return buf;
}

// A Like pattern: * any text, ? one character. Character lists and # (a digit) have no LIKE form.
std::string LikePattern(const std::string& content) {
  std::string out;
  for (char c : content) {
    if (c == '*') out += '%';
    else if (c == '?') out += '_';
    else if (c == '[' || c == '#') throw Untranslatable("the Like pattern \"" + content + "\" uses [lists] or #");
    else out += c;
  }
  return SqlText(out);
}

const std::set<std::string>& Keywords() {
  static const std::set<std::string> k = {"AND", "OR",   "NOT",  "IN",    "EXISTS", "SELECT",  "FROM", "WHERE",
                                          "ON",  "AS",   "BY",   "JOIN",  "UNION",  "ALL",     "ANY",  "SOME",
                                          "HAVING", "BETWEEN", "LIKE", "IS", "NULL", "CASE", "WHEN", "THEN",
                                          "ELSE", "END", "DISTINCT", "INNER", "OUTER", "GROUP",
                                          "ORDER", "ASC", "DESC", "VALUES"};
  return k;
}

std::string DatePartOf(const std::string& part, const std::string& x) {
  auto field = [&](const char* f) { return "CAST(strftime('" + std::string(f) + "', " + x + ") AS INTEGER)"; };
  if (part == "'yyyy'") return field("%Y");
  if (part == "'q'") return "((" + field("%m") + " + 2) / 3)";
  if (part == "'m'") return field("%m");
  if (part == "'d'" || part == "'y'") return part == "'d'" ? field("%d") : field("%j");
  if (part == "'w'") return "(" + field("%w") + " + 1)";
  if (part == "'h'") return field("%H");
  if (part == "'n'") return field("%M");
  if (part == "'s'") return field("%S");
  throw Untranslatable("DatePart(" + part + ", ...) has no translation");
}

// Format(x, "pattern") for date patterns made of yyyy, mm, dd, hh, nn, ss and separators.
std::string FormatOf(const std::string& x, const std::string& pattern) {
  if (pattern.size() < 2 || pattern.front() != '\'') throw Untranslatable("Format with a computed pattern");
  std::string p = pattern.substr(1, pattern.size() - 2);
  std::string f;
  size_t i = 0;
  while (i < p.size()) {
    auto take = [&](std::string_view code, const char* out) {
      if (p.compare(i, code.size(), code) != 0) return false;
      f += out;
      i += code.size();
      return true;
    };
    std::string lower = LowerText(p.substr(i, 4));
    p.replace(i, lower.size(), lower);
    if (take("yyyy", "%Y") || take("mm", "%m") || take("dd", "%d") || take("hh", "%H") || take("nn", "%M") ||
        take("ss", "%S")) {
      continue;
    }
    char c = p[i];
    if (c == '-' || c == '/' || c == '.' || c == ':' || c == ' ') {
      f += c;
      ++i;
      continue;
    }
    throw Untranslatable("Format(..., \"" + pattern.substr(1, pattern.size() - 2) + "\") has no translation");
  }
  return "strftime(" + SqlText(f) + ", " + x + ")";
}

class Translator {
 public:
  explicit Translator(std::string_view source) : source_(source), tokens_(Tokenize(source)) {}

  std::string Run() { return Emit(0, tokens_.size()); }

 private:
  size_t NextSolid(size_t i, size_t end) const {
    while (i < end && tokens_[i].kind == Kind::Space) ++i;
    return i;
  }
  bool IsPunct(size_t i, size_t end, const char* p) const {
    return i < end && tokens_[i].kind == Kind::Punct && tokens_[i].text == p;
  }
  size_t Matching(size_t open, size_t end) const {
    int depth = 0;
    for (size_t i = open; i < end; ++i) {
      if (IsPunct(i, end, "(")) ++depth;
      if (IsPunct(i, end, ")") && --depth == 0) return i;
    }
    throw Untranslatable("a parenthesis is not closed");
  }

  std::string Emit(size_t begin, size_t end) {
    std::string out;
    auto put = [&](const std::string& s) { out += s; };
    for (size_t i = begin; i < end; ++i) {
      const Token& t = tokens_[i];
      switch (t.kind) {
        case Kind::Space:
          if (!out.empty() && out.back() != ' ') out += ' ';
          break;
        case Kind::String: put(SqlText(t.text)); break;
        case Kind::Date: put(JetDate(t.text)); break;
        case Kind::Bracket: put(QuoteName(t.text)); break;
        case Kind::Number: put(t.text); break;
        case Kind::Punct:
          if (t.text == "!") throw Untranslatable("it reads a control of a form or report (" + std::string(source_) + ")");
          if (t.text == "\\") throw Untranslatable("it uses integer division (\\)");
          if (t.text == "&") put("||");
          else if (t.text == "/") put("* 1.0 /");  // Jet divides as reals; SQLite would cut integers
          else put(t.text);
          break;
        case Kind::Word: i = EmitWord(i, end, out); break;
      }
    }
    return out;
  }

  // Emits the word at `i` (and a function call's arguments); returns the last token it used.
  size_t EmitWord(size_t i, size_t end, std::string& out) {
    const std::string& word = tokens_[i].text;
    std::string upper = UpperAscii(word);
    if (!upper.empty() && upper.back() == '$') upper.pop_back();
    const bool after_dot = !out.empty() && out.back() == '.';
    size_t next = NextSolid(i + 1, end);
    if (!after_dot && IsPunct(next, end, "(") && !Keywords().count(upper)) {
      size_t close = Matching(next, end);
      std::vector<std::string> args;
      size_t start = next + 1;
      int depth = 0;
      for (size_t k = next + 1; k < close; ++k) {
        if (IsPunct(k, close, "(")) ++depth;
        if (IsPunct(k, close, ")")) --depth;
        if (depth == 0 && IsPunct(k, close, ",")) {
          args.push_back(Trimmed(Emit(start, k)));
          start = k + 1;
        }
      }
      std::string last = Trimmed(Emit(start, close));
      if (!last.empty() || !args.empty()) args.push_back(last);
      out += Call(word, upper, args);
      return close;
    }
    if (after_dot) {
      out += word;
    } else if (upper == "TRUE" || upper == "YES") {
      out += "1";
    } else if (upper == "FALSE" || upper == "NO") {
      out += "0";
    } else if (upper == "DISTINCTROW") {
      // Jet's "distinct rows of the underlying tables": the rows are those rows already.
    } else if (upper == "MOD") {
      out += "%";
    } else if (upper == "TOP") {
      throw Untranslatable("TOP inside a query text");
    } else if (upper == "LIKE" && next < end && tokens_[next].kind == Kind::String) {
      out += word + " " + LikePattern(tokens_[next].text);
      return next;
    } else {
      out += word;
    }
    return i;
  }

  static std::string Trimmed(std::string s) {
    while (!s.empty() && s.back() == ' ') s.pop_back();
    while (!s.empty() && s.front() == ' ') s.erase(0, 1);
    return s;
  }

  std::string Call(const std::string& word, const std::string& f, const std::vector<std::string>& a) {
    auto need = [&](size_t low, size_t high) {
      if (a.size() < low || a.size() > high) throw Untranslatable(word + " with " + std::to_string(a.size()) + " arguments");
    };
    auto date_field = [&](const char* code) {
      need(1, 1);
      return "CAST(strftime('" + std::string(code) + "', " + a[0] + ") AS INTEGER)";
    };
    if (f == "SUM" || f == "AVG" || f == "COUNT" || f == "MIN" || f == "MAX" || f == "ABS" || f == "ROUND" ||
        f == "REPLACE" || f == "LTRIM" || f == "RTRIM" || f == "TRIM") {
      std::string lower = LowerText(f);
      std::string joined;
      for (const auto& x : a) joined += (joined.empty() ? "" : ", ") + x;
      return lower + "(" + joined + ")";
    }
    if (f == "IIF") {
      need(3, 3);
      return "(CASE WHEN " + a[0] + " THEN " + a[1] + " ELSE " + a[2] + " END)";
    }
    if (f == "NZ") {
      need(1, 2);
      return "COALESCE(" + a[0] + ", " + (a.size() == 2 ? a[1] : "''") + ")";
    }
    if (f == "CCUR") return need(1, 1), "round(" + a[0] + ", 4)";
    if (f == "CDBL" || f == "CSNG" || f == "VAL") return need(1, 1), "CAST(" + a[0] + " AS REAL)";
    if (f == "CLNG" || f == "CINT") return need(1, 1), "CAST(round(" + a[0] + ") AS INTEGER)";
    if (f == "CSTR") return need(1, 1), "CAST(" + a[0] + " AS TEXT)";
    if (f == "FIX") return need(1, 1), "CAST(" + a[0] + " AS INTEGER)";
    if (f == "INT") {
      need(1, 1);
      return "(CAST(" + a[0] + " AS INTEGER) - (" + a[0] + " < CAST(" + a[0] + " AS INTEGER)))";
    }
    if (f == "YEAR") return date_field("%Y");
    if (f == "MONTH") return date_field("%m");
    if (f == "DAY") return date_field("%d");
    if (f == "HOUR") return date_field("%H");
    if (f == "MINUTE") return date_field("%M");
    if (f == "SECOND") return date_field("%S");
    if (f == "WEEKDAY") return need(1, 1), "(CAST(strftime('%w', " + a[0] + ") AS INTEGER) + 1)";
    if (f == "DATEPART") return need(2, 2), DatePartOf(a[0], a[1]);
    if (f == "DATE") return need(0, 0), "datetime('now', 'localtime', 'start of day')";
    if (f == "NOW") return need(0, 0), "datetime('now', 'localtime')";
    if (f == "FORMAT") {
      need(1, 2);
      return a.size() == 1 ? "CAST(" + a[0] + " AS TEXT)" : FormatOf(a[0], a[1]);
    }
    if (f == "LEFT") return need(2, 2), "substr(" + a[0] + ", 1, " + a[1] + ")";
    if (f == "RIGHT") return need(2, 2), "substr(" + a[0] + ", -(" + a[1] + "))";
    if (f == "MID") return need(2, 3), "substr(" + a[0] + ", " + a[1] + (a.size() == 3 ? ", " + a[2] : "") + ")";
    if (f == "LEN") return need(1, 1), "length(" + a[0] + ")";
    if (f == "UCASE") return need(1, 1), "upper(" + a[0] + ")";
    if (f == "LCASE") return need(1, 1), "lower(" + a[0] + ")";
    if (f == "INSTR") return need(2, 2), "instr(" + a[0] + ", " + a[1] + ")";
    throw Untranslatable("it uses the function " + word + ", which has no translation");
  }

  std::string_view source_;
  std::vector<Token> tokens_;
};

std::string JoinKind(int flag) {
  switch (flag) {
    case 2: return " LEFT JOIN ";
    case 3: return " RIGHT JOIN ";
    default: return " INNER JOIN ";
  }
}

std::string StripSemicolons(std::string s) {
  while (!s.empty() && (s.back() == ';' || std::isspace(static_cast<unsigned char>(s.back())))) s.pop_back();
  return s;
}

std::string BuildSelect(const std::vector<QueryRow>& rows) {
  int flags = 0;
  std::string top;
  std::vector<const QueryRow*> sources, columns, joins, wheres, groups, havings, orders;
  for (const auto& r : rows) {
    switch (r.attribute) {
      case 3:
        flags = r.flag;
        top = r.name1;
        break;
      case 5: sources.push_back(&r); break;
      case 6: columns.push_back(&r); break;
      case 7: joins.push_back(&r); break;
      case 8: wheres.push_back(&r); break;
      case 9: groups.push_back(&r); break;
      case 10: havings.push_back(&r); break;
      case 11: orders.push_back(&r); break;
      default: break;
    }
  }
  if (sources.empty()) throw Untranslatable("it reads no table");
  if (flags & 32) throw Untranslatable("TOP n PERCENT has no translation");
  auto key = [](const QueryRow& s) { return UpperAscii(s.name2.empty() ? s.name1 : s.name2); };
  auto source_text = [](const QueryRow& s) {
    std::string t = s.expression.empty() ? QuoteName(s.name1) : "(" + TranslateExpression(s.expression) + ")";
    if (!s.name2.empty()) t += " AS " + QuoteName(s.name2);
    return t;
  };
  auto find_source = [&](const std::string& name) -> const QueryRow* {
    for (const auto* s : sources) {
      if (key(*s) == UpperAscii(name)) return s;
    }
    return nullptr;
  };
  std::set<std::string> placed;
  std::string from;
  std::vector<std::string> extra_conditions;
  for (const auto* j : joins) {
    const QueryRow* left = find_source(j->name1);
    const QueryRow* right = find_source(j->name2);
    if (!left || !right) throw Untranslatable("a join names a table the query does not read");
    std::string on = TranslateExpression(j->expression);
    bool has_left = placed.count(key(*left)) > 0;
    bool has_right = placed.count(key(*right)) > 0;
    if (!has_left && !has_right) {
      from += (from.empty() ? "" : ", ") + source_text(*left) + JoinKind(j->flag) + source_text(*right) + " ON " + on;
    } else if (has_left && !has_right) {
      from += JoinKind(j->flag) + source_text(*right) + " ON " + on;
    } else if (!has_left) {
      int flipped = j->flag == 2 ? 3 : j->flag == 3 ? 2 : j->flag;
      from += JoinKind(flipped) + source_text(*left) + " ON " + on;
    } else {
      if (j->flag != 1) throw Untranslatable("its outer joins form a cycle");
      extra_conditions.push_back("(" + on + ")");
    }
    placed.insert(key(*left));
    placed.insert(key(*right));
  }
  for (const auto* s : sources) {
    if (!placed.count(key(*s))) from += (from.empty() ? "" : ", ") + source_text(*s);
  }
  std::string list;
  if (flags & 1) list = "*";
  for (const auto* c : columns) {
    std::string item = TranslateExpression(c->expression);
    if (!c->name1.empty()) item += " AS " + QuoteName(c->name1);
    list += (list.empty() ? "" : ", ") + item;
  }
  if (list.empty()) throw Untranslatable("it has no output columns");
  std::string sql = std::string("SELECT ") + ((flags & 2) ? "DISTINCT " : "") + list + " FROM " + from;
  std::vector<std::string> conditions;
  for (const auto* w : wheres) conditions.push_back(TranslateExpression(w->expression));
  for (const auto& c : extra_conditions) conditions.push_back(c);
  for (size_t i = 0; i < conditions.size(); ++i) sql += (i == 0 ? " WHERE " : " AND ") + conditions[i];
  for (size_t i = 0; i < groups.size(); ++i) sql += (i == 0 ? " GROUP BY " : ", ") + TranslateExpression(groups[i]->expression);
  for (size_t i = 0; i < havings.size(); ++i) sql += (i == 0 ? " HAVING " : " AND ") + TranslateExpression(havings[i]->expression);
  for (size_t i = 0; i < orders.size(); ++i) {
    sql += (i == 0 ? " ORDER BY " : ", ") + TranslateExpression(orders[i]->expression) +
           (UpperAscii(orders[i]->name1) == "D" ? " DESC" : "");
  }
  if (flags & 16) {
    if (top.empty() || top.find_first_not_of("0123456789") != std::string::npos) throw Untranslatable("TOP without a number");
    sql += " LIMIT " + top;
  }
  return sql;
}

std::string BuildUnion(const std::vector<QueryRow>& rows) {
  int flags = 0;
  std::vector<std::string> parts;
  std::vector<std::string> orders;
  for (const auto& r : rows) {
    if (r.attribute == 3) flags = r.flag;
    if (r.attribute == 5 && !r.expression.empty()) parts.push_back(TranslateExpression(StripSemicolons(r.expression)));
    if (r.attribute == 11) {
      orders.push_back(TranslateExpression(r.expression) + (UpperAscii(r.name1) == "D" ? " DESC" : ""));
    }
  }
  if (parts.size() < 2) throw Untranslatable("its union parts cannot be read");
  std::string sql;
  for (const auto& p : parts) sql += (sql.empty() ? "" : (flags & 2) ? " UNION " : " UNION ALL ") + p;
  for (size_t i = 0; i < orders.size(); ++i) sql += (i == 0 ? " ORDER BY " : ", ") + orders[i];
  return sql;
}

}  // namespace

std::string QuoteName(std::string_view name) {
  std::string out = "\"";
  for (char c : name) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string TranslateExpression(std::string_view jet) { return Translator(jet).Run(); }

StoredQuery RebuildQuery(const std::string& name, std::vector<QueryRow> rows) {
  std::stable_sort(rows.begin(), rows.end(), [](const QueryRow& a, const QueryRow& b) {
    if (a.attribute != b.attribute) return a.attribute < b.attribute;
    return std::lexicographical_compare(a.order.begin(), a.order.end(), b.order.begin(), b.order.end(),
                                        [](char x, char y) { return static_cast<unsigned char>(x) < static_cast<unsigned char>(y); });
  });
  StoredQuery out{name, std::string(), std::string()};
  int type = 1;
  std::string parameters;
  for (const auto& r : rows) {
    if (r.attribute == 1) type = r.flag;
    if (r.attribute == 2) parameters += (parameters.empty() ? "" : ", ") + r.name1;
  }
  switch (type) {
    case 1:
    case 9: break;
    case 2: out.reason = "a make-table query: it changes data"; return out;
    case 3: out.reason = "an append query: it changes data"; return out;
    case 4: out.reason = "an update query: it changes data"; return out;
    case 5: out.reason = "a delete query: it changes data"; return out;
    case 6: out.reason = "a crosstab query: its columns depend on the data"; return out;
    case 7: out.reason = "a data-definition query"; return out;
    case 8: out.reason = "a pass-through query: its SQL is for the server it names"; return out;
    default: out.reason = "a query of unknown type " + std::to_string(type); return out;
  }
  if (!parameters.empty()) {
    out.reason = "a parameter query (asks for " + parameters + ")";
    return out;
  }
  try {
    out.sql = type == 9 ? BuildUnion(rows) : BuildSelect(rows);
  } catch (const Untranslatable& e) {
    out.reason = e.what();
  }
  return out;
}

}  // namespace quorbex::db::internal::jet
