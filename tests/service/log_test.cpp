#include "service/clsLog.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/environment.h"
#include "platform/guid.h"
#include "quorbex/engine.h"
#include "quorbex/locale.h"
#include "service/modService.h"
#include "service/thread_state.h"
#include "support/forwarding_database.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"

namespace quorbex {

using namespace quorbex::internal;
namespace {

// A database that only knows its name, the only thing the log asks of it; a broken one fails to say it.
class NamedDatabase final : public test::ForwardingDatabase {
 public:
  explicit NamedDatabase(std::string name, bool broken = false)
      : ForwardingDatabase(nullptr), name_(std::move(name)), broken_(broken) {}
  const std::string& Name() const override {
    if (broken_) throw std::runtime_error("connection lost");
    return name_;
  }

 private:
  std::string name_;
  bool broken_;
};

const platform::Guid kGuid{0xA1, 0xB2, 0xC3, 0xD4, 0xE5, 0xF6, 0x47, 0x08, 0x89, 0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F, 0x60};
const std::string kGuidText = "A1B2C3D4E5F64708890A1B2C3D4E5F60";

class SessionLog : public ::testing::Test {
 protected:
  void SetUp() override {
    State() = ThreadState{};
    State().log_path = dir_.Path();
    environment_->Set("Computername", "PC-01.büro");
    environment_->Set("Username", "ann.b");
    environment_->SetHostName("testhost");  // "computername" is unset: the host name
    environment_->SetLoginName("tester");   // "username" is unset and so is USER: the login name
    guids_->Queue(kGuid);
  }
  void TearDown() override { State() = ThreadState{}; }

  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.Path())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  test::TempDir dir_;
  LocaleScope locale_{Locale::C()};
  std::shared_ptr<test::FakeEnvironment> environment_ = std::make_shared<test::FakeEnvironment>();
  std::shared_ptr<test::FakeClock> clock_ = std::make_shared<test::FakeClock>(MakeDate({2024, 5, 6, 13, 4, 5}));
  std::shared_ptr<test::FakeGuidSource> guids_ = std::make_shared<test::FakeGuidSource>();
  platform::EnvironmentScope environment_scope_{environment_};
  platform::ClockScope clock_scope_{clock_};
  platform::GuidScope guid_scope_{guids_};
};

TEST_F(SessionLog, WritesHeadEntriesAndErrorTailInWindows1252) {
  clsLog log;
  std::string update = "UPDATE ID=5";
  log.WriteLogEntry(update, "SELECT * FROM T WHERE ID=5", "", "Name", "Müller & <Söhne>", "\"quoted\" ☃ €");
  EXPECT_EQ(log.SessionID(), kGuidText);
  clock_->Advance(61);
  std::string unknown;
  log.WriteLogEntry(unknown, "", "ID=7;Name=x\r\n", "", "", "");
  EXPECT_EQ(unknown, "UNKNOWN");  // the caller sees the replacement
  AppendErrorStatus("Fehler: a.b");
  AppendErrorStatus("second one");
  log.CloseSession();
  EXPECT_EQ(log.SessionID(), "");

  const std::string file = dir_.File(kGuidText + "_PC01buero_annb_20240506130405.xml");
  EXPECT_EQ(log.LogFileName(), file);
  EXPECT_EQ(test::ReadBytes(file),
            "<?xml version=\"1.0\" encoding=\"windows-1252\" ?>\r\n"
            "<QuorbexDataLayerLog>\r\n"
            "<HEAD>\r\n"
            "   <SESSIONID>" + kGuidText + "</SESSIONID>\r\n"
            "   <SESSIONTIME>2024-05-06 13:04:05</SESSIONTIME>\r\n"
            "   <DATABASE>OFFLINE</DATABASE>\r\n"
            "   <COMPUTERNAME>testhost</COMPUTERNAME>\r\n"
            "   <SYSTEMUSERNAME>tester</SYSTEMUSERNAME>\r\n"
            "   <DECLAREDUSERNAME>NotSet</DECLAREDUSERNAME>\r\n"
            "</HEAD>\r\n"
            "<LOGDATA>\r\n"
            "<ACTION TYPE=\"UPDATE ID=5\">\r\n"
            "   <ActionTime>2024-05-06 13:04:05</ActionTime>\r\n"
            "   <QueryString>SELECT * FROM T WHERE ID=5</QueryString>\r\n"
            "   <DeletedRecordInfo>\r\n"
            "   </DeletedRecordInfo>\r\n"
            "   <FieldName>Name</FieldName>\r\n"
            "   <OldValue>M\xfcller & <S\xf6hne></OldValue>\r\n"
            "   <NewValue>\"quoted\" ? \x80</NewValue>\r\n"
            "</ACTION>\r\n"
            "<ACTION TYPE=\"UNKNOWN\">\r\n"
            "   <ActionTime>2024-05-06 13:05:06</ActionTime>\r\n"
            "   <QueryString></QueryString>\r\n"
            "   <DeletedRecordInfo>\r\n"
            "ID=7;Name=x\r\n"
            "   </DeletedRecordInfo>\r\n"
            "   <FieldName></FieldName>\r\n"
            "   <OldValue></OldValue>\r\n"
            "   <NewValue></NewValue>\r\n"
            "</ACTION>\r\n"
            "</LOGDATA>\r\n"
            "<ERRORINFO>1)Fehlerab2)secondone</ERRORINFO>\r\n"
            "</QuorbexDataLayerLog>\r\n");
}

TEST_F(SessionLog, HeadNamesDatabaseAndDeclaredUserAndTailWithoutErrors) {
  State().current_database = std::make_shared<NamedDatabase>("/data/orders.db");
  State().user_name = "Chef";
  {
    clsLog log;
    log.OpenSession();
    EXPECT_EQ(log.SessionID(), kGuidText);
  }  // the destructor closes the session
  std::string text = test::ReadBytes(dir_.File(kGuidText + "_PC01buero_annb_20240506130405.xml"));
  EXPECT_NE(text.find("   <DATABASE>/data/orders.db</DATABASE>\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("   <DECLAREDUSERNAME>Chef</DECLAREDUSERNAME>\r\n"), std::string::npos);
  EXPECT_EQ(text.find("ERRORINFO"), std::string::npos);
  EXPECT_TRUE(text.ends_with("<LOGDATA>\r\n</LOGDATA>\r\n</QuorbexDataLayerLog>\r\n")) << text;

  // A database that cannot tell its name reads as OFFLINE.
  State().current_database = std::make_shared<NamedDatabase>("", true);
  clsLog broken;
  broken.OpenSession();
  EXPECT_NE(test::ReadBytes(broken.LogFileName()).find("<DATABASE>OFFLINE</DATABASE>"), std::string::npos);
}

TEST_F(SessionLog, ClosesOnceAndStartsANewFileForANewSession) {
  guids_->Queue({0xFF});
  clsLog log;
  log.OpenSession();
  const std::string first = log.LogFileName();
  log.CloseSession();
  log.CloseSession();  // no second tail
  std::string text = test::ReadBytes(first);
  EXPECT_EQ(text.find("</QuorbexDataLayerLog>"), text.rfind("</QuorbexDataLayerLog>"));

  std::string action = "DELETE_OFFLINE";
  log.WriteLogEntry(action, "q", "", "f", "o", "n");  // opens a new session
  EXPECT_EQ(log.SessionID(), "FF000000000000000000000000000000");
  EXPECT_NE(log.LogFileName(), first);
  EXPECT_EQ(Files().size(), 2u);
  log.OpenSession();  // a session still open is closed before the next one starts
  std::string second = test::ReadBytes(dir_.File("FF000000000000000000000000000000_PC01buero_annb_20240506130405.xml"));
  EXPECT_TRUE(second.ends_with("</ACTION>\r\n</LOGDATA>\r\n</QuorbexDataLayerLog>\r\n")) << second;
}

TEST_F(SessionLog, DisabledLogWritesNothing) {
  State().log_disabled = true;
  {
    clsLog log;
    std::string action;
    log.OpenSession();
    log.WriteLogEntry(action, "q", "", "f", "o", "n");
    log.CloseSession();
    EXPECT_EQ(action, "");
    EXPECT_EQ(log.SessionID(), "");
  }
  EXPECT_TRUE(Files().empty());

  // Switched off while a session is open: the tail is not written either.
  State().log_disabled = false;
  clsLog log;
  log.OpenSession();
  State().log_disabled = true;
  std::string action = "UPDATE ID=1";
  log.WriteLogEntry(action, "q", "", "f", "o", "n");
  log.CloseSession();
  ASSERT_EQ(Files().size(), 1u);
  EXPECT_TRUE(test::ReadBytes(log.LogFileName()).ends_with("<LOGDATA>\r\n"));
}

TEST_F(SessionLog, UnwritableFolderFailsSilently) {
  State().log_path = dir_.File("missing/folder");
  {
    clsLog log;
    std::string action = "UPDATE ID=1";
    EXPECT_NO_THROW(log.WriteLogEntry(action, "q", "", "f", "o", "n"));
    EXPECT_NO_THROW(log.CloseSession());
  }  // nor does the destructor throw
  test::WriteBytes(dir_.File("plainfile"), "x");
  State().log_path = dir_.File("plainfile");
  clsLog log;
  EXPECT_NO_THROW(log.OpenSession());
  EXPECT_EQ(Files().size(), 1u);
}

TEST_F(SessionLog, EmptyFolderMeansTheExecutablesFolder) {
  std::filesystem::create_directories(dir_.File("bin"));
  environment_->SetExecutablePath(dir_.File("bin/app"));
  State().log_path = "";
  clsLog log;
  log.OpenSession();
  EXPECT_EQ(State().log_path, dir_.File("bin"));
  EXPECT_TRUE(std::filesystem::exists(dir_.File("bin/" + kGuidText + "_PC01buero_annb_20240506130405.xml")));
}

TEST_F(SessionLog, FileNameAndTimesFollowTheLocale) {
  LocaleScope german(Locale::German());
  environment_->Unset("Computername");  // falls back to the host name
  clsLog log;
  log.OpenSession();
  EXPECT_EQ(log.LogFileName(), dir_.File(kGuidText + "_testhost_annb_06052024130405.xml"));
  EXPECT_NE(test::ReadBytes(log.LogFileName()).find("<SESSIONTIME>06.05.2024 13:04:05</SESSIONTIME>"),
            std::string::npos);
}

}  // namespace
}  // namespace quorbex
