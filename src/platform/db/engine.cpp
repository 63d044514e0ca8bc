// DBEngine: asks the backend list which backend takes a path, and the shared behaviour of the engine's
// base classes.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/db/backend.h"
#include "platform/db/errors.h"

namespace quorbex::db {

using namespace internal;
namespace {

enum class PathKind { Missing, Folder, Special, File, Unreadable };

// What a path that is neither file nor folder is, for the message that refuses it.
std::string SpecialKind(mode_t mode) {
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  return "not a regular file";
}

PathKind Inspect(const std::string& path, std::string& header, std::string& problem) {
  struct stat st {};
  if (path.empty() || path.find('\0') != std::string::npos || ::stat(path.c_str(), &st) != 0) {
    if (errno == EACCES) {
      problem = std::strerror(errno);
      return PathKind::Unreadable;
    }
    return PathKind::Missing;
  }
  if (S_ISDIR(st.st_mode)) return PathKind::Folder;
  // Reading a FIFO or a device could wait forever; only regular files are databases.
  if (!S_ISREG(st.st_mode)) {
    problem = SpecialKind(st.st_mode);
    return PathKind::Special;
  }
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    problem = std::strerror(errno);
    return PathKind::Unreadable;
  }
  char buf[100];
  ssize_t n = ::read(fd, buf, sizeof buf);
  ::close(fd);
  if (n < 0) {
    problem = std::strerror(errno);
    return PathKind::Unreadable;
  }
  header.assign(buf, static_cast<size_t>(n));
  return PathKind::File;
}

// The backend that takes a connection string, or nullptr for a name to look up as a file.
Backend* ForConnectionString(const std::string& name) {
  for (Backend* backend : Backends()) {
    if (backend->TakesConnectionString(name)) return backend;
  }
  return nullptr;
}

// The backend whose files start with `header`, or nullptr.
Backend* ForHeader(std::string_view header) {
  for (Backend* backend : Backends()) {
    if (backend->Recognizes(header)) return backend;
  }
  return nullptr;
}

// The backend that creates new database files.
Backend& FileCreator() {
  for (Backend* backend : Backends()) {
    if (backend->CreatesFiles()) return *backend;
  }
  Raise(ErrorKind::NotSupported, "No backend in this build creates database files.");
}

// A file to open or compact: missing, folder and unreadable files raise; otherwise its first bytes.
std::string HeaderOf(const std::string& path) {
  std::string header, problem;
  switch (Inspect(path, header, problem)) {
    case PathKind::Missing: RaiseFileNotFound(path);
    case PathKind::Folder: Raise(ErrorKind::NotADatabase, "'" + path + "' is a folder, not a database file.");
    case PathKind::Special:
      Raise(ErrorKind::NotADatabase, "'" + path + "' is " + problem + ", not a database file.");
    case PathKind::Unreadable: Raise(ErrorKind::General, "Could not open '" + path + "': " + problem + ".");
    case PathKind::File: break;
  }
  return header;
}

}  // namespace

DBEngine::DBEngine() = default;
DBEngine::~DBEngine() = default;

std::shared_ptr<DBEngine> DBEngine::Default() {
  thread_local std::shared_ptr<DBEngine> engine = std::make_shared<DBEngine>();
  return engine;
}

std::shared_ptr<Database> DBEngine::OpenDatabase(const std::string& Name, bool Exclusive, bool ReadOnly,
                                                 const std::string& Connect) {
  OpenOptions options;
  options.exclusive = Exclusive;
  options.read_only = ReadOnly;
  options.busy_timeout_ms = busy_timeout_ms_;
  options.connect = Connect;
  options.system_db = system_db_;
  options.user = default_user_;
  options.password = default_password_;
  if (Backend* server = ForConnectionString(Name)) return server->Open(Name, options);
  if (Backend* backend = ForHeader(HeaderOf(Name))) return backend->Open(Name, options);
  RaiseNotADatabase(Name);
}

std::shared_ptr<Database> DBEngine::CreateDatabase(const std::string& Name, const std::string& /*Locale*/,
                                                   int32_t /*Options*/) {
  OpenOptions options;
  options.busy_timeout_ms = busy_timeout_ms_;
  options.user = default_user_;
  options.password = default_password_;
  if (Backend* server = ForConnectionString(Name)) return server->Create(Name, options);
  std::string header, problem;
  if (Name.empty()) Raise(ErrorKind::General, "No file name given for the new database.");
  if (Inspect(Name, header, problem) != PathKind::Missing) {
    Raise(ErrorKind::AlreadyExists, "Database already exists: '" + Name + "'.");
  }
  return FileCreator().Create(Name, options);
}

