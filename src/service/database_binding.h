// Binding the thread's current database: the steps DataLayer and clsTableManager share.
#pragma once

#include <string>

namespace quorbex::internal {

// Hands each non-empty one of the workgroup path, user name and password to the thread's engine (for
// the databases it opens later) and keeps it in the thread's state.
void UseWorkgroup(const std::string& workgroup, const std::string& user, const std::string& password);

// Opens `path` with the thread's engine and makes it the thread's current database; with `bind` the
// "database set" flag is raised too. Throws the engine's error, leaving the binding as it was.
void OpenCurrentDatabase(const std::string& path, bool bind = true);

}  // namespace quorbex::internal
