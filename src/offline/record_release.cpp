#include "offline/record_release.h"

#include <algorithm>
#include <functional>

namespace quorbex::internal {

void ReleaseInAddressOrder(std::vector<std::shared_ptr<clsOfflineRecord>>& records) noexcept {
  const auto by_address = [](const auto& a, const auto& b) { return std::less<>()(a.get(), b.get()); };
  if (!std::is_sorted(records.begin(), records.end(), by_address)) {
    std::sort(records.begin(), records.end(), by_address);
  }
  records.clear();
}

void ReleaseInAddressOrder(std::shared_ptr<clsOfflineRecordset::RecordCollectionType>& records) noexcept {
  if (records && records.use_count() == 1) ReleaseInAddressOrder(records->Items());
  records.reset();
}

}  // namespace quorbex::internal
