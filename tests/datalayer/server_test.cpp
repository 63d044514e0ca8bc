// A DataLayer on a server database: a save whose connection the server ends keeps every mark.
#include <gtest/gtest.h>

#include "datalayer/datalayer_fixture.h"
#include "db/postgresql/pg_context.h"

namespace quorbex::test {
namespace {

class ServerDataLayer : public DataLayerTest {
 protected:
  db::test::ContextFactory Context() const override { return db::test::ContextNamed("PostgreSQL"); }
};

TEST_F(ServerDataLayer, ASaveThatLosesItsConnectionKeepsEveryMark) {
  auto layer = Loaded();
  auto database = State().current_database;
  const int32_t pid = CLng(database->OpenRecordset("SELECT pg_backend_pid() AS pid")->Fields(0)->Value());
  layer->MoveSpecific(1);
  layer->SetFieldValue("city", "Krems");
  layer->AddNew();
  layer->SetFieldValue("name", "Dora");
  db::DBEngine::Default()
      ->OpenDatabase(db::test::PostgresqlContext::ServerConnection())
      ->OpenRecordset("SELECT pg_terminate_backend(" + std::to_string(pid) + ") AS gone")
      ->MoveLast();

  EXPECT_FALSE(layer->Save());
  EXPECT_NE(layer->ErrorStatus().find("was lost"), std::string::npos) << layer->ErrorStatus();
  auto records = layer->GetOfflineRecordset();
  EXPECT_TRUE(records->Records(1)->HasChanged);
  EXPECT_TRUE(records->Records(4)->NewlyAdded);
  EXPECT_EQ(DbValue("SELECT city FROM customers WHERE id = 1").AsString(), "Wien");
  EXPECT_EQ(CLng(DbValue("SELECT COUNT(*) FROM customers")), 3);
}

}  // namespace
}  // namespace quorbex::test
