// clsExtract: filling list controls, the text dump, and Zoom.
#include <exception>
#include <memory>
#include <string>

#include "datalayer/list_entry.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/text_viewer.h"
#include "quorbex/DataLayer.h"
#include "quorbex/ListControl.h"
#include "quorbex/clsExtract.h"
#include "quorbex/clsExtractManager.h"
#include "quorbex/errors.h"
#include "service/modService.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr const char* kDumpFileName = "Datalayer.txt";
constexpr const char* kZoomInfo =
    "Extract.Zoom: Info: This function replaces the data of the datalayer with the one in the extract.";
constexpr int32_t kAllExtracts = 999;

// The dump file in the folder an environment variable names (the temporary folder when unset).
std::string DumpPath(const std::string& variable) {
  std::string folder = platform::Environ(variable);
  while (!folder.empty() && folder.back() == '/') folder.pop_back();
  return folder + "/" + kDumpFileName;
}

}  // namespace

bool clsExtract::FillCBO(const std::shared_ptr<ListControl>& objCBO, const std::string& strFieldname,
                         const std::string& strIDFieldName, const std::string& strFurtherField2,
                         const std::string& strFurtherField3, bool bolUse1Comma2, bool bolUse2Comma3) {
  if (!objCBO) RaiseRuntimeError(errnum::kObjectNotSet);
  const int32_t saved = cursor_;
  try {
    cursor_ = 1;
    objCBO->Clear();
    const auto field_value = [this](const std::string& name) { return FieldValue(name); };
    const int32_t count = RecordCount();
    for (int32_t i = 1; i <= count; ++i) {
      cursor_ = i;
      objCBO->AddItem(ListEntryText(field_value, strFieldname, strIDFieldName, strFurtherField2, strFurtherField3,
                                    bolUse1Comma2, bolUse2Comma3));
    }
  } catch (...) {
    cursor_ = saved;
    throw;
  }
  cursor_ = saved;
  // The result has always been False, filled or not; callers look at the control.
  return false;
}

Variant clsExtract::VisualizeToTextFile() {
  const std::string path = DumpPath("Temp");
  std::string text;
  const int32_t count = RecordCount();
  for (int32_t i = 1; i <= count; ++i) {
    const clsOfflineRecord& record = RecordAt(i);
    const int32_t fields = record.FieldCount();
    for (int32_t j = 1; j <= fields; ++j) {
      if (const clsOfflineField* field = record.FieldAt(j)) text += ToText(field->Value());
      text += " | ";
    }
    text += '\n';
  }
  if (!platform::WriteFile(path, text)) {
    Report("VisualizeToTextFile: cannot write the file '" + path + "'");
    return {};
  }
  // The viewer is started on the path as "temp" names it and the file is deleted right after, in this
  // order: the dump is meant to be looked at once, not to pile up in the temporary folder. A viewer that
  // reads the file only later finds it gone (see the header).
  const std::string shown = DumpPath("temp");
  if (!platform::ShowTextFile(shown)) {
    Report("VisualizeToTextFile: no text viewer could be started for '" + shown + "'");
  }
  platform::DeleteFile(path);
  return {};
}

void clsExtract::Zoom(bool IknowWhatIdo) {
  if (!IknowWhatIdo) {
    Report(kZoomInfo);
    return;
  }
  auto self = shared_from_this();  // the manager lets go of this extract below
  try {
    auto layer = ParentLayer();
    auto recordset = layer->GetOfflineRecordset();
    if (!recordset) RaiseRuntimeError(errnum::kObjectNotSet);
    // The recordset gets a list of its own holding the same records: the extract keeps its list, and
    // a change to either list later must not make the other's count wrong.
    auto list = std::make_shared<RecordCollectionType>();
    if (records_) list->Items() = records_->Items();
    recordset->OverwriteRecordCollection(std::move(list));
    layer->MoveFirst();
    if (auto manager = Parent()) manager->DestroyExtract(kAllExtracts);
  } catch (const std::exception& e) {
    Report(OperationError("Extract.Zoom", e));
  }
}

}  // namespace quorbex
