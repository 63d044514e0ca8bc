// The classic text functions, on UTF-8 strings.
//
// Positions and lengths count characters (code points), not bytes, and start at 1. Invalid UTF-8 never
// crashes: each byte of a broken sequence counts as one character and is kept as it is.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorbex {

// All of Unicode's simple (one to one) case mappings: Ä <-> ä, É <-> é, Σ <-> σ; ß has no single
// upper-case letter and stays. Broken bytes are copied unchanged.
std::string LCase(std::string_view s);
std::string UCase(std::string_view s);
std::string Trim(std::string_view s);    // removes leading and trailing blanks (spaces only)
std::string LTrim(std::string_view s);
std::string RTrim(std::string_view s);
int32_t Len(std::string_view s);
// The first / last `length` characters, the whole text when it is shorter; negative length raises 5
// "Invalid procedure call or argument".
std::string Left(std::string_view s, int32_t length);
std::string Right(std::string_view s, int32_t length);
// `length` characters from `start` ("" when start lies beyond the end); -1: to the end. start < 1 or
// length < -1 raises 5.
std::string Mid(std::string_view s, int32_t start, int32_t length = -1);
// 1-based character position of `find` in `s` from `start`, 0 when absent; exact (binary) match.
// "" is found at `start` as long as start <= Len(s) + 1; a start beyond that gives 0; start < 1 raises 5.
int32_t InStr(std::string_view s, std::string_view find, int32_t start = 1);
// Every occurrence of `find`, left to right without overlap, replaced by `with`; `s` unchanged when
// `find` is "".
std::string Replace(std::string_view s, std::string_view find, std::string_view with);

}  // namespace quorbex
