// Extracts over 1,000,000 records of a DataLayer, against plain loops over the same record objects.
//
// The table: ID (Long), Qty (Long, 0 to 999), Amount (Double, two decimals) and Name (6 to 20 letters
// in mixed case), adopted by a DataLayer with AttachOfflineRecordset. Every baseline works on the
// same clsOfflineRecord objects, reading the stored values in place, with a typed test or key where the
// library has to find out the kind of each value.
//
//   extract:  ExtractRecords("Qty", ">", 500), about half of the records. Baseline: a loop that keeps
//             the records with Qty > 500 in a new vector of record pointers.
//   sort:     SortRecordset on an extract of every record, by Name (text order) and by Amount (number
//             order). Baseline: a vector of the same record pointers, the keys made (lower-cased
//             names, the Doubles) and std::stable_sort on them, the records placed in their new order.
//   sum:      CalcSum("Amount") over an extract of every record. Baseline: a loop adding the Doubles.
//   subduct:  SubductRecords("Qty", ">", 500) on an extract of every record. Baseline: std::erase_if
//             on a vector of the same record pointers with Qty > 500.
// Figures are the best of three runs; making the extracts the operations start from is not timed.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bench_util.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsExtract.h"
#include "quorbex/clsExtractManager.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/locale.h"

namespace {

using quorbex::Variant;
using quorbex::bench::Seconds;
using RecordList = std::vector<std::shared_ptr<quorbex::clsOfflineRecord>>;

constexpr int32_t kRecords = 1000000;
constexpr int kRuns = 3;
constexpr int32_t kQtyField = 2, kAmountField = 3, kNameField = 4;

std::shared_ptr<quorbex::DataLayer> MakeLayer() {
  std::mt19937 random(4711);
  auto rs = std::make_shared<quorbex::clsOfflineRecordset>();
  rs->Add(kRecords);
  for (const char* name : {"ID", "Qty", "Amount", "Name"}) rs->FieldDim(1, name);
  for (int32_t i = 1; i <= kRecords; ++i) {
    auto record = rs->Records(i);
    record->FieldAt(1)->varValue = Variant(i);
    record->FieldAt(kQtyField)->varValue = Variant(static_cast<int32_t>(random() % 1000));
    record->FieldAt(kAmountField)->varValue = Variant(static_cast<double>(random() % 10000000) / 100.0);
    std::string name;
    const int length = 6 + static_cast<int>(random() % 15);
    for (int k = 0; k < length; ++k) name += static_cast<char>((k == 0 || random() % 7 == 0 ? 'A' : 'a') + random() % 26);
    record->FieldAt(kNameField)->varValue = Variant(std::move(name));
  }
  rs->Tag = "AllowAttach";
  auto layer = std::make_shared<quorbex::DataLayer>();
  layer->DisableLog(true);
  layer->AttachOfflineRecordset(rs, "SELECT * FROM bench", Variant(true));
  return layer;
}

// An extract of every record, in the table's order.
std::shared_ptr<quorbex::clsExtract> Everything(quorbex::DataLayer& layer) {
  auto extracts = layer.Extract();
  extracts->DestroyExtract(999);
  return extracts->Extracts(extracts->ExtractRecords("ID", ">", 0));
}

int32_t Qty(const quorbex::clsOfflineRecord& record) { return record.FieldAt(kQtyField)->varValue.AsLong(); }

void LowerInto(const std::string& text, std::string& out) {
  out.assign(text);
  for (char& ch : out) {
    if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch + ('a' - 'A'));
  }
}

template <class Key, class MakeKey>
void StableSortBy(RecordList& records, MakeKey make_key) {
  std::vector<std::pair<Key, uint32_t>> keys(records.size());
  for (uint32_t i = 0; i < records.size(); ++i) {
    make_key(*records[i], keys[i].first);
    keys[i].second = i;
  }
  std::stable_sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  RecordList sorted;
  sorted.reserve(records.size());
  for (const auto& key : keys) sorted.push_back(std::move(records[key.second]));
  records = std::move(sorted);
}

}  // namespace

