#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quorbex/quorbex.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

TEST(Host, InstalledMessageBoxAndViewerAreUsedUntilReset) {
  std::vector<std::string> titles;
  SetMessageBoxHandler([&](const std::string&, int32_t, const std::string& title) {
    titles.push_back(title);
    return 1;
  });
  clsOfflineRecordset records;
  records.Add(1);
  records.FieldDim(2, "Name");  // two fields with one name: refused with a message
  ASSERT_EQ(titles.size(), 1u);
  EXPECT_EQ(titles[0], "OfflineRecordset.FieldDim");

  std::string shown;
  SetTextViewer([&](const std::string& path) {
    shown = path;
    return true;
  });
  auto layer = std::make_shared<DataLayer>();
  std::string table, fields = "ID;Name";
  layer->CreateNewVirtualOfflineTable(table, fields);
  layer->AddNew();
  layer->VisualizeToTextFile();
  EXPECT_NE(shown.find("Datalayer.txt"), std::string::npos);

  SetMessageBoxHandler(nullptr);
  SetTextViewer(nullptr);
  records.FieldDim(2, "Name");
  EXPECT_EQ(titles.size(), 1u);
}

}  // namespace
}  // namespace quorbex
