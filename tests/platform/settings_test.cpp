#include "platform/settings.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/platform_fakes.h"
#include "support/temp_dir.h"

namespace quorbex::platform {

namespace {

using test::ReadBytes;
using test::TempDir;
using test::WriteBytes;

mode_t ModeOf(const std::string& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

TEST(Settings, ValuesRoundTripWhateverTheyContain) {
  TempDir dir;
  IniSettingsStore store(dir.File("conf/settings.ini"));
  const std::string values[] = {
      "plain",
      "a=b=c",
      "line one\nline two\r\nline three",
      "  blanks around  ",
      "back\\slash\\",
      "tab\there",
      std::string("nul\0inside", 10),
      "Grüße, ☃ and [brackets]; # not a comment",
      "",
      "\\n is not a line break",
  };
  int i = 0;
  for (const auto& value : values) store.Save("Quorbex DataLayer", "Settings", "Key" + std::to_string(i++), value);
  i = 0;
  for (const auto& value : values) {
    EXPECT_EQ(store.Get("Quorbex DataLayer", "Settings", "Key" + std::to_string(i++), "missing"), value);
  }
  // Names with the characters that structure the file round-trip as well.
  store.Save("App/with]odd[chars", "Sec/tion", "key = with; # and \n", "v");
  EXPECT_EQ(store.Get("App/with]odd[chars", "Sec/tion", "key = with; # and \n", ""), "v");
  EXPECT_EQ(store.Get("Quorbex DataLayer", "Settings", "Nothing", "fallback"), "fallback");
}

TEST(Settings, FileIsPrivateAlsoAfterRewrite) {
  TempDir dir;
  const std::string path = dir.File("deep/folder/settings.ini");
  IniSettingsStore store(path);
  store.Save("App", "Settings", "Password", "secret");
  EXPECT_EQ(ModeOf(path), 0600u);
  EXPECT_EQ(ModeOf(dir.File("deep/folder")), 0700u);

  ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
  store.Save("App", "Settings", "Password", "other");
  EXPECT_EQ(ModeOf(path), 0600u);
  EXPECT_EQ(store.Get("App", "Settings", "Password", ""), "other");
}

TEST(Settings, NamesMatchCaseInsensitivelyAndRewriteKeepsTheFile) {
  TempDir dir;
  const std::string path = dir.File("settings.ini");
  WriteBytes(path,
             "; written by hand\n"
             "[Quorbex DataLayer/Settings]\n"
             "  LogPath = /var/log/qdl  \r\n"
             "garbage line\n"
             "\n"
             "[Other/Section]\n"
             "LogPath=elsewhere\n");
  IniSettingsStore store(path);
  EXPECT_EQ(store.Get("quorbex datalayer", "SETTINGS", "logpath", ""), "/var/log/qdl");
  EXPECT_EQ(store.Get("Other", "Section", "LogPath", ""), "elsewhere");

  store.Save("QUORBEX DATALAYER", "settings", "LOGPATH", "/tmp/logs");
  store.Save("Quorbex DataLayer", "Settings", "DBPath", "/data/x.db");
  store.Save("New", "Section", "Key", "1");
  EXPECT_EQ(ReadBytes(path),
            "; written by hand\n"
            "[Quorbex DataLayer/Settings]\n"
            "LogPath=/tmp/logs\n"
            "DBPath=/data/x.db\n"
            "garbage line\n"
            "\n"
            "[Other/Section]\n"
            "LogPath=elsewhere\n"
            "\n"
            "[New/Section]\n"
            "Key=1\n");
}

TEST(Settings, UnwritablePlaceThrowsAndMissingFileReadsDefault) {
  TempDir dir;
  WriteBytes(dir.File("a-file"), "x");
  IniSettingsStore store(dir.File("a-file/settings.ini"));  // a file where the folder should be
  EXPECT_EQ(store.Get("App", "S", "K", "default"), "default");
  try {
    store.Save("App", "S", "K", "v");
    FAIL() << "Save into a file as folder did not throw";
  } catch (const SettingsError& error) {
    EXPECT_NE(std::string(error.what()).find("Cannot write the settings file '" + dir.File("a-file/settings.ini")),
              std::string::npos)
        << error.what();
  }
}

TEST(Settings, DefaultPathFollowsTheEnvironment) {
  auto environment = std::make_shared<test::FakeEnvironment>();
  EnvironmentScope scope(environment);
  environment->Set("HOME", "/home/ann");
  EXPECT_EQ(DefaultSettingsPath(), "/home/ann/.config/Quorbex DataLayer/settings.ini");
  environment->Set("XDG_CONFIG_HOME", "relative/ignored");
  EXPECT_EQ(DefaultSettingsPath(), "/home/ann/.config/Quorbex DataLayer/settings.ini");
  environment->Set("XDG_CONFIG_HOME", "/cfg");
  EXPECT_EQ(DefaultSettingsPath(), "/cfg/Quorbex DataLayer/settings.ini");
  environment->Set("QUORBEX_SETTINGS", "/etc/qdl.ini");
  EXPECT_EQ(DefaultSettingsPath(), "/etc/qdl.ini");

  // The default store follows the path as it changes.
  TempDir dir;
  environment->Set("QUORBEX_SETTINGS", dir.File("mine.ini"));
  SaveSetting("Quorbex DataLayer", "Settings", "LogPath", "/logs");
  EXPECT_NE(ReadBytes(dir.File("mine.ini")).find("LogPath=/logs"), std::string::npos);
  EXPECT_EQ(GetSetting("Quorbex DataLayer", "Settings", "LogPath"), "/logs");
}

TEST(Settings, InstalledStoreServesUntilTheScopeEnds) {
  auto outer = std::make_shared<test::MemorySettingsStore>();
  SettingsScope outer_scope(outer);
  SaveSetting("App", "S", "K", "outer");
  {
    auto inner = std::make_shared<test::MemorySettingsStore>();
    SettingsScope inner_scope(inner);
    EXPECT_EQ(GetSetting("App", "S", "K", "none"), "none");
    SaveSetting("app", "s", "k", "inner");
    EXPECT_EQ(GetSetting("App", "S", "K"), "inner");
    inner->SetFailing(true);
    EXPECT_THROW(SaveSetting("App", "S", "K", "x"), SettingsError);
  }
  EXPECT_EQ(GetSetting("App", "S", "K"), "outer");
  EXPECT_EQ(outer->Count(), 1u);
}

}  // namespace
}  // namespace quorbex::platform
