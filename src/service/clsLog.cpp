#include "service/clsLog.h"

#include <string_view>

#include "platform/clock.h"
#include "platform/encoding.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "quorbex/engine.h"
#include "service/modService.h"
#include "service/thread_state.h"

namespace quorbex::internal {

namespace {

constexpr std::string_view kLineEnd = "\r\n";

// Collects the lines of one write; the whole block goes to the file in one call.
class Lines {
 public:
  Lines& operator<<(std::string_view text) {
    text_.append(text);
    return *this;
  }
  Lines& End() {
    text_.append(kLineEnd);
    return *this;
  }
  std::string Encoded() const { return platform::ToWindows1252(text_); }
  size_t Size() const { return text_.size(); }
  void Clear() { text_.clear(); }

 private:
  std::string text_;
};

// The name of the thread's current database, "" when there is none or it cannot tell.
std::string CurrentDatabaseName() {
  try {
    const auto& database = State().current_database;
    return database ? database->Name() : std::string();
  } catch (...) {
    return "";
  }
}

std::string JoinPath(const std::string& folder, const std::string& name) {
  if (folder.empty() || folder.back() == '/') return folder + name;
  return folder + "/" + name;
}

}  // namespace

clsLog::~clsLog() {
  try {
    if (!closed_ && !session_id_.empty()) CloseSession();
  } catch (...) {
  }
}

Variant clsLog::OpenSession() {
  ThreadState& state = State();
  if (state.log_disabled) return {};
  try {
    if (!session_id_.empty() && !closed_) CloseSession();

    std::string session_id = NewGUIDText();
    if (session_id.empty()) {  // no GUID, no file: better no log than one every entry overwrites
      last_error_ = "The session log cannot be started: no session ID could be made.";
      return {};
    }
    session_id_ = std::move(session_id);
    closed_ = false;

    const std::string opened = FormatDate(platform::NowLocal());
    if (state.log_path.empty()) state.log_path = platform::ExecutableFolder();
    file_name_ = JoinPath(state.log_path, session_id_ + "_" + CleanText(platform::Environ("Computername")) + "_" +
                                               CleanText(platform::Environ("Username")) + "_" + CleanText(opened) +
                                               ".xml");

    std::string database = CurrentDatabaseName();
    if (database.empty()) database = "OFFLINE";
    const std::string declared_user = state.user_name.empty() ? std::string("NotSet") : state.user_name;

    Lines head;
    head << "<?xml version=\"1.0\" encoding=\"windows-1252\" ?>";
    head.End() << "<QuorbexDataLayerLog>";
    head.End() << "<HEAD>";
    head.End() << "   <SESSIONID>" << session_id_ << "</SESSIONID>";
    head.End() << "   <SESSIONTIME>" << opened << "</SESSIONTIME>";
    head.End() << "   <DATABASE>" << database << "</DATABASE>";
    head.End() << "   <COMPUTERNAME>" << platform::Environ("computername") << "</COMPUTERNAME>";
    head.End() << "   <SYSTEMUSERNAME>" << platform::Environ("username") << "</SYSTEMUSERNAME>";
    head.End() << "   <DECLAREDUSERNAME>" << declared_user << "</DECLAREDUSERNAME>";
    head.End() << "</HEAD>";
    head.End() << "<LOGDATA>";
    head.End();
    Wrote(platform::WriteFile(file_name_, head.Encoded()));
  } catch (...) {
    // A log that cannot be written must not disturb the caller.
  }
  return {};
}

Variant clsLog::WriteLogEntry(ByRef<std::string> actionType, const std::string& query,
                              const std::string& deletedRecordInfo, const std::string& fieldName,
                              const std::string& oldValue, const std::string& newValue) {
  if (State().log_disabled) return {};
  if (actionType->empty()) *actionType = "UNKNOWN";
  WriteLogEntries({Entry{*actionType, query, deletedRecordInfo, fieldName, oldValue, newValue}});
  return {};
}

void clsLog::WriteLogEntries(const std::vector<Entry>& entries, bool flush) {
  if (State().log_disabled || entries.empty()) return;
  try {
    if (session_id_.empty()) OpenSession();
    if (session_id_.empty()) return;
    const std::string now = FormatDate(platform::NowLocal());
    bool ok = true;
    // Whole entries only in each write (about 64 KB of them at a time): a crash can cut only the entries
    // of the write under way at their end, never one before them.
    constexpr size_t kChunk = 64 * 1024;
    Lines text;
    for (size_t k = 0; k < entries.size(); ++k) {
      const Entry& e = entries[k];
      text << "<ACTION TYPE=\"" << (e.action_type.empty() ? "UNKNOWN" : e.action_type) << "\">";
      text.End() << "   <ActionTime>" << now << "</ActionTime>";
      text.End() << "   <QueryString>" << e.query << "</QueryString>";
      text.End() << "   <DeletedRecordInfo>";
      text.End() << e.deleted_record_info << "   </DeletedRecordInfo>";
      text.End() << "   <FieldName>" << e.field_name << "</FieldName>";
      text.End() << "   <OldValue>" << e.old_value << "</OldValue>";
      text.End() << "   <NewValue>" << e.new_value << "</NewValue>";
      text.End() << "</ACTION>";
      text.End();
      if (text.Size() >= kChunk || k + 1 == entries.size()) {
        ok = ok && platform::AppendFile(file_name_, text.Encoded());
        text.Clear();
      }
    }
    if (ok && flush) ok = platform::FlushFile(file_name_);
    Wrote(ok);
  } catch (...) {
    Wrote(false);
  }
}

void clsLog::Wrote(bool ok) {
  if (ok) {
    last_error_.clear();
  } else {
    last_error_ = "The session log '" + file_name_ + "' cannot be written.";
  }
}

bool clsLog::Writing() const { return !State().log_disabled && last_error_.empty(); }

std::string clsLog::LastError() const {
  if (State().log_disabled) return "The session log is switched off.";
  return last_error_;
}

Variant clsLog::CloseSession() {
  const ThreadState& state = State();
  if (closed_ || state.log_disabled || session_id_.empty()) return {};
  try {
    Lines tail;
    tail << "</LOGDATA>";
    tail.End();
    // The cleaning also removes the line breaks and ") " between the numbered messages, so they run
    // together; readers of these logs expect exactly that.
    if (!state.error_text.empty()) {
      tail << "<ERRORINFO>" << CleanText(state.error_text) << "</ERRORINFO>";
      tail.End();
    }
    tail << "</QuorbexDataLayerLog>";
    tail.End();
    if (!platform::AppendFile(file_name_, tail.Encoded())) {
      Wrote(false);
      return {};
    }
    session_id_.clear();
    closed_ = true;
  } catch (...) {
  }
  return {};
}

}  // namespace quorbex::internal
