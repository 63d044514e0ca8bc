#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "offline/name_pool.h"
#include "offline_test_util.h"
#include "quorbex/clsOfflineField.h"
#include "service/thread_state.h"

namespace quorbex {
namespace {

using offline_internal::NamePool;
using test::ErrorNumberOf;

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

// Sets AllowStoreOfObjects for one test and puts the thread's switch back afterwards.
class AllowObjects {
 public:
  explicit AllowObjects(bool allow) : saved_(State().allow_store_of_objects) {
    State().allow_store_of_objects = allow;
  }
  ~AllowObjects() { State().allow_store_of_objects = saved_; }

 private:
  bool saved_;
};

TEST(OfflineField, NullLeavesOnlyThroughVarValue) {
  clsOfflineField field;
  field.Value(Null);
  EXPECT_TRUE(field.varValue.IsNull());
  ASSERT_TRUE(field.Value().IsString());
  EXPECT_EQ(field.Value().AsString(), "");
  EXPECT_EQ(field.Anything().AsString(), "");

  field.Value(int32_t{42});
  EXPECT_EQ(field.Value().Type(), VarType::Long);
  EXPECT_TRUE(field.Value().SameAs(field.varValue));
  field.varValue = Variant();  // the public variable is the same storage
  EXPECT_TRUE(field.Value().IsEmpty());
}

TEST(OfflineField, ObjectsAreStoredOnlyWhenAllowed) {
  auto object = std::make_shared<Labelled>(Variant("label"));
  clsOfflineField field;
  {
    AllowObjects off(false);
    field.Value(object);
    ASSERT_TRUE(field.varValue.IsString());
    EXPECT_EQ(field.varValue.AsString(), "label");
    // A default that is itself an object is followed to its plain value.
    field.Value(std::make_shared<Labelled>(Variant(std::make_shared<Labelled>(Variant(int32_t{7})))));
    EXPECT_EQ(field.varValue.AsLong(), 7);
    field.Value(ObjectRef());  // Nothing
    EXPECT_TRUE(field.varValue.IsEmpty());
    field.Value(std::make_shared<Object>());  // no default value
    EXPECT_TRUE(field.varValue.IsEmpty());
    EXPECT_EQ(ErrorNumberOf([&] { field.Value(std::make_shared<Faulty>()); }), 438);
  }
  {
    AllowObjects on(true);
    field.Value(object);
    ASSERT_TRUE(field.varValue.IsObject());
    EXPECT_EQ(field.Value().AsObject(), object);
    EXPECT_EQ(field.Anything().AsObject(), object);
  }
}

TEST(OfflineField, StatusOnceAssignedReplacesValueInAnything) {
  clsOfflineField field;
  field.Value("text");
  EXPECT_FALSE(field.IsStatusSet());
  EXPECT_FALSE(field.Status());
  EXPECT_EQ(field.Anything().AsString(), "text");

  field.FieldStatus(false);  // assigning False still counts as assigned
  EXPECT_TRUE(field.IsStatusSet());
  ASSERT_TRUE(field.Anything().IsBoolean());
  EXPECT_FALSE(field.Anything().AsBoolean());

  field.FieldStatus(true);
  EXPECT_TRUE(field.Status());
  EXPECT_TRUE(field.Anything().AsBoolean());
  field.FieldStatus(false);
  EXPECT_TRUE(field.IsStatusSet());  // there is no way back to unset
  EXPECT_FALSE(field.Status());
}

TEST(OfflineField, ChangeMarkIsIndependentOfValueAndStatus) {
  clsOfflineField field;
  EXPECT_FALSE(field.HasChanged);
  field.Value("x");
  EXPECT_FALSE(field.HasChanged);  // value writes leave the mark to the caller

  field.FieldStatus(true);
  field.HasChanged = true;
  EXPECT_TRUE(field.HasChanged);
  EXPECT_TRUE(field.Status());
  field.HasChanged = false;
  EXPECT_FALSE(field.HasChanged);
  EXPECT_TRUE(field.IsStatusSet());
  EXPECT_TRUE(field.Status());

  // Copying the mark between fields carries the mark alone, never the other field's status.
  clsOfflineField other;
  other.HasChanged = true;
  field.HasChanged = other.HasChanged;
  other.HasChanged = field.HasChanged;
  EXPECT_TRUE(field.HasChanged);
  EXPECT_TRUE(field.Status());
  EXPECT_FALSE(other.IsStatusSet());
  bool plain = field.HasChanged;
  EXPECT_TRUE(plain);
}

TEST(OfflineField, CopyClonesEveryMember) {
  clsOfflineField source;
  source.Value("v");
  source.Description = "Name";
  source.lngFieldType = 10;
  source.HasChanged = true;
  source.FieldStatus(true);
  clsOfflineField copy(source);
  EXPECT_EQ(copy.varValue.AsString(), "v");
  EXPECT_EQ(copy.Description, "Name");
  EXPECT_EQ(copy.lngFieldType, 10);
  EXPECT_TRUE(copy.HasChanged);
  EXPECT_TRUE(copy.IsStatusSet());
  EXPECT_TRUE(copy.Status());
  clsOfflineField assigned;
  assigned = source;
  EXPECT_TRUE(assigned.Status());
  EXPECT_TRUE(assigned.Description.SharesStorageWith(source.Description));
}

TEST(OfflineField, DescriptionReadsAndWritesLikeAString) {
  clsOfflineField field;
  EXPECT_TRUE(field.Description.empty());
  EXPECT_EQ(field.Description, "");
  field.Description = "Name";
  std::string copy = field.Description;
  const std::string& ref = field.Description;
  std::string_view view = field.Description;
  EXPECT_EQ(copy, "Name");
  EXPECT_EQ(ref, "Name");
  EXPECT_EQ(view, "Name");
  EXPECT_TRUE(field.Description == "Name");
  EXPECT_TRUE("Name" == field.Description);
  EXPECT_TRUE(field.Description != std::string("name"));
  EXPECT_LT(field.Description, "Namf");
  EXPECT_EQ("[" + field.Description + "]", "[Name]");
  EXPECT_EQ(field.Description.size(), 4u);
  std::ostringstream out;
  out << field.Description;
  EXPECT_EQ(out.str(), "Name");

  field.Description = std::string("Größe ") + "ä";  // any UTF-8, and invalid bytes too
  EXPECT_EQ(field.Description.str(), "Größe ä");
  field.Description = std::string("\xff\xfe", 2);
  EXPECT_EQ(field.Description.size(), 2u);
  field.Description = field.Description.view();  // assigning its own text keeps it
  EXPECT_EQ(field.Description.str(), std::string("\xff\xfe", 2));
  field.Description = "";
  EXPECT_TRUE(field.Description.empty());
  field.Description = static_cast<const char*>(nullptr);
  EXPECT_TRUE(field.Description.empty());
}

TEST(OfflineField, EqualNamesShareOneStoredText) {
  clsOfflineField a, b, c;
  a.Description = std::string("Customer");
  b.Description = std::string("Cust") + "omer";  // a different string object with the same text
  EXPECT_TRUE(a.Description.SharesStorageWith(b.Description));
  EXPECT_EQ(&a.Description.str(), &b.Description.str());
  c.Description = a.Description;
  EXPECT_TRUE(c.Description.SharesStorageWith(a.Description));

  // Renaming one field leaves the others alone.
  b.Description = "Supplier";
  EXPECT_EQ(a.Description, "Customer");
  EXPECT_EQ(b.Description, "Supplier");
  EXPECT_FALSE(a.Description.SharesStorageWith(b.Description));
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
  std::vector<clsOfflineField> fields(8);
  std::vector<std::thread> threads;
  std::atomic<bool> wrong{false};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      clsOfflineField local;
      for (int i = 0; i < 20000; ++i) {
        const std::string name = "column-" + std::to_string((i + t) % 12);
        local.Description = name;
        if (local.Description != name) wrong = true;
      }
      fields[static_cast<size_t>(t)].Description = "thread-" + std::to_string(t);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(wrong);
  for (int t = 0; t < 4; ++t) EXPECT_EQ(fields[static_cast<size_t>(t)].Description, "thread-" + std::to_string(t));
}

}  // namespace
}  // namespace quorbex
