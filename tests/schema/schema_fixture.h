// Schema tests: a fresh per-thread state, settings in memory, a recording message box, and a new
// database of the backend under test bound as the thread's current database, the way a DataLayer binds
// it. SchemaPerBackend runs on every writable backend; the cases that need database files ask the
// context whether it has them.
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

class SchemaPerBackend : public ::testing::TestWithParam<db::test::ContextFactory> {
 protected:
  void SetUp() override {
    internal::State() = internal::ThreadState{};
    settings_ = std::make_shared<MemorySettingsStore>();
    settings_scope_ = std::make_unique<platform::SettingsScope>(settings_);
    box_ = std::make_shared<FakeMessageBox>();
    box_scope_ = std::make_unique<platform::MessageBoxScope>(box_);
    context_ = GetParam().make();
    if (const std::string why = context_->Unavailable(); !why.empty()) {
      GTEST_SKIP() << context_->Name() << " unavailable: " << why;
    }
    database_ = context_->NewDatabase();
    Bind(database_);
    internal::State().log_disabled = true;
  }

  void TearDown() override {
    internal::State() = internal::ThreadState{};
  }

  static void Bind(std::shared_ptr<db::Database> database) {
    internal::State().current_database = std::move(database);
    internal::State().database_set = true;
  }

  std::shared_ptr<clsTableManager> Manager() {
    auto manager = std::make_shared<clsTableManager>();
    manager->KeepDBOpen = true;
    return manager;
  }

  std::shared_ptr<db::Database> database_;
  std::shared_ptr<db::test::TestContext> context_;
  std::shared_ptr<MemorySettingsStore> settings_;
  std::shared_ptr<FakeMessageBox> box_;
  TempDir dir_;

 private:
  std::unique_ptr<platform::SettingsScope> settings_scope_;
  std::unique_ptr<platform::MessageBoxScope> box_scope_;
};

// A fresh per-thread state with settings in memory, a recording message box and a temporary folder;
// no database is bound.
class SchemaFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    internal::State() = internal::ThreadState{};
    internal::State().log_disabled = true;
    settings_ = std::make_shared<MemorySettingsStore>();
    settings_scope_ = std::make_unique<platform::SettingsScope>(settings_);
    box_ = std::make_shared<FakeMessageBox>();
    box_scope_ = std::make_unique<platform::MessageBoxScope>(box_);
  }
  void TearDown() override { internal::State() = internal::ThreadState{}; }

  std::shared_ptr<MemorySettingsStore> settings_;
  std::shared_ptr<FakeMessageBox> box_;
  TempDir dir_;

 private:
  std::unique_ptr<platform::SettingsScope> settings_scope_;
  std::unique_ptr<platform::MessageBoxScope> box_scope_;
};

}  // namespace quorbex::test
