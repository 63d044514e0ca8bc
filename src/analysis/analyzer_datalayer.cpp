// DataLayer::Analyzer: the DataLayer's own analyzer over all of its records.
//
// Defined here rather than with the rest of the DataLayer because the analysis module builds on the
// datalayer module: the DataLayer's sources cannot construct an analyzer without the two modules
// depending on each other.
#include "quorbex/DataLayer.h"
#include "quorbex/clsAnalyzer.h"

namespace quorbex {

using namespace internal;

std::shared_ptr<clsAnalyzer> DataLayer::Analyzer() {
  // Made on first use and kept; the record collection is set anew on every call, because a load or a
  // new virtual table replaces the offline recordset and with it the collection.
  if (!analyzer_) analyzer_ = std::make_shared<clsAnalyzer>();
  auto self = weak_from_this().lock();
  analyzer_->ParentDataLayer(self);
  analyzer_->Parent(self);
  analyzer_->RecordCollection(recordset_ ? recordset_->RecordCollection() : nullptr);
  return analyzer_;
}

}  // namespace quorbex
