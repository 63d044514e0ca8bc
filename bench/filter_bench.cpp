// Filters and searches over 1,000,000 records of a DataLayer, against lean scans of the same data.
//
// The table: ID (Long), Amount (Double, two decimals), and three texts: Name (6 to 20 letters in mixed
// case), City ("City " and one of 5,000 numbers) and Note (a short phrase). The DataLayer adopts it with
// AttachOfflineRecordset. Figures are the best of three runs unless the operation changes the table.
//
//   filter:  Filter("Amount", ">", 50000, False) followed by DeleteFilter. Baseline: a copy of every
//            cell's value (the snapshot DeleteFilter brings back) plus a scan of the Amount column
//            that keeps the positions of the matching rows.
//   search:  FullTextSearch of one word limited to Name, City and Note. Baseline: a scan of the same
//            three texts held in std::string columns, each lower-cased into a buffer and searched
//            with std::string::find.
//   distinct: RemoveMultipleEntries("City"), 5,000 distinct values, on a fresh table. Baseline: the
//            lower-cased keys with their positions made, std::stable_sort, and the first of each run
//            of equal values kept.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/locale.h"
#include "quorbex/text.h"
#include "service/thread_state.h"

namespace {

using quorbex::Variant;
using quorbex::bench::Seconds;

constexpr int32_t kRecords = 1000000;
constexpr int kRuns = 3;

struct Columns {
  std::vector<int32_t> ids;
  std::vector<double> amounts;
  std::vector<std::string> names, cities, notes;
};

Columns MakeColumns() {
  static const char* const kWords[] = {"bitte", "rasch", "liefern", "Rechnung", "offen", "bezahlt", "Mahnung",
                                       "storniert", "Teil", "Rest", "Kunde", "neu"};
  Columns c;
  std::mt19937 random(1234);
  for (int32_t i = 0; i < kRecords; ++i) {
    c.ids.push_back(i + 1);
    c.amounts.push_back(static_cast<double>(random() % 10000000) / 100.0);
    std::string name;
    const int length = 6 + static_cast<int>(random() % 15);
    for (int k = 0; k < length; ++k) name += static_cast<char>((k == 0 ? 'A' : 'a') + random() % 26);
    c.names.push_back(std::move(name));
    c.cities.push_back("City " + std::to_string(random() % 5000));
    c.notes.push_back(std::string(kWords[random() % 12]) + " " + kWords[random() % 12]);
  }
  return c;
}

std::shared_ptr<quorbex::DataLayer> MakeLayer(const Columns& c) {
  auto rs = std::make_shared<quorbex::clsOfflineRecordset>();
  rs->Add(kRecords);
  for (const char* name : {"ID", "Amount", "Name", "City", "Note"}) rs->FieldDim(1, name);
  for (int32_t i = 0; i < kRecords; ++i) {
    auto record = rs->Records(i + 1);
    record->FieldAt(1)->varValue = Variant(c.ids[i]);
    record->FieldAt(2)->varValue = Variant(c.amounts[i]);
    record->FieldAt(3)->varValue = Variant(c.names[i]);
    record->FieldAt(4)->varValue = Variant(c.cities[i]);
    record->FieldAt(5)->varValue = Variant(c.notes[i]);
  }
  rs->Tag = "AllowAttach";
  auto layer = std::make_shared<quorbex::DataLayer>();
  layer->DisableLog(true);
  layer->AttachOfflineRecordset(rs, "SELECT * FROM bench", Variant(true));
  return layer;
}

void LowerInto(const std::string& text, std::string& out) {
  out.assign(text);
  for (char& ch : out) {
    if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch + ('a' - 'A'));
  }
}

}  // namespace

