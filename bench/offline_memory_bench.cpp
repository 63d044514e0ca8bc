// Memory and build time of the offline table model against a plain std::vector<Variant>.
//
// A table of 1,000,000 records by 8 fields (2 Long, 2 Double, 4 texts under 16 bytes) is built
//   - the way the engine loader builds it: Add(N), FieldDim(8), then per cell value, name and type;
//   - the way virtual tables grow: Add(N), then FieldDim(1, name) once per column, then the values;
// and the baseline stores the same values in one reserved std::vector<quorbex::Variant>. Each build runs
// in a child process of its own, so that memory freed by one run cannot flatter the next; the figure
// is the growth of resident memory divided by the number of cells.
//
// The filter pass is timed too: DeleteOutfilteredRecords removing half of the records, against
// std::erase_if over one column of Variants with the same comparison routine.
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "bench_util.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/variant.h"
#include "service/modService.h"

namespace {

using quorbex::Variant;
using quorbex::bench::InChild;
using quorbex::bench::Measure;
using quorbex::bench::Seconds;

constexpr int32_t kRecords = 1000000;
constexpr int32_t kColumns = 8;
constexpr double kCells = double(kRecords) * kColumns;

const std::array<std::string, kColumns> kNames = {"ID", "Amount", "Quantity", "Rate",
                                                  "Name", "City", "Code", "Note"};
constexpr std::array<int32_t, kColumns> kTypes = {4, 7, 4, 7, 10, 10, 10, 10};

Variant CellValue(int32_t record, int32_t column) {
  switch (column) {
    case 0: return Variant(record);
    case 1: return Variant(record * 0.25);
    case 2: return Variant(record % 1000);
    case 3: return Variant(record / 3.0);
    case 4: return Variant("Name " + std::to_string(record % 100000));
    case 5: return Variant("City " + std::to_string(record % 5000));
    case 6: return Variant("C-" + std::to_string(record));
    default: return Variant("n" + std::to_string(record % 77));
  }
}

std::shared_ptr<void> BuildBaseline() {
  auto cells = std::make_shared<std::vector<Variant>>();
  cells->reserve(size_t(kRecords) * kColumns);
  for (int32_t r = 1; r <= kRecords; ++r) {
    for (int32_t c = 0; c < kColumns; ++c) cells->push_back(CellValue(r, c));
  }
  return cells;
}

// What the engine loader does: all fields per record at once, names and types copied per cell.
std::shared_ptr<quorbex::clsOfflineRecordset> BuildLikeLoader() {
  auto rs = std::make_shared<quorbex::clsOfflineRecordset>();
  rs->Add(kRecords);
  rs->FieldDim(kColumns, "");
  for (int32_t r = 1; r <= kRecords; ++r) {
    auto record = rs->Records(r);
    for (int32_t c = 0; c < kColumns; ++c) {
      auto field = record->Fields(c + 1);
      field->Value(CellValue(r, c));
      field->Description = kNames[size_t(c)];
      field->lngFieldType = kTypes[size_t(c)];
    }
  }
  return rs;
}

// What virtual tables do: one named column at a time over all records, then the values.
std::shared_ptr<quorbex::clsOfflineRecordset> BuildByColumns() {
  auto rs = std::make_shared<quorbex::clsOfflineRecordset>();
  rs->Add(kRecords);
  for (int32_t c = 0; c < kColumns; ++c) rs->FieldDim(1, kNames[size_t(c)]);
  for (int32_t r = 1; r <= kRecords; ++r) {
    auto record = rs->Records(r);
    for (int32_t c = 0; c < kColumns; ++c) record->Fields(c + 1)->Value(CellValue(r, c));
  }
  return rs;
}

void ReportMemory(const char* name, const Measure& library, const Measure& baseline) {
  std::printf("%s: library %.1f bytes/cell, baseline %.1f bytes/cell, ratio %.2f\n", name,
              library.bytes_per_cell, baseline.bytes_per_cell, library.bytes_per_cell / baseline.bytes_per_cell);
  std::fflush(stdout);
}

}  // namespace

int main() {
  const Measure baseline = InChild(kCells, [](int64_t&) { return BuildBaseline(); });
  const Measure loader = InChild(kCells, [](int64_t&) { return std::shared_ptr<void>(BuildLikeLoader()); });
  const Measure columns = InChild(kCells, [](int64_t&) { return std::shared_ptr<void>(BuildByColumns()); });

  ReportMemory("offline_memory_loader", loader, baseline);
  ReportMemory("offline_memory_by_columns", columns, baseline);
  quorbex::bench::Report("offline_build_loader", loader.seconds, baseline.seconds);
  quorbex::bench::Report("offline_build_by_columns", columns.seconds, baseline.seconds);

  // The filter pass, timed inside one child each so the tables are built fresh.
  int pipe_fds[2];
  if (pipe(pipe_fds) != 0) return 1;
  double timings[2] = {0, 0};
  for (int which = 0; which < 2; ++which) {
    const pid_t child = fork();
    if (child == 0) {
      double seconds = 0;
      if (which == 0) {
        auto rs = BuildLikeLoader();
        const double start = Seconds();
        rs->DeleteOutfilteredRecords(1, ">", Variant(kRecords / 2));
        seconds = Seconds() - start;
        if (rs->RecordCount() != kRecords / 2) _exit(2);
      } else {
        std::vector<Variant> column;
        column.reserve(kRecords);
        for (int32_t r = 1; r <= kRecords; ++r) column.push_back(CellValue(r, 0));
        const Variant limit(kRecords / 2);
        const double start = Seconds();
        std::erase_if(column, [&](const Variant& v) { return quorbex::internal::CompareValues(v, limit, ">"); });
        seconds = Seconds() - start;
        if (column.size() != size_t(kRecords / 2)) _exit(2);
      }
      if (write(pipe_fds[1], &seconds, sizeof seconds) != sizeof seconds) _exit(1);
      _exit(0);
    }
    if (read(pipe_fds[0], &timings[which], sizeof(double)) != sizeof(double)) return 1;
    int status = 0;
    waitpid(child, &status, 0);
  }
  quorbex::bench::Report("offline_delete_outfiltered", timings[0], timings[1]);
  return 0;
}
