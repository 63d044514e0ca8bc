#include "service/open_query.h"

#include "platform/message_box.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/failure.h"

namespace quorbex::internal {

std::shared_ptr<db::Recordset> OpenQueryRecordset(const std::string& strSQL, int32_t optionFlag) {
  std::string description;
  try {
    std::shared_ptr<db::Database> database = State().current_database;
    if (!database) {
      description = "No database is bound (SetDatabase or SetDatabaseByPath was not called).";
    } else {
      // An unnamed query definition is never stored, so a failed open leaves nothing behind.
      auto query = database->CreateQueryDef("", strSQL);
      std::shared_ptr<db::Recordset> recordset =
          optionFlag == kOpenUpdatable ? query->OpenRecordset(db::dbOpenDynaset, db::dbSeeChanges)
                                       : query->OpenRecordset(db::dbOpenSnapshot, db::dbReadOnly);
      query->Close();
      return recordset;
    }
  } catch (const std::exception& e) {
    description = internal::FailureDescription(e);
  } catch (...) {
    description = "Unknown error.";
  }
  try {
    AppendErrorStatus("Datenbank-Abfragefehler. Interner Fehler: " + description + " | SQL-Abfrage: " + strSQL);
    if (!State().suppress_all_messages) {
      platform::MsgBox(
          "Es ist ein Datenbank-Abfragefehler entstanden. Eine Abfrage ist nicht korrekt und hat einen Fehler "
          "erzeugt.\r\n\r\nInterner Fehler: " + description + "\r\nSQL-Abfrage: " + strSQL,
          platform::vbCritical | platform::vbOKOnly, "Quorbex DataLayer");
    }
  } catch (...) {
  }
  return nullptr;
}

}  // namespace quorbex::internal
