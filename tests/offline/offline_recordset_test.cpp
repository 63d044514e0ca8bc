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

using test::ErrorOf;
using test::OneFieldRecordset;

std::string Values(const clsOfflineRecordset& rs) {
  std::string text;
  for (int32_t i = 1; i <= rs.RecordCollection()->Count(); ++i) {
    text += (i > 1 ? "," : "") + CStr(rs.Records(i)->Fields(1)->Value());
  }
  return text;
}

TEST(OfflineRecordset, AddAndRemoveKeepTheCounter) {
  clsOfflineRecordset rs;
  rs.Add(3);
  for (int32_t none : {0, -4, INT32_MIN}) rs.Add(none);
  EXPECT_EQ(rs.RecordCount(), 3);
  EXPECT_EQ(rs.Records(2)->FieldCount(), 0);
  EXPECT_NE(rs.Records(1), rs.Records(2));
  for (int32_t bad : {0, -1, 4, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(rs.Records(bad), nullptr) << bad;
    rs.Remove(bad);
  }
  EXPECT_EQ(rs.RecordCount(), 3);
  rs.Remove(2);
  EXPECT_EQ(rs.RecordCount(), 2);

  // The count may not pass the 32-bit range; nothing is added then.
  rs.SetRecordCount(INT32_MAX - 1);
  EXPECT_EQ(ErrorOf([&] { rs.Add(2); }), 6);
  EXPECT_EQ(rs.RecordCollection()->Count(), 2);
}

TEST(OfflineRecordset, RecordCountIsKeptApartFromTheCollection) {
  auto rs = OneFieldRecordset({"a", "b"});
  rs->RecordCollection()->Add(std::make_shared<clsOfflineRecord>());
  EXPECT_EQ(rs->RecordCount(), 2);
  EXPECT_NE(rs->Records(3), nullptr);  // Records reads the collection
  rs->SetRecordCount(3);
  EXPECT_EQ(rs->RecordCount(), 3);

  auto replacement = std::make_shared<clsOfflineRecordset::RecordCollectionType>();
  replacement->Add(rs->Records(2));
  rs->OverwriteRecordCollection(replacement);
  EXPECT_EQ(rs->RecordCollection(), replacement);  // the same object, not a copy
  EXPECT_EQ(rs->RecordCount(), 1);
  rs->OverwriteRecordCollection(nullptr);
  EXPECT_EQ(rs->RecordCollection()->Count(), 0);
  EXPECT_EQ(rs->RecordCount(), 0);
  // A collection somebody else still holds keeps its records when the recordset lets go of it.
  ASSERT_EQ(replacement->Count(), 1);
  EXPECT_EQ(CStr(replacement->Item(1)->Fields(1)->Value()), "b");
  {
    auto held = OneFieldRecordset({"x", "y"})->RecordCollection();  // the recordset is gone at once
    ASSERT_EQ(held->Count(), 2);
    EXPECT_EQ(CStr(held->Item(2)->Fields(1)->Value()), "y");
  }

  auto owner = std::make_shared<Object>();
  rs = OneFieldRecordset({"a"});
  rs->Tag = "AllowAttach";
  rs->Parent = owner;
  rs->RecordsetIsReadOnly = true;
  auto before = rs->RecordCollection();
  rs->Destroy();
  EXPECT_EQ(rs->RecordCount(), 0);
  EXPECT_EQ(rs->RecordCollection()->Count(), 0);
  ASSERT_EQ(before->Count(), 1);
  EXPECT_EQ(CStr(before->Item(1)->Fields(1)->Value()), "a");
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
    ASSERT_EQ(rs.Records(i)->FieldCount(), 3);
    EXPECT_TRUE(rs.Records(i)->Fields(3)->Description.SharesStorageWith(rs.Records(1)->Fields(3)->Description));
  }
  EXPECT_EQ(rs.Records(2)->Fields(3)->Description, "Name");
  rs.FieldDim(3);
  EXPECT_EQ(rs.Records(2)->FieldCount(), 6);
  EXPECT_EQ(boxes->Count(), 0u);

  // Two or more fields with a name: the message, and nothing added.
  rs.FieldDim(2, "Name");
  EXPECT_EQ(rs.Records(1)->FieldCount(), 6);
  ASSERT_EQ(boxes->Count(), 1u);
  const auto prompt = boxes->Prompts().front();
  EXPECT_EQ(prompt.text,
            "Sie können nur ein Feld hinzufügen, wenn Sie eine Feldbeschreibung verwenden. Lassen Sie entweder "
            "die Feldbeschreibung leer oder fügen Sie nur ein Feld hinzu!\r\nDie Aktion wurde abgebrochen!");
  EXPECT_EQ(prompt.style, platform::vbExclamation | platform::vbOKOnly);
  EXPECT_EQ(prompt.title, "OfflineRecordset.FieldDim");

  // No field but a name renames the last field of each record.
  rs.FieldDim(0, "Renamed");
  EXPECT_EQ(rs.Records(3)->Fields(6)->Description, "Renamed");

  // Records outside the count, Nothing in the collection and a count past the end are passed over.
  rs.SetRecordCount(2);
  rs.FieldDim(1);
  EXPECT_EQ(rs.Records(3)->FieldCount(), 6);
  rs.RecordCollection()->Add(nullptr);
  rs.SetRecordCount(9);
  rs.FieldDim(1);
  EXPECT_EQ(rs.Records(1)->FieldCount(), 8);
  EXPECT_EQ(rs.Records(3)->FieldCount(), 7);
}

