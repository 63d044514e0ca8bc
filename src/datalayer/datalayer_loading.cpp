// DataLayer: loading a query into the offline recordset, and adopting one built elsewhere.
#include <exception>

#include "datalayer/datalayer_internal.h"
#include "platform/message_box.h"
#include "platform/settings.h"
#include "quorbex/DataLayer.h"
#include "quorbex/text.h"
#include "service/open_query.h"
#include "service/thread_state.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

bool DataLayer::GetRecordset(const std::string& strSQL, ByRef<bool> WithRealtimeSave) {
  // The result is False whatever happens: clients look at RecordCount() and ErrorStatus().
  const std::string head = UCase(Left(strSQL, 6));
  if (head == "INSERT" || head == "UPDATE") {
    ErrorStatus("UPDATE or INSERT Statements are not allowed for the Method GetRecordset");
    return false;
  }
  if (IsLoaded()) return false;

  ThreadState& state = State();
  if (!state.database_set) {
    const std::string app = "Quorbex DataLayer", section = "Settings";
    const std::string path = platform::GetSetting(app, section, "DBPath", "");
    if (path.empty()) {
      Message("Interner Fehler, die Datenbank wurde nicht gesetzt. Bitte peitschen Sie den Programmierer aus, "
              "weil dieser nicht korrekt gearbeitet hat. \r\n\r\nUse Property SetDatabase and hand the Dao "
              "Database Object over to the Class!",
              platform::vbCritical | platform::vbOKOnly, "Interner Fehler");
      return false;
    }
    const std::string workgroup = platform::GetSetting(app, section, "Workgroup", "");
    if (!workgroup.empty()) {
      SetDatabaseByPathAndWorkgroup(path, workgroup, platform::GetSetting(app, section, "Username", ""),
                                    platform::GetSetting(app, section, "Password", ""));
    } else {
      // This path leaves the bound flag clear, so the settings are read again at the next load.
      try {
        OpenDatabase(path, false);
      } catch (const std::exception& e) {
        ErrorStatus(internal::OperationError("Fehler beim Öffnen der angegebenen Datenbank", e));
        return false;
      }
    }
  }

  sql_ = strSQL;
  recordset_ = std::make_shared<clsOfflineRecordset>();
  recordset_->Parent = weak_from_this();

  try {
    state.open_recordset = OpenQueryRecordset(strSQL);
    if (!state.open_recordset) {
      *WithRealtimeSave = false;
    } else {
      field_names_.Clear();
      auto fields = state.open_recordset->Fields();
      const int32_t count = fields->Count();
      for (int32_t i = 0; i < count; ++i) field_names_.Add(fields->Item(i)->Name());
      // Keep a reference of our own: FillFromDAORecordset closes the recordset and clears the one it is
      // given, while real-time saving wants the shared reference kept.
      std::shared_ptr<db::Recordset> recordset = state.open_recordset;
      if (recordset_->FillFromDAORecordset(recordset, true, true)) {
        if (recordset_->RecordCount() >= 1) {
          loaded_ = true;
          cursor_ = 1;
        } else {
          empty_result_ = true;
        }
      }
    }
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("GetRecordset", e));
  }
  if (!*WithRealtimeSave) state.open_recordset.reset();
  state.realtime_save = *WithRealtimeSave;
  return false;
}

Variant DataLayer::AttachOfflineRecordset(ByRef<std::shared_ptr<clsOfflineRecordset>> objOfflineRecordsetToAttach,
                                          const std::string& strQuery, const Variant& bolAreYouReallySureWhatYouDo) {
  // Only a value equal to True confirms (1 does not: True is -1).
  bool sure = false;
  try {
    sure = Equals(bolAreYouReallySureWhatYouDo, Variant(true));
  } catch (const AutomationError&) {
  }
  if (!sure) {
    ErrorStatus("Attach OfflineRecordSet: If you are not sure, nothing will be done!");
    return {};
  }
  if (strQuery.empty()) {
    ErrorStatus("Attach OfflineRecordSet: Query Must be handed over!");
    return {};
  }
  if (IsLoaded()) {
    ErrorStatus("Attach OfflineRecordSet: Recordset already loaded, use new Datalayer-Object!");
    return {};
  }
  auto& recordset = *objOfflineRecordsetToAttach;
  if (!recordset || recordset->Tag != "AllowAttach") {
    ErrorStatus("Attach OfflineRecordSet: This OfflineRecordSet ist not allowed for attachement! .Tag=\"AllowAttach\"");
    return {};
  }
  sql_ = strQuery;
  recordset->RecordsetIsReadOnly = true;
  recordset_ = recordset;
  loaded_ = true;
  return {};
}

}  // namespace quorbex
