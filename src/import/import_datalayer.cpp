// DataLayer::Import: the DataLayer's own import manager.
//
// Defined here rather than with the rest of the DataLayer because the import module builds on the
// datalayer module: the DataLayer's sources cannot construct a manager without the two modules
// depending on each other.
#include "quorbex/DataLayer.h"
#include "quorbex/clsImportManager.h"

namespace quorbex {

using namespace internal;

std::shared_ptr<clsImportManager> DataLayer::Import() {
  // Made on first use and kept, with its jobs, for the life of this object.
  if (!import_manager_) import_manager_ = std::make_shared<clsImportManager>();
  import_manager_->ParentDataLayer(weak_from_this().lock());
  return import_manager_;
}

}  // namespace quorbex
