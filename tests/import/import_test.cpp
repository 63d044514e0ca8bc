// The CSV import: jobs and their manager, the splitting and header rules, refused files, the two real
// files of the shared test data, and the round trip with WriteDataToCSV.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "import/csv_text.h"
#include "platform/message_box.h"
#include "platform/settings.h"
#include "quorbex/DataLayer.h"
#include "quorbex/clsCSV.h"
#include "quorbex/clsImportManager.h"
#include "quorbex/text.h"
#include "service/thread_state.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"
#include "support/virtual_table.h"

namespace quorbex::test {

using namespace quorbex::internal;

namespace {

const std::string kSharedData = QUORBEX_SHARED_DATA;
const std::string kVirtualTableWarning = "New virtual offline table created without an ID column.";

class ImportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    State() = ThreadState{};
    Locale::SetCurrent(Locale::C());
    settings_scope_ = std::make_unique<platform::SettingsScope>(std::make_shared<MemorySettingsStore>());
    box_scope_ = std::make_unique<platform::MessageBoxScope>(std::make_shared<FakeMessageBox>());
    layer_ = std::make_shared<DataLayer>();
  }
  void TearDown() override {
    if (State().current_database) State().current_database->Close();
    State() = ThreadState{};
  }

  // A new job of layer_ that reads `bytes` from the file `name` (with its header line unless told).
  std::shared_ptr<clsCSV> Job(const std::string& name, const std::string& bytes, bool contains_header = true) {
    const std::string path = dir_.File(name);
    WriteBytes(path, bytes);
    auto manager = layer_->Import();
    auto job = manager->CSVImport(manager->AddCSVImport());
    if (contains_header) job->FileContainsHeader(true);
    job->ImportFilePath(path);
    return job;
  }

  std::string Text(const std::string& field) { return CStr(layer_->FieldValue(field)); }
  std::string At(int32_t record, const std::string& field) {
    layer_->MoveSpecific(record);
    return Text(field);
  }

  TempDir dir_;
  std::unique_ptr<platform::SettingsScope> settings_scope_;
  std::unique_ptr<platform::MessageBoxScope> box_scope_;
  std::shared_ptr<DataLayer> layer_;
};

using clsImportManagerTest = ImportTest;
using clsCSVTest = ImportTest;
using CsvRealFiles = ImportTest;
using CsvRoundTrip = ImportTest;

}  // namespace

TEST_F(clsImportManagerTest, JobsCountFromOneAndShareTheParent) {
  auto manager = layer_->Import();
  EXPECT_EQ(manager, layer_->Import());
  EXPECT_EQ(manager->ParentDataLayer(), layer_);
  EXPECT_EQ(manager->Count(), 0);
  EXPECT_EQ(manager->AddCSVImport(), 1);
  EXPECT_EQ(manager->AddCSVImport(), 2);
  EXPECT_EQ(manager->Count(), 2);
  EXPECT_EQ(manager->CSVImport(0), nullptr);
  EXPECT_EQ(manager->CSVImport(3), nullptr);
  EXPECT_EQ(manager->CSVImport(-1), nullptr);
  ASSERT_NE(manager->CSVImport(2), nullptr);
  EXPECT_NE(manager->CSVImport(1), manager->CSVImport(2));
  for (int32_t i = 1; i <= 2; ++i) {
    EXPECT_EQ(manager->CSVImport(i)->ParentDataLayer(), layer_);
    EXPECT_EQ(manager->CSVImport(i)->ImportType(), "CSV");
  }
  // Back references only: the DataLayer ends while the manager is still held.
  std::weak_ptr<DataLayer> gone = layer_;
  layer_.reset();
  EXPECT_TRUE(gone.expired());
  EXPECT_EQ(manager->ParentDataLayer(), nullptr);
}

