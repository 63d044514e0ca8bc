// The Jet backend on the shared Jet 3, Jet 4 and ACE files, read in place: catalogue, values of every
// type, the stored queries made as views, the refusals of a read-only database, and damaged files.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <map>
#include <random>

#include "platform/db/jet/jet_connection.h"
#include "quorbex/engine.h"
#include "support/temp_dir.h"

namespace quorbex::test {
namespace {

using db::DBEngine;

std::string Shared(const std::string& name) { return std::string(QUORBEX_SHARED_DATA) + "/" + name; }

bool HaveData() {
  struct stat st {};
  return ::stat(QUORBEX_SHARED_DATA, &st) == 0;
}

#define REQUIRE_DATA() \
  if (!HaveData()) GTEST_SKIP() << "the shared data folder " QUORBEX_SHARED_DATA " is absent"

std::shared_ptr<db::Database> Open(const std::string& name) { return DBEngine::Default()->OpenDatabase(Shared(name)); }

int32_t Count(db::Database& database, const std::string& source) {
  auto rs = database.OpenRecordset("SELECT count(*) FROM " + database.QuoteName(source), db::dbOpenSnapshot);
  return CLng(rs->Fields(0)->Value());
}

// The user tables with their row counts.
std::map<std::string, int32_t> Tables(db::Database& database) {
  std::map<std::string, int32_t> out;
  auto tables = database.TableDefs();
  for (int32_t i = 0; i < tables->Count(); ++i) {
    auto t = tables->Item(i);
    if ((t->Attributes() & db::dbSystemObject) == 0) out[t->Name()] = Count(database, t->Name());
  }
  return out;
}

Variant ValueOf(db::Database& database, const std::string& sql) {
  auto rs = database.OpenRecordset(sql, db::dbOpenSnapshot);
  EXPECT_FALSE(rs->EOF_()) << sql;
  return rs->Fields(0)->Value();
}

TEST(JetBackend, EveryFileListsItsTablesWithTheirRowCounts) {
  REQUIRE_DATA();
  const std::map<std::string, int32_t> northwind3 = {
      {"Categories", 8}, {"Customers", 91}, {"Employees", 9}, {"Order Details", 2155}, {"Orders", 830},
      {"Products", 77},  {"Shippers", 3},   {"Suppliers", 29}, {"Umsätze", 830}};
  auto northwind4 = northwind3;
  northwind4.erase("Umsätze");
  const std::map<std::string, int32_t> query_test = {{"Table1", 0}, {"Table2", 0}, {"Table3", 0}};
  EXPECT_EQ(Tables(*Open("northwind_jet3.mdb")), northwind3);
  EXPECT_EQ(Tables(*Open("northwind_jet4.mdb")), northwind4);
  EXPECT_EQ(Tables(*Open("queryTestV1997.mdb")), query_test);
  EXPECT_EQ(Tables(*Open("queryTestV2000.mdb")), query_test);
  EXPECT_EQ(Tables(*Open("DateTestDatabase.mdb")), (std::map<std::string, int32_t>{{"DateTest", 6}}));
  EXPECT_EQ(Tables(*Open("ASampleDatabase.accdb")), (std::map<std::string, int32_t>{{"Asset Items", 65}}));
}

TEST(JetBackend, ValuesKeepTheirJetTypesAndExactValues) {
  REQUIRE_DATA();
  auto nw4 = Open("northwind_jet4.mdb");
  auto types = [&](const std::string& table) {
    std::map<std::string, int32_t> out;
    auto fields = nw4->TableDefs()->Item(table)->Fields();
    for (int32_t i = 0; i < fields->Count(); ++i) out[fields->Item(i)->Name()] = fields->Item(i)->Type();
    return out;
  };
  auto orders = types("Orders");
  EXPECT_EQ(orders["OrderID"], db::dbLong);
  EXPECT_EQ(orders["Freight"], db::dbCurrency);
  EXPECT_EQ(orders["OrderDate"], db::dbDate);
  EXPECT_EQ(orders["ShipName"], db::dbText);
  auto products = types("Products");
  EXPECT_EQ(products["Discontinued"], db::dbBoolean);
  EXPECT_EQ(products["UnitsInStock"], db::dbInteger);
  auto categories = types("Categories");
  EXPECT_EQ(categories["Description"], db::dbMemo);
  EXPECT_EQ(categories["Picture"], db::dbLongBinary);
  EXPECT_EQ(types("Order Details")["Discount"], db::dbSingle);
  EXPECT_NE(nw4->TableDefs()->Item("Orders")->Fields()->Item("OrderID")->Attributes() & db::dbAutoIncrField, 0);
  EXPECT_EQ(nw4->TableDefs()->Item("Customers")->Fields()->Item("CompanyName")->Size(), 40);

  // Currency exact to four decimals, as a Currency value.
  Variant price = ValueOf(*nw4, "SELECT UnitPrice FROM Products WHERE ProductID = 5");
  ASSERT_EQ(price.Type(), VarType::Currency);
  EXPECT_EQ(price.AsCurrency().scaled, 213500);
  EXPECT_EQ(ValueOf(*nw4, "SELECT Discontinued FROM Products WHERE ProductID = 5").Type(), VarType::Boolean);
  EXPECT_TRUE(ValueOf(*nw4, "SELECT Discontinued FROM Products WHERE ProductID = 5").AsBoolean());
  // OLE values whole: the bitmap inside its OLE wrapper.
  std::string picture = ValueOf(*nw4, "SELECT Picture FROM Categories WHERE CategoryID = 1").AsString();
  EXPECT_EQ(picture.size(), 10746u);
  EXPECT_EQ(picture.substr(0, 4), std::string("\x15\x1c\x2f\x00", 4));
  EXPECT_TRUE(ValueOf(*nw4, "SELECT Region FROM Customers WHERE CustomerID = 'ALFKI'").IsNull());

  auto nw3 = Open("northwind_jet3.mdb");
  EXPECT_EQ(CStr(ValueOf(*nw3, "SELECT Address || '|' || City FROM Customers WHERE CustomerID = 'BERGS'")),
            "Berguvsvägen  8|Luleå");
  Variant date = ValueOf(*nw3, "SELECT OrderDate FROM Orders WHERE OrderID = 10248");
  ASSERT_EQ(date.Type(), VarType::Date);
  EXPECT_EQ(date.AsDate().serial, 34550.0);  // 1994-08-04
  EXPECT_EQ(Count(*nw3, "Umsätze"), 830);

  // Dates libmdb cannot decode itself, and a memo with a line break.
  auto dates = Open("DateTestDatabase.mdb");
  auto text = [&](const std::string& sql) { return CStr(ValueOf(*dates, sql)); };
  EXPECT_EQ(text("SELECT DateTimeCol || DateCol || TimeCol FROM DateTest WHERE IDCol = 3"),
            "1898-01-01 00:00:001899-01-01 00:00:001900-01-01 00:00:00");
  EXPECT_EQ(text("SELECT DateTimeCol || DateCol FROM DateTest WHERE IDCol = 4"), "0632-01-01 00:00:000633-01-01 00:00:00");
  EXPECT_EQ(text("SELECT DateTimeCol FROM DateTest WHERE IDCol = 2").substr(0, 10), "9999-01-01");
  EXPECT_EQ(ValueOf(*dates, "SELECT DateTimeCol FROM DateTest WHERE IDCol = 2").AsDate().serial, 2958101.0);
  EXPECT_EQ(text("SELECT LongTextCol FROM DateTest WHERE IDCol = 6"), "New line\r\nin field");
  EXPECT_EQ(text("SELECT ShortTextCol FROM DateTest WHERE IDCol = 5"), "Escaped new line \\r\\n in field");

  auto accdb = Open("ASampleDatabase.accdb");
  auto fields = accdb->TableDefs()->Item("Asset Items")->Fields();
  std::map<int32_t, int> codes;
  for (int32_t i = 0; i < fields->Count(); ++i) ++codes[fields->Item(i)->Type()];
  EXPECT_GT(codes[db::dbCurrency], 0);
  EXPECT_GT(codes[db::dbMemo], 0);
}

TEST(JetBackend, StoredQueriesBecomeViewsOrSayWhyNot) {
  REQUIRE_DATA();
  auto nw4 = Open("northwind_jet4.mdb");
  const std::map<std::string, int32_t> expected = {
      {"Orders Qry", 830},         {"Invoices", 2155},
      {"Alphabetical List of Products", 69}, {"Customers and Suppliers by City", 120},
      {"Ten Most Expensive Products", 10},   {"Sales by Category", 77},
      {"Category Sales for 1997", 8},        {"Quarterly Orders", 86}};
  for (const auto& [view, rows] : expected) EXPECT_EQ(Count(*nw4, view), rows) << view;
  auto queries = nw4->QueryDefs();
  int made = 0;
  std::map<std::string, std::string> reasons;
  for (int32_t i = 0; i < queries->Count(); ++i) {
    auto q = queries->Item(i);
    if (q->Unavailable().empty()) {
      ++made;
      q->OpenRecordset(db::dbOpenSnapshot);
    } else {
      reasons[q->Name()] = q->Unavailable();
    }
  }
  EXPECT_EQ(queries->Count(), 53);
  EXPECT_EQ(made, 41);
  EXPECT_NE(reasons["Employee Sales by Country"].find("parameter"), std::string::npos);
  EXPECT_NE(reasons["Invoices Filter"].find("form"), std::string::npos);
  EXPECT_NE(reasons["Quarterly Orders by Product"].find("crosstab"), std::string::npos);
  try {
    queries->Item("Quarterly Orders by Product")->OpenRecordset(db::dbOpenSnapshot);
    ADD_FAILURE() << "a crosstab query opened";
  } catch (const db::EngineError& e) {
    EXPECT_EQ(e.Kind(), db::ErrorKind::NotSupported);
  }

  auto nw3 = Open("northwind_jet3.mdb");
  EXPECT_EQ(Count(*nw3, "Summary of Sales by Year"), 809);
  EXPECT_EQ(Count(*nw3, "Orders Qry"), 830);
  EXPECT_EQ(nw3->QueryDefs()->Count(), 22);

  // One query of each kind: the select is made, the others are listed with their kind.
  for (const char* file : {"queryTestV1997.mdb", "queryTestV2000.mdb"}) {
    auto db = Open(file);
    std::map<std::string, std::string> kinds;
    auto all = db->QueryDefs();
    for (int32_t i = 0; i < all->Count(); ++i) kinds[all->Item(i)->Name()] = all->Item(i)->Unavailable();
    EXPECT_EQ(kinds.size(), 9u) << file;
    EXPECT_EQ(kinds["SelectQuery"], "") << file;
    // The file's union parts name no table (they have no FROM), so SQLite refuses them.
    EXPECT_NE(kinds["UnionQuery"].find("does not run"), std::string::npos) << file;
    EXPECT_NE(kinds["UpdateQuery"].find("update"), std::string::npos) << file;
    EXPECT_NE(kinds["PassthroughQuery"].find("pass-through"), std::string::npos) << file;
    EXPECT_NE(kinds["DataDefinitionQuery"].find("data-definition"), std::string::npos) << file;
  }
  auto accdb = Open("ASampleDatabase.accdb");
  int accdb_views = 0;
  for (int32_t i = 0; i < accdb->QueryDefs()->Count(); ++i) accdb_views += accdb->QueryDefs()->Item(i)->Unavailable().empty();
  EXPECT_EQ(accdb_views, 6);
}

TEST(JetBackend, EveryWriteIsRefusedNamingMigrate) {
  REQUIRE_DATA();
  auto nw = Open("northwind_jet4.mdb");
  EXPECT_FALSE(nw->Updatable());
  for (auto f : {db::Feature::UpdatableRecordsets, db::Feature::SchemaChanges, db::Feature::StoredQueries}) {
    EXPECT_FALSE(nw->Supports(f));
  }
  EXPECT_EQ(nw->Relations().size(), 7u);
  auto refused = [](const std::function<void()>& write) {
    try {
      write();
      return std::string("not refused");
    } catch (const db::EngineError& e) {
      return std::string(e.what());
    }
  };
  auto rs = nw->OpenRecordset("Customers");
  EXPECT_FALSE(rs->Updatable());
  for (const auto& text : {refused([&] { nw->Execute("DELETE FROM Customers"); }),
                           refused([&] { rs->AddNew(); }),
                           refused([&] { rs->Edit(); }),
                           refused([&] { nw->TableDefs()->Delete("Customers"); }),
                           refused([&] { nw->CreateQueryDef("q", "SELECT 1"); }),
                           refused([&] { nw->CreateQueryDef("", "UPDATE Customers SET City = 'x'")->Execute(); }),
                           refused([&] { nw->QueryDefs()->Delete("Invoices"); })}) {
    EXPECT_NE(text.find("qdl migrate"), std::string::npos) << text;
  }
  EXPECT_EQ(Count(*nw, "Customers"), 91);
}

// libmdb trusts the page structure; damaged copies must end in an error naming the file, never in a
// crash or a hang of this process.
TEST(JetBackend, DamagedFilesFailWithTheirNameInBoundedTime) {
  REQUIRE_DATA();
  TempDir dir;
  db::internal::jet::SetStallTimeout(3000);
  const std::string original = ReadBytes(Shared("northwind_jet4.mdb"));
  const std::string small = ReadBytes(Shared("queryTestV1997.mdb"));
  ASSERT_GT(original.size(), 100000u);
  std::vector<std::pair<std::string, std::string>> cases = {
      {"signature_only.mdb", original.substr(0, 40)},
      {"one_page.mdb", original.substr(0, 4096)},
      {"truncated.mdb", original.substr(0, original.size() / 2)},
      {"garbage.mdb", original.substr(0, 32) + std::string(20000, '\x5a')},
      {"small_truncated.mdb", small.substr(0, 3 * 2048 + 100)},
  };
  std::mt19937 random(16);
  for (int i = 0; i < 24; ++i) {
    std::string bytes = i % 2 ? small : original;
    const size_t page = i % 2 ? 2048 : 4096;
    // Flip bytes in the first pages, where the catalogue and table definitions live.
    for (int k = 0; k < 40; ++k) bytes[page + random() % (page * 24)] ^= static_cast<char>(1 + random() % 255);
    cases.push_back({"flipped" + std::to_string(i) + ".mdb", bytes});
  }
  const auto start = std::chrono::steady_clock::now();
  int refused = 0;
  for (const auto& [name, bytes] : cases) {
    const std::string path = dir.File(name);
    WriteBytes(path, bytes);
    try {
      auto db = DBEngine::Default()->OpenDatabase(path);
      auto tables = db->TableDefs();  // a damaged file may still read, wholly or in part
      for (int32_t t = 0; t < tables->Count(); ++t) Count(*db, tables->Item(t)->Name());
    } catch (const db::EngineError& e) {
      ++refused;
      EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
    }
  }
  db::internal::jet::SetStallTimeout(20000);
  EXPECT_GE(refused, 5);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(300));  // sanitizer builds take about 2 min
}

}  // namespace
}  // namespace quorbex::test
