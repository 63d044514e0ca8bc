// The formula engine on 1,000,000 records: the formula <Price>*<Quantity>*1.19-5 (two field
// references, three operators) with the field values substituted as number text, as the analyzer
// hands it over, against the same arithmetic in a plain loop over the values. A second line compares
// with a baseline that also has to read the two values from their texts.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench_util.h"
#include "quorbex/Formula.h"
#include "quorbex/locale.h"
#include "quorbex/variant.h"

using namespace quorbex;

int main(int argc, char** argv) {
  const size_t n = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000000;
  LocaleScope locale(Locale::C());

  std::mt19937_64 rng(42);
  std::uniform_int_distribution<int> cents(50, 50000);
  std::uniform_int_distribution<int> pieces(1, 100);
  std::vector<double> price(n), quantity(n);
  std::vector<std::string> price_text(n), quantity_text(n), formulas(n);
  for (size_t i = 0; i < n; ++i) {
    price[i] = cents(rng) / 100.0;
    quantity[i] = pieces(rng);
    price_text[i] = CStr(Variant(price[i]));
    quantity_text[i] = CStr(Variant(quantity[i]));
    formulas[i] = price_text[i] + "*" + quantity_text[i] + "*1.19-5";
  }

  double t0 = bench::Seconds();
  volatile double sink = 0;
  double library_sum = 0;
  size_t failures = 0;
  for (size_t i = 0; i < n; ++i) {
    Formula f;  // one object per record, as the analyzer uses it
    f.FormulaString(formulas[i]);
    library_sum += f.CalcFormula();
    failures += f.HasErrors();
  }
  const double library = bench::Seconds() - t0;
  sink = library_sum;

  t0 = bench::Seconds();
  double plain_sum = 0;
  for (size_t i = 0; i < n; ++i) plain_sum += price[i] * quantity[i] * 1.19 - 5;
  const double plain = bench::Seconds() - t0;
  sink = plain_sum;

  t0 = bench::Seconds();
  double parsed_sum = 0;
  for (size_t i = 0; i < n; ++i) {
    parsed_sum += std::strtod(price_text[i].c_str(), nullptr) * std::strtod(quantity_text[i].c_str(), nullptr) * 1.19 - 5;
  }
  const double parsed = bench::Seconds() - t0;
  sink = parsed_sum;
  (void)sink;

  if (failures != 0 || std::fabs(library_sum - plain_sum) > 1e-6 * std::fabs(plain_sum)) {
    std::fprintf(stderr, "formula results differ: %zu failures, %.6f vs %.6f\n", failures, library_sum, plain_sum);
    return 1;
  }
  bench::Report("formula (1M records, 2 references, 3 operators)", library, plain);
  bench::Report("formula vs reading the value texts", library, parsed);
  return 0;
}
