#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "platform/clock.h"
#include "platform/encoding.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/guid.h"
#include "platform/message_box.h"
#include "support/platform_fakes.h"
#include "support/temp_dir.h"

namespace quorbex::platform {

namespace {

using test::ReadBytes;
using test::TempDir;

TEST(MessageBox, DefaultButtonFollowsTheStyle) {
  EXPECT_EQ(DefaultButton(vbOKOnly), vbOK);
  EXPECT_EQ(DefaultButton(vbOKOnly | vbInformation), vbOK);
  EXPECT_EQ(DefaultButton(vbOKCancel | vbCritical), vbOK);
  EXPECT_EQ(DefaultButton(vbOKCancel | vbDefaultButton2), vbCancel);
  EXPECT_EQ(DefaultButton(vbYesNo | vbQuestion), vbYes);
  EXPECT_EQ(DefaultButton(vbYesNo | vbDefaultButton2), vbNo);
  EXPECT_EQ(DefaultButton(vbYesNo | vbDefaultButton3), vbYes);  // no third button
  EXPECT_EQ(DefaultButton(vbYesNoCancel | vbDefaultButton3), vbCancel);
  EXPECT_EQ(DefaultButton(vbAbortRetryIgnore), vbAbort);
  EXPECT_EQ(DefaultButton(vbRetryCancel), vbRetry);
  EXPECT_EQ(DefaultButton(15), vbOK);  // unknown button set
  EXPECT_EQ(DefaultButton(-1), vbOK);
}

TEST(MessageBox, FakeRecordsPromptsAndScopesRestore) {
  auto outer = std::make_shared<test::FakeMessageBox>();
  MessageBoxScope outer_scope(outer);
  {
    auto inner = std::make_shared<test::FakeMessageBox>();
    MessageBoxScope inner_scope(inner);
    inner->Answer(vbNo);
    EXPECT_EQ(MsgBox("Delete?", vbYesNo | vbQuestion, "Title"), vbNo);
    EXPECT_EQ(MsgBox("Again?", vbYesNo), vbYes);  // answers used up: the default button
    auto prompts = inner->Prompts();
    ASSERT_EQ(prompts.size(), 2u);
    EXPECT_EQ(prompts[0].text, "Delete?");
    EXPECT_EQ(prompts[0].style, vbYesNo | vbQuestion);
    EXPECT_EQ(prompts[0].title, "Title");
  }
  MsgBox("outer", vbOKOnly, "");
  EXPECT_EQ(outer->Count(), 1u);

  // A handler that throws must not take the caller down.
  MessageBoxScope throwing(MakeMessageBoxHandler([](const std::string&, int32_t, const std::string&) -> int32_t {
    throw std::runtime_error("dialog broke");
  }));
  EXPECT_EQ(MsgBox("x", vbOKCancel | vbDefaultButton2), vbCancel);
}

TEST(MessageBox, DefaultHandlerWritesToStderr) {
  MessageBoxScope scope(nullptr);  // the default, even if an outer test installed something
  ::testing::internal::CaptureStderr();
  int32_t button = MsgBox("Folgende Fehler sind aufgetreten", vbOKOnly | vbInformation, "DEBUG");
  std::string written = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(button, vbOK);
  EXPECT_EQ(written, "[DEBUG] Folgende Fehler sind aufgetreten\n");
}

TEST(Environment, DesktopNamesFallBackToTheHost) {
  auto environment = std::make_shared<test::FakeEnvironment>();
  EnvironmentScope scope(environment);
  environment->SetHostName("box");
  environment->SetLoginName("ann");
  EXPECT_EQ(Environ("Computername"), "box");
  EXPECT_EQ(Environ("computername"), "box");
  EXPECT_EQ(Environ("Username"), "ann");
  EXPECT_EQ(Environ("username"), "ann");
  EXPECT_EQ(Environ("ComputerName"), "");  // only the spellings desktop code uses
  EXPECT_EQ(Environ("Temp"), "/tmp");
  EXPECT_EQ(Environ("NOT_SET"), "");
  EXPECT_EQ(Environ(std::string("A\0B", 3)), "");

  environment->Set("USER", "bob");
  EXPECT_EQ(UserName(), "bob");
  EXPECT_EQ(Environ("Username"), "bob");
  environment->Set("Username", "carl");  // a variable that is set wins over the fallback
  EXPECT_EQ(Environ("Username"), "carl");
  environment->Set("USER", "");
  EXPECT_EQ(UserName(), "ann");

  environment->Set("TMPDIR", "/scratch");
  EXPECT_EQ(TempFolder(), "/scratch");
  EXPECT_EQ(Environ("TEMP"), "/scratch");
  environment->Set("TMPDIR", "");
  EXPECT_EQ(TempFolder(), "/tmp");

  environment->SetExecutablePath("/opt/app/bin/tool");
  EXPECT_EQ(ExecutableFolder(), "/opt/app/bin");
  environment->SetExecutablePath("/tool");
  EXPECT_EQ(ExecutableFolder(), "/");
  environment->SetExecutablePath("");
  EXPECT_EQ(ExecutableFolder(), "");
}

TEST(Environment, SystemDefaultReadsTheRealProcess) {
  EnvironmentScope scope(nullptr);
  EXPECT_FALSE(ComputerName().empty());
  EXPECT_FALSE(UserName().empty());
  std::string folder = ExecutableFolder();
  ASSERT_FALSE(folder.empty());
  EXPECT_TRUE(FolderExists(folder));
  EXPECT_TRUE(FileExists(SystemEnvironment()->ExecutablePath()));
}

TEST(Guid, SystemGuidsAreVersion4AndDistinct) {
  GuidScope scope(nullptr);
  std::set<Guid> seen;
  for (int i = 0; i < 1000; ++i) {
    auto guid = CreateGuid();
    ASSERT_TRUE(guid.has_value());
    EXPECT_EQ((*guid)[6] & 0xF0, 0x40);
    EXPECT_EQ((*guid)[8] & 0xC0, 0x80);
    seen.insert(*guid);
  }
  EXPECT_EQ(seen.size(), 1000u);

  auto fake = std::make_shared<test::FakeGuidSource>();
  GuidScope fake_scope(fake);
  fake->SetFailing(true);
  EXPECT_FALSE(CreateGuid().has_value());
}

TEST(Files, WholeFileOperationsAreBinarySafeAndReportFailure) {
  TempDir dir;
  const std::string path = dir.File("data.bin");
  const std::string bytes("a\0b\r\n\xff", 6);
  EXPECT_FALSE(FileExists(path));
  ASSERT_TRUE(WriteFile(path, bytes));
  EXPECT_TRUE(FileExists(path));
  EXPECT_FALSE(FolderExists(path));
  EXPECT_TRUE(FolderExists(dir.Path()));
  EXPECT_FALSE(FileExists(dir.Path()));
  ASSERT_TRUE(AppendFile(path, bytes));
  EXPECT_EQ(ReadFile(path), bytes + bytes);
  ASSERT_TRUE(WriteFile(path, "short"));
  EXPECT_EQ(ReadBytes(path), "short");
  ASSERT_TRUE(AppendFile(dir.File("new.txt"), "x"));  // append creates
  EXPECT_EQ(ReadBytes(dir.File("new.txt")), "x");

  EXPECT_FALSE(RenameFile(path, dir.File("new.txt")));  // never overwrites
  EXPECT_EQ(ReadBytes(dir.File("new.txt")), "x");
  EXPECT_TRUE(RenameFile(path, dir.File("moved.bin")));
  EXPECT_FALSE(FileExists(path));
  EXPECT_FALSE(RenameFile(path, dir.File("again.bin")));
  EXPECT_TRUE(DeleteFile(dir.File("moved.bin")));
  EXPECT_FALSE(DeleteFile(dir.File("moved.bin")));

  EXPECT_FALSE(WriteFile(dir.File("missing/folder.txt"), "x"));
  EXPECT_FALSE(AppendFile(dir.File("missing/folder.txt"), "x"));

  // A rewrite replaces the file whole: it keeps the old file's permissions and leaves nothing beside
  // it, and one that cannot be made leaves the old file as it was.
  const std::string kept = dir.File("kept.txt");
  ASSERT_TRUE(WriteFile(kept, "old"));
  ASSERT_EQ(::chmod(kept.c_str(), 0640), 0);
  ASSERT_TRUE(WriteFile(kept, "new"));
  struct stat info {};
  ASSERT_EQ(::stat(kept.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0640u);
  EXPECT_EQ(ReadBytes(kept), "new");
  const std::string folder_target = dir.File("a_folder");
  ASSERT_EQ(::mkdir(folder_target.c_str(), 0700), 0);
  EXPECT_FALSE(WriteFile(folder_target, "x"));
  size_t entries = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) entries += entry.exists() ? 1 : 0;
  EXPECT_EQ(entries, 3u);  // new.txt, kept.txt, a_folder: no temporary file left behind
  EXPECT_FALSE(ReadFile(dir.File("missing.txt")).has_value());
  EXPECT_FALSE(WriteFile("", "x"));
  EXPECT_FALSE(WriteFile(std::string("a\0b", 3), "x"));
  EXPECT_FALSE(FileExists(""));
}

TEST(Clock, FakeClockSetsAndAdvances) {
  auto clock = std::make_shared<test::FakeClock>(DateSerial(2024, 12, 31));
  {
    ClockScope scope(clock);
    clock->Advance(23 * 3600 + 59 * 60 + 59);
    CivilDateTime t = ToCivil(NowLocal());
    EXPECT_EQ(t.year, 2024);
    EXPECT_EQ(t.hour, 23);
    EXPECT_EQ(t.second, 59);
    clock->Advance(1);
    t = ToCivil(NowLocal());
    EXPECT_EQ(t.year, 2025);
    EXPECT_EQ(t.month, 1);
    EXPECT_EQ(t.day, 1);
    EXPECT_EQ(t.hour, 0);
  }
  EXPECT_GE(ToCivil(NowLocal()).year, 2024);  // the system clock again
}

TEST(Clock, MonotonicTimeIgnoresTheWallClock) {
  // The system's monotonic time never goes back.
  const auto first = MonotonicNow();
  EXPECT_GE(MonotonicNow(), first);

  auto clock = std::make_shared<test::FakeClock>(DateSerial(2024, 3, 31));
  ClockScope scope(clock);
  const auto start = MonotonicNow();
  clock->Advance(90);
  EXPECT_EQ(MonotonicNow() - start, std::chrono::seconds(90));
  // Setting the wall clock back by a day or forward by a year is no time passing.
  clock->Set(DateSerial(2024, 3, 30));
  clock->Advance(-3600);
  clock->Set(DateSerial(2025, 3, 30));
  EXPECT_EQ(MonotonicNow() - start, std::chrono::seconds(90));
  EXPECT_EQ(ToCivil(NowLocal()).year, 2025);
  clock->Advance(0.25);
  EXPECT_EQ(MonotonicNow() - start, std::chrono::milliseconds(90250));
}

TEST(Encoding, Windows1252KeepsWhatItCanAndMarksTheRest) {
  EXPECT_EQ(ToWindows1252("Grüße €5 <&>\r\n"), "Gr\xfc\xdf" "e \x80" "5 <&>\r\n");
  EXPECT_EQ(ToWindows1252("Łódź ☃"), "?\xf3" "d? ?");
  EXPECT_EQ(ToWindows1252("a\xff" "b"), "a?b");           // a broken byte
  EXPECT_EQ(ToWindows1252("cut \xe2\x82"), "cut ??");     // a sequence cut off at the end
  EXPECT_EQ(ToWindows1252(std::string(10000, 'x') + "ä"), std::string(10000, 'x') + "\xe4");
  EXPECT_EQ(ToWindows1252(""), "");
  EXPECT_EQ(FromWindows1252("Gr\xfc\xdf" "e \x80"), "Grüße €");
  EXPECT_EQ(FromWindows1252("\x81"), "\xEF\xBF\xBD");
}

}  // namespace
}  // namespace quorbex::platform
