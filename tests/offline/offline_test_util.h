// Helpers shared by the offline model's tests.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "quorbex/clsOfflineRecordset.h"
#include "support/error_of.h"

namespace quorbex::test {


// A recordset with one record per value, each of one field "Value" holding it.
inline std::shared_ptr<clsOfflineRecordset> OneFieldRecordset(const std::vector<Variant>& values) {
  auto rs = std::make_shared<clsOfflineRecordset>();
  rs->Add(static_cast<int32_t>(values.size()));
  rs->FieldDim(1, "Value");
  for (size_t i = 0; i < values.size(); ++i) rs->Records(static_cast<int32_t>(i + 1))->Fields(1)->Value(values[i]);
  return rs;
}

}  // namespace quorbex::test