int main() {
  quorbex::Locale::SetCurrent(quorbex::Locale::C());
  auto layer = MakeLayer();
  auto extracts = layer->Extract();
  const RecordList& table = layer->GetOfflineRecordset()->RecordCollection()->Items();

  // ---- ExtractRecords ---------------------------------------------------------------------------------
  double library = 1e9, baseline = 1e9;
  int32_t count_library = 0;
  size_t count_baseline = 0;
  for (int run = 0; run < kRuns; ++run) {
    extracts->DestroyExtract(999);
    double start = Seconds();
    const int32_t handle = extracts->ExtractRecords("Qty", ">", 500);
    library = std::min(library, Seconds() - start);
    count_library = extracts->Extracts(handle)->RecordCount();

    start = Seconds();
    RecordList hits;
    for (const auto& record : table) {
      if (Qty(*record) > 500) hits.push_back(record);
    }
    baseline = std::min(baseline, Seconds() - start);
    count_baseline = hits.size();
  }
  if (static_cast<size_t>(count_library) != count_baseline) {
    std::printf("extract kept %d, baseline %zu\n", count_library, count_baseline);
  }
  quorbex::bench::Report("extract records 1M (Qty > 500)", library, baseline);

  // ---- SortRecordset ----------------------------------------------------------------------------------
  for (const bool numbers : {false, true}) {
    library = baseline = 1e9;
    for (int run = 0; run < kRuns; ++run) {
      auto extract = Everything(*layer);
      double start = Seconds();
      extract->SortRecordset(numbers ? "Amount" : "Name", true, false, numbers);
      library = std::min(library, Seconds() - start);

      RecordList records = table;
      start = Seconds();
      if (numbers) {
        StableSortBy<double>(records, [](const quorbex::clsOfflineRecord& record, double& key) {
          key = record.FieldAt(kAmountField)->varValue.AsDouble();
        });
      } else {
        StableSortBy<std::string>(records, [](const quorbex::clsOfflineRecord& record, std::string& key) {
          LowerInto(record.FieldAt(kNameField)->varValue.AsString(), key);
        });
      }
      baseline = std::min(baseline, Seconds() - start);
    }
    quorbex::bench::Report(numbers ? "sort extract 1M by Amount (numbers)" : "sort extract 1M by Name (text)", library,
                           baseline);
  }

  // ---- CalcSum ----------------------------------------------------------------------------------------
  library = baseline = 1e9;
  double sum_library = 0, sum_baseline = 0;
  {
    auto extract = Everything(*layer);
    for (int run = 0; run < kRuns; ++run) {
      double start = Seconds();
      sum_library = extract->CalcSum("Amount");
      library = std::min(library, Seconds() - start);

      start = Seconds();
      double sum = 0;
      for (const auto& record : table) sum += record->FieldAt(kAmountField)->varValue.AsDouble();
      sum_baseline = sum;
      baseline = std::min(baseline, Seconds() - start);
    }
  }
  if (sum_library != sum_baseline) std::printf("sum %.2f, baseline %.2f\n", sum_library, sum_baseline);
  quorbex::bench::Report("calc sum 1M", library, baseline);

  // ---- SubductRecords ---------------------------------------------------------------------------------
  library = baseline = 1e9;
  count_library = 0;
  count_baseline = 0;
  for (int run = 0; run < kRuns; ++run) {
    auto extract = Everything(*layer);
    double start = Seconds();
    extract->SubductRecords("Qty", ">", 500);
    library = std::min(library, Seconds() - start);
    count_library = extract->RecordCount();

    RecordList records = table;
    start = Seconds();
    std::erase_if(records, [](const std::shared_ptr<quorbex::clsOfflineRecord>& record) { return Qty(*record) > 500; });
    baseline = std::min(baseline, Seconds() - start);
    count_baseline = records.size();
  }
  if (static_cast<size_t>(count_library) != count_baseline) {
    std::printf("subduct kept %d, baseline %zu\n", count_library, count_baseline);
  }
  quorbex::bench::Report("subduct records 1M (Qty > 500)", library, baseline);
  return 0;
}
