// qdl query: a SELECT's rows as a table on a terminal, as CSV elsewhere.
#include "tools/qdl/query.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "platform/terminal.h"
#include "quorbex/engine.h"
#include "tools/qdl/common.h"

namespace quorbex::qdl {

namespace {

using Row = std::vector<std::string>;

std::string Text(const Variant& value) { return value.IsNull() ? std::string() : CStr(value); }

void PrintCsv(const Row& header, const std::vector<Row>& rows) {
  const auto line = [](const Row& row) {
    std::string out;
    for (size_t j = 0; j < row.size(); ++j) {
      if (j > 0) out += ';';
      const std::string& value = row[j];
      if (value.find_first_of(";\"\r\n") == std::string::npos) {
        out += value;
        continue;
      }
      out += '"';
      for (char c : value) {
        if (c == '"') out += '"';
        out += c;
      }
      out += '"';
    }
    out += '\n';
    std::fwrite(out.data(), 1, out.size(), stdout);
  };
  line(header);
  for (const Row& row : rows) line(row);
}

// The cells a column gets: its widest text up to `cap`.
std::vector<size_t> ColumnWidths(const Row& header, const std::vector<Row>& rows, size_t cap) {
  std::vector<size_t> widths(header.size(), 1);
  const auto widen = [&](const Row& row) {
    for (size_t j = 0; j < row.size(); ++j) widths[j] = std::max(widths[j], std::min(cap, platform::DisplayWidth(row[j])));
  };
  widen(header);
  for (const Row& row : rows) widen(row);
  return widths;
}

void PrintTable(const Row& header, const std::vector<Row>& rows, const std::vector<bool>& numeric, int max_width) {
  std::vector<size_t> widths = ColumnWidths(header, rows, static_cast<size_t>(std::max(max_width, 4)));
  // Narrow the widest columns until the table fits the terminal (down to 6 cells a column).
  const size_t columns = static_cast<size_t>(platform::TerminalColumns(fileno(stdout)));
  const auto total = [&] {
    size_t sum = 0;
    for (size_t w : widths) sum += w + 3;
    return sum;
  };
  while (total() > columns + 1) {
    auto widest = std::max_element(widths.begin(), widths.end());
    if (*widest <= 6) break;
    --*widest;
  }
  const auto line = [&](const Row& row, bool is_header) {
    std::string out;
    for (size_t j = 0; j < row.size(); ++j) {
      if (j > 0) out += " | ";
      const std::string cell = platform::FitToWidth(row[j], widths[j]);
      const std::string pad(widths[j] - platform::DisplayWidth(cell), ' ');
      if (numeric[j] && !is_header) {
        out += pad + cell;
      } else {
        out += cell;
        if (j + 1 < row.size()) out += pad;
      }
    }
    out += '\n';
    std::fwrite(out.data(), 1, out.size(), stdout);
  };
  line(header, true);
  std::string rule;
  for (size_t j = 0; j < widths.size(); ++j) {
    if (j > 0) rule += "-+-";
    rule += std::string(widths[j], '-');
  }
  rule += '\n';
  std::fwrite(rule.data(), 1, rule.size(), stdout);
  for (const Row& row : rows) line(row, false);
  std::printf("(%zu row%s)\n", rows.size(), rows.size() == 1 ? "" : "s");
}

}  // namespace

int RunQuery(const QueryOptions& options) {
  Row header;
  std::vector<Row> rows;
  std::vector<bool> numeric;
  try {
    auto database = db::DBEngine::Default()->OpenDatabase(options.database, false, /*ReadOnly=*/true);
    auto result = database->OpenRecordset(options.sql, db::dbOpenSnapshot);
    auto fields = result->Fields();
    const int32_t count = fields->Count();
    for (int32_t j = 0; j < count; ++j) header.push_back(fields->Item(j)->Name());
    numeric.assign(header.size(), true);
    std::vector<bool> seen(header.size(), false);
    for (; !result->EOF_(); result->MoveNext()) {
      Row row;
      row.reserve(header.size());
      for (int32_t j = 0; j < count; ++j) {
        const Variant value = fields->Item(j)->Value();
        if (!value.IsNull()) {
          seen[j] = true;
          if (!IsNumeric(value) || value.IsString()) numeric[j] = false;
        }
        row.push_back(Text(value));
      }
      rows.push_back(std::move(row));
    }
    for (size_t j = 0; j < numeric.size(); ++j) numeric[j] = numeric[j] && seen[j];
    result->Close();
    database->Close();
  } catch (const std::exception& e) {
    return Fail("query", e.what());
  }
  if (options.csv || !platform::IsTerminal(stdout)) {
    PrintCsv(header, rows);
  } else {
    PrintTable(header, rows, numeric, options.max_width);
  }
  return std::fflush(stdout) == 0 ? 0 : Fail("query", "cannot write the output");
}

}  // namespace quorbex::qdl
