// Dates to text and back, shared by the conversions and comparisons of Variant.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "quorbex/locale.h"
#include "quorbex/variant.h"

namespace quorbex::internal {

// The classic range of dates: 0100-01-01 to 9999-12-31 (any time of day).
inline constexpr double kFirstSerialDay = -657434.0;
inline constexpr double kLastSerialDay = 2958465.0;

// True when the serial is finite and its day lies in the classic range.
bool IsValidSerial(double serial) noexcept;

// Reads the whole text as a date and/or time in `locale`, or as an ISO date; nullopt otherwise.
std::optional<Date> ScanDate(std::string_view text, const Locale& locale);

// The general date form in `locale`: the short date and the long time, the time left out at midnight
// and the date left out on day 0 (1899-12-30).
std::string FormatDateIn(Date d, const Locale& locale);

// The ISO text that databases and data files store dates in, whatever the locale:
// "YYYY-MM-DD", "YYYY-MM-DD HH:MM[:SS[.fff]]" (also with "T" and a trailing "Z"), or a bare time
// "HH:MM[:SS]" -> the day serial; nullopt for anything else or an impossible date. Blanks around the
// text are ignored.
std::optional<double> ParseIsoDateTime(std::string_view text);
// The day serial as "YYYY-MM-DD HH:MM:SS" (rounded to the second); a bare time (serial in [0, 1)) is
// written on the base date 1899-12-30; the empty text for a serial that is not finite.
std::string FormatIsoDateTime(double serial);

}  // namespace quorbex::internal
