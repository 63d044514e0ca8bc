// libFuzzer target for the formula engine. The first byte picks the thread locale, the rest is the
// formula text. Besides "no crash, no hang, no undefined behaviour" it checks what must hold for any
// text: a failed evaluation returns 0, a successful one a finite number, the marked text equals the
// defined sequence of replacements, and a second object evaluates the same text to the same outcome.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "quorbex/Formula.h"
#include "quorbex/locale.h"

namespace {

std::string MarkSequentially(std::string s) {
  if (s.empty()) return s;
  for (const char* token : {"+", "-", "/", "*", "^", "SQRT", "1/x", "Rnd0", "Rnd1", "Rnd2", "Rnd3", "Rnd4",
                            "%", "(", ")", "+/-"}) {
    const std::string from = token;
    std::string out;
    size_t pos = 0;
    for (size_t hit; (hit = s.find(from, pos)) != std::string::npos; pos = hit + from.size()) {
      out.append(s, pos, hit - pos);
      out += '\\';
      out += from;
      out += '\\';
    }
    out.append(s, pos);
    s = std::move(out);
  }
  if (s.back() != '\\') s += '\\';
  return s;
}

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const quorbex::Locale kLocales[] = {quorbex::Locale::C(), quorbex::Locale::German(),
                                             quorbex::Locale::English()};
  quorbex::LocaleScope locale(kLocales[data[0] % 3]);
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

  quorbex::Formula first;
  first.FormulaString(text);
  const double value = first.CalcFormula();
  if (first.HasErrors()) {
    Check(value == 0.0);
    Check(!first.ErrorInfo().empty());
  } else {
    Check(std::isfinite(value));
  }
  Check(first.IgnoredErrorCount() >= 0);
  Check(first.FormulaString() == MarkSequentially(text));

  quorbex::Formula second;
  second.FormulaString(text);
  const double again = second.CalcFormula();
  Check(second.HasErrors() == first.HasErrors());
  Check(second.ErrorInfo() == first.ErrorInfo());
  Check(again == value || (std::isnan(again) && std::isnan(value)));

  // A second calculation on the same object works on the marked text and must end as well.
  first.CalcFormula();
  return 0;
}
