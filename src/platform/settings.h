// The per-user settings store: texts filed under (application, section, key).
//
// The default store is one INI file per user:
//   $QUORBEX_SETTINGS                                   when set and not empty, else
//   $XDG_CONFIG_HOME/Quorbex DataLayer/settings.ini     when XDG_CONFIG_HOME is an absolute path, else
//   $HOME/.config/Quorbex DataLayer/settings.ini        ($HOME, else the home folder of the user).
// Settings may hold passwords, so the file is created with mode 0600, and every rewrite produces a
// fresh 0600 file that replaces the old one in a single rename (a crash leaves the old or the new
// file, never half of one). Folders created on the way get mode 0700.
//
// Layout: one INI section per (application, section), written "[application/section]", and one
// "key=value" line per key. Names match without regard to ASCII letter case, as the desktop settings
// store does; a rewrite keeps the spelling already in the file. Values may contain anything: a
// backslash, line breaks, tabs, NUL and blanks at either end are written as \\, \n, \r, \t, \0 and \s,
// so every value reads back exactly as it was saved; in names "=", "[", "]", "/", ";" and "#" are
// escaped too. Comment lines (";" or "#") and lines the store does not understand are kept.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "platform/installable.h"

namespace quorbex::platform {

class SettingsStore {
 public:
  virtual ~SettingsStore() = default;
  // The stored value, or `default_value` when there is none or the store cannot be read. Never throws.
  virtual std::string Get(const std::string& application, const std::string& section, const std::string& key,
                          const std::string& default_value) = 0;
  // Stores `value`, replacing any earlier one. Throws SettingsError when it cannot be stored.
  virtual void Save(const std::string& application, const std::string& section, const std::string& key,
                    const std::string& value) = 0;
};

// What Save throws; what() reads "Cannot write the settings file '<path>': <reason>".
class SettingsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The INI-file store. Without a path it resolves DefaultSettingsPath() on every call, so a change of
// QUORBEX_SETTINGS takes effect at once.
class IniSettingsStore final : public SettingsStore {
 public:
  IniSettingsStore() = default;
  explicit IniSettingsStore(std::string path) : path_(std::move(path)) {}

  std::string Get(const std::string& application, const std::string& section, const std::string& key,
                  const std::string& default_value) override;
  void Save(const std::string& application, const std::string& section, const std::string& key,
            const std::string& value) override;

  // The file this store reads and writes.
  std::string Path() const;

 private:
  std::string path_;
};

// The path of the default settings file (see above); "" when no home folder can be found.
std::string DefaultSettingsPath();

// Installs `store` process-wide (nullptr: the default) and returns the previous one.
std::shared_ptr<SettingsStore> Install(std::shared_ptr<SettingsStore> store);
using SettingsScope = InstallScope<SettingsStore>;

// The setting, or `default_value` when it is not stored. Never throws.
std::string GetSetting(const std::string& app, const std::string& section, const std::string& key,
                       const std::string& default_value = "");
// Stores the setting. Throws SettingsError (a std::runtime_error) when the store cannot be written.
void SaveSetting(const std::string& app, const std::string& section, const std::string& key,
                 const std::string& value);

}  // namespace quorbex::platform
