// qdl import: a CSV file into a database table, through the library's import and one Save.
#include "tools/qdl/import.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/db/forwarding_database.h"
#include "platform/files.h"
#include "platform/terminal.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsCSV.h"
#include "quorbex/clsImportManager.h"
#include "quorbex/engine.h"
#include "quorbex/text.h"
#include "tools/qdl/common.h"

namespace quorbex::qdl {

namespace {

constexpr const char* kCommand = "import";
constexpr const char* kSavepoint = "qdl_import_save";

// The database as Save sees it: its transaction becomes a savepoint inside the one transaction the
// command holds, so that creating the table and writing every record commit or roll back together.
// (Save on its own keeps the records written before a failing one.)
class InOneTransaction final : public db::internal::ForwardingDatabase {
 public:
  using ForwardingDatabase::ForwardingDatabase;

  void BeginTrans() override { Target().Savepoint(kSavepoint); }
  void CommitTrans() override { Target().ReleaseSavepoint(kSavepoint); }
  void Rollback() override {
    Target().RollbackToSavepoint(kSavepoint);
    Target().ReleaseSavepoint(kSavepoint);
  }
};

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool IsId(const std::string& name) { return LCase(name) == "id"; }

// The existing table named `name` (compared without regard to case), or nothing.
std::shared_ptr<db::TableDef> FindTable(db::Database& database, const std::string& name) {
  auto tables = database.TableDefs();
  for (int32_t i = 0; i < tables->Count(); ++i) {
    auto table = tables->Item(i);
    if (LCase(table->Name()) == LCase(name)) return table;
  }
  return nullptr;
}

std::string Joined(const std::vector<std::string>& names) {
  std::string out;
  for (const auto& name : names) out += (out.empty() ? "" : ", ") + name;
  return out;
}

// Creates the table: one text column per field, the "id" field its key (an auto-increment number
// when the command added it, else text with a primary index).
void CreateTable(db::Database& database, const std::string& name, const std::vector<std::string>& fields,
                 bool id_added_here) {
  auto table = database.CreateTableDef(name);
  std::string key;
  for (const std::string& field_name : fields) {
    if (IsId(field_name) && id_added_here) {
      auto id = table->CreateField(field_name, db::dbLong);
      id->Attributes(db::dbAutoIncrField);
      table->Fields()->Append(id);
    } else if (IsId(field_name)) {
      table->Fields()->Append(table->CreateField(field_name, db::dbText, 255));
      key = field_name;
    } else {
      table->Fields()->Append(table->CreateField(field_name, db::dbMemo));
    }
  }
  if (!key.empty()) {
    auto index = table->CreateIndex("PrimaryKey");
    index->Fields()->Append(index->CreateField(key));
    index->Primary(true);
    table->Indexes()->Append(index);
  }
  database.TableDefs()->Append(table);
}

}  // namespace

int RunImport(const ImportOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  const bool terminal = platform::IsTerminal(stderr);
  auto layer = std::make_shared<DataLayer>();
  layer->ErrorStatus("");
  // A bulk load is not a session of edits: it writes no session log.
  layer->DisableLog(true);
  // The library's message boxes become ErrorStatus texts, so that a failure stays one line.
  layer->SuppressAllMessages(true);

  // 1. The file into the DataLayer; nothing touches the database before it is read whole.
  auto manager = layer->Import();
  auto job = manager->CSVImport(manager->AddCSVImport());
  job->FileContainsHeader(true);
  job->ShowProgress(terminal);
  if (!options.table.empty()) job->TableName(options.table);
  job->ImportFilePath(options.file);
  job->CreateDataLayerFromFile();
  if (!job->Success) return Fail(kCommand, Reports(layer->ErrorStatus()));
  const double read_seconds = SecondsSince(start);

  std::vector<std::string> fields = job->FieldNames();
  for (size_t a = 0; a < fields.size(); ++a) {
    for (size_t b = a + 1; b < fields.size(); ++b) {
      if (LCase(fields[a]) == LCase(fields[b])) {
        return Fail(kCommand, "the file's header names '" + fields[b] + "' and the import put an \"" + fields[a] +
                                  "\" field in front of it (the header does not contain \"id;\"); end the header "
                                  "line with \";\" to keep the file's own column only");
      }
    }
  }
  bool id_added_here = false;
  if (std::none_of(fields.begin(), fields.end(), IsId)) {
    // Save reads each new record's key back from an "id" column; the file has none, so the table gets
    // an auto-increment one after the file's columns (the records' fields keep their positions).
    layer->AddVirtualField("id");
    fields.push_back("id");
    id_added_here = true;
  }

  // 2. The database: opened, or created when the file does not exist (and then removed again when
  // nothing could be written into it).
  std::shared_ptr<db::Database> database;
  bool created_here = false;
  try {
    auto engine = db::DBEngine::Default();
    if (platform::FileExists(options.database)) {
      database = engine->OpenDatabase(options.database);
    } else {
      database = engine->CreateDatabase(options.database);
      created_here = true;
    }
  } catch (const std::exception& e) {
    return Fail(kCommand, e.what());
  }
  const std::string table_name = job->TableName();

  // 3. Table and records in one transaction.
  bool in_transaction = false;
  int32_t marked = 0;
  try {
    auto existing = FindTable(*database, table_name);
    if (existing) {
      std::vector<std::string> columns;
      auto table_fields = existing->Fields();
      for (int32_t j = 0; j < table_fields->Count(); ++j) columns.push_back(table_fields->Item(j)->Name());
      bool same = columns.size() == fields.size();
      for (size_t j = 0; same && j < columns.size(); ++j) same = LCase(columns[j]) == LCase(fields[j]);
      if (!same) {
        database->Close();
        return Fail(kCommand, "the table '" + table_name + "' has the columns (" + Joined(columns) +
                                  "), the file gives (" + Joined(fields) + "); nothing was written (--table names another table)");
      }
    }
    database->BeginTrans();
    in_transaction = true;
    if (!existing) CreateTable(*database, table_name, fields, id_added_here);

    // A record without any value (an empty line) carries no change mark, so Save passes it by.
    auto records = layer->GetOfflineRecordset();
    for (int32_t i = 1; i <= layer->RecordCount(); ++i) {
      if (auto record = records->Records(i); record && record->HasChanged) ++marked;
    }
    std::shared_ptr<db::Database> through = std::make_shared<InOneTransaction>(database);
    layer->SetDatabase(through);
    if (terminal) std::fprintf(stderr, "writing %d record(s) to '%s' ...\r", layer->RecordCount(), table_name.c_str());
    layer->ErrorStatus("");
    const bool saved = marked == 0 || layer->Save();
    if (terminal) std::fprintf(stderr, "\x1b[K");
    if (!saved || !layer->ErrorStatus().empty()) {
      const std::string why = Reports(layer->ErrorStatus());
      database->Rollback();
      database->Close();
      if (created_here) platform::DeleteFile(options.database);
      return Fail(kCommand, (why.empty() ? std::string("the records could not be written") : why) +
                                "; nothing was written");
    }
    database->CommitTrans();
    in_transaction = false;
    database->Close();
  } catch (const std::exception& e) {
    try {
      if (in_transaction) database->Rollback();
      database->Close();
    } catch (const std::exception&) {
      // The failure being reported says more; an open transaction ends with the connection.
    }
    if (created_here) platform::DeleteFile(options.database);
    return Fail(kCommand, std::string(e.what()) + "; nothing was written");
  }

  const int32_t empty = layer->RecordCount() - marked;
  std::printf("qdl import: %d line(s) read, %d record(s) written to table '%s'%s in %.2f s (reading the file %.2f s)\n",
              job->LinesCount, marked, table_name.c_str(),
              empty > 0 ? (", " + std::to_string(empty) + " empty line(s) left out").c_str() : "",
              SecondsSince(start), read_seconds);
  return 0;
}

}  // namespace quorbex::qdl
