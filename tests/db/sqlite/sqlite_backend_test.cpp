// What is particular to the SQLite backend: declared types, the stored form of values, the file
// format, and a real third-party database.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>

#include "db/conformance_fixture.h"  // ErrorOf
#include "platform/db/types.h"
#include "quorbex/engine.h"
#include "quorbex/locale.h"
#include "support/temp_dir.h"

namespace quorbex::db {

using namespace quorbex::internal;
using namespace quorbex::db::internal;
namespace {

const std::string kChinook = std::string(QUORBEX_SHARED_DATA) + "/Chinook_Sqlite.sqlite";

class SqliteBackend : public ::testing::Test {
 protected:
  void SetUp() override { Locale::SetCurrent(Locale::C()); }
  std::shared_ptr<Database> NewDatabase(const std::string& name = "t.db") {
    return DBEngine::Default()->CreateDatabase(dir_.File(name));
  }
  quorbex::test::TempDir dir_;
};

TEST_F(SqliteBackend, DeclaredTypesGiveTheTypeCodes) {
  auto db = NewDatabase();
  db->Execute(
      "CREATE TABLE t (a COUNTER, b TEXT(50), c MEMO, d DATETIME, e BIT, f CURRENCY, g DOUBLE, h SINGLE, "
      "i BYTE, j SHORT, k BLOB, l GUID, m LONG, n YESNO, o FLOAT, p SMALLINT, q VARCHAR(20), r LONGTEXT, "
      "s BOOLEAN, u REAL, v BINARY, w NVARCHAR(160), x NUMERIC(10,2), y INTEGER, z)");
  const std::vector<std::pair<std::string, int32_t>> expected = {
      {"a", dbLong}, {"b", dbText},     {"c", dbMemo},    {"d", dbDate},       {"e", dbBoolean},
      {"f", dbCurrency}, {"g", dbDouble}, {"h", dbSingle}, {"i", dbByte},      {"j", dbInteger},
      {"k", dbLongBinary}, {"l", dbGUID}, {"m", dbLong},   {"n", dbBoolean},    {"o", dbDouble},
      {"p", dbInteger}, {"q", dbText},    {"r", dbMemo},    {"s", dbBoolean},    {"u", dbSingle},
      {"v", dbLongBinary}, {"w", dbText}, {"x", dbDouble},  {"y", dbLong}};
  auto rs = db->OpenRecordset("SELECT * FROM t");
  auto fields = db->TableDefs()->Item("t")->Fields();
  for (const auto& [name, code] : expected) {
    EXPECT_EQ(rs->Fields(name)->Type(), code) << name;
    EXPECT_EQ(fields->Item(name)->Type(), code) << name;
  }
  EXPECT_EQ(fields->Item("b")->Size(), 50);
  EXPECT_EQ(fields->Item("q")->Size(), 20);
  EXPECT_EQ(fields->Item("z")->Type(), 0);  // no declared type at all
  EXPECT_EQ(TypeCodeFromDeclared("long text"), dbMemo);
  EXPECT_EQ(TypeCodeFromDeclared("UNSIGNED BIG INT"), dbLong);
  EXPECT_EQ(TypeCodeFromDeclared("JSON"), 0);
}

TEST_F(SqliteBackend, ValuesAreStoredInPlainSqlForms) {
  auto db = NewDatabase();
  auto table = db->CreateTableDef("v");
  auto id = table->CreateField("id", dbLong);
  id->Attributes(dbAutoIncrField);
  table->Fields()->Append(id);
  table->Fields()->Append(table->CreateField("d", dbDate));
  table->Fields()->Append(table->CreateField("b", dbBoolean));
  table->Fields()->Append(table->CreateField("c", dbCurrency));
  table->Fields()->Append(table->CreateField("g", dbGUID));
  db->TableDefs()->Append(table);

  auto master = db->OpenRecordset("SELECT sql FROM sqlite_master WHERE name = 'v'");
  EXPECT_NE(CStr(master->Fields(0)->Value()).find("\"id\" INTEGER PRIMARY KEY AUTOINCREMENT"), std::string::npos);

  auto rs = db->OpenRecordset("v");
  rs->AddNew();
  rs->Fields("d")->Value(MakeDate({1850, 7, 1, 6, 0, 0}));  // before the base date: a negative serial
  rs->Fields("b")->Value(true);
  rs->Fields("c")->Value(Currency{-12345});
  rs->Fields("g")->Value("12345678901234567890123456789012");
  rs->Update();
  auto raw = db->OpenRecordset("SELECT typeof(d), d || '', typeof(b), b + 0, typeof(c), c + 0.0, typeof(g), g FROM v");
  EXPECT_TRUE(raw->Fields(0)->Value().SameAs(Variant("text")));
  EXPECT_TRUE(raw->Fields(1)->Value().SameAs(Variant("1850-07-01 06:00:00")));
  EXPECT_TRUE(raw->Fields(3)->Value().SameAs(Variant(1)));
  EXPECT_TRUE(raw->Fields(5)->Value().SameAs(Variant(-1.2345)));
  EXPECT_TRUE(raw->Fields(6)->Value().SameAs(Variant("text")));  // digits stay text
  rs->MoveFirst();
  EXPECT_TRUE(rs->Fields("d")->Value().SameAs(Variant(MakeDate({1850, 7, 1, 6, 0, 0}))));
  EXPECT_TRUE(rs->Fields("c")->Value().SameAs(Variant(Currency{-12345})));
  EXPECT_TRUE(rs->Fields("g")->Value().SameAs(Variant("12345678901234567890123456789012")));
  // Texts go through as bytes, broken UTF-8 included.
  rs->AddNew();
  rs->Fields("g")->Value(std::string("\xff\xfe ok \xc3"));
  rs->Update();
  EXPECT_TRUE(rs->Fields("g")->Value().SameAs(Variant(std::string("\xff\xfe ok \xc3"))));
  // An expression has no declared type: its values come as stored, its type from the first value.
  EXPECT_EQ(raw->Fields(1)->Type(), dbText);
  EXPECT_EQ(raw->Fields(3)->Type(), dbLong);
  EXPECT_EQ(raw->Fields(5)->Type(), dbDouble);
}

TEST_F(SqliteBackend, IsoDatesParseAndFormatLikeTheValueType) {
  for (const CivilDateTime& c : std::vector<CivilDateTime>{{1899, 12, 30, 0, 0, 0},
                                                           {1899, 12, 29, 6, 0, 0},
                                                           {1900, 2, 28, 23, 59, 59},
                                                           {100, 1, 1, 0, 0, 0},
                                                           {2000, 2, 29, 12, 0, 1},
                                                           {9999, 12, 31, 23, 59, 59}}) {
    Date d = MakeDate(c);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", c.year, c.month, c.day, c.hour, c.minute,
                  c.second);
    SCOPED_TRACE(text);
    EXPECT_EQ(FormatIsoDateTime(d.serial), text);
    auto parsed = ParseIsoDateTime(text);
    ASSERT_TRUE(parsed);
    EXPECT_DOUBLE_EQ(*parsed, d.serial);
  }
  EXPECT_DOUBLE_EQ(*ParseIsoDateTime("2024-01-02"), DateSerial(2024, 1, 2).serial);
  EXPECT_DOUBLE_EQ(*ParseIsoDateTime("2024-01-02T10:30Z"), MakeDate({2024, 1, 2, 10, 30, 0}).serial);
  EXPECT_NEAR(*ParseIsoDateTime("2024-01-02 10:30:00.5"), MakeDate({2024, 1, 2, 10, 30, 0}).serial + 0.5 / 86400, 1e-9);
  EXPECT_DOUBLE_EQ(*ParseIsoDateTime("06:00"), 0.25);
  EXPECT_EQ(FormatIsoDateTime(0.25), "1899-12-30 06:00:00");
  EXPECT_EQ(FormatIsoDateTime(1.0 - 0.1 / 86400), "1899-12-31 00:00:00");  // rounds into the next day
  EXPECT_EQ(FormatIsoDateTime(-693593.0), "0001-01-01 00:00:00");
  EXPECT_DOUBLE_EQ(*ParseIsoDateTime("0001-01-01"), -693593.0);
  for (const char* bad : {"2024-02-30", "2023-02-29", "2024-13-01", "2024-00-10", "24:00", "2024-01-02 25:00",
                          "2024-01-02X10:00", "20240102", "", "abc", "2024-01-02 10:00+01:00", "2024-1-2"}) {
    EXPECT_FALSE(ParseIsoDateTime(bad)) << bad;
  }
}

TEST_F(SqliteBackend, DecodingAndEncodingKeepValuesOrRefuse) {
  EXPECT_TRUE(DecodeInteger(5000000000LL, dbLong).SameAs(Variant(5e9)));
  EXPECT_TRUE(DecodeInteger(-1, dbBoolean).SameAs(Variant(true)));
  EXPECT_TRUE(DecodeInteger(300, dbByte).SameAs(Variant(300)));
  EXPECT_TRUE(DecodeInteger(40000, dbInteger).SameAs(Variant(40000)));
  EXPECT_TRUE(DecodeInteger(7, dbText).SameAs(Variant("7")));
  EXPECT_TRUE(DecodeReal(2.0, dbLong).SameAs(Variant(2)));
  EXPECT_TRUE(DecodeReal(2.5, dbLong).SameAs(Variant(2.5)));
  EXPECT_TRUE(DecodeReal(0.1, dbText).SameAs(Variant("0.1")));
  EXPECT_TRUE(DecodeText("False", dbBoolean).SameAs(Variant(false)));
  EXPECT_TRUE(DecodeText("maybe", dbBoolean).SameAs(Variant("maybe")));
  EXPECT_TRUE(DecodeText("not a date", dbDate).SameAs(Variant("not a date")));
  EXPECT_TRUE(DecodeBlob(std::string("\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f\x10", 16), dbGUID)
                  .SameAs(Variant("{04030201-0605-0807-090A-0B0C0D0E0F10}")));

  EXPECT_EQ(Encode(Variant(""), dbLong).kind, Stored::Kind::Null);
  EXPECT_EQ(Encode(Variant(""), dbText).kind, Stored::Kind::Text);
  EXPECT_EQ(Encode(Variant(2.5), dbLong).integer, 2);
  EXPECT_EQ(Encode(Variant(3.5), dbLong).integer, 4);
  EXPECT_EQ(Encode(Variant(true), dbLong).integer, -1);
  EXPECT_EQ(Encode(Variant("2147483647"), dbLong).integer, 2147483647);
  EXPECT_EQ(Encode(Variant(" -42 "), dbLong).integer, -42);
  EXPECT_EQ(Encode(Variant(0.1f), dbSingle).real, 0.1);
  EXPECT_EQ(Encode(Variant(Currency{20000}), dbCurrency).kind, Stored::Kind::Integer);
  EXPECT_EQ(Encode(Variant(Date{0.5}), dbText).kind, Stored::Kind::Text);
  EXPECT_EQ(Encode(Variant(DateSerial(2024, 5, 6)), dbDate).bytes, "2024-05-06 00:00:00");
  EXPECT_EQ(Encode(Variant(45000), dbDate).bytes, "2023-03-15 00:00:00");
  EXPECT_EQ(Encode(Variant(std::string("a\0b", 3)), dbLongBinary).bytes, std::string("a\0b", 3));
  EXPECT_EQ(Encode(Variant(int16_t{5}), 0).kind, Stored::Kind::Integer);
  for (auto [value, code] : std::vector<std::pair<Variant, int32_t>>{{Variant("abc"), dbLong},
                                                                     {Variant(256), dbByte},
                                                                     {Variant(-1), dbByte},
                                                                     {Variant(40000), dbInteger},
                                                                     {Variant(1e300), dbSingle},
                                                                     {Variant("morgen"), dbDate},
                                                                     {Variant(1e9), dbDate},
                                                                     {Variant(1e300), dbLong},
                                                                     {Variant(6000000000.0), dbLong},
                                                                     {Variant("9007199254740993"), dbLong},
                                                                     {Variant("99999999999999999999"), dbLong},
                                                                     {Variant(std::nan("")), dbDouble},
                                                                     {Variant(-HUGE_VAL), dbDouble},
                                                                     {Variant(HUGE_VAL), 0},
                                                                     {Variant(Date{std::nan("")}), dbDate},
                                                                     {Variant("x"), dbBoolean}}) {
    try {
      Encode(value, code);
      ADD_FAILURE() << "stored " << TypeName(code);
    } catch (const EngineError& e) {
      EXPECT_EQ(e.Kind(), ErrorKind::Conversion);
      EXPECT_NE(std::string(e.what()).find("Data type conversion error"), std::string::npos);
    }
  }
}

TEST_F(SqliteBackend, IndexesAreStoredPerTableAndMarkedPrimary) {
  auto db = NewDatabase();
  db->Execute("CREATE TABLE a (id INTEGER PRIMARY KEY, v TEXT)");
  db->Execute("CREATE TABLE b (x TEXT, y TEXT, PRIMARY KEY (x, y))");
  auto a = db->TableDefs()->Item("a");
  auto index = a->CreateIndex("indexv");
  index->Fields()->Append(index->CreateField("v"));
  index->Primary(true);
  a->Indexes()->Append(index);
  auto names = db->OpenRecordset("SELECT name FROM sqlite_master WHERE type = 'index' AND tbl_name = 'a'");
  EXPECT_TRUE(names->Fields(0)->Value().SameAs(Variant("a.indexv")));

  auto listed = db->TableDefs()->Item("a")->Indexes();
  ASSERT_EQ(listed->Count(), 2);
  EXPECT_EQ(listed->Item(0)->Name(), "PrimaryKey");  // the rowid key, which has no index of its own
  EXPECT_TRUE(listed->Item(0)->Primary());
  EXPECT_TRUE(listed->Item("indexv")->Primary());
  EXPECT_THROW(listed->Delete("PrimaryKey"), EngineError);
  auto composite = db->TableDefs()->Item("b")->Indexes();
  ASSERT_EQ(composite->Count(), 1);
  EXPECT_TRUE(composite->Item(0)->Primary());
  EXPECT_EQ(composite->Item(0)->Fields()->Count(), 2);
  EXPECT_TRUE(db->OpenRecordset("SELECT y, x FROM b")->Updatable());
  EXPECT_FALSE(db->OpenRecordset("SELECT x FROM b")->Updatable());
}

TEST_F(SqliteBackend, NamesWithBlanksAndQuotesWork) {
  auto db = NewDatabase();
  auto table = db->CreateTableDef("Order \"Details\"");
  auto id = table->CreateField("id", dbLong);
  id->Attributes(dbAutoIncrField);
  table->Fields()->Append(id);
  table->Fields()->Append(table->CreateField("Unit Price", dbCurrency));
  db->TableDefs()->Append(table);
  auto rs = db->OpenRecordset("[Order \"Details\"]");
  ASSERT_TRUE(rs->Updatable());
  rs->AddNew();
  rs->Fields("unit price")->Value(2.5);
  rs->Update();
  EXPECT_TRUE(rs->Fields("Unit Price")->Value().SameAs(Variant(Currency{25000})));
  db->CreateQueryDef("Query \"x\"", "SELECT [Unit Price] FROM [Order \"Details\"]");
  EXPECT_TRUE(db->OpenRecordset("[Query \"x\"]")->Fields(0)->Value().SameAs(Variant(Currency{25000})));
  db->TableDefs()->Item("Order \"Details\"")->Fields()->Item("Unit Price")->Name("Price \"net\"");
  EXPECT_EQ(db->OpenRecordset("SELECT * FROM [Order \"Details\"]")->Fields(1)->Name(), "Price \"net\"");

  // Names with quotes and semicolons open as they are spelled; a name that is none says so, naming it.
  for (const std::string name : {"it's", "a;b", "we\"ird; name"}) {
    auto odd = db->CreateTableDef(name);
    odd->Fields()->Append(odd->CreateField("v;'x", dbText));
    auto key = odd->CreateIndex("k'ey");
    key->Fields()->Append(key->CreateField("v;'x"));
    key->Primary(true);
    odd->Indexes()->Append(key);
    db->TableDefs()->Append(odd);
    auto rows = db->OpenRecordset(name);
    EXPECT_TRUE(rows->Updatable()) << name;
    rows->AddNew();
    rows->Fields(0)->Value(Variant("x"));
    rows->Update();
    db->TableDefs()->Delete(name);
  }
  auto missing = quorbex::db::test::ErrorOf([&] { db->OpenRecordset("no'such;table"); });
  EXPECT_EQ(missing.Kind(), ErrorKind::Syntax);
  EXPECT_NE(missing.Description().find("'no'such;table' is neither a table or query"), std::string::npos)
      << missing.Description();
}

TEST_F(SqliteBackend, ChinookReadsWithTheRightTypes) {
  auto db = DBEngine::Default()->OpenDatabase(kChinook, false, true);
  auto tables = db->TableDefs();
  EXPECT_EQ(tables->Item(0)->Attributes(), dbSystemObject);
  std::vector<std::string> user;
  for (int32_t i = 0; i < tables->Count(); ++i) {
    if (tables->Item(i)->Attributes() == 0) user.push_back(tables->Item(i)->Name());
  }
  EXPECT_EQ(user, (std::vector<std::string>{"Album", "Artist", "Customer", "Employee", "Genre", "Invoice", "InvoiceLine",
                                            "MediaType", "Playlist", "PlaylistTrack", "Track"}));

  auto invoices = db->OpenRecordset("SELECT * FROM Invoice ORDER BY InvoiceId");
  EXPECT_FALSE(invoices->Updatable());  // opened read-only
  EXPECT_EQ(invoices->Fields("InvoiceDate")->Type(), dbDate);
  EXPECT_TRUE(invoices->Fields("InvoiceDate")->Value().SameAs(Variant(DateSerial(2021, 1, 1))));
  EXPECT_EQ(invoices->Fields("Total")->Type(), dbDouble);
  EXPECT_TRUE(invoices->Fields("Total")->Value().SameAs(Variant(1.98)));
  EXPECT_EQ(invoices->Fields("CustomerId")->Type(), dbLong);
  EXPECT_EQ(invoices->Fields("BillingCity")->Type(), dbText);
  EXPECT_EQ(invoices->Fields("BillingCity")->Size(), 40);
  EXPECT_EQ(invoices->Fields("InvoiceId")->SourceTable(), "Invoice");
  invoices->MoveLast();
  EXPECT_EQ(invoices->RecordCount(), 412);

  auto koehler = db->OpenRecordset("SELECT FirstName, City FROM Customer WHERE LastName = 'Köhler'");
  EXPECT_TRUE(koehler->Fields("City")->Value().SameAs(Variant("Stuttgart")));
  int32_t tracks = 0;
  db->OpenRecordset("Track")->TakeRows([&](std::span<Variant> row) {
    EXPECT_EQ(row.size(), 9u);
    ++tracks;
  });
  EXPECT_EQ(tracks, 3503);
  auto employee = db->TableDefs()->Item("Employee")->Fields();
  EXPECT_EQ(employee->Item("BirthDate")->Type(), dbDate);
  EXPECT_TRUE(employee->Item("LastName")->Required());
  EXPECT_NE(employee->Item("EmployeeId")->Attributes() & dbAutoIncrField, 0);

  // A writable copy: the INTEGER key numbers new rows.
  std::string copy = dir_.File("chinook.sqlite");
  std::filesystem::copy_file(kChinook, copy);
  auto writable = DBEngine::Default()->OpenDatabase(copy);
  auto albums = writable->OpenRecordset("SELECT AlbumId, Title, ArtistId FROM Album");
  ASSERT_TRUE(albums->Updatable());
  albums->AddNew();
  albums->Fields("Title")->Value("Neu");
  albums->Fields("ArtistId")->Value(1);
  albums->Update();
  EXPECT_TRUE(albums->Fields("AlbumId")->Value().SameAs(Variant(348)));
  EXPECT_TRUE(writable->OpenRecordset("SELECT * FROM PlaylistTrack")->Updatable());
}

}  // namespace
}  // namespace quorbex::db
