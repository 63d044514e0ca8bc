// The entries FillCBO writes into a list control, shared by DataLayer and extracts.
#pragma once

#include <functional>
#include <string>

#include "quorbex/variant.h"

namespace quorbex::internal {

// What stands between an entry's visible text and its record identifier: far enough right to be out of
// sight in a list control, and what SetCBOPos searches for.
inline const std::string kListIdentifierGap(96, ' ');

// One entry: the value of `field`; then the value of `field2` (when named and not empty) after ", "
// (`comma12`) or " "; then the value of `field3` (when named) after ", " (`comma23`) or " "; then
// kListIdentifierGap and the value of `id_field`. `value` reads a field of the current record.
std::string ListEntryText(const std::function<Variant(const std::string&)>& value, const std::string& field,
                          const std::string& id_field, const std::string& field2, const std::string& field3,
                          bool comma12, bool comma23);

}  // namespace quorbex::internal
