// Runs a piece of work inside a savepoint: all of it stays, or none of it when it throws. The
// statements are standard SQL, so every backend uses this one scope with its own way to run them.
#pragma once

#include <string>
#include <utility>

namespace quorbex::db::internal {

// `exec` runs one SQL text (and raises on failure); `name` must be a plain identifier.
template <class Exec, class Work>
void InSavepoint(Exec&& exec, const std::string& name, Work&& work) {
  exec("SAVEPOINT " + name);
  try {
    std::forward<Work>(work)();
  } catch (...) {
    try {
      exec("ROLLBACK TO SAVEPOINT " + name);
      exec("RELEASE SAVEPOINT " + name);
    } catch (...) {
      // The failure being reported says more than this one.
    }
    throw;
  }
  exec("RELEASE SAVEPOINT " + name);
}

}  // namespace quorbex::db::internal