TEST_F(clsCSVTest, RefusesToRunWithoutFileOrHeaderInformation) {
  auto manager = layer_->Import();
  auto job = manager->CSVImport(manager->AddCSVImport());
  job->CreateDataLayerFromFile();
  EXPECT_EQ(layer_->ErrorStatus(), "\r\n1) CSVImport: No File set to import");

  layer_->ErrorStatus("");
  const std::string missing = dir_.File("missing.csv");
  job->ImportFilePath(missing);
  job->ImportFilePath(dir_.Path());
  job->FileContainsHeader(true);
  job->CreateDataLayerFromFile();  // neither path was kept
  EXPECT_EQ(layer_->ErrorStatus(), "\r\n1) CSVImport: File " + missing + " not found\r\n2) CSVImport: Filename" +
                                       dir_.Path() + " not valid\r\n3) CSVImport: No File set to import");

  layer_->ErrorStatus("");
  auto second = Job("a.csv", "id;Name\n1;x\n", /*contains_header=*/false);
  second->CreateDataLayerFromFile();
  EXPECT_EQ(layer_->ErrorStatus(),
            "\r\n1) CSVImport: Missing Information: Headers! Please set the FileContainsHeader property!");
  EXPECT_FALSE(second->Success);
  // False is header information too, but without Header there are no names.
  layer_->ErrorStatus("");
  second->FileContainsHeader(false);
  second->CreateDataLayerFromFile();
  EXPECT_NE(layer_->ErrorStatus().find("CSVImport.CreateDatalayerFromFile: no field names"), std::string::npos);
  EXPECT_FALSE(second->Success);
  EXPECT_EQ(layer_->SQLStringInUse(), "");
}

TEST_F(clsCSVTest, SplitsAtEverySemicolonUpToTheFirstEmptyValue) {
  auto job = Job("people.csv",
                 "id;Name;City;Note\n"
                 "1;Anna;Wien;x\n"
                 "2;;Graz;y\n"                 // an empty value ends the line
                 "3;\"Ber;lin\";z\n"           // no quoting
                 "4; spaced ;0,5;\n"           // values stay text, untrimmed
                 "5;Jörg;Köln\n");             // fewer values than fields
  job->CreateDataLayerFromFile();
  EXPECT_TRUE(job->Success);
  EXPECT_TRUE(job->Finished());
  EXPECT_EQ(layer_->ErrorStatus(), "");
  EXPECT_EQ(job->LinesCount, 5);
  EXPECT_EQ(layer_->RecordCount(), 5);
  EXPECT_FALSE(job->AddedIDColumn());
  EXPECT_EQ(job->FieldNames(), (std::vector<std::string>{"id", "Name", "City", "Note"}));
  EXPECT_EQ(layer_->SQLStringInUse(), "SELECT * FROM people");

  EXPECT_EQ(At(1, "Name"), "Anna");
  EXPECT_EQ(At(2, "id"), "2");
  EXPECT_TRUE(layer_->FieldObject("Name")->varValue.IsEmpty());
  EXPECT_TRUE(layer_->FieldObject("City")->varValue.IsEmpty());
  EXPECT_EQ(At(3, "Name"), "\"Ber");
  EXPECT_EQ(Text("City"), "lin\"");
  EXPECT_EQ(Text("Note"), "z");
  layer_->MoveSpecific(4);
  EXPECT_EQ(Text("Name"), " spaced ");
  EXPECT_TRUE(layer_->FieldObject("City")->varValue.IsString());
  EXPECT_EQ(Text("City"), "0,5");
  EXPECT_EQ(At(5, "City"), "Köln");
  EXPECT_TRUE(layer_->FieldObject("Note")->varValue.IsEmpty());

  // Every value carries the marks, so a Save would insert the records.
  EXPECT_TRUE(layer_->DataChanged());
  auto record = layer_->GetOfflineRecordset()->Records(1);
  EXPECT_TRUE(record->NewlyAdded);
  EXPECT_TRUE(record->HasChanged);
  EXPECT_TRUE(record->FieldAt(2)->HasChanged);
}

