#include "datalayer/list_entry.h"

#include "service/modService.h"

namespace quorbex::internal {

std::string ListEntryText(const std::function<Variant(const std::string&)>& value, const std::string& field,
                          const std::string& id_field, const std::string& field2, const std::string& field3,
                          bool comma12, bool comma23) {
  std::string text = ToText(value(field));
  if (!field2.empty()) {
    const std::string second = ToText(value(field2));
    if (!second.empty()) text += (comma12 ? ", " : " ") + second;
  }
  if (!field3.empty()) text += (comma23 ? ", " : " ") + ToText(value(field3));
  return text + kListIdentifierGap + ToText(value(id_field));
}

}  // namespace quorbex::internal
