// Jet expressions in SQLite's syntax, and the ones refused with a reason.
#include <gtest/gtest.h>

#include "platform/db/jet/jet_dialect.h"

namespace quorbex::db::internal::jet {
namespace {

TEST(JetDialect, TranslatesSyntaxAndFunctionsOrRefuses) {
  EXPECT_EQ(TranslateExpression("[Order Details].Quantity & \" x\""), "\"Order Details\".Quantity || ' x'");
  EXPECT_EQ(TranslateExpression("d Between #1/1/97# And #12/31/1997 2:30:00 PM#"),
            "d Between '1997-01-01 00:00:00' And '1997-12-31 14:30:00'");
  EXPECT_EQ(TranslateExpression("#1/2/29# < #2001-03-04#"), "'2029-01-02 00:00:00' < '2001-03-04 00:00:00'");
  EXPECT_EQ(TranslateExpression("Discontinued=No Or x=True"), "Discontinued=0 Or x=1");
  EXPECT_EQ(TranslateExpression("IIf(a>1, 'big', Nz(b))"), "(CASE WHEN a>1 THEN 'big' ELSE COALESCE(b, '') END)");
  EXPECT_EQ(TranslateExpression("Name Like \"M*r?\""), "Name Like 'M%r_'");
  EXPECT_EQ(TranslateExpression("Format(OrderDate, \"yyyy-mm\")"), "strftime('%Y-%m', OrderDate)");
  EXPECT_EQ(TranslateExpression("Year(d) Mod 4"), "CAST(strftime('%Y', d) AS INTEGER) % 4");
  EXPECT_EQ(TranslateExpression("Left$(s, 2)"), "substr(s, 1, 2)");
  EXPECT_EQ(TranslateExpression("a / b"), "a * 1.0 / b");  // Jet divides as reals
  EXPECT_EQ(TranslateExpression("'it''s'"), "'it''s'");
  EXPECT_THROW(TranslateExpression("x = Forms!Orders!OrderID"), Untranslatable);
  EXPECT_THROW(TranslateExpression("DLookup(\"x\", \"t\")"), Untranslatable);
  EXPECT_THROW(TranslateExpression("s Like \"[A-C]*\""), Untranslatable);
  EXPECT_THROW(TranslateExpression("Format(x, \"Currency\")"), Untranslatable);

  // A join, TOP and descending order from definition rows in any order.
  StoredQuery q = RebuildQuery("q", {{11, 0, "D", "", "o.Total", ""},
                                     {3, 16, "5", "", "", ""},
                                     {5, 0, "Orders", "o", "", ""},
                                     {5, 0, "Customers", "", "", ""},
                                     {6, 0, "Who", "", "Customers.Name", ""},
                                     {7, 2, "Customers", "o", "Customers.ID=o.CustomerID", ""}});
  EXPECT_EQ(q.sql,
            "SELECT Customers.Name AS \"Who\" FROM \"Customers\" LEFT JOIN \"Orders\" AS \"o\" ON "
            "Customers.ID=o.CustomerID ORDER BY o.Total DESC LIMIT 5");
  EXPECT_NE(RebuildQuery("p", {{2, 0, "[Start]", "", "", ""}, {5, 0, "T", "", "", ""}}).reason.find("[Start]"),
            std::string::npos);
  EXPECT_NE(RebuildQuery("c", {{1, 6, "", "", "", ""}}).reason.find("crosstab"), std::string::npos);
}

}  // namespace
}  // namespace quorbex::db::internal::jet
