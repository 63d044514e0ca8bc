#include "service/database_binding.h"

#include "quorbex/engine.h"
#include "service/thread_state.h"

namespace quorbex::internal {

void UseWorkgroup(const std::string& workgroup, const std::string& user, const std::string& password) {
  ThreadState& state = State();
  db::DBEngine& engine = *db::DBEngine::Default();
  if (!workgroup.empty()) {
    engine.SystemDB(workgroup);
    state.workgroup_path = workgroup;
  }
  if (!user.empty()) {
    engine.DefaultUser(user);
    state.default_user = user;
  }
  if (!password.empty()) {
    engine.DefaultPassword(password);
    state.default_password = password;
  }
}

void OpenCurrentDatabase(const std::string& path, bool bind) {
  auto database = db::DBEngine::Default()->OpenDatabase(path);
  State().current_database = std::move(database);
  if (bind) State().database_set = true;
}

}  // namespace quorbex::internal
