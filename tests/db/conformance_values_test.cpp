// What values every backend stores and reads back: each type code, and conversion to the column type on write.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "db/conformance_fixture.h"

namespace quorbex::db::test {
namespace {

using EngineValues = EngineConformance;

TEST_P(EngineValues, EveryTypeCodeRoundTrips) {
  REQUIRE_WRITABLE(Feature::SchemaChanges, Feature::UpdatableRecordsets);
  auto db = ctx_->NewDatabase();
  auto table = db->CreateTableDef("kinds");
  auto id = table->CreateField("id", dbLong);
  id->Attributes(dbAutoIncrField);
  table->Fields()->Append(id);
  struct Column {
    const char* name;
    int32_t type;
    Variant value;
  };
  const std::vector<Column> columns = {
      {"b", dbBoolean, Variant(true)},
      {"y", dbByte, Variant(uint8_t{200})},
      {"i", dbInteger, Variant(int16_t{-1234})},
      {"l", dbLong, Variant(int32_t{2000000000})},
      {"c", dbCurrency, Variant(Currency{123456789})},  // 12345.6789
      {"s", dbSingle, Variant(0.1f)},
      {"d", dbDouble, Variant(1.0 / 3.0)},
      {"t", dbDate, Variant(MakeDate({2024, 2, 29, 13, 45, 30}))},
      {"x", dbText, Variant("Köhler")},
      {"bin", dbLongBinary, Variant(std::string("\0\x01\xff", 3))},
      {"m", dbMemo, Variant(std::string(5000, 'm') + "\r\nEnde")},
      {"g", dbGUID, Variant("{6F9619FF-8B86-D011-B42D-00C04FC964FF}")},
  };
  for (const auto& c : columns) table->Fields()->Append(table->CreateField(c.name, c.type));
  db->TableDefs()->Append(table);

  auto rs = db->OpenRecordset("SELECT * FROM kinds");
  ASSERT_TRUE(rs->Updatable());
  rs->AddNew();
  for (const auto& c : columns) rs->Fields(c.name)->Value(c.value);
  rs->Update();
  rs->AddNew();  // a row of Nulls
  rs->Update();
  rs->Close();

  auto again = ctx_->Reopen(*db);
  auto read = again->OpenRecordset("SELECT * FROM kinds ORDER BY id");
  EXPECT_EQ(read->Fields("id")->Type(), dbLong);
  for (const auto& c : columns) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(read->Fields(c.name)->Type(), c.type);
    Variant v = read->Fields(c.name)->Value();
    EXPECT_EQ(v.Type(), c.value.Type());
    EXPECT_TRUE(v.SameAs(c.value));
  }
  read->MoveNext();
  for (const auto& c : columns) EXPECT_TRUE(read->Fields(c.name)->Value().IsNull()) << c.name;

  auto fields = again->TableDefs()->Item("kinds")->Fields();
  EXPECT_EQ(fields->Item("id")->Type(), dbLong);
  EXPECT_NE(fields->Item("id")->Attributes() & dbAutoIncrField, 0);
  for (const auto& c : columns) EXPECT_EQ(fields->Item(c.name)->Type(), c.type) << c.name;
}

TEST_P(EngineValues, WrittenValuesAreConvertedToTheColumnType) {
  REQUIRE_WRITABLE(Feature::SchemaChanges, Feature::UpdatableRecordsets);
  auto db = ctx_->NewDatabase();
  auto table = db->CreateTableDef("t");
  auto id = table->CreateField("id", dbLong);
  id->Attributes(dbAutoIncrField);
  table->Fields()->Append(id);
  table->Fields()->Append(table->CreateField("n", dbLong));
  table->Fields()->Append(table->CreateField("y", dbByte));
  table->Fields()->Append(table->CreateField("flag", dbBoolean));
  table->Fields()->Append(table->CreateField("day", dbDate));
  table->Fields()->Append(table->CreateField("txt", dbText));
  db->TableDefs()->Append(table);

  auto rs = db->OpenRecordset("SELECT * FROM t");
  rs->AddNew();
  rs->Fields("n")->Value("42");
  rs->Fields("y")->Value(2.5);  // half to even
  rs->Fields("flag")->Value(5);
  rs->Fields("day")->Value("2024-01-02");
  rs->Fields("txt")->Value(12.5);
  rs->Update();
  EXPECT_TRUE(rs->Fields("n")->Value().SameAs(Variant(42)));
  EXPECT_TRUE(rs->Fields("y")->Value().SameAs(Variant(uint8_t{2})));
  EXPECT_TRUE(rs->Fields("flag")->Value().SameAs(Variant(true)));
  EXPECT_TRUE(rs->Fields("day")->Value().SameAs(Variant(DateSerial(2024, 1, 2))));
  EXPECT_TRUE(rs->Fields("txt")->Value().SameAs(Variant("12.5")));

  // The empty text in a number column is Null; text that is no number is refused and the edit stays.
  rs->Edit();
  rs->Fields("n")->Value("");
  rs->Update();
  EXPECT_TRUE(rs->Fields("n")->Value().IsNull());
  rs->Edit();
  rs->Fields("n")->Value("abc");
  EXPECT_EQ(ErrorOf([&] { rs->Update(); }).Kind(), ErrorKind::Conversion);
  EXPECT_EQ(rs->EditMode(), dbEditInProgress);
  rs->Fields("y")->Value(300);
  rs->Fields("n")->Value(7);
  EXPECT_EQ(ErrorOf([&] { rs->Update(); }).Kind(), ErrorKind::Conversion);
  rs->CancelUpdate();
  EXPECT_EQ(rs->EditMode(), dbEditNone);
  EXPECT_TRUE(rs->Fields("n")->Value().IsNull());
}

INSTANTIATE_TEST_SUITE_P(Backends, EngineValues, ::testing::ValuesIn(AllContexts()), ContextTestName);

}  // namespace
}  // namespace quorbex::db::test
