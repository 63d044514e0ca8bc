// qdl demo: the typical road of a change, on a small SQLite database the command creates.
#include "tools/qdl/demo.h"
#include "tools/qdl/secrets.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "quorbex/DataLayer.h"
#include "quorbex/text.h"

namespace quorbex::qdl {

namespace {

namespace fs = std::filesystem;

void Step(const std::string& text) { std::printf("\n== %s\n", text.c_str()); }

void Show(const std::string& text) { std::printf("   %s\n", text.c_str()); }

struct Column {
  const char* name;
  int32_t type;
  int32_t size = 0;
  bool required = false;
};

// A table with an auto-increment "id" key and the columns given, made through the engine's table
// definitions so that the database's own column types are chosen.
void CreateTable(db::Database& database, const std::string& name, std::initializer_list<Column> columns) {
  auto table = database.CreateTableDef(name);
  auto id = table->CreateField("id", db::dbLong);
  id->Attributes(db::dbAutoIncrField);
  table->Fields()->Append(id);
  for (const Column& column : columns) {
    auto field = table->CreateField(column.name, column.type, column.size);
    field->Required(column.required);
    table->Fields()->Append(field);
  }
  database.TableDefs()->Append(table);
}

// customers and orders, with texts (umlauts included), numbers, dates and yes/no values: in a new file,
// or in the server database `path` names (replacing the two tables of an earlier run).
void CreateSampleDatabase(const std::string& path, bool on_server) {
  auto engine = db::DBEngine::Default();
  auto database = on_server ? engine->OpenDatabase(path) : engine->CreateDatabase(path);
  if (on_server) {
    auto tables = database->TableDefs();
    for (const char* table : {"orders", "customers"}) {
      try {
        tables->Delete(table);
      } catch (const db::EngineError& e) {
        if (e.Kind() != db::ErrorKind::ItemNotFound) throw;
      }
    }
  }
  CreateTable(*database, "customers",
              {{"name", db::dbText, 80, true}, {"city", db::dbText, 50}, {"credit_limit", db::dbCurrency},
               {"since", db::dbDate}, {"active", db::dbBoolean}});
  CreateTable(*database, "orders",
              {{"customer_id", db::dbLong, 0, true}, {"ordered", db::dbDate}, {"amount", db::dbDouble},
               {"paid", db::dbBoolean}, {"note", db::dbMemo}});
  database->Execute(
      "INSERT INTO customers (name, city, credit_limit, since, active) VALUES "
      "('Müller & Söhne GmbH', 'München', 5000, '2019-04-01 00:00:00', TRUE), "
      "('Café Größenwahn', 'Wien', 1200.5, '2021-09-15 00:00:00', TRUE), "
      "('Łódź Trading', 'Łódź', 800, '2022-01-10 00:00:00', FALSE), "
      "('Nordlicht AB', 'Malmö', 2500, '2020-06-30 00:00:00', TRUE)");
  database->Execute(
      "INSERT INTO orders (customer_id, ordered, amount, paid, note) VALUES "
      "(1, '2024-02-01 09:30:00', 1499.9, TRUE, 'Erstbestellung'), "
      "(1, '2024-03-12 14:05:00', 320.0, FALSE, NULL), "
      "(2, '2024-03-20 11:00:00', 87.5, TRUE, 'Kaffeebohnen, 5 kg'), "
      "(4, '2024-04-02 08:15:00', 640.25, FALSE, 'Express')");
  database->Close();
}

void PrintCurrent(DataLayer& layer) {
  Show("record " + std::to_string(layer.ActualPosition()) + " of " + std::to_string(layer.RecordCount()) +
       ": id=" + CStr(layer.FieldValue("id")) + ", name=" + CStr(layer.FieldValue("name")) +
       ", city=" + CStr(layer.FieldValue("city")) + ", credit_limit=" + CStr(layer.FieldValue("credit_limit")) +
       ", since=" + CStr(layer.FieldValue("since")) + ", active=" + CStr(layer.FieldValueConvertedYesNo("active")));
}

void PrintTable(const std::string& title) {
  Step(title);
  auto layer = std::make_shared<DataLayer>();
  layer->GetRecordset("SELECT * FROM customers ORDER BY id");
  for (int32_t i = 1; i <= layer->RecordCount(); ++i) {
    layer->MoveSpecific(i);
    PrintCurrent(*layer);
  }
}

// The newest session log in the folder, or "".
std::string NewestLog(const std::string& folder) {
  std::string newest;
  fs::file_time_type newest_time;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder, error)) {
    if (entry.path().extension() != ".xml") continue;
    auto time = entry.last_write_time(error);
    if (newest.empty() || time > newest_time) {
      newest = entry.path().string();
      newest_time = time;
    }
  }
  return newest;
}

