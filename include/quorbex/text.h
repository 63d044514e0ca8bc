// The classic text functions, on UTF-8 strings.
//
// Positions and lengths count characters (code points), not bytes, and start at 1. Invalid UTF-8 never
// crashes: each byte of a broken sequence counts as one character and is kept as it is.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorbex {

std::string LCase(std::string_view s);   // all of Unicode's simple case mappings: Ä -> ä, É -> é
std::string UCase(std::string_view s);
std::string Trim(std::string_view s);    // removes leading and trailing blanks (spaces only)
std::string LTrim(std::string_view s);
std::string RTrim(std::string_view s);
int32_t Len(std::string_view s);
std::string Left(std::string_view s, int32_t length);           // negative length raises 5
std::string Right(std::string_view s, int32_t length);
std::string Mid(std::string_view s, int32_t start, int32_t length = -1);  // -1: to the end; start < 1 raises 5
// 1-based character position of `find` in `s` from `start`, 0 when absent; "" is found at `start`.
int32_t InStr(std::string_view s, std::string_view find, int32_t start = 1);
std::string Replace(std::string_view s, std::string_view find, std::string_view with);

}  // namespace quorbex
