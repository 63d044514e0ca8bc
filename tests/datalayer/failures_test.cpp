// No failure of the surroundings leaves a public operation in any form but the documented ones: a
// settings store that cannot be written, a folder that cannot be created, a database that fails every
// call. Each operation reports through ErrorStatus and returns its failure value; only the three
// operations that raise by contract let an AutomationError out, with their own numbers.
#include <fstream>
#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

#include "datalayer/datalayer_fixture.h"
#include "quorbex/ListControl.h"
#include "support/fake_list_control.h"
#include "support/forwarding_database.h"

namespace quorbex::test {
namespace {

using namespace quorbex::internal;
using SurroundingsFail = DataLayerTest;

// A database every call of which fails, as one whose connection was lost does.
class BrokenDatabase final : public ForwardingDatabase {
 public:
  BrokenDatabase() : ForwardingDatabase(nullptr) {}
  [[noreturn]] static void Fail() { throw db::EngineError(db::ErrorKind::General, "disk I/O error"); }
  const std::string& Name() const override { Fail(); }
  bool IsOpen() const override { return true; }
  bool Updatable() const override { Fail(); }
  void Close() override { Fail(); }
  bool Supports(db::Feature) const override { return true; }
  void Execute(const std::string&, int32_t) override { Fail(); }
  int32_t RecordsAffected() const override { Fail(); }
  std::shared_ptr<db::Recordset> OpenRecordset(const std::string&, int32_t, int32_t) override { Fail(); }
  std::shared_ptr<db::Recordset> OpenRecordset(const std::string&, std::span<const Variant>, int32_t,
                                               int32_t) override {
    Fail();
  }
  std::shared_ptr<db::QueryDef> CreateQueryDef(const std::string&, const std::string&, bool) override { Fail(); }
  std::shared_ptr<db::QueryDefs> QueryDefs() override { Fail(); }
  std::shared_ptr<db::TableDefs> TableDefs() override { Fail(); }
  std::shared_ptr<db::TableDef> CreateTableDef(const std::string&) override { Fail(); }
  void BeginTrans() override { Fail(); }
  void CommitTrans() override { Fail(); }
  void Rollback() override { Fail(); }
  void Savepoint(const std::string&) override { Fail(); }
  void ReleaseSavepoint(const std::string&) override { Fail(); }
  void RollbackToSavepoint(const std::string&) override { Fail(); }
};

struct Operation {
  std::string name;
  std::function<void(DataLayer&)> call;
  int allowed_error = 0;  // the AutomationError number the operation may raise by contract; 0: none
};

std::vector<Operation> EveryOperation(const std::string& bad_folder) {
  const std::string bad_file = bad_folder + "/out";
  auto list = std::make_shared<FakeListControl>();
  return {
      {"SetDatabaseByPath", [=](DataLayer& d) { d.SetDatabaseByPath(bad_file); }},
      {"SetDatabaseByPathAndWorkgroup", [=](DataLayer& d) { d.SetDatabaseByPathAndWorkgroup(bad_file, bad_file, "u", "p"); }},
      {"SetStandardDBPathFile", [=](DataLayer& d) { d.SetStandardDBPathFile(bad_file); }, 4000},
      {"LogPath", [=](DataLayer& d) { d.LogPath(bad_folder); }},
      {"ReadOnly", [](DataLayer& d) { d.ReadOnly(); }},
      {"GetRecordset", [](DataLayer& d) { d.GetRecordset("SELECT * FROM customers"); }},
      {"Moves", [](DataLayer& d) { d.MoveFirst(); d.MoveNext(); d.MoveLast(); d.MovePrevious(); d.MoveSpecific(2); }},
      {"FieldAccess", [](DataLayer& d) { d.FieldID("city"); d.FieldValue("city"); d.FieldObject("city"); d.FieldValueConvertedYesNo("active"); }},
      {"SetFieldValue", [](DataLayer& d) { d.SetFieldValue("city", "x"); }},
      {"Save", [](DataLayer& d) { d.Save(); }},
      {"AddNew", [](DataLayer& d) { d.AddNew(); d.SetFieldValue("name", "new"); d.Save(); }},
      {"RemoveRecord", [](DataLayer& d) { bool in_db = true; d.RemoveRecord(in_db); }},
      {"Sort", [](DataLayer& d) { bool asc = true, desc = false; d.SortRecordset("name", asc, desc); }},
      {"Filter", [](DataLayer& d) { d.Filter("city", "=", Variant("x"), false); d.DeleteFilter(); }},
      {"Search", [](DataLayer& d) { d.FindRecord("name", Variant("Anna")); d.FullTextSearch("Anna"); }},
      {"RemoveIf", [](DataLayer& d) { d.RemoveOfflineRecordsIf("city", "=", Variant("nowhere")); d.RemoveMultipleEntries("city"); }},
      {"VirtualFields", [](DataLayer& d) { d.AddVirtualField("extra"); d.RenameVirtualField("extra", "more"); d.RemoveVirtualField("more"); }},
      {"Fill", [](DataLayer& d) { d.SetAutoGuidColumn("name", true); d.TrimField("city"); d.FillField("city", "x", true); }, 94},
      {"Copy", [](DataLayer& d) { d.CopyCurrentRecord("id", Variant(99)); d.RepairRecords(Variant(1)); d.CheckContainsFieldName("x"); }},
      {"SaveAsXML", [=](DataLayer& d) { d.SaveAsXML(bad_file + ".xml", "root", true); }},
      {"LoadFromXML", [=](DataLayer& d) { d.LoadFromXML(bad_file + ".xml", true); }},
      {"Aggregates", [=](DataLayer& d) { d.CalcSum("balance"); d.CalcAverage("balance"); d.FillCollection("name"); d.FillCBO(list, "name", "id"); d.SetCBOPos(list, Variant(1)); }},
      {"WriteDataToCSV", [=](DataLayer& d) { d.WriteDataToCSV(bad_file + ".csv"); }},
      {"Analyzer", [](DataLayer& d) { d.Analyzer(); }},
      {"CloseDBConnection", [](DataLayer& d) { d.CloseDBConnection(); }},
  };
}

TEST_F(SurroundingsFail, OnlyDocumentedErrorsLeaveAnyOperation) {
  // A folder below a plain file can never be created, not even by the superuser.
  const std::string plain_file = dir_.File("plain.txt");
  std::ofstream(plain_file) << "x";
  const std::string bad_folder = plain_file + "/sub";
  State().suppress_all_messages = true;

  for (int round = 0; round < 3; ++round) {
    for (const Operation& op : EveryOperation(bad_folder)) {
      SCOPED_TRACE(op.name + " in round " + std::to_string(round));
      std::shared_ptr<DataLayer> layer = round == 2 ? std::make_shared<DataLayer>() : Loaded();
      settings_->SetFailing(true);
      State().log_path = bad_folder;
      if (round >= 1) State().current_database = std::make_shared<BrokenDatabase>();
      try {
        op.call(*layer);
        layer.reset();  // the end of the object writes the log's tail
      } catch (const AutomationError& e) {
        EXPECT_EQ(e.Number(), op.allowed_error) << e.Description();
      } catch (const std::exception& e) {
        ADD_FAILURE() << typeid(e).name() << " escaped: " << e.what();
      }
      settings_->SetFailing(false);
      State().current_database.reset();
      State().log_path = log_dir_;
    }
  }
}

}  // namespace
}  // namespace quorbex::test
