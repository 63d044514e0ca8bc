#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>
#include <vector>

#include "offline_test_util.h"
#include "quorbex/clsOfflineRecordset.h"
#include "support/platform_fakes.h"

namespace quorbex {
namespace {

using test::ErrorNumberOf;

constexpr const char* kFieldDimText =
    "Sie können nur ein Feld hinzufügen, wenn Sie eine Feldbeschreibung verwenden. Lassen Sie entweder die "
    "Feldbeschreibung leer oder fügen Sie nur ein Feld hinzu!\r\nDie Aktion wurde abgebrochen!";

// A recordset with one record per value, each of one field "Value" holding it.
std::shared_ptr<clsOfflineRecordset> Table(const std::vector<Variant>& values) {
  auto rs = std::make_shared<clsOfflineRecordset>();
  rs->Add(static_cast<int32_t>(values.size()));
  rs->FieldDim(1, "Value");
  for (size_t i = 0; i < values.size(); ++i) rs->Records(static_cast<int32_t>(i + 1))->Fields(1)->Value(values[i]);
  return rs;
}

std::string Values(const clsOfflineRecordset& rs) {
  std::string text;
  for (int32_t i = 1; i <= rs.RecordCollection()->Count(); ++i) {
    if (!text.empty()) text += ",";
    text += CStr(rs.Records(i)->Fields(1)->Value());
  }
  return text;
}

TEST(OfflineRecordset, StartsEmptyWithoutFields) {
  clsOfflineRecordset rs;
  EXPECT_EQ(rs.RecordCount(), 0);
  ASSERT_NE(rs.RecordCollection(), nullptr);
  EXPECT_EQ(rs.RecordCollection()->Count(), 0);
  EXPECT_EQ(rs.Records(1), nullptr);
  EXPECT_FALSE(rs.RecordsetIsReadOnly);
  EXPECT_EQ(rs.Tag, "");
  EXPECT_TRUE(rs.Parent.expired());
}

TEST(OfflineRecordset, AddAppendsRecordsWithoutFields) {
  clsOfflineRecordset rs;
  EXPECT_TRUE(rs.Add(3).IsEmpty());
  rs.Add(0);
  rs.Add(-4);
  EXPECT_EQ(rs.RecordCount(), 3);
  ASSERT_EQ(rs.RecordCollection()->Count(), 3);
  EXPECT_EQ(rs.Records(2)->FieldCount(), 0);
  EXPECT_NE(rs.Records(1), rs.Records(2));
  EXPECT_EQ(rs.Records(1), rs.Records(1));
  for (int32_t bad : {0, -1, 4, INT32_MIN, INT32_MAX}) EXPECT_EQ(rs.Records(bad), nullptr) << bad;

  // The count may not pass the 32-bit range; nothing is added then.
  rs.SetRecordCount(INT32_MAX - 1);
  EXPECT_EQ(ErrorNumberOf([&] { rs.Add(2); }), 6);
  EXPECT_EQ(rs.RecordCollection()->Count(), 3);
  EXPECT_EQ(rs.RecordCount(), INT32_MAX - 1);
}

TEST(OfflineRecordset, RemoveKeepsCounterOnBadPosition) {
  auto rs = Table({"a", "b", "c"});
  for (int32_t bad : {0, 4, -1, INT32_MIN, INT32_MAX}) rs->Remove(bad);
  EXPECT_EQ(rs->RecordCount(), 3);
  rs->Remove(2);
  EXPECT_EQ(rs->RecordCount(), 2);
  EXPECT_EQ(Values(*rs), "a,c");

  // The counter moves with successful removals only, whatever it says.
  rs->SetRecordCount(INT32_MIN);
  rs->Remove(1);
  EXPECT_EQ(rs->RecordCount(), INT32_MIN);
  EXPECT_EQ(Values(*rs), "c");
}

TEST(OfflineRecordset, RecordCountIsKeptApartFromTheCollection) {
  auto rs = Table({"a", "b"});
  rs->RecordCollection()->Add(std::make_shared<clsOfflineRecord>());
  EXPECT_EQ(rs->RecordCount(), 2);
  EXPECT_EQ(rs->Records(3)->FieldCount(), 0);  // Records reads the collection
  rs->SetRecordCount(3);
  EXPECT_EQ(rs->RecordCount(), 3);

  auto replacement = std::make_shared<clsOfflineRecordset::RecordCollectionType>();
  replacement->Add(rs->Records(2));
  rs->OverwriteRecordCollection(replacement);
  EXPECT_EQ(rs->RecordCollection(), replacement);  // the same object, not a copy
  EXPECT_EQ(rs->RecordCount(), 1);
  EXPECT_EQ(Values(*rs), "b");
  rs->OverwriteRecordCollection(nullptr);
  ASSERT_NE(rs->RecordCollection(), nullptr);
  EXPECT_EQ(rs->RecordCount(), 0);

  auto owner = std::make_shared<Object>();
  rs = Table({"a"});
  rs->Tag = "AllowAttach";
  rs->Parent = owner;
  rs->RecordsetIsReadOnly = true;
  auto old = rs->RecordCollection();
  rs->Destroy();
  EXPECT_EQ(rs->RecordCount(), 0);
  EXPECT_EQ(rs->RecordCollection()->Count(), 0);
  EXPECT_NE(rs->RecordCollection(), old);
  EXPECT_EQ(old->Count(), 1);  // a holder of the old collection keeps its records
  EXPECT_EQ(rs->Tag, "AllowAttach");
  EXPECT_EQ(rs->Parent.lock(), owner);
  EXPECT_TRUE(rs->RecordsetIsReadOnly);
}

TEST(OfflineRecordset, FieldDimAddsToEveryCountedRecord) {
  auto boxes = std::make_shared<test::FakeMessageBox>();
  platform::MessageBoxScope scope(boxes);

  clsOfflineRecordset rs;
  rs.Add(3);
  rs.FieldDim(2);
  rs.FieldDim(1, "Name");
  for (int32_t i = 1; i <= 3; ++i) {
    auto record = rs.Records(i);
    ASSERT_EQ(record->FieldCount(), 3);
    EXPECT_EQ(record->Fields(3)->Description, "Name");
    EXPECT_TRUE(record->Fields(1)->Description.empty());
    EXPECT_TRUE(record->Fields(3)->Description.SharesStorageWith(rs.Records(1)->Fields(3)->Description));
  }
  rs.FieldDim(3);
  EXPECT_EQ(rs.Records(2)->FieldCount(), 6);
  EXPECT_EQ(boxes->Count(), 0u);

  // Two or more fields with a name: the message, and nothing added.
  rs.FieldDim(2, "Name");
  EXPECT_EQ(rs.Records(1)->FieldCount(), 6);
  ASSERT_EQ(boxes->Count(), 1u);
  auto prompt = boxes->Prompts().front();
  EXPECT_EQ(prompt.text, kFieldDimText);
  EXPECT_EQ(prompt.style, platform::vbExclamation | platform::vbOKOnly);
  EXPECT_EQ(prompt.title, "OfflineRecordset.FieldDim");

  // No field but a name: the last field of each record is renamed.
  rs.FieldDim(0, "Renamed");
  EXPECT_EQ(rs.Records(3)->FieldCount(), 6);
  EXPECT_EQ(rs.Records(3)->Fields(6)->Description, "Renamed");

  // Records outside the count, records added later and Nothing in the collection get nothing.
  rs.SetRecordCount(2);
  rs.RecordCollection()->Add(nullptr);
  rs.SetRecordCount(4);
  rs.FieldDim(1, "Fifth");
  EXPECT_EQ(rs.Records(2)->Fields(7)->Description, "Fifth");
  EXPECT_EQ(rs.Records(3)->Fields(7)->Description, "Fifth");
  rs.SetRecordCount(9);  // beyond the collection: nothing to do there, nothing raised
  rs.FieldDim(1);
  EXPECT_EQ(rs.Records(1)->FieldCount(), 8);
  rs.Add(1);
  EXPECT_EQ(rs.Records(5)->FieldCount(), 0);

  // Without records nothing happens at all.
  clsOfflineRecordset empty;
  empty.FieldDim(1, "X");
  EXPECT_EQ(empty.RecordCount(), 0);
}

TEST(OfflineRecordset, RemoveFieldOnlyRemovesTheLastField) {
  clsOfflineRecordset rs;
  rs.Add(3);
  rs.FieldDim(1, "A");
  rs.FieldDim(1, "B");
  rs.FieldDim(1, "C");
  for (int32_t lower : {1, 2, 0, -1, INT32_MIN}) rs.RemoveField(lower);
  EXPECT_EQ(rs.Records(2)->FieldCount(), 3);
  rs.RemoveField(10);  // past the end: nothing to remove
  EXPECT_EQ(rs.Records(2)->FieldCount(), 3);
  rs.RemoveField(3);
  for (int32_t i = 1; i <= 3; ++i) {
    ASSERT_EQ(rs.Records(i)->FieldCount(), 2);
    EXPECT_EQ(rs.Records(i)->Fields(2)->Description, "B");
  }

  clsOfflineRecordset empty;
  EXPECT_EQ(ErrorNumberOf([&] { empty.RemoveField(1); }), 9);
  empty.RecordCollection()->Add(nullptr);
  EXPECT_EQ(ErrorNumberOf([&] { empty.RemoveField(1); }), 91);
}

TEST(OfflineRecordset, GetHitRecordsCollectsTheRecordsThemselves) {
  auto rs = Table({"a", "b", "A", Null, int32_t{5}});
  EXPECT_EQ(rs->GetHitRecords(0, "=", "a"), nullptr);

  auto hits = rs->GetHitRecords(1, "=", "a");  // text compare ignores case
  ASSERT_EQ(hits->Count(), 2);
  EXPECT_EQ(hits->Item(1), rs->Records(1));
  EXPECT_EQ(hits->Item(2), rs->Records(3));
  EXPECT_EQ(rs->GetHitRecords(1, "=", "")->Item(1), rs->Records(4));  // Null reads as ""
  EXPECT_EQ(rs->GetHitRecords(1, "=", "zzz")->Count(), 0);
  EXPECT_EQ(rs->GetHitRecords(1, "??", "a")->Count(), 0);  // unknown operator: never true
  EXPECT_EQ(rs->RecordCount(), 5);

  // Only counted records are looked at.
  rs->SetRecordCount(2);
  EXPECT_EQ(rs->GetHitRecords(1, "=", "a")->Count(), 1);

  // Errors reach the caller: the comparison's, and a missing record or field.
  rs->SetRecordCount(5);
  EXPECT_EQ(ErrorNumberOf([&] { rs->GetHitRecords(1, "=", "*"); }), 5);
  EXPECT_EQ(ErrorNumberOf([&] { rs->GetHitRecords(2, "=", "a"); }), 91);
  EXPECT_EQ(ErrorNumberOf([&] { rs->GetHitRecords(-1, "=", "a"); }), 91);
  rs->SetRecordCount(6);
  EXPECT_EQ(ErrorNumberOf([&] { rs->GetHitRecords(1, "=", "a"); }), 9);

  clsOfflineRecordset empty;
  EXPECT_EQ(empty.GetHitRecords(3, "=", "a")->Count(), 0);
}

TEST(OfflineRecordset, DeleteOutfilteredRecordsRemovesTheMatches) {
  auto rs = Table({"x", "y", "x", "z", "x"});
  rs->DeleteOutfilteredRecords(0, "=", "x");
  EXPECT_EQ(rs->RecordCount(), 5);
  rs->DeleteOutfilteredRecords(1, "=", "x");
  EXPECT_EQ(Values(*rs), "y,z");
  EXPECT_EQ(rs->RecordCount(), 2);
  rs->DeleteOutfilteredRecords(1, "<>", "nothing");  // every record matches
  EXPECT_EQ(rs->RecordCount(), 0);
  EXPECT_EQ(rs->RecordCollection()->Count(), 0);

  // Numbers compare as numbers; records beyond the count stay whatever they hold.
  rs = Table({int32_t{1}, int32_t{10}, int32_t{2}, int32_t{20}});
  rs->SetRecordCount(3);
  rs->DeleteOutfilteredRecords(1, ">", int32_t{5});
  EXPECT_EQ(Values(*rs), "1,2,20");
  EXPECT_EQ(rs->RecordCount(), 2);
}

TEST(OfflineRecordset, DeleteOutfilteredRecordsStopsLikeTheBackwardWalkOnError) {
  // Walking from the back, records 6 and 5 are tested (6 matches) before record 4, which lacks the
  // field; record 2 would match but is never reached.
  auto rs = Table({"a", "x", "b", "c", "d", "x"});
  rs->Records(4)->Remove(1);
  EXPECT_EQ(ErrorNumberOf([&] { rs->DeleteOutfilteredRecords(1, "=", "x"); }), 91);
  EXPECT_EQ(rs->RecordCount(), 5);
  ASSERT_EQ(rs->RecordCollection()->Count(), 5);
  EXPECT_EQ(rs->Records(2)->Fields(1)->Value().AsString(), "x");
  EXPECT_EQ(rs->Records(5)->Fields(1)->Value().AsString(), "d");

  // The comparison's own error for "*" comes at the first record tested: nothing is removed.
  rs = Table({"a", "b"});
  EXPECT_EQ(ErrorNumberOf([&] { rs->DeleteOutfilteredRecords(1, "=", "*"); }), 5);
  EXPECT_EQ(rs->RecordCount(), 2);

  // A count above the collection fails at once, on the missing last record.
  for (int32_t count : {3, INT32_MAX}) {
    rs->SetRecordCount(count);
    EXPECT_EQ(ErrorNumberOf([&] { rs->DeleteOutfilteredRecords(1, "=", "a"); }), 9);
    EXPECT_EQ(rs->RecordCollection()->Count(), 2);
    EXPECT_EQ(rs->RecordCount(), count);
  }
}

TEST(OfflineRecordset, DeleteOutfilteredRecordsHandlesLargeTables) {
  const int32_t n = 200000;
  clsOfflineRecordset rs;
  rs.Add(n);
  rs.FieldDim(1, "N");
  for (int32_t i = 1; i <= n; ++i) rs.Records(i)->Fields(1)->Value(i % 3);
  rs.DeleteOutfilteredRecords(1, "=", int32_t{0});
  EXPECT_EQ(rs.RecordCount(), n - n / 3);
  EXPECT_EQ(rs.RecordCollection()->Count(), rs.RecordCount());
  for (int32_t i = 1; i <= rs.RecordCount(); i += 997) EXPECT_NE(CLng(rs.Records(i)->Fields(1)->Value()), 0);
  EXPECT_EQ(CLng(rs.Records(1)->Fields(1)->Value()), 1);
  EXPECT_EQ(CLng(rs.Records(2)->Fields(1)->Value()), 2);
  EXPECT_EQ(CLng(rs.Records(3)->Fields(1)->Value()), 1);
}

}  // namespace
}  // namespace quorbex
