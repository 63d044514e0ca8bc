// qdl migrate: one database copied whole into another, through the engine interface.
#include "tools/qdl/migrate.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "platform/files.h"
#include "quorbex/engine.h"
#include "quorbex/frmProgress.h"
#include "tools/qdl/common.h"
#include "tools/qdl/secrets.h"

namespace quorbex::qdl {

namespace {

constexpr const char* kCommand = "migrate";
constexpr const char* kAttempt = "qdl_migrate_attempt";

struct TableCopy {
  std::string name;
  int64_t rows = 0;
  int indexes = 0;
};

struct Report {
  std::vector<TableCopy> tables;
  std::vector<std::string> relations;
  std::vector<std::string> views;
  std::vector<std::string> left_out;  // "what: why"
};

bool IsConnectionString(const std::string& name) { return name.find("://") != std::string::npos || name.find('=') != std::string::npos; }

// Runs `work` inside a savepoint of the target: a refusal (a view or relationship the target cannot
// make) undoes only that step, even on servers where a failed statement spoils the transaction.
template <class Work>
bool Attempt(db::Database& target, Work&& work, std::string& why) {
  target.Savepoint(kAttempt);
  try {
    work();
    target.ReleaseSavepoint(kAttempt);
    return true;
  } catch (const db::EngineError& e) {
    why = e.what();
    target.RollbackToSavepoint(kAttempt);
    target.ReleaseSavepoint(kAttempt);
    return false;
  }
}

TableCopy CreateTable(db::Database& target, const db::TableDef& source) {
  TableCopy copy{source.Name()};
  auto table = target.CreateTableDef(source.Name());
  auto fields = source.Fields();
  for (int32_t i = 0; i < fields->Count(); ++i) {
    auto from = fields->Item(i);
    auto field = table->CreateField(from->Name(), from->Type(), from->Type() == db::dbText ? from->Size() : 0);
    if (from->Attributes() & db::dbAutoIncrField) field->Attributes(db::dbAutoIncrField);
    if (from->Required()) field->Required(true);
    table->Fields()->Append(field);
  }
  auto indexes = source.Indexes();
  for (int32_t i = 0; i < indexes->Count(); ++i) {
    auto from = indexes->Item(i);
    // The key keeps the classic name; backends name their own key indexes in ways of their own.
    auto index = table->CreateIndex(from->Primary() ? std::string("PrimaryKey") : from->Name());
    auto columns = from->Fields();
    for (int32_t c = 0; c < columns->Count(); ++c) index->Fields()->Append(index->CreateField(columns->Item(c)->Name()));
    index->Primary(from->Primary());
    index->Unique(from->Unique());
    table->Indexes()->Append(index);
    ++copy.indexes;
  }
  target.TableDefs()->Append(table);
  return copy;
}

int64_t CountRows(db::Database& source, const std::string& table) {
  auto rs = source.OpenRecordset("SELECT count(*) FROM " + source.QuoteName(table), db::dbOpenSnapshot);
  return rs->EOF_() ? 0 : static_cast<int64_t>(CDbl(rs->Fields(0)->Value()));
}

void CopyRows(db::Database& source, db::Database& target, TableCopy& copy, frmProgress* progress, int32_t& done,
              int32_t total) {
  auto from = source.OpenRecordset("SELECT * FROM " + source.QuoteName(copy.name), db::dbOpenForwardOnly, db::dbReadOnly);
  auto count = [&] {
    ++copy.rows;
    if (progress && ++done % 256 == 0) {
      int32_t position = done;
      int32_t all = total;
      progress->SetProgress(position, all, "rows of " + copy.name);
    }
  };
  auto to = target.OpenRecordset("SELECT * FROM " + target.QuoteName(copy.name) + " WHERE 1 = 0", db::dbOpenDynaset);
  if (!to->Updatable()) {
    // A table without a key takes no rows through a recordset: one INSERT with bound values per row.
    auto fields = to->Fields();
    std::string columns, marks;
    for (int32_t i = 0; i < fields->Count(); ++i) {
      columns += (i ? ", " : "") + target.QuoteName(fields->Item(i)->Name());
      marks += i ? ", ?" : "?";
    }
    to->Close();
    const std::string insert = "INSERT INTO " + target.QuoteName(copy.name) + " (" + columns + ") VALUES (" + marks + ")";
    from->TakeRows([&](std::span<Variant> row) {
      target.Execute(insert, row);
      count();
    });
    return;
  }
  auto fields = to->Fields();
  std::vector<std::shared_ptr<db::Field>> targets;
  for (int32_t i = 0; i < fields->Count(); ++i) targets.push_back(fields->Item(i));
  from->TakeRows([&](std::span<Variant> row) {
    to->AddNew();
    for (size_t i = 0; i < row.size() && i < targets.size(); ++i) {
      if (!row[i].IsNull()) targets[i]->Value(row[i]);
    }
    to->Update();
    count();
  });
  to->Close();
}

double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Print(const MigrateOptions& options, const Report& report, double seconds) {
  int64_t rows = 0;
  int indexes = 0;
  for (const auto& t : report.tables) {
    rows += t.rows;
    indexes += t.indexes;
  }
  std::printf("qdl migrate: '%s' -> '%s' in %.3f s\n", MaskSecrets(options.source).c_str(),
              MaskSecrets(options.target).c_str(), seconds);
  std::printf("  %zu table(s), %lld row(s), %d index(es), %zu relationship(s), %zu view(s)\n", report.tables.size(),
              static_cast<long long>(rows), indexes, report.relations.size(), report.views.size());
  for (const auto& t : report.tables) {
    std::printf("  table %-40s %8lld row(s) %3d index(es)\n", t.name.c_str(), static_cast<long long>(t.rows), t.indexes);
  }
  for (const auto& r : report.relations) std::printf("  relationship %s\n", r.c_str());
  for (const auto& v : report.views) std::printf("  view %s\n", v.c_str());
  if (report.left_out.empty()) {
    std::printf("  everything was migrated\n");
  } else {
    std::printf("  not migrated (%zu):\n", report.left_out.size());
    for (const auto& l : report.left_out) std::printf("    %s\n", OneLine(l).c_str());
  }
}

}  // namespace

int RunMigrate(const MigrateOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  auto engine = db::DBEngine::Default();
  std::shared_ptr<db::Database> source;
  std::shared_ptr<db::Database> target;
  bool created_here = false;
  try {
    source = engine->OpenDatabase(options.source, false, true);
    if (IsConnectionString(options.target)) {
      target = engine->OpenDatabase(options.target);
    } else {
      if (platform::FileExists(options.target)) {
        return Fail(kCommand, "the target '" + options.target + "' exists already; migrate into a new file");
      }
      target = engine->CreateDatabase(options.target);
      created_here = true;
    }
  } catch (const std::exception& e) {
    return Fail(kCommand, e.what());
  }

  Report report;
  bool in_transaction = false;
  auto progress = std::make_unique<frmProgress>();
  try {
    // Tables first (system tables stay behind), then the rows, then the relationships between them:
    // a target that checks foreign keys at once would refuse rows copied in table order.
    std::vector<std::shared_ptr<db::TableDef>> tables;
    auto defs = source->TableDefs();
    for (int32_t i = 0; i < defs->Count(); ++i) {
      auto t = defs->Item(i);
      if ((t->Attributes() & db::dbSystemObject) == 0) tables.push_back(t);
    }
    int32_t total = 0;
    for (const auto& t : tables) total += static_cast<int32_t>(CountRows(*source, t->Name()));
    target->BeginTrans();
    in_transaction = true;
    for (const auto& t : tables) report.tables.push_back(CreateTable(*target, *t));
    progress->Show();
    int32_t done = 0;
    for (auto& copy : report.tables) CopyRows(*source, *target, copy, progress.get(), done, total);
    progress->Unload();
    for (const auto& r : source->Relations()) {
      std::string why;
      if (Attempt(*target, [&] { target->CreateRelation(r); }, why)) {
        report.relations.push_back(r.Name + " (" + r.ForeignTable + " -> " + r.Table + ")");
      } else {
        report.left_out.push_back("relationship " + r.Name + ": " + why);
      }
    }

    // Views: one built on another fails until that one exists, so rounds repeat while views are made.
    auto queries = source->QueryDefs();
    std::vector<std::shared_ptr<db::QueryDef>> pending;
    for (int32_t i = 0; i < queries->Count(); ++i) {
      auto q = queries->Item(i);
      if (!q->Unavailable().empty()) {
        report.left_out.push_back("query " + q->Name() + ": " + q->Unavailable());
      } else {
        pending.push_back(q);
      }
    }
    std::vector<std::string> why(pending.size());
    std::vector<bool> made(pending.size(), false);
    for (bool progressing = true; progressing;) {
      progressing = false;
      for (size_t i = 0; i < pending.size(); ++i) {
        if (made[i]) continue;
        if (Attempt(*target, [&] { target->CreateQueryDef(pending[i]->Name(), pending[i]->SQL()); }, why[i])) {
          made[i] = progressing = true;
          report.views.push_back(pending[i]->Name());
        }
      }
    }
    for (size_t i = 0; i < pending.size(); ++i) {
      if (!made[i]) report.left_out.push_back("query " + pending[i]->Name() + ": the target refused it (" + why[i] + ")");
    }
    target->CommitTrans();
    in_transaction = false;
    target->Close();
    source->Close();
  } catch (const std::exception& e) {
    progress->Unload();
    try {
      if (in_transaction) target->Rollback();
      target->Close();
    } catch (const std::exception&) {
      // The failure being reported says more; an open transaction ends with the connection.
    }
    if (created_here) platform::DeleteFile(options.target);
    return Fail(kCommand, std::string(e.what()) + "; nothing was migrated");
  }
  Print(options, report, SecondsSince(start));
  return 0;
}

}  // namespace quorbex::qdl
