// Schema tests: a fresh per-thread state, settings in memory, a recording message box and a temporary
// folder. SchemaPerBackend also binds a new database of the backend under test as the thread's current
// database, the way a DataLayer binds it, and runs on every writable backend; SchemaFiles binds nothing
// and works with database files.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "db/test_context.h"
#include "platform/message_box.h"
#include "platform/settings.h"
#include "quorbex/clsTableManager.h"
#include "quorbex/engine.h"
#include "service/thread_state.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"

namespace quorbex::test {

// What every schema test starts from; the state is cleared again when it ends.
struct SchemaEnvironment {
  SchemaEnvironment() {
    internal::State() = internal::ThreadState{};
    internal::State().log_disabled = true;
  }
  ~SchemaEnvironment() { internal::State() = internal::ThreadState{}; }

  std::shared_ptr<MemorySettingsStore> settings = std::make_shared<MemorySettingsStore>();
  std::shared_ptr<FakeMessageBox> box = std::make_shared<FakeMessageBox>();
  TempDir dir;
  platform::SettingsScope settings_scope{settings};
  platform::MessageBoxScope box_scope{box};
};

class SchemaPerBackend : public ::testing::TestWithParam<db::test::ContextFactory> {
 protected:
  void SetUp() override {
    context_ = GetParam().make();
    if (const std::string why = context_->Unavailable(); !why.empty()) {
      GTEST_SKIP() << context_->Name() << " unavailable: " << why;
    }
    database_ = context_->NewDatabase();
    internal::State().current_database = database_;
    internal::State().database_set = true;
  }

  // A table manager that leaves the test's database open when it ends.
  std::shared_ptr<clsTableManager> Manager() {
    auto manager = std::make_shared<clsTableManager>();
    manager->KeepDBOpen = true;
    return manager;
  }

  SchemaEnvironment env_;
  std::shared_ptr<FakeMessageBox>& box_ = env_.box;
  std::shared_ptr<db::test::TestContext> context_;
  std::shared_ptr<db::Database> database_;
};

class SchemaFiles : public ::testing::Test {
 protected:
  SchemaEnvironment env_;
  std::shared_ptr<MemorySettingsStore>& settings_ = env_.settings;
  std::shared_ptr<FakeMessageBox>& box_ = env_.box;
  TempDir& dir_ = env_.dir;
};

}  // namespace quorbex::test