void DBEngine::CompactDatabase(const std::string& SrcName, const std::string& DstName) {
  OpenOptions options;
  options.busy_timeout_ms = busy_timeout_ms_;
  if (Backend* server = ForConnectionString(SrcName)) return server->Compact(SrcName, DstName, options);
  const std::string header = HeaderOf(SrcName);
  std::string dst_header, problem;
  if (DstName.empty()) Raise(ErrorKind::General, "No file name given for the compacted database.");
  if (Inspect(DstName, dst_header, problem) != PathKind::Missing) {
    Raise(ErrorKind::AlreadyExists, "Database already exists: '" + DstName + "'.");
  }
  if (Backend* backend = ForHeader(header)) return backend->Compact(SrcName, DstName, options);
  RaiseNotADatabase(SrcName);
}

const std::string& DBEngine::SystemDB() const { return system_db_; }
void DBEngine::SystemDB(const std::string& strPath) { system_db_ = strPath; }
const std::string& DBEngine::DefaultUser() const { return default_user_; }
void DBEngine::DefaultUser(const std::string& strUser) { default_user_ = strUser; }
const std::string& DBEngine::DefaultPassword() const { return default_password_; }
void DBEngine::DefaultPassword(const std::string& strPassword) { default_password_ = strPassword; }
int32_t DBEngine::BusyTimeout() const { return busy_timeout_ms_; }
void DBEngine::BusyTimeout(int32_t lngMilliseconds) { busy_timeout_ms_ = lngMilliseconds < 0 ? 0 : lngMilliseconds; }

// ---- defaults of the base classes ----------------------------------------------------------------

void Database::CompactInPlace() {
  Raise(ErrorKind::NotSupported, "This database is compacted into a new file, not in place.");
}

void Database::Execute(const std::string&, std::span<const Variant>, int32_t) {
  Raise(ErrorKind::NotSupported, "This database takes no parameters in action statements.");
}

std::vector<Relation> Database::Relations() { return {}; }

void Database::CreateRelation(const Relation& relation) {
  Raise(ErrorKind::NotSupported, "This database cannot create relationships ('" + relation.Name + "').");
}

std::string Database::QuoteName(std::string_view name) const {
  std::string quoted = "\"";
  for (char c : name) {
    quoted += c;
    if (c == '"') quoted += '"';
  }
  return quoted + "\"";
}

std::shared_ptr<Recordset> Database::OpenRecordset(const std::string&, std::span<const Variant>, int32_t, int32_t) {
  Raise(ErrorKind::NotSupported, "This database does not take query parameters.");
}

int32_t Recordset::AbsolutePosition() const { Raise(ErrorKind::NotSupported, text::kNotForThisObject); }
void Recordset::AbsolutePosition(int32_t) { Raise(ErrorKind::NotSupported, text::kNotForThisObject); }

void Fields::Append(std::shared_ptr<Field>) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
void Fields::Delete(std::string_view) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }

void Field::Name(const std::string&) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
void Field::Type(int32_t) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
int32_t Field::Size() const { return 0; }
void Field::Size(int32_t) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
Variant Field::Value() const { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
void Field::Value(const Variant&) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
std::string Field::SourceTable() const { return std::string(); }
std::string Field::SourceField() const { return std::string(); }
int32_t Field::Attributes() const { return 0; }
void Field::Attributes(int32_t) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
bool Field::AllowZeroLength() const { return true; }
void Field::AllowZeroLength(bool) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
bool Field::Required() const { return false; }
void Field::Required(bool) { Raise(ErrorKind::InvalidOperation, text::kNotForThisObject); }
Variant Field::DefaultValue() const { return Value(); }

int32_t Recordset::TakeRows(const std::function<void(std::span<Variant> row)>& sink) {
  auto fields = Fields();
  const int32_t count = fields->Count();
  std::vector<std::shared_ptr<Field>> columns;
  columns.reserve(static_cast<size_t>(count));
  for (int32_t j = 0; j < count; ++j) columns.push_back(fields->Item(j));
  std::vector<Variant> row(static_cast<size_t>(count));
  int32_t rows = 0;
  if (EOF_() && BOF()) return 0;  // an empty result
  MoveFirst();
  while (!EOF_()) {
    for (int32_t j = 0; j < count; ++j) row[static_cast<size_t>(j)] = columns[static_cast<size_t>(j)]->Value();
    sink(std::span<Variant>(row));
    ++rows;
    MoveNext();
  }
  return rows;
}

}  // namespace quorbex::db
