// DataLayer: life, binding to a database, switches and the error channel.
#include <exception>

#include "datalayer/datalayer_internal.h"
#include "datalayer/unfiltered_copy.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/message_box.h"
#include "platform/settings.h"
#include "quorbex/DataLayer.h"
#include "service/clsLog.h"
#include "service/database_binding.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "value/failure.h"

namespace quorbex {

using namespace internal;

namespace {
constexpr const char* kApp = "Quorbex DataLayer";
constexpr const char* kSection = "Settings";

// The "LogPath" setting; the folder of the running program when it was never set.
std::string LogPathSetting() {
  return platform::GetSetting(kApp, kSection, "LogPath", platform::ExecutableFolder());
}
}  // namespace

DataLayer::DataLayer() {
  ThreadState& state = State();
  state.log_path = LogPathSetting();
  // Each new DataLayer starts the thread's filter list afresh; see the filter operations.
  state.filter_list = std::make_shared<Collection<std::shared_ptr<clsFilter>>>();
  log_ = std::make_unique<clsLog>();
}

DataLayer::~DataLayer() {
  // Termination never fails: every step is guarded on its own.
  ThreadState& state = State();
  refresh_timer_active_ = false;
  recordset_.reset();
  try {
    if (state.open_recordset) state.open_recordset->Close();
  } catch (...) {
  }
  state.open_recordset.reset();
  try {
    if (log_) log_->CloseSession();
  } catch (...) {
  }
  log_.reset();
  if (bolCloseDBOnExit) {
    try {
      if (state.current_database) state.current_database->Close();
    } catch (...) {
    }
    state.current_database.reset();
  }
  state.filter_list.reset();
  if (DebugMode && !state.error_text.empty()) {
    try {
      platform::MsgBox("Folgende Fehler sind aufgetreten: \r\n" + state.error_text,
                       platform::vbInformation | platform::vbOKOnly, "DATALAYER DEBUG MODE = ON");
    } catch (...) {
    }
  }
}

void DataLayer::SetDatabase(ByRef<std::shared_ptr<db::Database>> dbDatabase) {
  State().current_database = *dbDatabase;
  State().database_set = true;
}

void DataLayer::OpenDatabase(const std::string& path, bool set_bound_flag) {
  OpenCurrentDatabase(path, set_bound_flag);
}

void DataLayer::SetDatabaseByPath(const std::string& DBPath) {
  try {
    OpenCurrentDatabase(DBPath);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("Fehler beim Öffnen der angegebenen Datenbank", e));
  }
}

void DataLayer::SetDatabaseByPathAndWorkgroup(const std::string& DBPath, const std::string& WorkGroupPath,
                                              const std::string& strUsername, const std::string& strPassword) {
  try {
    UseWorkgroup(WorkGroupPath, strUsername, strPassword);
    OpenCurrentDatabase(DBPath);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("Fehler beim Öffnen der angegebenen Datenbank", e));
  }
}

void DataLayer::SetStandardDBPathFile(const std::string& strDBPathAndFile, const std::string& strWorkgroupFilePath,
                                      const std::string& strUsername, const std::string& strPassword) {
  // Error 4000 is the one this method raises; a settings store that cannot be written says so through
  // it too, rather than with a failure of its own kind.
  try {
    platform::SaveSetting(kApp, kSection, "DBPath", strDBPathAndFile);
    platform::SaveSetting(kApp, kSection, "Workgroup", strWorkgroupFilePath);
    platform::SaveSetting(kApp, kSection, "Username", strUsername);
    platform::SaveSetting(kApp, kSection, "Password", strPassword);
  } catch (const std::exception& e) {
    throw AutomationError(4000, "Quorbex Data Layer",
                          "Standard DBpath could not be stored: " + internal::FailureDescription(e));
  }
  if (!platform::FileExists(strDBPathAndFile)) {
    throw AutomationError(4000, "Quorbex Data Layer", "Standard DBpath is invalid");
  }
}

void DataLayer::CloseDBConnection() {
  ThreadState& state = State();
  try {
    if (state.current_database) state.current_database->Close();
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("CloseDBConnection", e));
  }
  state.current_database.reset();
  if (recordset_) recordset_->RecordsetIsReadOnly = true;
}

void DataLayer::SuppressAllMessages(bool value) { State().suppress_all_messages = value; }
void DataLayer::DisableLog(bool value) { State().log_disabled = value; }
void DataLayer::AllowStoreOfObjects(bool value) { State().allow_store_of_objects = value; }
void DataLayer::Username(const std::string& value) { State().user_name = value; }

std::string DataLayer::LogPath() const { return LogPathSetting(); }

bool DataLayer::SessionLogWriting() const { return log_ && log_->Writing(); }

std::string DataLayer::SessionLogError() const { return log_ ? log_->LastError() : std::string(); }

void DataLayer::LogPath(const std::string& value) {
  try {
    platform::SaveSetting(kApp, kSection, "LogPath", value);
  } catch (const std::exception& e) {
    ErrorStatus(internal::OperationError("LogPath", e));
  }
  State().log_path = LogPathSetting();
}

bool DataLayer::ReadOnly() const { return recordset_ ? recordset_->RecordsetIsReadOnly : false; }

std::string DataLayer::ErrorStatus() const { return State().error_text; }

void DataLayer::ErrorStatus(const std::string& text) {
  // Navigating or reading an empty result is not an error worth collecting.
  if (!text.empty() && text == kNotLoaded && empty_result_) return;
  AppendErrorStatus(text);
}

int32_t DataLayer::Message(const std::string& text, int32_t style, const std::string& title) {
  if (State().suppress_all_messages) {
    ErrorStatus(text);
    return 0;
  }
  return platform::MsgBox(text, style, title);
}

}  // namespace quorbex