TEST_F(clsCSVTest, PutsAnIDFieldInFrontWhenTheHeaderLacksId) {
  // A header given through Header, with commas; the file has no header line, so line 1 is data.
  auto job = Job("cities.csv", "Anna;Wien\nBernd;Graz\n", /*contains_header=*/false);
  job->Header("Name,City");
  job->CreateDataLayerFromFile();
  EXPECT_TRUE(job->Success);
  EXPECT_EQ(job->LinesCount, 2);
  EXPECT_TRUE(job->AddedIDColumn());
  EXPECT_EQ(job->FieldNames(), (std::vector<std::string>{"ID", "Name", "City"}));
  EXPECT_EQ(layer_->FieldID("ID"), 1);
  // Each value reaches the field named above it, not the "ID" put in front.
  EXPECT_EQ(At(1, "Name"), "Anna");
  EXPECT_EQ(Text("City"), "Wien");
  const std::string first_id = Text("ID");
  EXPECT_EQ(At(2, "Name"), "Bernd");
  EXPECT_EQ(first_id.size(), 32u);
  EXPECT_NE(first_id, Text("ID"));
  EXPECT_EQ(State().auto_guid_column, "ID");

  // The test is on the header's text: "BundeslandID;" counts as "id;", a last "ID" without ";" does not.
  auto other = std::make_shared<DataLayer>();
  layer_ = other;
  auto by_text = Job("states.csv", "BundeslandID;Name\n1;Burgenland\n");
  by_text->CreateDataLayerFromFile();
  EXPECT_FALSE(by_text->AddedIDColumn());
  EXPECT_NE(layer_->ErrorStatus().find(kVirtualTableWarning), std::string::npos);
  EXPECT_EQ(At(1, "Name"), "Burgenland");

  layer_ = std::make_shared<DataLayer>();
  auto last_id = Job("last.csv", "Name;ID\nAnna;17\n");
  last_id->CreateDataLayerFromFile();
  EXPECT_TRUE(last_id->AddedIDColumn());
  EXPECT_EQ(last_id->FieldNames(), (std::vector<std::string>{"ID", "Name", "ID"}));
  layer_->MoveSpecific(1);
  EXPECT_EQ(CStr(layer_->FieldValue("", 2)), "Anna");
  EXPECT_EQ(CStr(layer_->FieldValue("", 3)), "17");  // the file's own ID keeps its value
  EXPECT_EQ(CStr(layer_->FieldValue("", 1)).size(), 32u);
}

TEST_F(clsCSVTest, ReadsByteOrderMarkLineEndsAndALastLineWithoutBreak) {
  auto job = Job("crlf.csv", "\xEF\xBB\xBFid;Name;Note\r\n1;a;x\r\n\r\n3;c\rd;z\r\n4;e;last");
  job->CreateDataLayerFromFile();
  EXPECT_TRUE(job->Success);
  EXPECT_EQ(job->FieldNames().front(), "id");  // the mark is not part of the first name
  EXPECT_EQ(job->LinesCount, 4);               // the empty line is a record without values
  EXPECT_EQ(At(1, "Note"), "x");               // the CR is not part of the last value
  layer_->MoveSpecific(2);
  EXPECT_TRUE(layer_->FieldObject("id")->varValue.IsEmpty());
  EXPECT_EQ(At(3, "Name"), "c\rd");  // a CR inside a line stays
  EXPECT_EQ(At(4, "Note"), "last");

  layer_ = std::make_shared<DataLayer>();
  auto trailing_cr = Job("cr.csv", "id;Name\n1;a\r");
  trailing_cr->CreateDataLayerFromFile();
  EXPECT_EQ(At(1, "Name"), "a");

  // A header line and three data lines give LinesCount 3, whatever the last line break.
  for (const std::string& tail : {std::string(""), std::string("\n")}) {
    layer_ = std::make_shared<DataLayer>();
    auto three = Job("three.csv", "id;v\n1;a\n2;b\n3;c" + tail);
    three->CreateDataLayerFromFile();
    EXPECT_EQ(three->LinesCount, 3);
    EXPECT_EQ(layer_->RecordCount(), 3);
  }
}

