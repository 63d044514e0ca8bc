// The state shared by every library object of one thread.
//
// Binding a database, the collected error text, the log settings and the filter list are not per
// object: every DataLayer, table manager and update-script runner on a thread sees the same ones, and
// two threads never see each other's. This struct is the only place such state lives; nothing else in
// the library is global. It is created empty the first time a thread touches it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "quorbex/collection.h"

namespace quorbex {
namespace db {
class Database;
class Recordset;
}  // namespace db
class clsFilter;
}  // namespace quorbex

namespace quorbex::internal {

struct ThreadState {
  // The database all objects of the thread work on, and whether SetDatabase* bound it.
  std::shared_ptr<db::Database> current_database;
  bool database_set = false;
  // The last non-empty values handed to SetDatabaseByPathAndWorkgroup.
  std::string workgroup_path;
  std::string default_user;
  std::string default_password;
  // The engine recordset of the last load, kept only when real-time saving was asked for.
  std::shared_ptr<db::Recordset> open_recordset;
  bool realtime_save = false;
  // Everything reported through ErrorStatus, numbered, and the number of entries.
  std::string error_text;
  int32_t error_count = 0;
  // Library-wide switches set through any DataLayer.
  bool suppress_all_messages = false;
  bool log_disabled = false;
  bool allow_store_of_objects = false;
  std::string user_name;  // written into log entries
  std::string log_path;   // folder of the session log files
  // Set once the refresh table has been checked in the bound database.
  bool refresh_table_checked = false;
  // The filters applied by any DataLayer of the thread; replaced on every DataLayer creation and
  // dropped on every DataLayer destruction.
  std::shared_ptr<Collection<std::shared_ptr<clsFilter>>> filter_list;
  // The column that AddNew fills with a fresh GUID text.
  std::string auto_guid_column;
};

// The calling thread's shared state.
ThreadState& State();

}  // namespace quorbex::internal
