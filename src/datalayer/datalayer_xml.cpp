// DataLayer: saving the offline recordset to an XML data file and loading one back.
//
// The file layout is described in docs/xml-format.md. A loaded file becomes the object's recordset
// through AttachOfflineRecordset, so it is read-only like every attached recordset: it can be read,
// filtered, saved to XML again, but not written back to a database.
#include <exception>

#include "datalayer/XMLWrapper.h"
#include "datalayer/datalayer_internal.h"
#include "quorbex/DataLayer.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {
// The query attached when the file holds none (a table built with AddNew alone): attaching needs one,
// and this is the text a virtual table without a description gets.
constexpr const char* kQueryWhenNone = "SELECT * FROM Dummy";
}  // namespace

bool DataLayer::SaveAsXML(const std::string& XMLFilePath, const std::string& RootElement, bool bolDisableProgressBar) {
  if (!IsLoaded() || !recordset_) {
    ErrorStatus("No recordset loaded! Nothing to save!");
    return false;
  }
  XMLWrapper wrapper;
  wrapper.DataLayer(*this);
  wrapper.WriteXML(XMLFilePath, RootElement, bolDisableProgressBar);
  if (!wrapper.ErrorText().empty()) {
    ErrorStatus(wrapper.ErrorText());
    return false;
  }
  return true;
}

bool DataLayer::LoadFromXML(const std::string& XMLFilePath, bool bolDisableProgressBar) {
  if (IsLoaded()) {
    ErrorStatus("Cannot load XML file when recordset is already loaded. Please use new instance of this class.");
    return false;
  }
  XMLWrapper wrapper;
  wrapper.ReadXML(XMLFilePath, bolDisableProgressBar);
  if (!wrapper.ErrorText().empty()) {
    ErrorStatus(wrapper.ErrorText());
    return false;
  }
  try {
    std::shared_ptr<clsOfflineRecordset> read = wrapper.ORS();
    const std::string query = wrapper.Query().empty() ? kQueryWhenNone : wrapper.Query();
    AttachOfflineRecordset(read, query, Variant(true));
    if (!IsLoaded() || recordset_ != read) return false;  // the attach reported why

    // The field names of the first record, as after a load. Attaching leaves the cursor where it was.
    recordset_->Parent = weak_from_this();
    field_names_.Clear();
    if (auto first = recordset_->Records(1)) {
      for (int32_t i = 1; i <= first->FieldCount(); ++i) field_names_.Add(first->FieldAt(i)->Description.str());
    }
    empty_result_ = false;
    return true;
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("LoadFromXML", e));
    return false;
  }
}

}  // namespace quorbex
