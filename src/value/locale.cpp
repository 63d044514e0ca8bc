#include "quorbex/locale.h"

#include "value/locale_info.h"

#include <clocale>
#include <langinfo.h>
#include <locale.h>

#include <string>
#include <string_view>

namespace quorbex {

using namespace internal;

namespace {

bool IsPlainCName(std::string_view name) {
  return name.empty() || name == "C" || name == "POSIX" || name.starts_with("C.") ||
         name.starts_with("POSIX.");
}

// The name of the locale the process uses for `category`: the one the program selected with
// setlocale, or, while that is still the default "C", the one the environment (LC_ALL, LC_xxx, LANG)
// names. An empty result means "C".
std::string ProcessLocaleName(int category, int mask) {
  if (const char* selected = std::setlocale(category, nullptr); selected && !IsPlainCName(selected)) {
    return selected;
  }
  const locale_t loc = newlocale(mask, "", static_cast<locale_t>(nullptr));
  if (loc == static_cast<locale_t>(nullptr)) return {};
  std::string name = nl_langinfo_l(_NL_LOCALE_NAME(category), loc);
  freelocale(loc);
  return name;
}

struct TranslatedPattern {
  std::string pattern;  // in the yyyy/mm/dd/hh/nn/ss notation
  std::string order;    // the fields met in order: 'y', 'm', 'd'
  std::string first_separator;
};

// Translates a strftime pattern (D_FMT / T_FMT) into the classic notation. Conversions without a
// counterpart (weekday and month names, time zones) are dropped together with a following blank.
TranslatedPattern TranslateStrftime(std::string_view f) {
  TranslatedPattern out;
  std::string literal;  // the text since the last field
  auto field = [&](char kind, std::string_view text) {
    if (kind && out.order.size() == 1) out.first_separator = literal;
    literal.clear();
    out.pattern += text;
    if (kind) out.order.push_back(kind);
  };
  for (std::size_t i = 0; i < f.size(); ++i) {
    if (f[i] != '%' || i + 1 >= f.size()) {
      out.pattern.push_back(f[i]);
      literal.push_back(f[i]);
      continue;
    }
    char c = f[++i];
    while ((c == 'E' || c == 'O' || c == '-' || c == '_' || c == '0' || c == '^' || c == '#') &&
           i + 1 < f.size()) {
      c = f[++i];
    }
    switch (c) {
      case 'd': field('d', "dd"); break;
      case 'e': field('d', "d"); break;
      case 'm': field('m', "mm"); break;
      case 'Y': field('y', "yyyy"); break;
      case 'y': field('y', "yy"); break;
      case 'D':
        field('m', "mm"), literal = "/", field('d', "/dd"), field('y', "/yy");
        break;
      case 'F':
        field('y', "yyyy"), literal = "-", field('m', "-mm"), field('d', "-dd");
        break;
      case 'H': field(0, "hh"); break;
      case 'k': field(0, "h"); break;
      case 'I': field(0, "hh"); break;
      case 'l': field(0, "h"); break;
      case 'M': field(0, "nn"); break;
      case 'S': field(0, "ss"); break;
      case 'p': field(0, "AM/PM"); break;
      case 'r': field(0, "hh:nn:ss AM/PM"); break;
      case 'T': field(0, "hh:nn:ss"); break;
      case 'R': field(0, "hh:nn"); break;
      case '%': out.pattern.push_back('%'); break;
      default:
        if (i + 1 < f.size() && f[i + 1] == ' ') ++i;
        break;
    }
  }
  // Blanks left over from dropped conversions.
  while (!out.pattern.empty() && out.pattern.back() == ' ') out.pattern.pop_back();
  while (!out.pattern.empty() && out.pattern.front() == ' ') out.pattern.erase(0, 1);
  return out;
}

Locale BuildProcessLocale() {
  const std::string numeric = ProcessLocaleName(LC_NUMERIC, LC_NUMERIC_MASK);
  const std::string time = ProcessLocaleName(LC_TIME, LC_TIME_MASK);
  std::string radix, thousands, date_format, time_format;
  if (!IsPlainCName(numeric)) {
    if (const locale_t loc = newlocale(LC_NUMERIC_MASK, numeric.c_str(), static_cast<locale_t>(nullptr))) {
      radix = nl_langinfo_l(RADIXCHAR, loc);
      thousands = nl_langinfo_l(THOUSEP, loc);
      freelocale(loc);
    }
  }
  if (!IsPlainCName(time)) {
    if (const locale_t loc = newlocale(LC_TIME_MASK, time.c_str(), static_cast<locale_t>(nullptr))) {
      date_format = nl_langinfo_l(D_FMT, loc);
      time_format = nl_langinfo_l(T_FMT, loc);
      freelocale(loc);
    }
  }
  Locale result = internal::LocaleFromLangInfo(radix, thousands, date_format, time_format);
  if (IsPlainCName(numeric)) {
    result.decimal_separator = ".";
    result.thousands_separator = ",";
  }
  return result;
}

const Locale& ProcessLocale() {
  static const Locale process = BuildProcessLocale();
  return process;
}

Locale& ThreadLocale() {
  thread_local Locale current = ProcessLocale();
  return current;
}

}  // namespace

namespace internal {

Locale LocaleFromLangInfo(std::string_view radix, std::string_view thousands, std::string_view date_format,
                          std::string_view time_format) {
  Locale result = Locale::C();
  if (!radix.empty()) result.decimal_separator = radix;
  if (!radix.empty() || !thousands.empty()) {
    result.thousands_separator = thousands != result.decimal_separator ? thousands : std::string_view();
  }
  const TranslatedPattern date = TranslateStrftime(date_format);
  if (date.order.size() == 3) {
    result.short_date_format = date.pattern;
    result.date_order = date.order[0] == 'y'   ? DateOrder::YMD
                        : date.order[0] == 'd' ? DateOrder::DMY
                                               : DateOrder::MDY;
    if (!date.first_separator.empty()) result.date_separator = date.first_separator;
  }
  const TranslatedPattern clock = TranslateStrftime(time_format);
  if (!clock.pattern.empty()) result.long_time_format = clock.pattern;
  return result;
}

}  // namespace internal

Locale Locale::C() { return Locale{}; }

Locale Locale::German() {
  Locale l;
  l.decimal_separator = ",";
  l.thousands_separator = ".";
  l.date_order = DateOrder::DMY;
  l.date_separator = ".";
  l.short_date_format = "dd.mm.yyyy";
  l.long_time_format = "hh:nn:ss";
  return l;
}

Locale Locale::English() {
  Locale l;
  l.decimal_separator = ".";
  l.thousands_separator = ",";
  l.date_order = DateOrder::MDY;
  l.date_separator = "/";
  l.short_date_format = "m/d/yyyy";
  l.long_time_format = "hh:nn:ss";
  return l;
}

Locale Locale::FromProcess() { return BuildProcessLocale(); }

const Locale& Locale::Current() { return ThreadLocale(); }

void Locale::SetCurrent(const Locale& locale) { ThreadLocale() = locale; }

}  // namespace quorbex
