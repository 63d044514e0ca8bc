#include "quorbex/text.h"

#include <clocale>
#include <cwctype>
#include <limits>
#include <locale.h>
#include <wctype.h>

#include "quorbex/errors.h"
#include "value/utf8.h"
#include "value/text_util.h"

namespace quorbex {

using namespace internal;

namespace {

// The case tables of the C.UTF-8 locale, independent of whatever locale the host process selected.
// Created once and never freed: it is shared by every thread for the life of the process.
locale_t CaseLocale() {
  static const locale_t loc = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
  return loc;
}

std::string MapCase(std::string_view s, bool upper) {
  std::string out;
  out.reserve(s.size());
  const locale_t loc = CaseLocale();
  for (std::size_t i = 0; i < s.size();) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      char m = static_cast<char>(c);
      if (upper && c >= 'a' && c <= 'z') m = static_cast<char>(c - 'a' + 'A');
      if (!upper && c >= 'A' && c <= 'Z') m = static_cast<char>(c - 'A' + 'a');
      out.push_back(m);
      ++i;
      continue;
    }
    const utf8::Decoded d = utf8::DecodeAt(s, i);
    if (!d.valid || loc == static_cast<locale_t>(nullptr)) {
      out.append(s.substr(i, d.length));
    } else {
      const wint_t w = static_cast<wint_t>(d.code_point);
      const wint_t m = upper ? towupper_l(w, loc) : towlower_l(w, loc);
      utf8::Append(out, static_cast<char32_t>(m));
    }
    i += d.length;
  }
  return out;
}

int32_t ClampLength(std::size_t n) {
  return n > static_cast<std::size_t>(std::numeric_limits<int32_t>::max())
             ? std::numeric_limits<int32_t>::max()
             : static_cast<int32_t>(n);
}

// First occurrence of `find` at or after byte `from` that begins and ends on character boundaries, so
// that a broken byte in `find` never matches part of a well-formed character.
std::size_t FindOnBoundary(std::string_view s, std::string_view find, std::size_t from) {
  while (true) {
    const std::size_t p = s.find(find, from);
    if (p == std::string_view::npos) return p;
    if (utf8::IsBoundary(s, p) && utf8::IsBoundary(s, p + find.size())) return p;
    from = p + 1;
  }
}

}  // namespace

std::string LCase(std::string_view s) { return MapCase(s, false); }
std::string UCase(std::string_view s) { return MapCase(s, true); }

std::string LTrim(std::string_view s) {
  const std::size_t b = s.find_first_not_of(' ');
  return b == std::string_view::npos ? std::string() : std::string(s.substr(b));
}

std::string RTrim(std::string_view s) {
  const std::size_t e = s.find_last_not_of(' ');
  return e == std::string_view::npos ? std::string() : std::string(s.substr(0, e + 1));
}

std::string Trim(std::string_view s) { return std::string(internal::TrimSpaces(s)); }

int32_t Len(std::string_view s) { return ClampLength(utf8::CountChars(s)); }

std::string Left(std::string_view s, int32_t length) {
  if (length < 0) RaiseRuntimeError(errnum::kInvalidProcedureCall);
  return std::string(s.substr(0, utf8::Advance(s, 0, static_cast<std::size_t>(length))));
}

std::string Right(std::string_view s, int32_t length) {
  if (length < 0) RaiseRuntimeError(errnum::kInvalidProcedureCall);
  const std::size_t total = utf8::CountChars(s);
  const auto want = static_cast<std::size_t>(length);
  if (want >= total) return std::string(s);
  return std::string(s.substr(utf8::Advance(s, 0, total - want)));
}

std::string Mid(std::string_view s, int32_t start, int32_t length) {
  if (start < 1 || length < -1) RaiseRuntimeError(errnum::kInvalidProcedureCall);
  const std::size_t b = utf8::Advance(s, 0, static_cast<std::size_t>(start) - 1);
  if (length == -1) return std::string(s.substr(b));
  const std::size_t e = utf8::Advance(s, b, static_cast<std::size_t>(length));
  return std::string(s.substr(b, e - b));
}

int32_t InStr(std::string_view s, std::string_view find, int32_t start) {
  if (start < 1) RaiseRuntimeError(errnum::kInvalidProcedureCall);
  std::size_t skipped = 0;
  const std::size_t b = utf8::Advance(s, 0, static_cast<std::size_t>(start) - 1, &skipped);
  if (skipped < static_cast<std::size_t>(start) - 1) return 0;  // start lies beyond the end + 1
  if (find.empty()) return start;
  const std::size_t p = FindOnBoundary(s, find, b);
  if (p == std::string_view::npos) return 0;
  return ClampLength(static_cast<std::size_t>(start) + utf8::CountChars(s.substr(b, p - b)));
}

std::string Replace(std::string_view s, std::string_view find, std::string_view with) {
  if (find.empty()) return std::string(s);
  std::string out;
  out.reserve(s.size());
  std::size_t from = 0;
  while (true) {
    const std::size_t p = FindOnBoundary(s, find, from);
    if (p == std::string_view::npos) break;
    out.append(s.substr(from, p - from));
    out.append(with);
    from = p + find.size();
  }
  out.append(s.substr(from));
  return out;
}

}  // namespace quorbex