bool CheckErrors(DataLayer& layer, const std::string& step) {
  if (layer.ErrorStatus().empty()) return true;
  std::fprintf(stderr, "qdl demo: %s failed:%s\n", step.c_str(), layer.ErrorStatus().c_str());
  return false;
}

}  // namespace

int RunDemo(const std::string& folder_argument, const std::string& server) {
  std::error_code error;
  const std::string folder = fs::absolute(folder_argument, error).string();
  fs::create_directories(folder + "/logs", error);
  if (error) {
    std::fprintf(stderr, "qdl demo: cannot create the folder '%s': %s\n", folder.c_str(), error.message().c_str());
    return 1;
  }
  // The demo keeps its settings beside its data, so it never touches the user's own settings.
  setenv("QUORBEX_SETTINGS", (folder + "/settings.ini").c_str(), 1);
  const bool on_server = !server.empty();
  const std::string path = on_server ? server : folder + "/shop.db";
  if (!on_server) fs::remove(path, error);  // a fresh database on every run, so the demo can be repeated

  Step("Create the sample database");
  CreateSampleDatabase(path, on_server);
  Show(MaskSecrets(path));

  auto layer = std::make_shared<DataLayer>();
  layer->SuppressAllMessages(true);
  layer->LogPath(folder + "/logs");
  layer->Username("demo");

  Step("Bind the database (SetDatabaseByPath)");
  layer->SetDatabaseByPath(path);
  if (!CheckErrors(*layer, "binding")) return 1;
  Show("bound to " + MaskSecrets(path));

  Step("Load a query (GetRecordset)");
  const std::string sql = "SELECT * FROM customers ORDER BY id";
  layer->GetRecordset(sql);
  if (!CheckErrors(*layer, "loading")) return 1;
  Show(sql + " -> " + std::to_string(layer->RecordCount()) + " records, read-only: " +
       (layer->ReadOnly() ? "yes" : "no"));

  Step("Move the cursor (MoveFirst, MoveNext, MoveLast)");
  layer->MoveFirst();
  PrintCurrent(*layer);
  layer->MoveNext();
  PrintCurrent(*layer);
  layer->MoveLast();
  PrintCurrent(*layer);

  Step("Change fields (SetFieldValue)");
  layer->MoveSpecific(2);
  layer->SetFieldValue("city", "Salzburg");
  layer->SetFieldValue("credit_limit", Variant(Currency::FromDouble(1500)));
  PrintCurrent(*layer);
  Show(std::string("record marked changed: ") + (layer->GetOfflineRecordset()->Records(2)->HasChanged ? "yes" : "no") +
       ", DataChanged: " + (layer->DataChanged() ? "yes" : "no"));

  Step("Add a record (AddNew)");
  layer->AddNew();
  layer->SetFieldValue("name", "Øresund Logistik");
  layer->SetFieldValue("city", "København");
  layer->SetFieldValue("credit_limit", Variant(Currency::FromDouble(3000)));
  layer->SetFieldValue("since", Variant(DateSerial(2024, 5, 1)));
  layer->SetFieldValue("active", Variant(true));
  Show("new record at position " + std::to_string(layer->ActualPosition()) + ", id not yet known: '" +
       CStr(layer->FieldValue("id")) + "'");

  Step("Write back (Save)");
  const bool saved = layer->Save();
  if (!saved || !CheckErrors(*layer, "saving")) return 1;
  Show("saved; the new record got id " + CStr(layer->FieldValue("id")));
  if (!layer->SessionLogWriting()) std::fprintf(stderr, "warning: %s\n", layer->SessionLogError().c_str());

  Step("Remove a record in the database (RemoveRecord)");
  layer->MoveSpecific(3);
  Show("removing id " + CStr(layer->FieldValue("id")) + " (" + CStr(layer->FieldValue("name")) + ")");
  bool in_database = true;
  if (!layer->RemoveRecord(in_database) || !CheckErrors(*layer, "removing")) return 1;
  Show(std::to_string(layer->RecordCount()) + " records left in memory");

  layer.reset();  // ends the log session
  PrintTable("Read back from the database");

  Step("Where things are");
  Show("database:    " + MaskSecrets(path));
  Show("session log: " + NewestLog(folder + "/logs"));
  return 0;
}

}  // namespace quorbex::qdl