int main() {
  quorbex::Locale::SetCurrent(quorbex::Locale::C());
  const Columns columns = MakeColumns();
  auto layer = MakeLayer(columns);

  // ---- Filter + DeleteFilter --------------------------------------------------------------------
  double library = 1e9, baseline = 1e9;
  size_t kept_library = 0, kept_baseline = 0;
  for (int run = 0; run < kRuns; ++run) {
    double start = Seconds();
    layer->Filter("Amount", ">", Variant(50000), false);
    kept_library = static_cast<size_t>(layer->RecordCount());
    layer->DeleteFilter();
    library = std::min(library, Seconds() - start);

    start = Seconds();
    auto rs = layer->GetOfflineRecordset();
    const auto& records = rs->RecordCollection()->Items();
    std::vector<Variant> snapshot;
    snapshot.reserve(records.size() * 5);
    for (const auto& record : records) {
      for (int32_t j = 1; j <= record->FieldCount(); ++j) snapshot.push_back(record->FieldAt(j)->varValue);
    }
    std::vector<uint32_t> kept;
    kept.reserve(records.size());
    for (uint32_t i = 0; i < records.size(); ++i) {
      if (records[i]->FieldAt(2)->varValue.AsDouble() >= 50000) kept.push_back(i);
    }
    kept_baseline = kept.size();
    snapshot.clear();
    snapshot.shrink_to_fit();
    baseline = std::min(baseline, Seconds() - start);
  }
  if (kept_library != kept_baseline) std::printf("filter kept %zu, baseline %zu\n", kept_library, kept_baseline);
  quorbex::bench::Report("filter + delete filter 1M", library, baseline);

  // ---- FullTextSearch -----------------------------------------------------------------------------
  library = baseline = 1e9;
  size_t hits_library = 0, hits_baseline = 0;
  for (int run = 0; run < kRuns; ++run) {
    double start = Seconds();
    auto hits = layer->FullTextSearch("Mahn", "Name;City;Note");
    hits_library = static_cast<size_t>(hits->Count());
    library = std::min(library, Seconds() - start);

    start = Seconds();
    std::vector<int32_t> found;
    std::string buffer;
    const std::string word = "mahn";
    for (int32_t i = 0; i < kRecords; ++i) {
      for (const std::vector<std::string>* column : {&columns.names, &columns.cities, &columns.notes}) {
        LowerInto((*column)[static_cast<size_t>(i)], buffer);
        if (buffer.find(word) != std::string::npos) {
          found.push_back(i + 1);
          break;
        }
      }
    }
    hits_baseline = found.size();
    baseline = std::min(baseline, Seconds() - start);
  }
  if (hits_library != hits_baseline) std::printf("search found %zu, baseline %zu\n", hits_library, hits_baseline);
  quorbex::bench::Report("full-text search 1M x 3 fields", library, baseline);

  // ---- RemoveMultipleEntries ----------------------------------------------------------------------
  layer.reset();
  auto fresh = MakeLayer(columns);
  double start = Seconds();
  fresh->RemoveMultipleEntries("City");
  library = Seconds() - start;
  const auto distinct_library = static_cast<size_t>(fresh->RecordCount());
  fresh.reset();

  start = Seconds();
  std::vector<std::pair<std::string, uint32_t>> keys;
  keys.reserve(kRecords);
  for (uint32_t i = 0; i < static_cast<uint32_t>(kRecords); ++i) keys.emplace_back(quorbex::LCase(columns.cities[i]), i);
  std::stable_sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<uint32_t> first_of_run;
  for (size_t i = 0; i < keys.size(); ++i) {
    if (i == 0 || columns.cities[keys[i].second] != columns.cities[keys[first_of_run.back()].second]) {
      first_of_run.push_back(static_cast<uint32_t>(i));
    }
  }
  baseline = Seconds() - start;
  if (distinct_library != first_of_run.size()) {
    std::printf("distinct kept %zu, baseline %zu\n", distinct_library, first_of_run.size());
  }
  quorbex::bench::Report("remove multiple entries 1M (5,000 values)", library, baseline);
  return 0;
}
