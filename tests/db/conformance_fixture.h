// The engine conformance suite's fixture: what every backend must do, run once per registered test
// context (test_context.h). Schema is made through the engine's own objects and data through recordsets
// or plain SQL, so the same cases hold for any SQL engine; quirks come from the context, and a case that
// needs writing or a capability says so with REQUIRE_WRITABLE instead of naming a backend.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>

#include "db/test_context.h"
#include "quorbex/engine.h"
#include "quorbex/locale.h"

namespace quorbex::db::test {

template <class F>
EngineError ErrorOf(F&& f) {
  try {
    f();
  } catch (const EngineError& e) {
    return e;
  }
  ADD_FAILURE() << "expected an EngineError";
  return EngineError(ErrorKind::General, "");
}

inline const char* FeatureName(Feature feature) {
  switch (feature) {
    case Feature::UpdatableRecordsets: return "updatable recordsets";
    case Feature::SchemaChanges: return "schema changes";
    case Feature::StoredQueries: return "stored queries";
    case Feature::TemporaryQueries: return "temporary queries";
    case Feature::Compaction: return "compaction";
    case Feature::Transactions: return "transactions";
  }
  return "?";
}

class EngineConformance : public ::testing::TestWithParam<ContextFactory> {
 protected:
  void SetUp() override {
    Locale::SetCurrent(Locale::C());
    saved_timeout_ = DBEngine::Default()->BusyTimeout();
    ctx_ = GetParam().make();
    if (const std::string why = ctx_->Unavailable(); !why.empty()) {
      GTEST_SKIP() << ctx_->Name() << " unavailable: " << why;
    }
  }
  void TearDown() override { DBEngine::Default()->BusyTimeout(saved_timeout_); }

  // people(id auto-increment, name Text(50), city Text(50)) with `rows` people of Wien, and
  // orders(id, person Long, amount Double) with one order of person 1.
  std::shared_ptr<Database> PeopleDatabase(int rows = 3) {
    return ctx_->OpenFixture("people" + std::to_string(rows), [rows](Database& db) {
      auto people = db.CreateTableDef("people");
      auto id = people->CreateField("id", dbLong);
      id->Attributes(dbAutoIncrField);
      people->Fields()->Append(id);
      people->Fields()->Append(people->CreateField("name", dbText, 50));
      people->Fields()->Append(people->CreateField("city", dbText, 50));
      db.TableDefs()->Append(people);
      auto orders = db.CreateTableDef("orders");
      auto oid = orders->CreateField("id", dbLong);
      oid->Attributes(dbAutoIncrField);
      orders->Fields()->Append(oid);
      orders->Fields()->Append(orders->CreateField("person", dbLong));
      orders->Fields()->Append(orders->CreateField("amount", dbDouble));
      db.TableDefs()->Append(orders);
      const char* names[] = {"Anna", "Bernd", "Clara", "Dora", "Emil", "Fritz", "Gerda"};
      for (int i = 0; i < rows; ++i) {
        db.Execute("INSERT INTO people (name, city) VALUES ('" + std::string(names[i % 7]) + "', 'Wien')");
      }
      db.Execute("INSERT INTO orders (person, amount) VALUES (1, 9.5)");
    });
  }

  static int32_t CountRows(Database& db, const std::string& sql) {
    auto rs = db.OpenRecordset(sql, dbOpenSnapshot);
    if (rs->EOF_()) return 0;
    rs->MoveLast();
    return rs->RecordCount();
  }

  // Why the running case cannot run on this context: empty when its databases can be written and offer
  // every feature named.
  std::string Lacking(std::initializer_list<Feature> features) {
    if (!ctx_->Writable()) return ctx_->Name() + ": the databases are read-only";
    if (features.size() == 0) return std::string();
    auto probe = PeopleDatabase(0);
    for (Feature feature : features) {
      if (!probe->Supports(feature)) return ctx_->Name() + ": no " + FeatureName(feature);
    }
    return std::string();
  }

  std::shared_ptr<TestContext> ctx_;
  int32_t saved_timeout_ = 0;
};

// Skips the running case with the reason unless the context's databases can be written and offer every
// feature named. A macro, because GTEST_SKIP has to return from the test body itself.
#define REQUIRE_WRITABLE(...) \
  if (const std::string lacking = Lacking({__VA_ARGS__}); !lacking.empty()) GTEST_SKIP() << lacking

}  // namespace quorbex::db::test
