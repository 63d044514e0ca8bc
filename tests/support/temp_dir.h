// A temporary folder for one test, removed with everything in it when the object goes.
#pragma once

#include <string>

namespace quorbex::test {


class TempDir {
 public:
  // Creates a fresh folder under $TMPDIR (or /tmp); fails the current test when it cannot.
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The folder, without a trailing "/".
  const std::string& Path() const { return path_; }
  // Path() + "/" + name.
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Reads a whole file as bytes; "" when it cannot be read.
std::string ReadBytes(const std::string& path);
// Writes a whole file as bytes; fails the current test when it cannot.
void WriteBytes(const std::string& path, const std::string& bytes);

}  // namespace quorbex::test
