// CSV import of 1,000,000 lines by 8 fields against a lean reading of the same file.
//
// The file is generated with a fixed seed: an ID, names and cities with umlauts, decimal-comma
// amounts, whole numbers, dates, codes and short notes, ";"-separated with a header line (about 70
// bytes a line). The library runs a clsCSV job into a fresh DataLayer (check, split, one offline record
// per line with its change marks); the baseline reads the file with std::getline and splits every
// line at ";" into a std::vector<std::string>, keeping all rows, as any program that holds the table
// must. Each run is a child process of its own, so that memory freed by one cannot flatter the next;
// the memory figure is the growth of resident memory divided by the number of cells.
//
// Then `qdl import` of the same file into a new SQLite table (import, table creation and one Save, in
// one transaction) is timed as a whole program run, next to the import alone.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsCSV.h"
#include "quorbex/clsImportManager.h"

namespace {

using quorbex::bench::InChild;
using quorbex::bench::Measure;
using quorbex::bench::Seconds;

constexpr int32_t kLines = 1000000;
constexpr int32_t kFields = 8;
constexpr double kCells = double(kLines) * kFields;

void WriteFile(const std::string& path) {
  static const char* const kNames[] = {"Anna", "Jörg", "Bernd", "Zoë", "Müller", "Clara", "Ödön", "Ida"};
  static const char* const kCities[] = {"Wien", "Köln", "Graz", "Linz", "München", "Zürich", "Bregenz"};
  std::mt19937 random(20240614);
  std::ofstream out(path, std::ios::binary);
  std::string line;
  out << "ID;Name;City;Amount;Quantity;Date;Code;Note\n";
  for (int32_t i = 1; i <= kLines; ++i) {
    line.clear();
    line += std::to_string(i) + ';';
    line += std::string(kNames[random() % 8]) + ' ' + std::to_string(random() % 1000) + ';';
    line += std::string(kCities[random() % 7]) + ';';
    line += std::to_string(random() % 100000) + ',' + std::to_string(10 + random() % 90) + ';';
    line += std::to_string(random() % 500) + ';';
    line += std::to_string(1 + random() % 28) + '.' + std::to_string(1 + random() % 12) + '.' +
            std::to_string(2000 + random() % 25) + ';';
    line += "C-" + std::to_string(random()) + ';';
    line += "note " + std::to_string(random() % 77) + '\n';
    out << line;
  }
}

std::shared_ptr<void> Baseline(const std::string& path, int64_t& rows) {
  auto table = std::make_shared<std::vector<std::vector<std::string>>>();
  std::ifstream in(path, std::ios::binary);
  std::string line;
  std::getline(in, line);  // the header
  while (std::getline(in, line)) {
    std::vector<std::string> values;
    size_t start = 0;
    for (size_t end; (end = line.find(';', start)) != std::string::npos; start = end + 1) {
      values.emplace_back(line, start, end - start);
    }
    values.emplace_back(line, start);
    table->push_back(std::move(values));
  }
  rows = static_cast<int64_t>(table->size());
  return table;
}

std::shared_ptr<void> Library(const std::string& path, int64_t& rows) {
  auto layer = std::make_shared<quorbex::DataLayer>();
  layer->DisableLog(true);
  auto manager = layer->Import();
  auto job = manager->CSVImport(manager->AddCSVImport());
  job->FileContainsHeader(true);
  job->ImportFilePath(path);
  job->CreateDataLayerFromFile();
  if (!job->Success) {
    std::fprintf(stderr, "import failed:%s\n", layer->ErrorStatus().c_str());
    _exit(2);
  }
  rows = job->LinesCount;
  return layer;
}

}  // namespace

int main(int argc, char** argv) {
  // --import-only leaves out the qdl run.
  const bool import_only = argc > 1 && std::string(argv[1]) == "--import-only";
  const std::string folder = (std::filesystem::temp_directory_path() / ("import_bench_" + std::to_string(getpid()))).string();
  std::filesystem::create_directories(folder);
  const std::string path = folder + "/bench.csv";
  WriteFile(path);
  const auto file_bytes = std::filesystem::file_size(path);
  std::printf("file: %d lines x %d fields, %.1f MB\n", kLines, kFields, double(file_bytes) / 1e6);

  const Measure baseline = InChild(kCells, [&](int64_t& rows) { return Baseline(path, rows); });
  const Measure library = InChild(kCells, [&](int64_t& rows) { return Library(path, rows); });
  if (baseline.rows != kLines || library.rows != kLines) {
    std::fprintf(stderr, "row counts differ: library %lld, baseline %lld\n", (long long)library.rows,
                 (long long)baseline.rows);
    return 1;
  }
  quorbex::bench::Report("csv_import", library.seconds, baseline.seconds);
  std::printf("csv_import_memory: library %.1f bytes/cell, baseline %.1f bytes/cell, ratio %.2f\n",
              library.bytes_per_cell, baseline.bytes_per_cell, library.bytes_per_cell / baseline.bytes_per_cell);
  std::fflush(stdout);

#ifdef QDL_PATH
  if (import_only) {
    std::filesystem::remove_all(folder);
    return 0;
  }
  const std::string database = folder + "/bench.db";
  const std::string command = std::string("'") + QDL_PATH + "' import '" + path + "' '" + database + "' --table bench";
  const double start = Seconds();
  const int status = std::system(command.c_str());
  const double qdl_seconds = Seconds() - start;
  if (status != 0) {
    std::fprintf(stderr, "qdl import failed (%d)\n", status);
    return 1;
  }
  std::printf("qdl_import: %.3f s for import + new SQLite table + Save (the import alone: %.3f s, ratio %.2f)\n",
              qdl_seconds, library.seconds, qdl_seconds / library.seconds);
#endif
  std::filesystem::remove_all(folder);
  return 0;
}
