// A DataLayer test fixture: a fresh per-thread state, a small shop database built through a backend's
// test context (tests/db/test_context.h), a temporary folder, settings in memory, a recording message
// box, and the session log written into the folder. The context is SQLite's; DataLayerPerBackend takes it
// from the test parameter, so its cases run on every writable backend.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "db/test_context.h"
#include "platform/message_box.h"
#include "platform/settings.h"
#include "quorbex/DataLayer.h"
#include "service/thread_state.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"

namespace quorbex::test {

using namespace quorbex::internal;

class DataLayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    State() = ThreadState{};
    Locale::SetCurrent(Locale::C());
    settings_ = std::make_shared<MemorySettingsStore>();
    settings_scope_ = std::make_unique<platform::SettingsScope>(settings_);
    box_ = std::make_shared<FakeMessageBox>();
    box_scope_ = std::make_unique<platform::MessageBoxScope>(box_);
    const db::test::ContextFactory factory = Context();
    ASSERT_TRUE(factory.make) << "no test context";
    context_ = factory.make();
    if (const std::string why = context_->Unavailable(); !why.empty()) {
      GTEST_SKIP() << context_->Name() << " unavailable: " << why;
    }
    if (!context_->Writable()) GTEST_SKIP() << context_->Name() << ": the databases are read-only";
    auto shop = context_->NewDatabase();
    MakeShop(*shop);
    db_path_ = shop->Name();
    shop->Close();
    log_dir_ = dir_.File("logs");
    std::filesystem::create_directory(log_dir_);
    State().log_path = log_dir_;
    settings_->Save("Quorbex DataLayer", "Settings", "LogPath", log_dir_);
  }

  void TearDown() override {
    if (State().current_database) State().current_database->Close();
    State() = ThreadState{};
  }

  // The backend context the shop is built through.
  virtual db::test::ContextFactory Context() const { return db::test::ContextNamed("SQLite"); }

  // customers(id auto-increment, name, city, balance, since, active) with three rows, made through the
  // engine's table definitions and a recordset, so every backend maps the types its own way.
  static void MakeShop(db::Database& database) {
    auto customers = database.CreateTableDef("customers");
    auto id = customers->CreateField("id", db::dbLong);
    id->Attributes(db::dbAutoIncrField);
    customers->Fields()->Append(id);
    customers->Fields()->Append(customers->CreateField("name", db::dbText, 50));
    customers->Fields()->Append(customers->CreateField("city", db::dbText, 50));
    customers->Fields()->Append(customers->CreateField("balance", db::dbDouble));
    customers->Fields()->Append(customers->CreateField("since", db::dbDate));
    customers->Fields()->Append(customers->CreateField("active", db::dbBoolean));
    database.TableDefs()->Append(customers);
    const Variant rows[][5] = {
        {Variant("Anna"), Variant("Wien"), Variant(10.5), Variant(DateSerial(2020, 1, 2)), Variant(true)},
        {Variant("Bernd"), Variant("Graz"), Variant(20.0), Variant(DateSerial(2021, 3, 4)), Variant(false)},
        {Variant("Clara"), Variant("Linz"), Variant(Null), Variant(Null), Variant(true)}};
    auto rs = database.OpenRecordset("customers");
    database.BeginTrans();  // one commit, not one per row
    for (const auto& row : rows) {
      rs->AddNew();
      for (int i = 0; i < 5; ++i) rs->Fields(i + 1)->Value(row[i]);
      rs->Update();
    }
    database.CommitTrans();
    rs->Close();
  }

  std::shared_ptr<DataLayer> Bound() {
    auto layer = std::make_shared<DataLayer>();
    layer->SetDatabaseByPath(db_path_);
    return layer;
  }

  std::shared_ptr<DataLayer> Loaded(const std::string& sql = "SELECT * FROM customers ORDER BY id") {
    auto layer = Bound();
    layer->GetRecordset(sql);
    return layer;
  }

  // The value of one column of one row, read straight from the database file.
  Variant DbValue(const std::string& sql) {
    auto database = db::DBEngine::Default()->OpenDatabase(db_path_);
    auto rows = database->OpenRecordset(sql);
    Variant value = rows->EOF_() ? Variant(Null) : rows->Fields(0)->Value();
    rows->Close();
    database->Close();
    return value;
  }

  std::vector<std::string> LogFiles() const {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(log_dir_)) files.push_back(entry.path());
    return files;
  }

  std::shared_ptr<db::test::TestContext> context_;  // holds the shop's database
  TempDir dir_;
  std::string db_path_;
  std::string log_dir_;
  std::shared_ptr<MemorySettingsStore> settings_;
  std::unique_ptr<platform::SettingsScope> settings_scope_;
  std::shared_ptr<FakeMessageBox> box_;
  std::unique_ptr<platform::MessageBoxScope> box_scope_;
};

// The same fixture over every writable backend context.
class DataLayerPerBackend : public DataLayerTest, public ::testing::WithParamInterface<db::test::ContextFactory> {
 protected:
  db::test::ContextFactory Context() const override { return GetParam(); }
};

}  // namespace quorbex::test
