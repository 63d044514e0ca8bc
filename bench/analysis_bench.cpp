// The analyzer on 1,000,000 records (ID, Region with 1,000 distinct texts, Price, Qty, Total), each
// operation against a lean baseline over the same offline records in the same run:
//   - CalculateFormula "<Price>*<Qty>*1.19-5" (two references, three operators), against the same
//     arithmetic in a plain loop that reads both stored values and stores the result;
//   - SingleOccurrence of Region, against a hash set of the texts and a sort of the distinct ones;
//   - OccurrenceCount of one Region value, against a loop comparing the texts without regard to case;
//   - PivotCountOnly on Region, against one pass counting the texts in a hash map;
//   - Pivot summing Price and Qty by Region, the sort it begins with included, against one pass
//     summing into a hash map (and ordering the 1,000 groups).
// Each side runs three times and its best time counts, so that a busy machine does not decide the
// ratio; before each Pivot run the records are put back into their original order. An optional
// argument sets the record count.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "bench_util.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"
#include "quorbex/locale.h"
#include "service/thread_state.h"

using namespace quorbex;

namespace {

constexpr int32_t kId = 1;
constexpr int32_t kRegion = 2;
constexpr int32_t kPrice = 3;
constexpr int32_t kQty = 4;
constexpr int32_t kTotal = 5;

std::shared_ptr<DataLayer> MakeTable(int32_t n) {
  auto layer = std::make_shared<DataLayer>();
  std::string description = "Sales";
  std::string fields = "ID;Region;Price;Qty;Total";
  layer->CreateNewVirtualOfflineTable(description, fields);
  layer->AddNew();  // the first record carries the layout; the others are added in bulk
  auto recordset = layer->GetOfflineRecordset();
  auto first = recordset->Records(1);
  recordset->Add(n - 1);

  std::mt19937_64 rng(42);
  std::uniform_int_distribution<int> region(0, 999);
  std::uniform_int_distribution<int> cents(50, 50000);
  std::uniform_int_distribution<int> pieces(1, 100);
  char name[16];
  for (int32_t i = 1; i <= n; ++i) {
    auto record = recordset->Records(i);
    if (i > 1) {
      record->Add(5);
      for (int32_t j = 1; j <= 5; ++j) record->FieldAt(j)->Description = first->FieldAt(j)->Description;
    }
    std::snprintf(name, sizeof name, "Region%04d", region(rng));
    record->FieldAt(kId)->varValue = Variant(i);
    record->FieldAt(kRegion)->varValue = Variant(std::string(name));
    record->FieldAt(kPrice)->varValue = Variant(cents(rng) / 100.0);
    record->FieldAt(kQty)->varValue = Variant(pieces(rng));
    record->FieldAt(kTotal)->varValue = Variant();
  }
  return layer;
}

const std::vector<std::shared_ptr<clsOfflineRecord>>& Records(DataLayer& layer) {
  return layer.GetOfflineRecordset()->RecordCollection()->Items();
}

constexpr int kRuns = 3;

// The best of kRuns timings of `prepare` (untimed) followed by `work`.
template <class Prepare, class Work>
double Best(Prepare prepare, Work work) {
  double best = 1e300;
  for (int run = 0; run < kRuns; ++run) {
    prepare();
    const double start = bench::Seconds();
    work();
    best = std::min(best, bench::Seconds() - start);
  }
  return best;
}
template <class Work>
double Best(Work work) {
  return Best([] {}, work);
}

bool SameTextIgnoringCase(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
         });
}

}  // namespace