TEST_F(clsCSVTest, RefusesBadFilesAndLeavesTheDataLayerUntouched) {
  const std::string long_value(1024 * 1024, 'x');
  struct Case {
    std::string bytes;
    std::string reason;
  };
  const std::vector<Case> cases = {
      {"", "is empty"},
      {"\xEF\xBB\xBF", "is empty"},
      {std::string("id;Name\n1;a\0b\n", 14), "NUL byte (line 2, byte 4)"},
      {"id;Name\n1;\xC3\n", "not valid UTF-8 (line 2, byte 3)"},
      {"id;Name\n1;Gr\xFC\xDF" "e\n", "not valid UTF-8 (line 2, byte 5)"},
      {"id;Name\n1;" + long_value + "\n", "line 2 is longer than 1 MB"},
      {"id;Name;name\n1;a;b\n", "the field name 'name' twice"},
      {"id;;Name\n1;a\n", "empty field name at position 2, before the name 'Name'"},
      {";\n1\n", "holds no field name"},
      {" ;id\n1\n", "empty field name at position 1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.reason);
    layer_ = std::make_shared<DataLayer>();
    auto job = Job("bad.csv", c.bytes);
    job->CreateDataLayerFromFile();
    EXPECT_FALSE(job->Success);
    const std::string status = layer_->ErrorStatus();
    EXPECT_EQ(status.rfind("\r\n1) CSVImport.CreateDatalayerFromFile: ", 0), 0u) << status;
    EXPECT_NE(status.find(c.reason), std::string::npos) << status;
    EXPECT_EQ(layer_->SQLStringInUse(), "");
    EXPECT_EQ(layer_->RecordCount(), 0);
  }

  // A line of exactly 1 MB (its CR LF not counted) is taken.
  layer_ = std::make_shared<DataLayer>();
  auto full = Job("full.csv", "id\r\n" + long_value.substr(2) + "x;\r\n");
  full->CreateDataLayerFromFile();
  EXPECT_TRUE(full->Success) << layer_->ErrorStatus();

  // A file the process may not read (root may read anything, so only checked for others).
  if (geteuid() != 0) {
    layer_ = std::make_shared<DataLayer>();
    auto job = Job("locked.csv", "id;a\n1;2\n");
    chmod(dir_.File("locked.csv").c_str(), 0);
    job->CreateDataLayerFromFile();
    EXPECT_NE(layer_->ErrorStatus().find("cannot be read"), std::string::npos);
    EXPECT_EQ(layer_->SQLStringInUse(), "");
  }

  // Into a DataLayer that already holds a table: the declaration's own refusal is reported.
  layer_ = std::make_shared<DataLayer>();
  auto first = Job("one.csv", "id;a\n1;2\n");
  first->CreateDataLayerFromFile();
  auto again = Job("two.csv", "id;a\n3;4\n");
  again->CreateDataLayerFromFile();
  EXPECT_FALSE(again->Success);
  EXPECT_NE(layer_->ErrorStatus().find("CSVImport.CreateDatalayerFromFile: Cannot create table if a table already exists"),
            std::string::npos);
  EXPECT_EQ(layer_->RecordCount(), 1);
}

TEST_F(clsCSVTest, ValuesBeyondTheHeaderAreReportedAndTheRecordsKept) {
  auto job = Job("wide.csv", "id;a\n1;x\n2;y;extra\n3;z;more;still\n");
  job->CreateDataLayerFromFile();
  EXPECT_FALSE(job->Success);
  EXPECT_EQ(job->LinesCount, 3);
  EXPECT_EQ(layer_->RecordCount(), 3);
  EXPECT_EQ(At(3, "a"), "z");
  EXPECT_EQ(layer_->ErrorStatus(),
            "\r\n1) CSVImport.CreateDatalayerFromFile: 2 line(s) held more values than the header has fields; the "
            "values beyond were not imported (first: line 3)");
}

TEST_F(clsCSVTest, TableNameAndFieldNamesWithCommas) {
  auto job = Job("My Data.v2.csv", "id;Name, first;Land- und Forstwirtschaft, Fischerei (%)\n1;Anna;3,5\n");
  job->CreateDataLayerFromFile();
  EXPECT_TRUE(job->Success) << layer_->ErrorStatus();
  EXPECT_EQ(job->TableName(), "My Data.v2");
  EXPECT_EQ(layer_->SQLStringInUse(), "SELECT * FROM My Data.v2");
  EXPECT_EQ(At(1, "Name, first"), "Anna");
  EXPECT_EQ(Text("Land- und Forstwirtschaft, Fischerei (%)"), "3,5");
  EXPECT_EQ(layer_->GetOfflineRecordset()->Records(1)->FieldCount(), 3);

  layer_ = std::make_shared<DataLayer>();
  auto named = Job("x.csv", "id;a\n1;2\n");
  named->TableName("imported");
  named->CreateDataLayerFromFile();
  EXPECT_EQ(layer_->SQLStringInUse(), "SELECT * FROM imported");

  EXPECT_EQ(TableNameFromPath("C:\\data\\ .csv"), "undefined");
  EXPECT_EQ(TableNameFromPath("/tmp/ plain "), "plain");
}

TEST_F(CsvRealFiles, CovidTimeline) {
  auto manager = layer_->Import();
  auto job = manager->CSVImport(manager->AddCSVImport());
  job->FileContainsHeader(true);
  job->ImportFilePath(kSharedData + "/CovidFaelle_Timeline.csv");
  job->CreateDataLayerFromFile();
  EXPECT_TRUE(job->Success);
  EXPECT_EQ(job->LinesCount, 11890);
  ASSERT_EQ(layer_->RecordCount(), 11890);
  // "BundeslandID;" holds "id;": no ID field is added, and the virtual table says it has none.
  EXPECT_FALSE(job->AddedIDColumn());
  EXPECT_NE(layer_->ErrorStatus().find(kVirtualTableWarning), std::string::npos);
  EXPECT_EQ(job->FieldNames(),
            (std::vector<std::string>{"Time", "Bundesland", "BundeslandID", "AnzEinwohner", "AnzahlFaelle",
                                      "AnzahlFaelleSum", "AnzahlFaelle7Tage", "SiebenTageInzidenzFaelle",
                                      "AnzahlTotTaeglich", "AnzahlTotSum", "AnzahlGeheiltTaeglich",
                                      "AnzahlGeheiltSum"}));
  EXPECT_EQ(layer_->SQLStringInUse(), "SELECT * FROM CovidFaelle_Timeline");
  EXPECT_EQ(At(2, "Bundesland"), "Kärnten");
  EXPECT_EQ(At(9, "SiebenTageInzidenzFaelle"), "0,05124647");
  EXPECT_EQ(Text("Time"), "26.02.2020 00:00:00");
  // The last line has no line break after it.
  EXPECT_EQ(At(11890, "Bundesland"), "Österreich");
  EXPECT_EQ(Text("AnzahlGeheiltSum"), "6048712");
  EXPECT_EQ(Text("SiebenTageInzidenzFaelle"), "19,7829");
}

TEST_F(CsvRealFiles, BundestagStructureDataAfterItsCommentLines) {
  // The file has seven "#" lines and a line of column numbers before its header. A client drops them
  // and imports the rest; the byte-order mark stays where it was.
  const std::string original = ReadBytes(kSharedData + "/btw21_strukturdaten.csv");
  ASSERT_EQ(original.rfind("\xEF\xBB\xBF#", 0), 0u);
  size_t header_start = 3;
  for (int skip = 0; skip < 8; ++skip) header_start = original.find('\n', header_start) + 1;
  auto job = Job("btw21_strukturdaten.csv", "\xEF\xBB\xBF" + original.substr(header_start));
  job->CreateDataLayerFromFile();
  EXPECT_TRUE(job->Success) << layer_->ErrorStatus();
  EXPECT_EQ(job->LinesCount, 316);
  ASSERT_EQ(layer_->RecordCount(), 316);
  EXPECT_TRUE(job->AddedIDColumn());
  const auto& names = job->FieldNames();
  ASSERT_EQ(names.size(), 53u);
  EXPECT_EQ(names[1], "Land");
  EXPECT_EQ(names[3], "Wahlkreis-Name");
  EXPECT_EQ(names[52], "Fußnoten");
  EXPECT_EQ(names[50].find("Arbeitslosenquote"), 0u);
  const std::string trade = "Sozialversicherungspflichtig Beschäftigte am 30.06.2020 - Handel, Gastgewerbe, Verkehr (%)";
  EXPECT_NE(std::find(names.begin(), names.end(), trade), names.end());
  EXPECT_EQ(names.size(), std::set<std::string>(names.begin(), names.end()).size());

  EXPECT_EQ(At(1, "Land"), "Schleswig-Holstein");
  EXPECT_EQ(Text("Wahlkreis-Name"), "Flensburg – Schleswig");
  EXPECT_EQ(Text("Fläche am 31.12.2019 (km²)"), "2.124,30");
  EXPECT_EQ(CStr(layer_->FieldValue("", 2)), "Schleswig-Holstein");
  EXPECT_EQ(At(316, "Wahlkreis-Nr."), "999");
  EXPECT_EQ(Text("Land"), "Deutschland");
  // No value keeps the CR of its line end; the footnotes are filled where the file has them.
  int footnotes = 0;
  for (int32_t i = 1; i <= 316; ++i) {
    auto record = layer_->GetOfflineRecordset()->Records(i);
    for (int32_t j = 1; j <= record->FieldCount(); ++j) {
      EXPECT_EQ(CStr(record->FieldAt(j)->varValue).find('\r'), std::string::npos);
    }
    if (!CStr(record->FieldAt(53)->varValue).empty()) ++footnotes;
  }
  EXPECT_GT(footnotes, 0);
}

TEST_F(CsvRoundTrip, WriteDataToCSVReadsBackToTheSameValues) {
  // A real table with Nulls, umlauts, numbers and dates, and a virtual one with the awkward texts.
  layer_->SetDatabaseByPath(kSharedData + "/Chinook_Sqlite.sqlite");
  auto source = std::make_shared<DataLayer>();
  source->GetRecordset("SELECT * FROM Customer ORDER BY CustomerId");
  ASSERT_EQ(source->RecordCount(), 59) << source->ErrorStatus();
  auto awkward = MakeVirtualTable("ID;Name;Amount;Note",
                                  {{Variant("1"), Variant("Ärger & Öl"), Variant(3.25), Variant("a\"b\"")},
                                   {Variant("2"), Variant(" Blank "), Variant(-7), Variant(Null)},
                                   {Variant("3"), Variant("日本語"), Variant(0.5), Variant("x")}});

  for (const auto& from : {source, awkward}) {
    const std::string path = dir_.File("out.csv");
    layer_->ErrorStatus("");
    ASSERT_TRUE(from->WriteDataToCSV(path));
    ASSERT_EQ(layer_->ErrorStatus(), "");
    auto back = std::make_shared<DataLayer>();
    layer_ = back;
    auto manager = back->Import();
    auto job = manager->CSVImport(manager->AddCSVImport());
    job->FileContainsHeader(true);
    job->ImportFilePath(path);
    job->CreateDataLayerFromFile();
    ASSERT_TRUE(job->Success) << back->ErrorStatus();
    EXPECT_FALSE(job->AddedIDColumn());
    ASSERT_EQ(back->RecordCount(), from->RecordCount());
    for (int32_t i = 1; i <= from->RecordCount(); ++i) {
      auto written = from->GetOfflineRecordset()->Records(i);
      auto read = back->GetOfflineRecordset()->Records(i);
      ASSERT_EQ(read->FieldCount(), written->FieldCount());
      for (int32_t j = 1; j <= written->FieldCount(); ++j) {
        EXPECT_EQ(read->FieldAt(j)->Description.str(), written->FieldAt(j)->Description.str());
        // An empty value is written as one blank, the form the import can read.
        const std::string text = CStr(written->FieldAt(j)->Value());
        EXPECT_EQ(CStr(read->FieldAt(j)->varValue), text.empty() ? " " : text) << "record " << i << ", field " << j;
      }
    }
  }
}

}  // namespace quorbex::test
