#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "datalayer/XMLWrapper.h"
#include "datalayer/datalayer_fixture.h"
#include "platform/files.h"
#include "platform/progress_renderer.h"
#include "platform/xmlfile.h"
#include "service/modService.h"
#include "support/temp_dir.h"

namespace quorbex::test {

using namespace quorbex::internal;
namespace {

using XmlPersistence = DataLayerTest;

// Exact equality of kind and bits (a NaN equals a NaN with the same bits).
bool Identical(const Variant& a, const Variant& b) {
  if (a.Type() != b.Type()) return false;
  if (a.Type() == VarType::Double) return std::bit_cast<uint64_t>(a.AsDouble()) == std::bit_cast<uint64_t>(b.AsDouble());
  if (a.Type() == VarType::Single) return std::bit_cast<uint32_t>(a.AsSingle()) == std::bit_cast<uint32_t>(b.AsSingle());
  if (a.Type() == VarType::Date) {
    return std::bit_cast<uint64_t>(a.AsDate().serial) == std::bit_cast<uint64_t>(b.AsDate().serial);
  }
  return a.SameAs(b);
}

// Every cell of both recordsets: name, type code, value, change mark and status pair; record marks.
void ExpectSameRecords(const clsOfflineRecordset& expected, const clsOfflineRecordset& actual) {
  ASSERT_EQ(expected.RecordCount(), actual.RecordCount());
  for (int32_t i = 1; i <= expected.RecordCount(); ++i) {
    auto e = expected.Records(i);
    auto a = actual.Records(i);
    ASSERT_EQ(e->FieldCount(), a->FieldCount()) << "record " << i;
    EXPECT_EQ(e->HasChanged, a->HasChanged) << "record " << i;
    EXPECT_EQ(e->NewlyAdded, a->NewlyAdded) << "record " << i;
    for (int32_t j = 1; j <= e->FieldCount(); ++j) {
      const clsOfflineField& ef = *e->FieldAt(j);
      const clsOfflineField& af = *a->FieldAt(j);
      EXPECT_EQ(ef.Description.str(), af.Description.str()) << "record " << i << " field " << j;
      EXPECT_EQ(ef.lngFieldType, af.lngFieldType) << "record " << i << " field " << j;
      EXPECT_TRUE(Identical(ef.varValue, af.varValue)) << "record " << i << " field " << j << ": "
                                                       << ToText(ef.varValue) << " / " << ToText(af.varValue);
      EXPECT_EQ(static_cast<bool>(ef.HasChanged), static_cast<bool>(af.HasChanged)) << "record " << i;
      EXPECT_EQ(ef.IsStatusSet(), af.IsStatusSet()) << "record " << i << " field " << j;
      EXPECT_EQ(ef.Status(), af.Status()) << "record " << i << " field " << j;
    }
  }
}

// One value of every kind and awkward shape, each in its own record of the table ID;Value.
std::vector<Variant> EveryKind() {
  const double nan_with_payload = std::bit_cast<double>(uint64_t{0xFFF8000000000123});
  return {
      Variant(), Variant(Null), Variant(""), Variant(" "), Variant("   padded   "),
      Variant("Grüße, Łódź, 東京, 😀"), Variant("line\r\nbreak\rcr only\nlf\ttab"),
      Variant(std::string("nul\0inside", 10)), Variant("\x01\x08\x0B\x0C\x1F\x7F control"),
      Variant("]]> and <![CDATA[ x ]]>"), Variant("<tag attr=\"v\">&amp; 'q'</tag>"),
      Variant("back\\slash \\x41 stays"), Variant("broken \xFF\xFE utf-8 \xC3"), Variant("\xEF\xBF\xBE noncharacter"),
      Variant("\xED\xA0\x80 surrogate"),
      Variant(true), Variant(false),
      Variant(uint8_t{0}), Variant(uint8_t{255}),
      Variant(int16_t{-32768}), Variant(int16_t{32767}),
      Variant(std::numeric_limits<int32_t>::min()), Variant(std::numeric_limits<int32_t>::max()),
      Variant(0.1f), Variant(-0.0f), Variant(std::numeric_limits<float>::denorm_min()),
      Variant(std::numeric_limits<float>::infinity()),
      Variant(0.1), Variant(-0.0), Variant(1.0 / 3.0), Variant(1e308), Variant(-2.2250738585072014e-308),
      Variant(std::numeric_limits<double>::denorm_min()), Variant(-std::numeric_limits<double>::infinity()),
      Variant(nan_with_payload), Variant(123456789012345678.0),
      Variant(Currency{0}), Variant(Currency{12345}), Variant(Currency{-5}),
      Variant(Currency{std::numeric_limits<int64_t>::max()}), Variant(Currency{std::numeric_limits<int64_t>::min()}),
      Variant(DateSerial(2020, 1, 2)), Variant(MakeDate({2021, 3, 4, 13, 5, 59})),
      Variant(Date{43832.123456789}), Variant(Date{-1.25}), Variant(MakeDate({9999, 12, 31, 23, 59, 59})),
      Variant(DateSerial(100, 1, 1)), Variant(Date{0.0}), Variant(Date{3e6}),
  };
}

std::shared_ptr<DataLayer> TableOf(const std::vector<Variant>& values) {
  auto layer = std::make_shared<DataLayer>();
  std::string description = "Kinds", fields = "ID;Value";
  layer->CreateNewVirtualOfflineTable(description, fields);
  for (size_t i = 0; i < values.size(); ++i) {
    layer->AddNew();
    layer->FieldObject("ID")->varValue = Variant(static_cast<int32_t>(i + 1));
    layer->FieldObject("ID")->lngFieldType = 4;
    layer->FieldObject("Value")->varValue = values[i];
    layer->FieldObject("Value")->lngFieldType = static_cast<int32_t>(i);
  }
  return layer;
}

TEST_F(XmlPersistence, ARoundTripRestoresEveryKindOfValueExactly) {
  auto layer = TableOf(EveryKind());
  // Marks of every sort, on some records only.
  layer->MoveSpecific(3);
  layer->SetFieldValue("Value", "changed");
  layer->FieldObject("ID")->FieldStatus(false);
  layer->MoveSpecific(5);
  layer->FieldObject("Value")->FieldStatus(true);
  auto records = layer->GetOfflineRecordset();
  records->Records(2)->NewlyAdded = false;

  const std::string path = dir_.File("kinds.xml");
  ASSERT_TRUE(layer->SaveAsXML(path, "Kinds")) << layer->ErrorStatus();
  auto loaded = std::make_shared<DataLayer>();
  ASSERT_TRUE(loaded->LoadFromXML(path, true)) << loaded->ErrorStatus();
  EXPECT_EQ(loaded->ErrorStatus(), "");
  ExpectSameRecords(*records, *loaded->GetOfflineRecordset());

  // It reads as a loaded table: the query, the names; read-only like every attached one. Attaching
  // leaves the cursor of a fresh object before the first record, so a MoveNext loop starts on 1.
  EXPECT_EQ(loaded->SQLStringInUse(), "SELECT * FROM Kinds");
  EXPECT_EQ(loaded->ActualPosition(), 0);
  loaded->MoveNext();
  EXPECT_EQ(loaded->ActualPosition(), 1);
  EXPECT_EQ(loaded->FieldID("value"), 2);
  EXPECT_TRUE(loaded->ReadOnly());
  loaded->MoveSpecific(6);
  EXPECT_EQ(loaded->FieldValue("Value").AsString(), "Grüße, Łódź, 東京, 😀");
  EXPECT_TRUE(loaded->CheckContainsFieldName("ID"));

  // Saving what was loaded gives the same document again.
  const std::string again = dir_.File("again.xml");
  ASSERT_TRUE(loaded->SaveAsXML(again, "Kinds"));
  EXPECT_EQ(ReadBytes(again), ReadBytes(path));
}

TEST_F(XmlPersistence, NamesQueryAndRootElementSurviveAnyText) {
  auto records = std::make_shared<clsOfflineRecordset>();
  records->Add(2);
  records->FieldDim(1, "plain");
  records->FieldDim(1, "with \"quotes\" & <angles>\ttab\nnewline");
  records->FieldDim(1, "ctl\x01 and \\ back");
  records->FieldDim(1, "");
  const std::string query = "SELECT * FROM t WHERE a = 'x\x02' AND b <> \"]]>\"\r\n ORDER BY c";
  XMLWrapper writer;
  writer.Data(records, query);
  const std::string path = dir_.File("names.xml");
  writer.WriteXML(path, "Ärger_1.x-y", true);
  ASSERT_EQ(writer.ErrorText(), "");

  XMLWrapper reader;
  reader.ReadXML(path, true);
  ASSERT_EQ(reader.ErrorText(), "");
  EXPECT_EQ(reader.RootElement(), "Ärger_1.x-y");
  EXPECT_EQ(reader.Query(), query);
  ASSERT_TRUE(reader.ORS());
  EXPECT_EQ(reader.ORS()->Tag, "AllowAttach");
  ExpectSameRecords(*records, *reader.ORS());
  // Records read share one stored name per column.
  EXPECT_TRUE(reader.ORS()->Records(1)->FieldAt(2)->Description.SharesStorageWith(
      reader.ORS()->Records(2)->FieldAt(2)->Description));
}

TEST_F(XmlPersistence, TheDocumentIsReadableXmlOfTheDocumentedShape) {
  auto layer = Loaded();
  layer->MoveSpecific(2);
  layer->SetFieldValue("city", "Tab\there\x01");
  const std::string path = dir_.File("shop.xml");
  ASSERT_TRUE(layer->SaveAsXML(path, "Customers", true));
  const std::string text = ReadBytes(path);
  EXPECT_EQ(text.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Customers format=\"quorbex-datalayer\" "
                       "version=\"1\" records=\"3\">\n  <Query>SELECT * FROM customers ORDER BY id</Query>\n",
                       0),
            0u);
  EXPECT_NE(text.find("<Field name=\"name\" type=\"10\" kind=\"String\">Anna</Field>"), std::string::npos);
  EXPECT_NE(text.find("<Field name=\"balance\" type=\"7\" kind=\"Double\">10.5</Field>"), std::string::npos);
  EXPECT_NE(text.find("<Field name=\"since\" type=\"8\" kind=\"Date\">2020-01-02 00:00:00</Field>"),
            std::string::npos);
  EXPECT_NE(text.find("<Field name=\"balance\" type=\"7\" kind=\"Null\"/>"), std::string::npos);
  EXPECT_NE(text.find("<Record changed=\"1\">"), std::string::npos);
  EXPECT_NE(text.find("changed=\"1\" kind=\"String\" escaped=\"1\">Tab\there\\x01</Field>"), std::string::npos);
  EXPECT_TRUE(text.ends_with("</Customers>\n"));
  // Nothing XML 1.0 forbids is in the file.
  for (unsigned char c : text) EXPECT_FALSE(c < 0x20 && c != '\n' && c != '\t') << static_cast<int>(c);
}

TEST_F(XmlPersistence, LoadedDataMatchesARealDatabase) {
  auto layer = std::make_shared<DataLayer>();
  layer->SetDatabaseByPath(std::string(QUORBEX_SHARED_DATA) + "/Chinook_Sqlite.sqlite");
  layer->GetRecordset("SELECT * FROM Customer ORDER BY CustomerId");
  ASSERT_EQ(layer->RecordCount(), 59) << layer->ErrorStatus();
  const std::string path = dir_.File("chinook.xml");
  ASSERT_TRUE(layer->SaveAsXML(path, "Customer", true));
  auto loaded = std::make_shared<DataLayer>();
  ASSERT_TRUE(loaded->LoadFromXML(path, true));
  ExpectSameRecords(*layer->GetOfflineRecordset(), *loaded->GetOfflineRecordset());
  loaded->MoveSpecific(2);
  EXPECT_EQ(loaded->FieldValue("LastName").AsString(), "Köhler");
}

TEST_F(XmlPersistence, SaveAndLoadRefuseTheWrongState) {
  DataLayer empty;
  EXPECT_FALSE(empty.SaveAsXML(dir_.File("x.xml"), "Root"));
  EXPECT_EQ(empty.ErrorStatus(), "\r\n1) No recordset loaded! Nothing to save!");

  auto layer = Loaded();
  layer->ErrorStatus("");
  EXPECT_FALSE(layer->LoadFromXML(dir_.File("x.xml")));
  EXPECT_EQ(layer->ErrorStatus(),
            "\r\n1) Cannot load XML file when recordset is already loaded. Please use new instance of this class.");

  layer->ErrorStatus("");
  EXPECT_FALSE(layer->SaveAsXML(dir_.File("x.xml"), "1st"));
  EXPECT_FALSE(layer->SaveAsXML(dir_.File("x.xml"), ""));
  EXPECT_FALSE(layer->SaveAsXML(dir_.File("x.xml"), "a b"));
  EXPECT_FALSE(layer->SaveAsXML(dir_.File("x.xml"), "ns:root"));
  EXPECT_FALSE(layer->SaveAsXML(dir_.File("no/such/folder/x.xml"), "Root"));
  EXPECT_EQ(layer->ErrorStatus(),
            "\r\n1) WriteXML: '1st' is not a valid XML element name for the root element"
            "\r\n2) WriteXML: '' is not a valid XML element name for the root element"
            "\r\n3) WriteXML: 'a b' is not a valid XML element name for the root element"
            "\r\n4) WriteXML: 'ns:root' is not a valid XML element name for the root element"
            "\r\n5) WriteXML: cannot write the file '" + dir_.File("no/such/folder/x.xml") + "'");
  EXPECT_FALSE(platform::FileExists(dir_.File("x.xml")));
}

// A saved file of the shop table, then damaged in one way per case: each load fails with a text
// naming the problem and leaves the DataLayer as it was, ready for a good file.
TEST_F(XmlPersistence, BrokenTruncatedAndForeignFilesLoadNothing) {
  const std::string good = dir_.File("good.xml");
  ASSERT_TRUE(Loaded()->SaveAsXML(good, "Customers", true));
  const std::string text = ReadBytes(good);
  const auto replaced = [&](const std::string& from, const std::string& to) {
    std::string copy = text;
    const size_t at = copy.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return copy.replace(at, from.size(), to);
  };

  struct Case {
    std::string content;
    std::string message;
  };
  const std::vector<Case> cases = {
      {"", "not well-formed XML (the document is empty)"},
      // What a lenient parser would take and alter: a reference to U+0000 or a surrogate, a byte that
      // is no UTF-8, a second root element.
      {replaced("kind=\"String\">Anna<", "kind=\"String\">An&#0;na<"), "not well-formed XML (line "},
      {replaced("kind=\"String\">Anna<", "kind=\"String\">An&#xD800;na<"), "not well-formed XML (line "},
      {replaced("kind=\"String\">Anna<", "kind=\"String\">An\xffna<"), "not well-formed XML (line "},
      {text + "<more/>", "not well-formed XML (line "},
      {text.substr(0, text.size() / 2), "not well-formed XML ("},
      {text.substr(0, text.size() - 3), "not well-formed XML ("},
      {"id;name\n1;Anna\n", "not well-formed XML ("},
      {"<html><body>hello</body></html>", "not a Quorbex DataLayer data file (the root element <html> has no "
                                          "format=\"quorbex-datalayer\")"},
      {replaced("version=\"1\"", "version=\"7\""), "data file version \"7\" cannot be read"},
      {replaced("records=\"3\"", "records=\"4\""), "the file announces 4 records but holds 3"},
      {replaced("records=\"3\"", "records=\"many\""), "the root element has no valid records count"},
      {replaced("<Query>", "<Other/><Query>"), "unexpected element <Other> in the root element"},
      {replaced("  <Query>SELECT * FROM customers ORDER BY id</Query>\n", ""), "the <Query> element is missing"},
      {replaced("kind=\"Long\">2<", "kind=\"Long\">two<"),
       "record 2, field 1 (\"id\"): \"two\" is not a valid Long value"},
      {replaced("kind=\"Double\">10.5<", "kind=\"Double\">10,5<"), "record 1, field 4 (\"balance\"): \"10,5\" is not a valid Double value"},
      {replaced("kind=\"Date\">2020-01-02 00:00:00<", "kind=\"Date\">2020-02-30 00:00:00<"),
       "record 1, field 5 (\"since\"): \"2020-02-30 00:00:00\" is not a valid Date value"},
      {replaced("kind=\"String\">Anna<", "kind=\"Text\">Anna<"), "record 1, field 2 (\"name\"): unknown kind \"Text\""},
      {replaced("kind=\"String\">Anna<", "kind=\"String\" escaped=\"1\">An\\qna<"),
       "record 1, field 2 (\"name\"): the text has a broken escape sequence"},
      {replaced("<Field name=\"name\" type=\"10\" kind=\"String\">Anna</Field>", "<Cell/>"),
       "record 1: unexpected element <Cell>"},
      {replaced(" kind=\"String\">Anna<", ">Anna<"), "record 1, field 2 (\"name\"): the field has no kind"},
  };
  const std::string path = dir_.File("bad.xml");
  auto layer = std::make_shared<DataLayer>();
  for (const Case& c : cases) {
    WriteBytes(path, c.content);
    layer->ErrorStatus("");
    EXPECT_FALSE(layer->LoadFromXML(path, true)) << c.message;
    EXPECT_NE(layer->ErrorStatus().find("1) ReadXML: '" + path + "': " + c.message), std::string::npos)
        << layer->ErrorStatus();
    EXPECT_EQ(layer->RecordCount(), 0);
    EXPECT_FALSE(layer->GetOfflineRecordset());
  }
  layer->ErrorStatus("");
  EXPECT_FALSE(layer->LoadFromXML(dir_.File("missing.xml")));
  EXPECT_EQ(layer->ErrorStatus(), "\r\n1) ReadXML: file '" + dir_.File("missing.xml") + "' not found");
  EXPECT_TRUE(layer->LoadFromXML(good, true));
  EXPECT_EQ(layer->RecordCount(), 3);
}

TEST_F(XmlPersistence, EmptyTablesAndRecordsWithoutFieldsRoundTrip) {
  // A table whose records were all removed, and one built with AddNew alone (no query text).
  auto layer = Loaded();
  bool offline = false;
  while (layer->RecordCount() > 0) layer->RemoveRecord(offline);
  const std::string path = dir_.File("empty.xml");
  ASSERT_TRUE(layer->SaveAsXML(path, "Customers", true));
  auto loaded = std::make_shared<DataLayer>();
  ASSERT_TRUE(loaded->LoadFromXML(path, true));
  EXPECT_EQ(loaded->RecordCount(), 0);
  EXPECT_EQ(loaded->ActualPosition(), 0);

  auto bare = std::make_shared<DataLayer>();
  bare->AddNew();
  bare->AddNew();
  ASSERT_TRUE(bare->SaveAsXML(path, "Bare", true));
  auto back = std::make_shared<DataLayer>();
  ASSERT_TRUE(back->LoadFromXML(path, true)) << back->ErrorStatus();
  EXPECT_EQ(back->SQLStringInUse(), "SELECT * FROM Dummy");
  ExpectSameRecords(*bare->GetOfflineRecordset(), *back->GetOfflineRecordset());
}

class CountingRenderer final : public platform::ProgressRenderer {
 public:
  void Draw(const frmProgress::Label& bar, const frmProgress::Label& description, const frmProgress::Label&) override {
    ++draws;
    last_width = bar.Width;
    caption = description.Caption;
  }
  void Close() override { ++closes; }
  int draws = 0, closes = 0;
  double last_width = 0;
  std::string caption;
};

TEST_F(XmlPersistence, TheProgressBarIsDrawnUnlessDisabled) {
  auto renderer = std::make_shared<CountingRenderer>();
  auto previous = platform::Install(std::shared_ptr<platform::ProgressRenderer>(renderer));
  auto layer = TableOf(std::vector<Variant>(250, Variant(1)));
  const std::string path = dir_.File("p.xml");
  EXPECT_TRUE(layer->SaveAsXML(path, "P", true));
  EXPECT_EQ(renderer->draws, 0);
  EXPECT_TRUE(layer->SaveAsXML(path, "P"));
  EXPECT_EQ(renderer->draws, 101);  // 0% to 100%
  EXPECT_EQ(renderer->last_width, frmProgress::kBarWidth);
  EXPECT_EQ(renderer->caption, "Writing XML...");
  EXPECT_EQ(renderer->closes, 1);
  EXPECT_TRUE(std::make_shared<DataLayer>()->LoadFromXML(path));
  EXPECT_EQ(renderer->caption, "Reading XML...");
  EXPECT_EQ(renderer->closes, 2);
  platform::Install(previous);
}

TEST(XmlDataFile, WritesAndReadsANeutralTableAndReportsMissingBindings) {
  TempDir dir;
  auto table = std::make_shared<platform::XmlTable>();
  table->query = "q";
  table->rows.push_back({{true, false}, {{"a", 3, Variant(int32_t{7}), {true, true, false}}, {"b", 0, Variant(Null), {}}}});
  table->rows.push_back({{}, {}});
  platform::XmlDataFile file;
  file.DisableProgressBar(true);
  file.WriteXML();
  EXPECT_EQ(file.ErrorStatus(), "WriteXML: no data to write (OutputDataBinding is not set)");
  file.OutputDataBinding(table);
  file.WriteXML();
  EXPECT_EQ(file.ErrorStatus(), "WriteXML: no file path given");
  file.XMLFilePath(dir.File("t.xml"));
  file.RootElement("T");
  file.WriteXML();
  ASSERT_EQ(file.ErrorStatus(), "");

  platform::XmlDataFile reader;
  reader.XMLFilePath(dir.File("t.xml"));
  reader.DisableProgressBar(true);
  reader.ReadXML();
  ASSERT_EQ(reader.ErrorStatus(), "");
  EXPECT_EQ(reader.RootElement(), "T");
  EXPECT_EQ(reader.InputQuery(), "q");
  auto read = std::dynamic_pointer_cast<platform::XmlTable>(reader.InputData());
  ASSERT_TRUE(read);
  ASSERT_EQ(read->rows.size(), 2u);
  EXPECT_TRUE(read->rows[0].marks.changed);
  EXPECT_FALSE(read->rows[0].marks.newly_added);
  ASSERT_EQ(read->rows[0].cells.size(), 2u);
  EXPECT_EQ(read->rows[0].cells[0].name, "a");
  EXPECT_EQ(read->rows[0].cells[0].type, 3);
  EXPECT_TRUE(read->rows[0].cells[0].value.SameAs(Variant(int32_t{7})));
  EXPECT_TRUE(read->rows[0].cells[0].marks.changed);
  EXPECT_TRUE(read->rows[0].cells[0].marks.status_set);
  EXPECT_FALSE(read->rows[0].cells[0].marks.status);
  EXPECT_TRUE(read->rows[0].cells[1].value.IsNull());
  EXPECT_TRUE(read->rows[1].cells.empty());

  // A failed read leaves the sink empty, also of what an earlier read put there.
  WriteBytes(dir.File("t.xml"), "<T format=\"quorbex-datalayer\" version=\"1\" records=\"1\"><Query/></T>");
  reader.ReadXML();
  EXPECT_NE(reader.ErrorStatus().find("announces 1 records but holds 0"), std::string::npos);
  EXPECT_TRUE(read->rows.empty());
  EXPECT_EQ(reader.InputQuery(), "");
}

TEST(XmlDataFile, ElementNamesFollowTheXmlNameRules) {
  EXPECT_TRUE(platform::IsXmlElementName("Root"));
  EXPECT_TRUE(platform::IsXmlElementName("_a-1.b"));
  EXPECT_TRUE(platform::IsXmlElementName("Größe"));
  EXPECT_TRUE(platform::IsXmlElementName("表"));
  EXPECT_FALSE(platform::IsXmlElementName(""));
  EXPECT_FALSE(platform::IsXmlElementName("-a"));
  EXPECT_FALSE(platform::IsXmlElementName("a:b"));
  EXPECT_FALSE(platform::IsXmlElementName("a\xFF"));
  EXPECT_FALSE(platform::IsXmlElementName("a\xC3"));
  EXPECT_FALSE(platform::IsXmlElementName("×"));  // U+00D7 is no name character
}

}  // namespace
}  // namespace quorbex::test
