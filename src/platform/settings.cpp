#include "platform/settings.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/environment.h"
#include "value/text_util.h"

namespace quorbex::platform {

namespace {

constexpr const char* kFolderName = "Quorbex DataLayer";
constexpr const char* kFileName = "settings.ini";
// Characters escaped in names on top of those escaped everywhere.
constexpr std::string_view kNameSpecials = "=[]/;#";

// ---- Escaping ------------------------------------------------------------------------------------

std::string Escape(std::string_view text, std::string_view specials) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    switch (c) {
      case '\\': out += "\\\\"; continue;
      case '\n': out += "\\n"; continue;
      case '\r': out += "\\r"; continue;
      case '\t': out += "\\t"; continue;
      case '\0': out += "\\0"; continue;
      default: break;
    }
    // Blanks at either end would be lost to the trimming of hand-edited lines.
    if (c == ' ' && (i == 0 || i + 1 == text.size())) {
      out += "\\s";
    } else if (specials.find(c) != std::string_view::npos) {
      out += '\\';
      out += c;
    } else {
      out += c;
    }
  }
  return out;
}

std::string Unescape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    char c = text[++i];
    switch (c) {
      case 'n': out += '\n'; break;
      case 'r': out += '\r'; break;
      case 't': out += '\t'; break;
      case '0': out += '\0'; break;
      case 's': out += ' '; break;
      default: out += c; break;
    }
  }
  return out;
}

// Position of the first `wanted` that is not escaped, npos when none.
size_t FindUnescaped(std::string_view text, char wanted) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == wanted) {
      return i;
    }
  }
  return std::string_view::npos;
}

// ---- The file as lines ---------------------------------------------------------------------------

std::vector<std::string> SplitLines(const std::string& content) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < content.size()) {
    size_t end = content.find('\n', start);
    if (end == std::string::npos) end = content.size();
    std::string line = content.substr(start, end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(std::move(line));
    start = end + 1;
  }
  return lines;
}

struct SectionName {
  std::string application;
  std::string section;
};

std::optional<SectionName> ParseHeader(std::string_view line) {
  line = internal::TrimBlanks(line);
  if (line.size() < 2 || line.front() != '[') return std::nullopt;
  std::string_view inner = line.substr(1);
  size_t close = FindUnescaped(inner, ']');
  if (close == std::string_view::npos) return std::nullopt;
  inner = inner.substr(0, close);
  size_t slash = FindUnescaped(inner, '/');
  if (slash == std::string_view::npos) return SectionName{"", Unescape(internal::TrimBlanks(inner))};
  return SectionName{Unescape(internal::TrimBlanks(inner.substr(0, slash))), Unescape(internal::TrimBlanks(inner.substr(slash + 1)))};
}

struct Entry {
  std::string key;
  std::string value;
};

std::optional<Entry> ParseEntry(std::string_view line) {
  std::string_view trimmed = internal::TrimBlanks(line);
  if (trimmed.empty() || trimmed.front() == ';' || trimmed.front() == '#' || trimmed.front() == '[') {
    return std::nullopt;
  }
  size_t equals = FindUnescaped(trimmed, '=');
  if (equals == std::string_view::npos) return std::nullopt;
  return Entry{Unescape(internal::TrimBlanks(trimmed.substr(0, equals))), Unescape(internal::TrimBlanks(trimmed.substr(equals + 1)))};
}

std::string HeaderLine(const std::string& application, const std::string& section) {
  return "[" + Escape(application, kNameSpecials) + "/" + Escape(section, kNameSpecials) + "]";
}

std::string EntryLine(const std::string& key, const std::string& value) {
  return Escape(key, kNameSpecials) + "=" + Escape(value, "");
}

// Where a key lives in the file: the line of the entry, or the line after which a new entry goes.
struct Location {
  bool section_found = false;
  bool key_found = false;
  size_t line = 0;  // the entry's line, or the insertion point (a line index, may be lines.size())
  std::string stored_key;
  std::string value;
};

Location Locate(const std::vector<std::string>& lines, const std::string& application, const std::string& section,
                const std::string& key) {
  Location where;
  bool inside = false;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (auto header = ParseHeader(lines[i])) {
      // The first matching section is the one in use; later duplicates are left alone.
      if (inside) break;
      inside = internal::SameName(header->application, application) && internal::SameName(header->section, section);
      if (inside) {
        where.section_found = true;
        where.line = i + 1;
      }
      continue;
    }
    if (!inside) continue;
    if (auto entry = ParseEntry(lines[i])) {
      if (internal::SameName(entry->key, key)) {
        where.key_found = true;
        where.line = i;
        where.stored_key = std::move(entry->key);
        where.value = std::move(entry->value);
        return where;
      }
      where.line = i + 1;  // new keys go after the section's last entry, before blank lines
    }
  }
  return where;
}

// ---- File access ---------------------------------------------------------------------------------

std::string ErrnoText(int error) { return std::strerror(error); }

