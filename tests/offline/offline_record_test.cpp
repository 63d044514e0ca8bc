#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>

#include "offline_test_util.h"
#include "quorbex/clsOfflineRecord.h"

namespace quorbex {

namespace {

using test::ErrorOf;

// A record of `count` fields named "1", "2", ...
std::shared_ptr<clsOfflineRecord> NumberedRecord(int32_t count) {
  auto record = std::make_shared<clsOfflineRecord>();
  record->Add(count);
  for (int32_t i = 1; i <= count; ++i) record->Fields(i)->Description = std::to_string(i);
  return record;
}

std::string Order(const clsOfflineRecord& record) {
  std::string order;
  for (int32_t i = 1; i <= record.FieldCount(); ++i) order += (i > 1 ? "," : "") + record.Fields(i)->Description;
  return order;
}

TEST(OfflineRecord, AddAppendsDistinctEmptyFieldsAndCountsThem) {
  auto record = std::make_shared<clsOfflineRecord>();
  record->Add(3);
  for (int32_t none : {0, -5, INT32_MIN}) record->Add(none);
  record->Add(1);
  ASSERT_EQ(record->FieldCount(), 4);
  EXPECT_EQ(record->FieldCounter(), 4);
  record->Fields(1)->Value("a");
  EXPECT_TRUE(record->Fields(2)->varValue.IsEmpty());
  EXPECT_TRUE(record->Fields(4)->Description.empty());
  EXPECT_EQ(record->Fields(3)->lngFieldType, 0);
}

TEST(OfflineRecord, FieldsHandsOutTheSameObjectOrNothing) {
  std::shared_ptr<clsOfflineField> kept;
  {
    auto record = NumberedRecord(3);
    EXPECT_EQ(record->Fields(2), record->Fields(2));
    for (int32_t bad : {0, -1, 4, INT32_MIN, INT32_MAX}) {
      EXPECT_EQ(record->Fields(bad), nullptr) << bad;
      EXPECT_EQ(record->FieldAt(bad), nullptr) << bad;
    }
    // A field handed out outlives its removal and its record.
    kept = record->Fields(3);
    record->Remove(3);
  }
  kept->Value("still here");
  EXPECT_EQ(kept->Description, "3");
}

TEST(OfflineRecord, MoveFieldToNewPosKeepsItsAsymmetry) {
  auto record = NumberedRecord(5);
  int32_t from = 4, to = 2;
  record->MoveFieldToNewPos(from, to);
  EXPECT_EQ(Order(*record), "1,4,2,3,5");

  record = NumberedRecord(5);
  record->MoveFieldToNewPos(2, 4);  // a target equal to the shortened count appends
  EXPECT_EQ(Order(*record), "1,3,4,5,2");

  // The old count is no position once the field is out: error 5 after the removal.
  record = NumberedRecord(5);
  EXPECT_EQ(ErrorOf([&] { record->MoveFieldToNewPos(2, 5); }), 5);
  EXPECT_EQ(Order(*record), "1,3,4,5");
  EXPECT_EQ(record->FieldCounter(), 5);  // the counter does not notice the lost field

  // A target past the end is lowered in the caller's variable, then fails the same way.
  record = NumberedRecord(5);
  from = 1, to = 9;
  EXPECT_EQ(ErrorOf([&] { record->MoveFieldToNewPos(from, to); }), 5);
  EXPECT_EQ(to, 5);

  // A bad source raises 9 before anything moves.
  record = NumberedRecord(3);
  for (int32_t bad : {0, 4, -3}) EXPECT_EQ(ErrorOf([&] { record->MoveFieldToNewPos(bad, 1); }), 9);
  EXPECT_EQ(Order(*record), "1,2,3");
}

TEST(OfflineRecord, RemoveKeepsCounterOnBadPosition) {
  auto record = NumberedRecord(3);
  for (int32_t bad : {0, 4, -1, INT32_MIN, INT32_MAX}) record->Remove(bad);
  EXPECT_EQ(record->FieldCounter(), 3);
  record->Remove(2);
  EXPECT_EQ(Order(*record), "1,3");
  EXPECT_EQ(record->FieldCounter(), 2);
}

TEST(OfflineRecord, FieldCollectionIsTheLiveCollection) {
  auto record = NumberedRecord(2);
  auto collection = record->FieldCollection();
  auto extra = std::make_shared<clsOfflineField>();
  collection->Add(extra);
  EXPECT_EQ(record->Fields(3), extra);
  EXPECT_EQ(record->FieldCounter(), 2);  // only Add and Remove count

  // The collection keeps its record alive, as a shared reference does.
  std::weak_ptr<clsOfflineRecord> weak = record;
  record.reset();
  EXPECT_FALSE(weak.expired());
  collection.reset();
  EXPECT_TRUE(weak.expired());
}

}  // namespace
}  // namespace quorbex
