#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "offline_test_util.h"
#include "quorbex/clsOfflineRecord.h"

namespace quorbex {
namespace {

using test::ErrorNumberOf;

// A record of `count` fields named "1", "2", ...
std::shared_ptr<clsOfflineRecord> NumberedRecord(int32_t count) {
  auto record = std::make_shared<clsOfflineRecord>();
  record->Add(count);
  for (int32_t i = 1; i <= count; ++i) record->Fields(i)->Description = std::to_string(i);
  return record;
}

std::string Order(const clsOfflineRecord& record) {
  std::string order;
  for (int32_t i = 1; i <= record.FieldCount(); ++i) {
    if (!order.empty()) order += ",";
    order += record.Fields(i)->Description.str();
  }
  return order;
}

TEST(OfflineRecord, AddAppendsEmptyFieldsAndCountsThem) {
  auto record = std::make_shared<clsOfflineRecord>();
  EXPECT_EQ(record->FieldCount(), 0);
  EXPECT_TRUE(record->Add(3).IsEmpty());
  record->Add(0);
  record->Add(-5);
  record->Add(INT32_MIN);
  record->Add(1);
  ASSERT_EQ(record->FieldCount(), 4);
  EXPECT_EQ(record->FieldCounter(), 4);
  for (int32_t i = 1; i <= 4; ++i) {
    auto field = record->Fields(i);
    ASSERT_NE(field, nullptr);
    EXPECT_TRUE(field->varValue.IsEmpty());
    EXPECT_TRUE(field->Description.empty());
    EXPECT_EQ(field->lngFieldType, 0);
    EXPECT_FALSE(field->HasChanged);
    EXPECT_FALSE(field->IsStatusSet());
  }
  EXPECT_FALSE(record->HasChanged);
  EXPECT_FALSE(record->NewlyAdded);
  // Fields of one Add are distinct objects.
  record->Fields(1)->Value("a");
  EXPECT_TRUE(record->Fields(2)->varValue.IsEmpty());
}

TEST(OfflineRecord, FieldsHandsOutTheSameObjectOrNothing) {
  auto record = NumberedRecord(3);
  EXPECT_EQ(record->Fields(2), record->Fields(2));
  EXPECT_EQ(record->Fields(2).get(), record->FieldAt(2));
  for (int32_t bad : {0, -1, 4, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(record->Fields(bad), nullptr) << bad;
    EXPECT_EQ(record->FieldAt(bad), nullptr) << bad;
  }
  EXPECT_EQ(std::make_shared<clsOfflineRecord>()->Fields(1), nullptr);
}

TEST(OfflineRecord, FieldsOutliveTheirRecord) {
  std::shared_ptr<clsOfflineField> kept;
  {
    auto record = NumberedRecord(4);
    kept = record->Fields(3);
    record->Remove(3);
    kept->Value("still here");
  }
  EXPECT_EQ(kept->Value().AsString(), "still here");
  EXPECT_EQ(kept->Description, "3");
}

TEST(OfflineRecord, MoveFieldToNewPosKeepsItsAsymmetry) {
  auto record = NumberedRecord(5);
  int32_t from = 4, to = 2;
  record->MoveFieldToNewPos(from, to);
  EXPECT_EQ(Order(*record), "1,4,2,3,5");

  record = NumberedRecord(5);
  from = 2, to = 4;
  record->MoveFieldToNewPos(from, to);
  EXPECT_EQ(Order(*record), "1,3,4,5,2");  // a target equal to the new count appends

  // A target of the old count is no longer a position once the field is out: error 5 after removal.
  record = NumberedRecord(5);
  from = 2, to = 5;
  EXPECT_EQ(ErrorNumberOf([&] { record->MoveFieldToNewPos(from, to); }), 5);
  EXPECT_EQ(Order(*record), "1,3,4,5");
  EXPECT_EQ(record->FieldCounter(), 5);  // the counter does not notice the lost field

  // A target past the end is lowered in the caller's variable, then fails the same way.
  record = NumberedRecord(5);
  from = 1, to = 9;
  EXPECT_EQ(ErrorNumberOf([&] { record->MoveFieldToNewPos(from, to); }), 5);
  EXPECT_EQ(to, 5);
  EXPECT_EQ(Order(*record), "2,3,4,5");

  // A bad source position raises 9 before anything moves.
  record = NumberedRecord(5);
  for (int32_t bad : {0, 6, -3}) {
    from = bad, to = 1;
    EXPECT_EQ(ErrorNumberOf([&] { record->MoveFieldToNewPos(from, to); }), 9);
  }
  EXPECT_EQ(Order(*record), "1,2,3,4,5");

  // Moving to the front and to a target below 1.
  from = 5, to = 1;
  record->MoveFieldToNewPos(from, to);
  EXPECT_EQ(Order(*record), "5,1,2,3,4");
  from = 1, to = 0;
  EXPECT_EQ(ErrorNumberOf([&] { record->MoveFieldToNewPos(from, to); }), 5);
  EXPECT_EQ(Order(*record), "1,2,3,4");

  // Literals work as arguments too.
  record->MoveFieldToNewPos(4, 1);
  EXPECT_EQ(Order(*record), "4,1,2,3");
}

TEST(OfflineRecord, RemoveKeepsCounterOnBadPosition) {
  auto record = NumberedRecord(3);
  for (int32_t bad : {0, 4, -1, INT32_MIN, INT32_MAX}) record->Remove(bad);
  EXPECT_EQ(record->FieldCount(), 3);
  EXPECT_EQ(record->FieldCounter(), 3);
  record->Remove(2);
  EXPECT_EQ(Order(*record), "1,3");
  EXPECT_EQ(record->FieldCounter(), 2);
  record->Remove(1);
  record->Remove(1);
  record->Remove(1);
  EXPECT_EQ(record->FieldCount(), 0);
  EXPECT_EQ(record->FieldCounter(), 0);
}

TEST(OfflineRecord, FieldCollectionIsTheLiveCollection) {
  auto record = NumberedRecord(2);
  auto collection = record->FieldCollection();
  ASSERT_NE(collection, nullptr);
  EXPECT_EQ(collection, record->FieldCollection());
  auto extra = std::make_shared<clsOfflineField>();
  extra->Description = "x";
  collection->Add(extra);
  EXPECT_EQ(record->FieldCount(), 3);
  EXPECT_EQ(record->Fields(3), extra);
  EXPECT_EQ(record->FieldCounter(), 2);  // only Add and Remove count

  // The collection keeps its record alive, as a shared reference does.
  std::weak_ptr<clsOfflineRecord> weak = record;
  record.reset();
  EXPECT_FALSE(weak.expired());
  EXPECT_EQ(collection->Count(), 3);
  collection.reset();
  EXPECT_TRUE(weak.expired());

  // A record on the stack still hands out a usable (non-owning) collection.
  clsOfflineRecord local;
  local.Add(2);
  EXPECT_EQ(local.FieldCollection()->Count(), 2);
}

}  // namespace
}  // namespace quorbex