[[noreturn]] void Fail(const std::string& path, const std::string& reason) {
  throw SettingsError("Cannot write the settings file '" + path + "': " + reason);
}

std::string FolderOf(const std::string& path) {
  auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

// Creates `folder` and its missing parents with mode 0700.
bool MakeFolders(const std::string& folder) {
  struct stat info {};
  if (::stat(folder.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
  std::string parent = FolderOf(folder);
  if (parent != folder && !MakeFolders(parent)) return false;
  return ::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
}

std::optional<std::string> ReadWhole(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string content;
  char buffer[16384];
  for (;;) {
    ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    content.append(buffer, static_cast<size_t>(got));
  }
  ::close(fd);
  return content;
}

// Holds an advisory lock on the settings folder, so that two processes saving at once do not lose
// each other's keys (each one reads, changes and replaces the whole file).
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder) : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ >= 0) {
      while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
      }
    }
  }
  ~FolderLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the lock
  }
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int fd_;
};

void ReplaceFile(const std::string& path, const std::string& content) {
  std::string temp = path + ".XXXXXX";
  int fd = ::mkstemp(temp.data());  // mode 0600 from the start: the secret is never readable by others
  if (fd < 0) Fail(path, ErrnoText(errno));
  ::fchmod(fd, 0600);
  std::string_view rest = content;
  while (!rest.empty()) {
    ssize_t written = ::write(fd, rest.data(), rest.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      int error = errno;
      ::close(fd);
      ::unlink(temp.c_str());
      Fail(path, ErrnoText(error));
    }
    rest.remove_prefix(static_cast<size_t>(written));
  }
  if (::fsync(fd) != 0 || ::close(fd) != 0) {
    int error = errno;
    ::unlink(temp.c_str());
    Fail(path, ErrnoText(error));
  }
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    int error = errno;
    ::unlink(temp.c_str());
    Fail(path, ErrnoText(error));
  }
}

std::string HomeFolder() {
  if (std::string home = Environ("HOME"); !home.empty()) return home;
  long size_hint = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size_hint > 0 ? static_cast<size_t>(size_hint) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir) {
    return found->pw_dir;
  }
  return "";
}

Installed<SettingsStore>& Slot() {
  static Installed<SettingsStore> slot(std::make_shared<IniSettingsStore>());
  return slot;
}

}  // namespace

std::string DefaultSettingsPath() {
  if (std::string own = Environ("QUORBEX_SETTINGS"); !own.empty()) return own;
  std::string config = Environ("XDG_CONFIG_HOME");
  if (config.empty() || config.front() != '/') {
    std::string home = HomeFolder();
    if (home.empty()) return "";
    config = home + "/.config";
  }
  return config + "/" + kFolderName + "/" + kFileName;
}

std::string IniSettingsStore::Path() const { return path_.empty() ? DefaultSettingsPath() : path_; }

std::string IniSettingsStore::Get(const std::string& application, const std::string& section,
                                  const std::string& key, const std::string& default_value) {
  std::string path = Path();
  if (path.empty() || path.find('\0') != std::string::npos) return default_value;
  auto content = ReadWhole(path);
  if (!content) return default_value;
  Location where = Locate(SplitLines(*content), application, section, key);
  return where.key_found ? where.value : default_value;
}

void IniSettingsStore::Save(const std::string& application, const std::string& section, const std::string& key,
                            const std::string& value) {
  std::string path = Path();
  if (path.empty()) Fail(path, "no home folder to keep the settings in");
  if (path.find('\0') != std::string::npos) Fail(path, "the path contains a NUL character");
  std::string folder = FolderOf(path);
  if (!MakeFolders(folder)) Fail(path, "cannot create the folder '" + folder + "': " + ErrnoText(errno));

  FolderLock lock(folder);
  std::vector<std::string> lines;
  if (auto content = ReadWhole(path)) lines = SplitLines(*content);

  Location where = Locate(lines, application, section, key);
  if (where.key_found) {
    lines[where.line] = EntryLine(where.stored_key, value);
  } else if (where.section_found) {
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(where.line), EntryLine(key, value));
  } else {
    if (!lines.empty() && !internal::TrimBlanks(lines.back()).empty()) lines.emplace_back();
    lines.push_back(HeaderLine(application, section));
    lines.push_back(EntryLine(key, value));
  }

  std::string content;
  for (const auto& line : lines) content += line + "\n";
  ReplaceFile(path, content);
}

std::shared_ptr<SettingsStore> Install(std::shared_ptr<SettingsStore> store) { return Slot().Set(std::move(store)); }

std::string GetSetting(const std::string& app, const std::string& section, const std::string& key,
                       const std::string& default_value) {
  try {
    return Slot().Get()->Get(app, section, key, default_value);
  } catch (...) {
    return default_value;
  }
}

void SaveSetting(const std::string& app, const std::string& section, const std::string& key,
                 const std::string& value) {
  Slot().Get()->Save(app, section, key, value);
}

}  // namespace quorbex::platform
