// A DataLayer test fixture: a fresh per-thread state, a temporary folder with a small SQLite database,
// settings in memory, a recording message box, and the session log written into the folder.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

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
    db_path_ = dir_.File("shop.db");
    MakeShop(db_path_);
    log_dir_ = dir_.File("logs");
    std::filesystem::create_directory(log_dir_);
    State().log_path = log_dir_;
    settings_->Save("Quorbex DataLayer", "Settings", "LogPath", log_dir_);
  }

  void TearDown() override {
    if (State().current_database) State().current_database->Close();
    State() = ThreadState{};
  }

  // customers(id, name, city, balance, since, active) with three rows.
  static void MakeShop(const std::string& path) {
    auto database = db::DBEngine::Default()->CreateDatabase(path);
    database->Execute(
        "CREATE TABLE customers (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT(50), city TEXT(50), "
        "balance DOUBLE, since DATETIME, active BIT DEFAULT 1)");
    database->Execute(
        "INSERT INTO customers (name, city, balance, since, active) VALUES "
        "('Anna', 'Wien', 10.5, '2020-01-02 00:00:00', 1), "
        "('Bernd', 'Graz', 20, '2021-03-04 00:00:00', 0), "
        "('Clara', 'Linz', NULL, NULL, 1)");
    database->Close();
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

  TempDir dir_;
  std::string db_path_;
  std::string log_dir_;
  std::shared_ptr<MemorySettingsStore> settings_;
  std::unique_ptr<platform::SettingsScope> settings_scope_;
  std::shared_ptr<FakeMessageBox> box_;
  std::unique_ptr<platform::MessageBoxScope> box_scope_;
};

}  // namespace quorbex::test
