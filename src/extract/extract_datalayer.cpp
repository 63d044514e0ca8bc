// DataLayer::Extract: the DataLayer's extract manager.
//
// Defined here rather than with the rest of the DataLayer because the extract module builds on the
// datalayer module, as the analyzer's accessor does in the analysis module.
#include "quorbex/DataLayer.h"
#include "quorbex/clsExtractManager.h"

namespace quorbex {

using namespace internal;

std::shared_ptr<clsExtractManager> DataLayer::Extract() {
  // Made on first use and kept, so handles count on across calls; the back reference is set once, when
  // the manager is made, and a client may point it elsewhere afterwards.
  if (!extract_manager_) {
    extract_manager_ = std::make_shared<clsExtractManager>();
    extract_manager_->ParentDL(weak_from_this().lock());
  }
  return extract_manager_;
}

}  // namespace quorbex
