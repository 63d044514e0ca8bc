#include "quorbex/clsImportManager.h"

#include "quorbex/DataLayer.h"
#include "quorbex/clsCSV.h"

namespace quorbex {

using namespace internal;

clsImportManager::clsImportManager() = default;
clsImportManager::~clsImportManager() = default;

int32_t clsImportManager::AddCSVImport() {
  auto job = std::make_shared<clsCSV>();
  job->ParentDataLayer(ParentDataLayer());
  jobs_.Add(std::move(job));
  return jobs_.Count();
}

int32_t clsImportManager::Count() const { return jobs_.Count(); }

std::shared_ptr<clsCSV> clsImportManager::CSVImport(int32_t Index) const {
  if (Index < 1 || Index > jobs_.Count()) return nullptr;
  return jobs_.Item(Index);
}

}  // namespace quorbex