int main(int argc, char** argv) {
  const int32_t n = argc > 1 ? static_cast<int32_t>(std::strtol(argv[1], nullptr, 10)) : 1000000;
  LocaleScope locale(Locale::C());
  quorbex::internal::State().log_disabled = true;
  quorbex::internal::State().suppress_all_messages = true;

  double t0 = bench::Seconds();
  auto layer = MakeTable(n);
  std::printf("table of %d records built in %.3f s\n", n, bench::Seconds() - t0);
  auto analyzer = layer->Analyzer();
  volatile double sink = 0;

  // ---- CalculateFormula ------------------------------------------------------------------------------
  const double formula_library = Best([&] { analyzer->CalculateFormula("<Price>*<Qty>*1.19-5", "Total"); });
  const double library_total = CDbl(Records(*layer).back()->FieldAt(kTotal)->varValue);
  const double formula_baseline = Best([&] {
    for (const auto& record : Records(*layer)) {
      const double price = CDbl(record->FieldAt(kPrice)->varValue);
      const double qty = CDbl(record->FieldAt(kQty)->varValue);
      record->FieldAt(kTotal)->Value(Variant(price * qty * 1.19 - 5));
    }
  });
  const double plain_total = CDbl(Records(*layer).back()->FieldAt(kTotal)->varValue);
  if (std::abs(library_total - plain_total) > 1e-9 * std::abs(plain_total)) {
    std::printf("CalculateFormula result differs: %.17g vs %.17g\n", library_total, plain_total);
  }
  bench::Report("CalculateFormula (1M records, 2 references, 3 operators)", formula_library, formula_baseline);

  // ---- SingleOccurrence ------------------------------------------------------------------------------
  std::shared_ptr<Collection<Variant>> distinct;
  const double single_library = Best([&] { distinct = analyzer->SingleOccurrence("Region"); });
  std::vector<std::string> ordered;
  const double single_baseline = Best([&] {
    std::unordered_set<std::string> seen;
    for (const auto& record : Records(*layer)) seen.insert(record->FieldAt(kRegion)->varValue.AsString());
    ordered.assign(seen.begin(), seen.end());
    std::sort(ordered.begin(), ordered.end());
  });
  if (static_cast<size_t>(distinct->Count()) != ordered.size()) std::printf("SingleOccurrence count differs\n");
  bench::Report("SingleOccurrence (1M records, 1,000 values)", single_library, single_baseline);

  // ---- OccurrenceCount -------------------------------------------------------------------------------
  const std::string wanted = "region0500";
  int32_t library_count = 0;
  const double count_library = Best([&] { library_count = analyzer->OccurrenceCount("Region", wanted); });
  int32_t plain_count = 0;
  const double count_baseline = Best([&] {
    plain_count = 0;
    for (const auto& record : Records(*layer)) {
      plain_count += SameTextIgnoringCase(record->FieldAt(kRegion)->varValue.AsString(), wanted);
    }
  });
  if (library_count != plain_count) std::printf("OccurrenceCount differs: %d vs %d\n", library_count, plain_count);
  bench::Report("OccurrenceCount (1M records)", count_library, count_baseline);

  // ---- PivotCountOnly --------------------------------------------------------------------------------
  std::shared_ptr<DataLayer> counts;
  const double count_only_library = Best([&] { counts = analyzer->PivotCountOnly("Region"); });
  std::vector<std::pair<std::string, int32_t>> count_rows;
  const double count_only_baseline = Best([&] {
    std::unordered_map<std::string, int32_t> per_region;
    for (const auto& record : Records(*layer)) ++per_region[record->FieldAt(kRegion)->varValue.AsString()];
    count_rows.assign(per_region.begin(), per_region.end());
    std::sort(count_rows.begin(), count_rows.end());
  });
  if (static_cast<size_t>(counts->RecordCount()) != count_rows.size()) std::printf("PivotCountOnly rows differ\n");
  bench::Report("PivotCountOnly (1M records, 1,000 values)", count_only_library, count_only_baseline);

  // ---- Pivot -----------------------------------------------------------------------------------------
  struct Sums {
    double price = 0;
    double qty = 0;
  };
  std::vector<std::pair<std::string, Sums>> pivot_rows;
  const double pivot_baseline = Best([&] {
    std::unordered_map<std::string, Sums> sums;
    for (const auto& record : Records(*layer)) {
      Sums& s = sums[record->FieldAt(kRegion)->varValue.AsString()];
      s.price += CDbl(record->FieldAt(kPrice)->varValue);
      s.qty += CDbl(record->FieldAt(kQty)->varValue);
    }
    pivot_rows.assign(sums.begin(), sums.end());
    std::sort(pivot_rows.begin(), pivot_rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  });

  const std::vector<std::shared_ptr<clsOfflineRecord>> original = Records(*layer);
  std::shared_ptr<DataLayer> pivot;
  const double pivot_library = Best([&] { layer->GetOfflineRecordset()->RecordCollection()->Items() = original; },
                                    [&] { pivot = analyzer->Pivot("Price;Qty", "Region"); });
  if (static_cast<size_t>(pivot->RecordCount()) != pivot_rows.size()) std::printf("Pivot rows differ\n");
  pivot->MoveFirst();
  sink = CDbl(pivot->FieldValue("Price")) - pivot_rows.front().second.price;
  if (std::abs(sink) > 1e-6 * pivot_rows.front().second.price) std::printf("Pivot sums differ\n");
  bench::Report("Pivot (1M records, 2 sums, 1,000 groups, sort included)", pivot_library, pivot_baseline);

  if (!quorbex::internal::State().error_text.empty()) std::printf("errors reported:%s\n", quorbex::internal::State().error_text.c_str());
  return 0;
}
