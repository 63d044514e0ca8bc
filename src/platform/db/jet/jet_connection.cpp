#include "platform/db/jet/jet_connection.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <new>

#include "platform/db/errors.h"

namespace quorbex::db::internal::jet {
namespace {

int stall_timeout_ms = 20000;


bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// The last non-empty line of what libmdb printed, for the error text.
std::string LastLine(const std::string& text) {
  size_t end = text.find_last_not_of("\r\n ");
  if (end == std::string::npos) return std::string();
  size_t start = text.find_last_of('\n', end);
  start = start == std::string::npos ? 0 : start + 1;
  return text.substr(start, std::min<size_t>(end + 1 - start, 200));
}

// Splits the child's data stream into records: tag, 4-byte length, payload.
bool TakeRecords(std::string& buffer, std::vector<Record>& records) {
  size_t pos = 0;
  while (buffer.size() - pos >= 5) {
    uint32_t length = 0;
    std::memcpy(&length, buffer.data() + pos + 1, 4);
    if (buffer.size() - pos - 5 < length) break;
    char tag = buffer[pos];
    if (tag != 'P') records.push_back({tag, buffer.substr(pos + 5, length)});
    pos += 5 + length;
  }
  buffer.erase(0, pos);
  return pos > 0;
}

[[noreturn]] void ChildMain(int data_fd, const std::function<void(Channel&)>& work) {
  Channel channel(data_fd);
  int status = 0;
  try {
    work(channel);
  } catch (const EngineError& e) {
    channel.Send('E', std::string(1, static_cast<char>('A' + static_cast<int>(e.Kind()))) + e.what());
  } catch (const std::bad_alloc&) {
    channel.Send('E', std::string(1, static_cast<char>('A' + static_cast<int>(ErrorKind::General))) +
                          "out of memory");
  } catch (const std::exception& e) {
    channel.Send('E', std::string(1, static_cast<char>('A' + static_cast<int>(ErrorKind::General))) + e.what());
  } catch (...) {
    status = 3;
  }
  ::_exit(status);
}

}  // namespace

MdbFile::MdbFile(const std::string& path) : path_(path) {
  mdb_ = mdb_open(path.c_str(), MDB_NOFLAGS);
  if (mdb_ == nullptr) RaiseDamaged(path, "libmdb cannot read its header");
  if (mdb_read_catalog(mdb_, MDB_ANY) == nullptr || mdb_->num_catalog == 0) {
    mdb_close(mdb_);
    mdb_ = nullptr;
    RaiseDamaged(path, "libmdb cannot read its catalogue");
  }
}

MdbFile::~MdbFile() {
  if (mdb_ != nullptr) mdb_close(mdb_);
}

void Channel::Progress() { Send('P', std::string_view()); }

void Channel::Send(char tag, std::string_view payload) {
  char head[5];
  head[0] = tag;
  auto length = static_cast<uint32_t>(payload.size());
  std::memcpy(head + 1, &length, 4);
  if (!WriteAll(fd_, head, 5) || !WriteAll(fd_, payload.data(), payload.size())) ::_exit(4);
}

void SetStallTimeout(int milliseconds) { stall_timeout_ms = milliseconds; }

void RaiseDamaged(const std::string& path, const std::string& what) {
  Raise(ErrorKind::NotADatabase,
        "The file '" + path + "' is damaged, encrypted or not a readable Jet/ACE database (" + what + ").");
}

std::vector<Record> ReadGuarded(const std::string& path, const std::function<void(Channel&)>& work) {
  int data[2];
  int diag[2];
  if (::pipe2(data, O_CLOEXEC) != 0) Raise(ErrorKind::General, "Cannot read '" + path + "': " + std::strerror(errno));
  if (::pipe2(diag, O_CLOEXEC) != 0) {
    ::close(data[0]);
    ::close(data[1]);
    Raise(ErrorKind::General, "Cannot read '" + path + "': " + std::strerror(errno));
  }
  pid_t child = ::fork();
  if (child < 0) {
    for (int fd : {data[0], data[1], diag[0], diag[1]}) ::close(fd);
    Raise(ErrorKind::General, "Cannot read '" + path + "': " + std::strerror(errno));
  }
  if (child == 0) {
    ::close(data[0]);
    ::close(diag[0]);
    ::dup2(diag[1], STDERR_FILENO);  // libmdb's complaints become part of the error text
    ::dup2(diag[1], STDOUT_FILENO);
    ChildMain(data[1], work);
  }
  ::close(data[1]);
  ::close(diag[1]);

  std::vector<Record> records;
  std::string buffer;
  std::string printed;
  bool stalled = false;
  pollfd fds[2] = {{data[0], POLLIN, 0}, {diag[0], POLLIN, 0}};
  int open_fds = 2;
  char chunk[65536];
  while (open_fds > 0) {
    int ready = ::poll(fds, 2, stall_timeout_ms);
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) {
      stalled = true;
      break;
    }
    for (auto& p : fds) {
      if (p.fd < 0 || (p.revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
      ssize_t n = ::read(p.fd, chunk, sizeof chunk);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        ::close(p.fd);
        p.fd = -1;
        --open_fds;
        continue;
      }
      if (p.fd == data[0]) {
        buffer.append(chunk, static_cast<size_t>(n));
        TakeRecords(buffer, records);
      } else if (printed.size() < 65536) {
        printed.append(chunk, static_cast<size_t>(n));
      }
    }
  }
  for (auto& p : fds) {
    if (p.fd >= 0) ::close(p.fd);
  }
  int status = 0;
  if (stalled) ::kill(child, SIGKILL);
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (stalled) {
    RaiseDamaged(path, "reading it made no progress for " + std::to_string(stall_timeout_ms / 1000.0).substr(0, 4) +
                           " s and was stopped");
  }
  for (const auto& r : records) {
    if (r.tag == 'E' && !r.payload.empty()) {
      // A failure inside the file (a table or column libmdb reads without a name, rows that stop
      // short) is a damaged file, whatever step met it.
      const std::string text = r.payload.substr(1);
      if (text.find(path) != std::string::npos) Raise(static_cast<ErrorKind>(r.payload[0] - 'A'), text);
      RaiseDamaged(path, text);
    }
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || !buffer.empty()) {
    std::string what = WIFSIGNALED(status) ? std::string("libmdb crashed: ") + ::strsignal(WTERMSIG(status))
                                           : "the reading failed";
    std::string said = LastLine(printed);
    RaiseDamaged(path, said.empty() ? what : what + "; " + said);
  }
  return records;
}

}  // namespace quorbex::db::internal::jet
