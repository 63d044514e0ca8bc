// clsUpdateDB: applies an application's schema changes, shipped as a numbered list of small actions,
// to a database that has not received them yet.
//
// Obtain the runner from clsTableManager::DBUpdate; it works on the table manager's (that is, the
// thread's) current database. Each action is a text "number;code;Option1;Option2;Option3":
//
//   code 1  create table    Option1 table                       (clsTableManager::CreateTable)
//   code 2  delete table    Option1 table                       (DeleteTable)
//   code 3  append field    Option1 table, Option2 field,       (AppendField)
//                           Option3 type code ("" means 10, Text)
//   code 4  remove field    Option1 table, Option2 field        (RemoveField)
//   code 5  set index       Option1 table, Option2 field,       (SetIndex)
//                           Option3 primary flag ("True"/"False")
//
// Every applied action is recorded in a bookkeeping table of the database ("sys_quorbexdatalayer" unless
// another name is given): "id", "UpdateID" (the action's number) and "UpdateString" (the action's
// text). Its last record's UpdateID is the number of the last applied update; UpdateDatabase applies,
// in list order, only the actions numbered above it, so append actions in ascending order of their
// numbers and never renumber shipped ones. Several actions may share a number. An action numbered 0 is
// never applied.
//
// The first failing action stops the run: the message "Ein Fehler wurde im Datenbank-Update
// festgestellt. Die Datenbank kann nicht weiter angepasst werden." CR LF "Bitte konsultieren Sie den
// Software-Hersteller!" (title "Fehler im Database-Update") is shown, and neither it nor any later
// action is applied or recorded, so updates never arrive out of order. An action that lacks a required
// option first shows "Ein Datenbank-Update hat einen Fehler verursacht: <description>" CR LF <source>.
// The table manager's ErrorStatus holds the engine's description of a failed call.
//
// Thread safety: none; the runner belongs to the thread of its table manager.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorbex/collection.h"
#include "quorbex/variant.h"

namespace quorbex {

class clsTableManager;
class DataLayer;

class clsUpdateDB : public Object {
 public:
  // The name of the bookkeeping table when UpdateDatabase is given none.
  static constexpr const char* kDefaultUpdateTable = "sys_quorbexdatalayer";

  clsUpdateDB();
  ~clsUpdateDB() override;

  // The table manager that owns the runner (a back reference; empty once it has gone).
  std::shared_ptr<clsTableManager> Parent() const { return parent_.lock(); }
  void Parent(const std::shared_ptr<clsTableManager>& value) { parent_ = value; }

  // Appends "UpdateNumber;Action;Option1;Option2;Option3" to the pending actions. Nothing is checked or
  // applied here. Returns Empty.
  Variant AppendUpdateAction(int32_t UpdateNumber, int32_t Action, const std::string& Option1,
                             const std::string& Option2 = "", const std::string& Option3 = "");
  // Prepares the bookkeeping table (created with a first record, UpdateID 0, when missing) and applies
  // the pending actions numbered above the last applied one. The pending list is kept, so a second call
  // finds nothing new to apply. Returns Empty.
  Variant UpdateDatabase(const std::string& AlternativeUpdateTableName = "");

  // The pending action texts, in the order they were appended.
  const Collection<std::string>& PendingActions() const { return pending_; }

 private:
  bool PrepareUpdateTable(clsTableManager& manager, DataLayer& layer, const std::string& table);
  bool RunAction(clsTableManager& manager, const std::string& action);

  std::weak_ptr<clsTableManager> parent_;
  Collection<std::string> pending_;
};

}  // namespace quorbex
