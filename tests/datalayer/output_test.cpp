#include <sys/stat.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "datalayer/datalayer_fixture.h"
#include "support/virtual_table.h"
#include "platform/environment.h"
#include "platform/text_viewer.h"
#include "service/modService.h"
#include "support/fake_list_control.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"

namespace quorbex::test {

using namespace quorbex::internal;
namespace {

using Output = DataLayerTest;

const std::string kGap(96, ' ');

std::shared_ptr<DataLayer> Table(const std::vector<std::vector<Variant>>& rows, std::string fields = "ID;Name;Qty") {
  return MakeVirtualTable(std::move(fields), rows);
}

// Records the files it is asked to show, with their content at that moment.
class RecordingViewer final : public platform::TextViewer {
 public:
  bool Open(const std::string& path) override {
    paths.push_back(path);
    contents.push_back(ReadBytes(path));
    return succeed;
  }
  std::vector<std::string> paths, contents;
  bool succeed = true;
};

// The reading rules of the CSV import: parts at ";" up to the first empty one, no quoting.
std::vector<std::string> ImportSplit(const std::string& line) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (;;) {
    const size_t end = line.find(';', start);
    std::string part = line.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (part.empty()) break;
    parts.push_back(part);
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return parts;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

TEST_F(Output, SumAndAverageCountNumericValuesAndDivideByAllRecords) {
  auto layer = Loaded();
  EXPECT_DOUBLE_EQ(layer->CalcSum("balance"), 30.5);  // the Null is skipped...
  EXPECT_DOUBLE_EQ(layer->CalcAverage("balance"), 30.5 / 3);  // ...but counted
  auto mixed = Table({{1, "a", 2}, {2, "b", "x"}, {3, "c", "4"}});
  EXPECT_DOUBLE_EQ(mixed->CalcSum("Qty"), 6.0);  // numeric text counts
  EXPECT_DOUBLE_EQ(mixed->CalcAverage("qty"), 2.0);
  EXPECT_DOUBLE_EQ(mixed->CalcSum("Nothing"), 0.0);
  EXPECT_NE(mixed->ErrorStatus().find("FieldID: Fieldname 'Nothing' not found"), std::string::npos);
  auto empty = Table({});
  EXPECT_DOUBLE_EQ(empty->CalcAverage("Qty"), 0.0);
}

TEST_F(Output, FillCboBuildsTheDisplayTextAndHidesTheIdentifierBehind96Blanks) {
  auto layer = Table({{7, "Anna", "Wien"}, {8, "Bernd", ""}, {9, Null, "Linz"}}, "ID;Name;City");
  auto list = std::make_shared<FakeListControl>();
  list->items = {"old"};
  layer->MoveSpecific(2);
  EXPECT_TRUE(layer->FillCBO(list, "Name", "ID"));
  EXPECT_EQ(list->items, (std::vector<std::string>{"Anna" + kGap + "7", "Bernd" + kGap + "8", kGap + "9"}));
  EXPECT_EQ(layer->ActualPosition(), 2);  // the cursor comes back

  EXPECT_TRUE(layer->FillCBO(list, "Name", "ID", "City", "", true));
  EXPECT_EQ(list->items, (std::vector<std::string>{"Anna, Wien" + kGap + "7", "Bernd" + kGap + "8",
                                                   ", Linz" + kGap + "9"}));
  EXPECT_TRUE(layer->FillCBO(list, "Name", "ID", "City", "ID", false, true));
  EXPECT_EQ(list->items[0], "Anna Wien, 7" + kGap + "7");
  EXPECT_EQ(list->items[1], "Bernd, 8" + kGap + "8");  // the third field comes even after an empty second

  // Unknown names leave the control as it was.
  const int clears = list->clears;
  EXPECT_FALSE(layer->FillCBO(list, "Name", "Key"));
  EXPECT_EQ(list->clears, clears);
  EXPECT_EQ(list->items.size(), 3u);
  EXPECT_NE(layer->ErrorStatus().find("FillCBO: Fieldname 'Key' not found"), std::string::npos);
  EXPECT_FALSE(layer->FillCBO(nullptr, "Name", "ID"));
  EXPECT_NE(layer->ErrorStatus().find("FillCBO: no list control given"), std::string::npos);
  DataLayer empty;
  EXPECT_FALSE(empty.FillCBO(list, "Name", "ID"));
}

TEST_F(Output, SetCboPosSelectsTheItemWhoseIdentifierMatches) {
  auto layer = Table({{7, "Anna"}, {17, "Bernd"}, {27, "Clara"}}, "ID;Name");
  auto list = std::make_shared<FakeListControl>();
  layer->FillCBO(list, "Name", "ID");
  EXPECT_TRUE(layer->SetCBOPos(list, Variant(17)));
  EXPECT_EQ(list->index, 1);
  EXPECT_TRUE(layer->SetCBOPos(list, Variant("7")));
  EXPECT_EQ(list->index, 0);
  EXPECT_FALSE(layer->SetCBOPos(list, Variant(2)));  // not the tail of 27 or 17
  EXPECT_FALSE(layer->SetCBOPos(list, Variant("Anna")));
  EXPECT_EQ(list->index, 0);
  EXPECT_FALSE(layer->SetCBOPos(nullptr, Variant(7)));
}

TEST_F(Output, FillCollectionGivesTheValuesOfAFieldInRecordOrder) {
  auto layer = Loaded();
  auto values = layer->FillCollection("City");
  ASSERT_EQ(values->Count(), 3);
  EXPECT_EQ(values->Item(1).AsString(), "Wien");
  EXPECT_EQ(values->Item(3).AsString(), "Linz");
  auto balances = layer->FillCollection("balance");
  EXPECT_TRUE(balances->Item(1).SameAs(Variant(10.5)));
  EXPECT_TRUE(balances->Item(3).SameAs(Variant("")));  // Null reads as the empty text, as FieldValue has it
  EXPECT_EQ(layer->FillCollection("nothing")->Count(), 0);
}

TEST_F(Output, VisualizeWritesOneLinePerRecordAndStartsTheViewer) {
  auto environment = std::make_shared<FakeEnvironment>();
  environment->Set("TMPDIR", dir_.Path() + "/");
  platform::EnvironmentScope environment_scope(environment);
  auto viewer = std::make_shared<RecordingViewer>();
  platform::TextViewerScope viewer_scope(viewer);

  auto layer = Table({{1, "Anna", 2.5}, {2, Null, true}});
  layer->VisualizeToTextFile();
  ASSERT_EQ(viewer->paths.size(), 1u);
  EXPECT_EQ(viewer->paths[0], dir_.File("Datalayer.txt"));
  EXPECT_EQ(viewer->contents[0], "1 | Anna | 2.5 | \n2 |  | True | \n");
  EXPECT_EQ(layer->ErrorStatus(), "");

  viewer->succeed = false;
  layer->VisualizeToTextFile();
  EXPECT_EQ(layer->ErrorStatus(),
            "\r\n1) VisualizeToTextFile: no text viewer could be started for '" + dir_.File("Datalayer.txt") + "'");

  environment->Set("TMPDIR", dir_.File("missing"));
  layer->ErrorStatus("");
  layer->VisualizeToTextFile();
  EXPECT_NE(layer->ErrorStatus().find("VisualizeToTextFile: cannot write the file"), std::string::npos);
  EXPECT_EQ(viewer->paths.size(), 2u);

  DataLayer empty;
  empty.ErrorStatus("");
  empty.VisualizeToTextFile();
  EXPECT_EQ(empty.ErrorStatus(), "\r\n1) Recordset not Loaded!");
}

TEST_F(Output, TheSystemViewerStartsTheEditorInTheBackgroundWithThePathAsOneArgument) {
  // An "editor" that notes its argument; the path has blanks and a quote that a shell must not split.
  const std::string marker = dir_.File("seen");
  const std::string editor = dir_.File("editor.sh");
  WriteBytes(editor, "#!/bin/sh\nprintf '%s|%s' \"$1\" \"$2\" > '" + marker + ".tmp' && mv '" + marker + ".tmp' '" +
                         marker + "'\n");
  chmod(editor.c_str(), 0700);
  const std::string file = dir_.File("a b'; rm -rf x.txt");
  WriteBytes(file, "x");

  auto environment = std::make_shared<FakeEnvironment>();
  environment->Set("EDITOR", editor + " --flag");
  environment->Set("PATH", "/usr/bin:/bin");
  platform::EnvironmentScope scope(environment);
  auto viewer = platform::SystemTextViewer();
  ASSERT_TRUE(viewer->Open(file));
  std::string seen;
  for (int i = 0; i < 500 && seen.empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    seen = ReadBytes(marker);
  }
  EXPECT_EQ(seen, "--flag|" + file);

  // Nothing runnable at all: false, nothing started.
  environment->Set("EDITOR", dir_.File("no-such-editor"));
  environment->Set("PATH", dir_.Path());
  EXPECT_FALSE(viewer->Open(file));
}

TEST_F(Output, CsvFilesReadBackUnderTheImportRulesAndChangesAreReported) {
  auto layer = Table({{"Anna", "Wien", 1}, {"", Null, 2}, {"semi;colon", "two\r\nlines\nand\rmore", 3}},
                     "Name;Note;id");
  const std::string path = dir_.File("out.csv");
  EXPECT_TRUE(layer->WriteDataToCSV(path));
  const std::vector<std::string> lines = Lines(ReadBytes(path));
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], "Name;Note;id;");  // "id;" is there for the import's ID check
  EXPECT_EQ(lines[1], "Anna;Wien;1;");
  EXPECT_EQ(lines[2], " ; ;2;");  // empty values as one blank, so the line goes on
  EXPECT_EQ(lines[3], "semi,colon;two lines and more;3;");
  for (size_t i = 1; i < lines.size(); ++i) EXPECT_EQ(ImportSplit(lines[i]).size(), 3u) << lines[i];
  EXPECT_EQ(layer->ErrorStatus(),
            "\r\n1) WriteDataToCSV: 2 value(s) held \";\", line breaks or an empty field name, which the CSV import "
            "cannot read; they were written with \",\" for \";\", a blank for each line break and \"Field\" + "
            "position for an empty name (first: record 3, field 'Name')");

  layer->ErrorStatus("");
  auto plain = Loaded();
  EXPECT_TRUE(plain->WriteDataToCSV(path));
  EXPECT_EQ(plain->ErrorStatus(), "");
  EXPECT_EQ(Lines(ReadBytes(path))[1], "1;Anna;Wien;10.5;2020-01-02;True;");

  EXPECT_FALSE(plain->WriteDataToCSV(dir_.File("no/such/folder/out.csv")));
  EXPECT_FALSE(plain->WriteDataToCSV(""));
  EXPECT_EQ(plain->ErrorStatus(),
            "\r\n1) WriteDataToCSV: cannot write the file '" + dir_.File("no/such/folder/out.csv") + "'"
            "\r\n2) WriteDataToCSV: no file path given");
  DataLayer empty;
  EXPECT_FALSE(empty.WriteDataToCSV(path));
}

}  // namespace
}  // namespace quorbex::test
