// Sorting 1,000,000 offline records by one field, against std::stable_sort on keys made beforehand.
//
// The table has a text column (names of 6 to 20 letters in mixed case, one in twenty with an umlaut
// or an accent) and a number column (Doubles with two decimals, one in 50,000 a non-numeric text
// that holds its place). The library times the whole RecordsetSort: making every key, sorting, and
// putting the records in their new order. The baseline times std::stable_sort alone, on (key,
// position) pairs made before the clock starts: lower-cased texts for the text sort, the Doubles for
// the number sort. Each figure is the best of three runs on the same unsorted order. Last, the time a
// text-sorted table takes to go away, against the same table left in the order it was built.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#include "quorbex/clsOfflineRecordset.h"
#include "quorbex/locale.h"
#include "quorbex/text.h"

namespace {

using quorbex::Variant;
using quorbex::bench::Seconds;

constexpr int32_t kRecords = 1000000;
constexpr int kRuns = 3;

std::string RandomName(std::mt19937& random) {
  static const char* const kSpecial[] = {"ä", "ö", "ü", "é", "Ö", "ß"};
  const int length = 6 + static_cast<int>(random() % 15);
  std::string name;
  for (int i = 0; i < length; ++i) {
    const char base = (i == 0 || random() % 7 == 0) ? 'A' : 'a';
    name += static_cast<char>(base + random() % 26);
  }
  if (random() % 20 == 0) name.insert(random() % name.size(), kSpecial[random() % 6]);
  return name;
}

struct Table {
  std::shared_ptr<quorbex::clsOfflineRecordset> rs = std::make_shared<quorbex::clsOfflineRecordset>();
  std::vector<std::shared_ptr<quorbex::clsOfflineRecord>> original;  // the unsorted order
  std::vector<std::string> names;
  std::vector<Variant> amounts;
};

Table Build() {
  Table table;
  std::mt19937 random(42);
  table.rs->Add(kRecords);
  table.rs->FieldDim(1, "Name");
  table.rs->FieldDim(1, "Amount");
  for (int32_t i = 1; i <= kRecords; ++i) {
    auto record = table.rs->Records(i);
    table.names.push_back(RandomName(random));
    record->FieldAt(1)->varValue = Variant(table.names.back());
    Variant amount = random() % 50000 == 0 ? Variant("n/a") : Variant(static_cast<double>(random() % 10000000) / 100.0);
    table.amounts.push_back(amount);
    record->FieldAt(2)->varValue = amount;
  }
  table.original = table.rs->RecordCollection()->Items();
  return table;
}

void Restore(Table& table) { table.rs->RecordCollection()->Items() = table.original; }

template <class Key>
double BaselineSort(const std::vector<std::pair<Key, uint32_t>>& keys) {
  double best = 1e9;
  for (int run = 0; run < kRuns; ++run) {
    auto work = keys;
    const double start = Seconds();
    std::stable_sort(work.begin(), work.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    best = std::min(best, Seconds() - start);
  }
  return best;
}

double LibrarySort(Table& table, int32_t column, bool numbers) {
  double best = 1e9;
  for (int run = 0; run < kRuns; ++run) {
    Restore(table);
    const double start = Seconds();
    table.rs->RecordsetSort(column, true, false, numbers);
    best = std::min(best, Seconds() - start);
  }
  return best;
}

}  // namespace

int main() {
  quorbex::Locale::SetCurrent(quorbex::Locale::C());
  Table table = Build();

  std::vector<std::pair<std::string, uint32_t>> text_keys;
  text_keys.reserve(kRecords);
  for (uint32_t i = 0; i < kRecords; ++i) text_keys.emplace_back(quorbex::LCase(table.names[i]), i);
  const double text_baseline = BaselineSort(text_keys);
  const double text_library = LibrarySort(table, 1, false);
  quorbex::bench::Report("text sort 1M", text_library, text_baseline);

  // The baseline sorts the numbers only; the few texts would hold their places.
  std::vector<std::pair<double, uint32_t>> number_keys;
  number_keys.reserve(kRecords);
  for (uint32_t i = 0; i < kRecords; ++i) {
    if (!table.amounts[i].IsString()) number_keys.emplace_back(table.amounts[i].AsDouble(), i);
  }
  const double number_baseline = BaselineSort(number_keys);
  const double number_library = LibrarySort(table, 2, true);
  quorbex::bench::Report("number sort 1M", number_library, number_baseline);

  // Letting go of a table after a text sort, against the same table in the order it was built.
  Restore(table);
  table.rs->RecordsetSort(1, true, false, false);
  table.original.clear();
  double start = Seconds();
  table.rs.reset();
  const double sorted_release = Seconds() - start;
  Table unsorted = Build();
  unsorted.original.clear();
  start = Seconds();
  unsorted.rs.reset();
  quorbex::bench::Report("release of a sorted 1M table", sorted_release, Seconds() - start);
  return 0;
}
