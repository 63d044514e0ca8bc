// 10,000 records by 8 fields through the spreadsheet application: VisualizeToExcel into a new workbook,
// and ImportExcelTable of that sheet back into a new DataLayer, against writing and reading the same
// cells as one block directly through the spreadsheet interface (WriteCells, ReadUsedRange).
//
// The records hold an ID, texts, numbers, a date and a truth value, so that both ways carry the
// formats of dates and truth values. The application is started before any timing; each side works
// on a new workbook of the same instance.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "bench_util.h"
#include "platform/spreadsheet/spreadsheet.h"
#include "quorbex/DataLayer.h"
#include "quorbex/ExcelTools.h"

namespace {

using quorbex::bench::Report;
using quorbex::bench::Seconds;
using namespace quorbex;

constexpr int32_t kRecords = 10000;
constexpr int32_t kFields = 8;

Variant Value(int32_t i, int32_t j) {
  switch (j) {
    case 0: return Variant(i + 1);
    case 1: return Variant("Name " + std::to_string(i));
    case 2: return Variant("Stadt " + std::to_string(i % 97));
    case 3: return Variant(i * 1.25);
    case 4: return Variant(int32_t(i % 1000));
    case 5: return Variant(Date{40000.0 + i % 3000});
    case 6: return Variant(i % 2 == 0);
    default: return Variant("note " + std::to_string(i % 13));
  }
}

}  // namespace

int main() {
  if (!platform::HaveSpreadsheetApplication()) {
    std::printf("excel: built without LibreOffice, nothing to measure\n");
    return 0;
  }
  auto layer = std::make_shared<DataLayer>();
  std::string table = "bench";
  std::string fields = "ID;Name;City;Amount;Count;When;Flag;Note";
  layer->CreateNewVirtualOfflineTable(table, fields);
  CellBlock block(kRecords + 1, kFields);
  const char* names[] = {"ID", "Name", "City", "Amount", "Count", "When", "Flag", "Note"};
  for (int32_t j = 0; j < kFields; ++j) block.Item(1, j + 1) = Variant(std::string(names[j]));
  for (int32_t i = 0; i < kRecords; ++i) {
    layer->AddNew();
    for (int32_t j = 0; j < kFields; ++j) {
      layer->FieldObject("", j + 1)->varValue = Value(i, j);
      block.Item(i + 2, j + 1) = Value(i, j);
    }
  }
  // Start the application (and warm it up) outside the timings.
  auto excel = layer->Excel();
  if (!excel->WBNew()) {
    std::printf("excel: %s\n", excel->ErrorStatus.c_str());
    return 1;
  }
  excel->WBClose(false, true);

  double start = Seconds();
  if (!layer->VisualizeToExcel()) {
    std::printf("excel: %s\n", layer->ErrorStatus().c_str());
    return 1;
  }
  const double visualize = Seconds() - start;

  const std::string path = "/tmp/quorbex_excel_bench_" + std::to_string(getpid()) + ".ods";
  excel->WBObject()->SaveAs(path);
  excel->WBClose(false, true);

  // The importing DataLayer's application is started outside the timing too.
  auto imported = std::make_shared<DataLayer>();
  imported->Excel()->WBNew();
  imported->Excel()->WBClose(false, true);
  start = Seconds();
  if (!imported->ImportExcelTable(path)) {
    std::printf("excel: %s\n", imported->ErrorStatus().c_str());
    return 1;
  }
  const double import = Seconds() - start;
  if (imported->RecordCount() != kRecords) std::printf("excel: %d records imported\n", imported->RecordCount());

  // The baseline: the same cells as one block through the interface, in a new workbook, and read back
  // from the same file.
  auto app = platform::StartSpreadsheetApplication();
  app->New()->Close(false);
  start = Seconds();
  auto book = app->New();
  book->WriteCells(book->SheetNames().at(0), 1, 1, block);
  const double write = Seconds() - start;
  book->Close(false);
  start = Seconds();
  auto file = app->Open(path, std::nullopt, true);
  const CellBlock read = file->ReadUsedRange(file->SheetNames().at(0));
  file->Close(false);
  const double read_time = Seconds() - start;
  app->Quit();
  std::remove(path.c_str());
  if (read.Rows() != kRecords + 1) std::printf("excel: %d rows read\n", read.Rows());

  Report("visualize 10000x8", visualize, write);
  Report("import 10000x8", import, read_time);
  return 0;
}
