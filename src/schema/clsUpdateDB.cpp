// clsUpdateDB: numbered schema actions, each applied once per database.
#include "quorbex/clsUpdateDB.h"

#include <exception>

#include "platform/message_box.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsTableManager.h"
#include "quorbex/engine.h"
#include "quorbex/errors.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/failure.h"
#include "value/text_util.h"

namespace quorbex {

using namespace internal;

namespace {

constexpr const char* kSource = "QuorbexDataLayer.clsUpdateDB";
constexpr const char* kFirstRecordText = "CreateTable;sys_quorbexdatalayer";

// A number in an action text or a bookkeeping field; anything that is not one counts as 0, which is
// never applied.
int32_t NumberOf(const Variant& value) {
  try {
    return TrimBlanks(ToText(value)).empty() ? 0 : ToLong(value);
  } catch (const std::exception&) {
    return 0;
  }
}

// The error path of one action: the message without icon, and the action counts as failed.
bool ActionError(const std::string& description, const std::string& source) {
  MessageRoutine("Ein Datenbank-Update hat einen Fehler verursacht: " + description + "\r\n" + source,
                 platform::vbOKOnly, "");
  return false;
}

void RequireOption(const std::string& value, const std::string& action, const char* what) {
  if (value.empty()) {
    throw AutomationError(5, kSource, "The action '" + action + "' needs " + what + ".");
  }
}

// Loads the bookkeeping table. GetRecordset always answers False (and does nothing on a loaded
// DataLayer); a failure shows as a new entry in the thread's error channel.
bool Load(DataLayer& layer, const std::string& sql) {
  const int32_t errors_before = State().error_count;
  layer.GetRecordset(sql);
  return State().error_count == errors_before;
}

// The number an update's bookkeeping records stop at: the "UpdateID" of the last record.
int32_t LastAppliedUpdate(DataLayer& layer) {
  layer.MoveLast();
  return NumberOf(layer.FieldValue("UpdateID"));
}

}  // namespace

clsUpdateDB::clsUpdateDB() = default;
clsUpdateDB::~clsUpdateDB() = default;

Variant clsUpdateDB::AppendUpdateAction(int32_t UpdateNumber, int32_t Action, const std::string& Option1,
                                        const std::string& Option2, const std::string& Option3) {
  pending_.Add(std::to_string(UpdateNumber) + ";" + std::to_string(Action) + ";" + Option1 + ";" + Option2 + ";" +
               Option3);
  return {};
}

bool clsUpdateDB::RunAction(clsTableManager& manager, const std::string& action) {
  const int32_t code = NumberOf(Variant(GetToken(action, ";", 2)));
  const std::string option1 = GetToken(action, ";", 3);
  const std::string option2 = GetToken(action, ";", 4);
  const std::string option3 = GetToken(action, ";", 5);
  try {
    switch (code) {
      case 1: return manager.CreateTable(option1);
      case 2: return manager.DeleteTable(option1);
      case 3:
        RequireOption(option2, action, "a field name");
        return manager.AppendField(option1, option2, option3.empty() ? db::dbText : ToLong(Variant(option3)));
      case 4:
        RequireOption(option2, action, "a field name");
        return manager.RemoveField(option1, option2);
      case 5:
        RequireOption(option2, action, "a field name");
        RequireOption(option3, action, "the primary flag (True or False)");
        return manager.SetIndex(option1, option2, CBool(Variant(option3)));
      default: return false;
    }
  } catch (const AutomationError& e) {
    return ActionError(e.Description(), e.Source().empty() ? kSource : e.Source());
  } catch (const std::exception& e) {
    return ActionError(FailureDescription(e), kSource);
  }
}

bool clsUpdateDB::PrepareUpdateTable(clsTableManager& manager, DataLayer& layer, const std::string& table) {
  try {
    auto tables = manager.TableList();
    bool exists = false;
    for (const std::string& name : *tables) exists = exists || name == table;
    if (!exists) {
      manager.CreateTable(table);
      // CreateTable made "id" already; this second "id" fails and is ignored, as it always was.
      manager.AppendField(table, "id", 32);
      manager.SetIndex(table, "id", true);
      manager.AppendField(table, "UpdateID", db::dbLong);
      manager.AppendField(table, "UpdateString", db::dbText);
    }
    if (!Load(layer, "select * from " + State().current_database->QuoteName(table))) return false;
    if (layer.RecordCount() == 0) {
      layer.AddNew();
      layer.SetFieldValue("UpdateID", Variant(int32_t{0}));
      layer.SetFieldValue("UpdateString", Variant(std::string(kFirstRecordText)));
      if (!layer.Save()) return false;
    }
    const int32_t last_applied = LastAppliedUpdate(layer);
    for (int32_t i = pending_.Count(); i >= 1; --i) {
      if (NumberOf(Variant(GetToken(pending_.Item(i), ";", 1))) <= last_applied) pending_.Remove(i);
    }
    return true;
  } catch (const AutomationError& e) {
    return ActionError(e.Description(), e.Source());
  } catch (const std::exception& e) {
    return ActionError(FailureDescription(e), kSource);
  }
}

Variant clsUpdateDB::UpdateDatabase(const std::string& AlternativeUpdateTableName) {
  // The runner works through its table manager; one that has gone (or was never held by a shared
  // pointer) is stood in for by a manager that leaves the thread's database open when it ends.
  std::shared_ptr<clsTableManager> manager = Parent();
  if (!manager) {
    manager = std::make_shared<clsTableManager>();
    manager->KeepDBOpen = true;
  }
  if (pending_.Count() == 0) pending_.Add("0;0");
  const std::string table = AlternativeUpdateTableName.empty() ? kDefaultUpdateTable : AlternativeUpdateTableName;

  auto layer = std::make_shared<DataLayer>();
  if (!PrepareUpdateTable(*manager, *layer, table)) return {};
  if (pending_.Count() == 0) return {};

  try {
    if (!Load(*layer, "Select * from " + State().current_database->QuoteName(table))) return {};
    const int32_t last_applied = LastAppliedUpdate(*layer);
    for (const std::string& action : pending_) {
      const int32_t number = NumberOf(Variant(GetToken(action, ";", 1)));
      if (number <= last_applied) continue;
      bool applied = RunAction(*manager, action);
      if (applied) {
        layer->AddNew();
        layer->SetFieldValue("UpdateID", Variant(number));
        layer->SetFieldValue("UpdateString", Variant(action));
        // An action that is applied but not recorded would be tried again by the next run, out of
        // order; a failed record stops the run like a failed action.
        applied = layer->Save();
      }
      if (!applied) {
        MessageRoutine(
            "Ein Fehler wurde im Datenbank-Update festgestellt. Die Datenbank kann nicht weiter angepasst werden.\r\n"
            "Bitte konsultieren Sie den Software-Hersteller!",
            platform::vbCritical, "Fehler im Database-Update");
        break;
      }
    }
    layer->Save();
  } catch (const AutomationError& e) {
    ActionError(e.Description(), e.Source());
  } catch (const std::exception& e) {
    ActionError(FailureDescription(e), kSource);
  }
  return {};
}

}  // namespace quorbex
