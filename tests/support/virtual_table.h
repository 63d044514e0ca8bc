// A DataLayer holding a virtual table for tests: the given fields, one record per row, the values
// stored straight into the fields (no change marks), as if the records had been loaded.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "quorbex/DataLayer.h"

namespace quorbex::test {


inline std::shared_ptr<DataLayer> MakeVirtualTable(std::string fields, const std::vector<std::vector<Variant>>& rows,
                                                   std::string description = "t") {
  auto layer = std::make_shared<DataLayer>();
  layer->CreateNewVirtualOfflineTable(description, fields);
  for (const auto& row : rows) {
    layer->AddNew();
    for (size_t j = 0; j < row.size(); ++j) layer->FieldObject("", static_cast<int32_t>(j + 1))->varValue = row[j];
  }
  return layer;
}

}  // namespace quorbex::test