TEST(OfflineRecordset, RemoveFieldOnlyRemovesTheLastField) {
  clsOfflineRecordset rs;
  rs.Add(3);
  for (const char* name : {"A", "B", "C"}) rs.FieldDim(1, name);
  for (int32_t ignored : {1, 2, 0, -1, INT32_MIN, 10}) rs.RemoveField(ignored);
  EXPECT_EQ(rs.Records(2)->FieldCount(), 3);
  rs.RemoveField(3);
  for (int32_t i = 1; i <= 3; ++i) EXPECT_EQ(rs.Records(i)->Fields(rs.Records(i)->FieldCount())->Description, "B");

  clsOfflineRecordset empty;
  EXPECT_EQ(ErrorOf([&] { empty.RemoveField(1); }), 9);
  empty.RecordCollection()->Add(nullptr);
  EXPECT_EQ(ErrorOf([&] { empty.RemoveField(1); }), 91);
}

TEST(OfflineRecordset, GetHitRecordsCollectsTheRecordsThemselves) {
  auto rs = OneFieldRecordset({"a", "b", "A", Null, int32_t{5}});
  EXPECT_EQ(rs->GetHitRecords(0, "=", "a"), nullptr);
  auto hits = rs->GetHitRecords(1, "=", "a");  // text compare ignores case
  ASSERT_EQ(hits->Count(), 2);
  EXPECT_EQ(hits->Item(1), rs->Records(1));
  EXPECT_EQ(hits->Item(2), rs->Records(3));
  EXPECT_EQ(rs->GetHitRecords(1, "=", "")->Item(1), rs->Records(4));  // Null reads as ""
  EXPECT_EQ(rs->GetHitRecords(1, "=", "zzz")->Count(), 0);
  rs->SetRecordCount(2);  // only counted records are looked at
  EXPECT_EQ(rs->GetHitRecords(1, "=", "a")->Count(), 1);

  // Errors reach the caller: the comparison's, and a missing field or record.
  rs->SetRecordCount(5);
  EXPECT_EQ(ErrorOf([&] { rs->GetHitRecords(1, "=", "*"); }), 5);
  EXPECT_EQ(ErrorOf([&] { rs->GetHitRecords(2, "=", "a"); }), 91);
  EXPECT_EQ(ErrorOf([&] { rs->GetHitRecords(-1, "=", "a"); }), 91);
  rs->SetRecordCount(6);
  EXPECT_EQ(ErrorOf([&] { rs->GetHitRecords(1, "=", "a"); }), 9);
}

TEST(OfflineRecordset, DeleteOutfilteredRecordsRemovesTheMatches) {
  auto rs = OneFieldRecordset({"x", "y", "x", "z", "x"});
  rs->DeleteOutfilteredRecords(0, "=", "x");
  EXPECT_EQ(rs->RecordCount(), 5);
  rs->DeleteOutfilteredRecords(1, "=", "x");
  EXPECT_EQ(Values(*rs), "y,z");
  EXPECT_EQ(rs->RecordCount(), 2);
  rs->DeleteOutfilteredRecords(1, "<>", "nothing");  // every record matches
  EXPECT_EQ(rs->RecordCount(), 0);
  EXPECT_EQ(rs->RecordCollection()->Count(), 0);

  // Records beyond the count stay whatever they hold.
  rs = OneFieldRecordset({int32_t{1}, int32_t{10}, int32_t{2}, int32_t{20}});
  rs->SetRecordCount(3);
  rs->DeleteOutfilteredRecords(1, ">", int32_t{5});
  EXPECT_EQ(Values(*rs), "1,2,20");
  EXPECT_EQ(rs->RecordCount(), 2);
}

TEST(OfflineRecordset, DeleteOutfilteredRecordsStopsLikeTheBackwardWalkOnError) {
  // From the back, records 6 (a match) and 5 are tested before record 4, which lacks the field;
  // record 2 would match but is never reached.
  auto rs = OneFieldRecordset({"a", "x", "b", "c", "d", "x"});
  rs->Records(4)->Remove(1);
  EXPECT_EQ(ErrorOf([&] { rs->DeleteOutfilteredRecords(1, "=", "x"); }), 91);
  EXPECT_EQ(rs->RecordCount(), 5);
  ASSERT_EQ(rs->RecordCollection()->Count(), 5);
  EXPECT_EQ(rs->Records(2)->Fields(1)->Value().AsString(), "x");
  EXPECT_EQ(rs->Records(5)->Fields(1)->Value().AsString(), "d");

  // The comparison's own error for "*" comes at the first record tested: nothing is removed.
  rs = OneFieldRecordset({"a", "b"});
  EXPECT_EQ(ErrorOf([&] { rs->DeleteOutfilteredRecords(1, "=", "*"); }), 5);
  EXPECT_EQ(rs->RecordCount(), 2);

  // A count above the collection fails at once, on the missing last record.
  for (int32_t count : {3, INT32_MAX}) {
    rs->SetRecordCount(count);
    EXPECT_EQ(ErrorOf([&] { rs->DeleteOutfilteredRecords(1, "=", "a"); }), 9);
    EXPECT_EQ(rs->RecordCollection()->Count(), 2);
  }
}

}  // namespace
}  // namespace quorbex
