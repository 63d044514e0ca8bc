#include "temp_dir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

namespace quorbex::test {


TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/quorbex-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) {
    ADD_FAILURE() << "cannot create a temporary folder from " << pattern;
    return;
  }
  path_ = buffer.data();
}

TempDir::~TempDir() {
  if (path_.empty()) return;
  std::error_code ignored;
  // A test may have taken permissions away; give them back so that the removal goes through.
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add,
                               ignored);
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) ADD_FAILURE() << "cannot write " << path;
}

}  // namespace quorbex::test
