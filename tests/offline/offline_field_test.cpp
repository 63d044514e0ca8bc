#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "offline/name_pool.h"
#include "offline_test_util.h"
#include "quorbex/clsOfflineField.h"
#include "service/thread_state.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

using internal::NamePool;
using test::ErrorOf;

// An object with a default value, as a class with a default property has.
class Labelled : public Object {
 public:
  explicit Labelled(Variant value) : value_(std::move(value)) {}
  Variant DefaultValue() const override { return value_; }

 private:
  Variant value_;
};

class Faulty : public Object {
 public:
  Variant DefaultValue() const override { throw AutomationError(438, "Faulty", "no default"); }
};

TEST(OfflineField, NullLeavesOnlyThroughVarValue) {
  clsOfflineField field;
  field.Value(Null);
  EXPECT_TRUE(field.varValue.IsNull());
  EXPECT_EQ(field.Value().AsString(), "");
  EXPECT_EQ(field.Anything().AsString(), "");
  field.varValue = int32_t{42};  // the public variable is the same storage
  EXPECT_EQ(field.Value().AsLong(), 42);
}

TEST(OfflineField, ObjectsAreStoredOnlyWhenAllowed) {
  const bool saved = State().allow_store_of_objects;
  auto object = std::make_shared<Labelled>(Variant("label"));
  clsOfflineField field;

  State().allow_store_of_objects = false;
  field.Value(object);
  EXPECT_EQ(field.varValue.AsString(), "label");
  // A default that is itself an object is followed to its plain value.
  field.Value(std::make_shared<Labelled>(Variant(std::make_shared<Labelled>(Variant(int32_t{7})))));
  EXPECT_EQ(field.varValue.AsLong(), 7);
  field.Value(ObjectRef());  // Nothing
  EXPECT_TRUE(field.varValue.IsEmpty());
  EXPECT_EQ(ErrorOf([&] { field.Value(std::make_shared<Faulty>()); }), 438);

  State().allow_store_of_objects = true;
  field.Value(object);
  EXPECT_EQ(field.Value().AsObject(), object);
  EXPECT_EQ(field.Anything().AsObject(), object);
  State().allow_store_of_objects = saved;
}

TEST(OfflineField, StatusOnceAssignedReplacesValueInAnything) {
  clsOfflineField field;
  field.Value("text");
  EXPECT_FALSE(field.IsStatusSet());
  EXPECT_EQ(field.Anything().AsString(), "text");
  field.FieldStatus(false);  // assigning False still counts as assigned
  EXPECT_TRUE(field.IsStatusSet());
  EXPECT_FALSE(field.Anything().AsBoolean());
  field.FieldStatus(true);
  EXPECT_TRUE(field.Anything().AsBoolean());
  field.FieldStatus(false);
  EXPECT_TRUE(field.IsStatusSet());  // there is no way back to unset
}

TEST(OfflineField, ChangeMarkSharesItsByteWithoutDisturbingTheStatus) {
  clsOfflineField field, other;
  field.Value("x");
  EXPECT_FALSE(field.HasChanged);  // value writes leave the mark to the caller
  field.FieldStatus(true);
  field.HasChanged = true;
  field.HasChanged = false;
  EXPECT_TRUE(field.Status());
  // Copying the mark between fields carries the mark alone, never the other field's status.
  other.HasChanged = true;
  field.HasChanged = other.HasChanged;
  other.HasChanged = field.HasChanged;
  EXPECT_TRUE(field.HasChanged && field.Status());
  EXPECT_FALSE(other.IsStatusSet());

  // Copying the whole field clones every member, the status pair included.
  field.Description = "Name";
  field.lngFieldType = 10;
  clsOfflineField copy(field);
  EXPECT_TRUE(copy.HasChanged && copy.IsStatusSet() && copy.Status());
  EXPECT_EQ(copy.Description, "Name");
  EXPECT_EQ(copy.lngFieldType, 10);
}

TEST(OfflineField, DescriptionReadsLikeAStringAndSharesEqualTexts) {
  clsOfflineField a, b;
  EXPECT_TRUE(a.Description.empty());
  a.Description = std::string("Customer");
  b.Description = std::string("Cust") + "omer";  // another string object with the same text
  EXPECT_TRUE(a.Description.SharesStorageWith(b.Description));
  EXPECT_EQ(&a.Description.str(), &b.Description.str());
  const std::string& ref = a.Description;
  EXPECT_EQ(ref, "Customer");
  EXPECT_TRUE("Customer" == a.Description);
  EXPECT_EQ("[" + a.Description + "]", "[Customer]");

  b.Description = "Supplier";  // renaming one field leaves the others alone
  EXPECT_EQ(a.Description, "Customer");
  a.Description = a.Description.view();  // its own text
  EXPECT_EQ(a.Description, "Customer");
  a.Description = std::string("\xff\xfe", 2);  // invalid UTF-8 is kept as it is
  EXPECT_EQ(a.Description.size(), 2u);
  a.Description = static_cast<const char*>(nullptr);
  EXPECT_TRUE(a.Description.empty());
}

TEST(OfflineField, NamesAreReleasedWithTheirLastHolder) {
  auto& pool = NamePool::Instance();
  pool.FlushThreadCache();
  const size_t before = pool.LiveCount();
  {
    std::vector<clsOfflineField> fields(1000);
    for (size_t i = 0; i < fields.size(); ++i) fields[i].Description = "release-test-" + std::to_string(i % 10);
    pool.FlushThreadCache();
    EXPECT_EQ(pool.LiveCount(), before + 10);
  }
  EXPECT_EQ(pool.LiveCount(), before);
}

TEST(OfflineField, NamesSurviveTheThreadThatMadeThem) {
  std::vector<clsOfflineField> fields(4);
  std::vector<std::thread> threads;
  for (size_t t = 0; t < fields.size(); ++t) {
    threads.emplace_back([&fields, t] {
      clsOfflineField local;
      for (int i = 0; i < 20000; ++i) {
        const std::string name = "column-" + std::to_string((i + t) % 12);
        local.Description = name;
        ASSERT_EQ(local.Description, name);
      }
      fields[t].Description = "thread-" + std::to_string(t);
    });
  }
  for (auto& thread : threads) thread.join();
  for (size_t t = 0; t < fields.size(); ++t) EXPECT_EQ(fields[t].Description, "thread-" + std::to_string(t));
}

}  // namespace
}  // namespace quorbex
