// Building a Locale from the C library's locale data.
#pragma once

#include <string_view>

#include "quorbex/locale.h"

namespace quorbex::internal {

// A Locale from nl_langinfo's RADIXCHAR, THOUSEP, D_FMT and T_FMT. The strftime patterns are
// translated to the classic notation; the date order and separator come from the date pattern. Empty
// or unusable items keep the values of Locale::C().
Locale LocaleFromLangInfo(std::string_view radix, std::string_view thousands, std::string_view date_format,
                          std::string_view time_format);

}  // namespace quorbex::internal
