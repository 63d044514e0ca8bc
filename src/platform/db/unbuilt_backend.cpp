#include "platform/db/unbuilt_backend.h"

#include "platform/db/errors.h"

namespace quorbex::db::internal {
namespace {

class Unbuilt : public Backend {
 public:
  [[noreturn]] static void Refuse(const std::string& what) { Raise(ErrorKind::NotSupported, what); }
  std::shared_ptr<Database> Create(const std::string& path, const OpenOptions& options) override {
    return Open(path, options);
  }
  void Compact(const std::string& source, const std::string&, const OpenOptions& options) override {
    Open(source, options);
  }
};

class Jet final : public Unbuilt {
 public:
  const char* Name() const override { return "Jet"; }
  bool Recognizes(std::string_view header) const override {
    if (header.size() < 19) return false;
    std::string_view tag = header.substr(4, 15);
    return tag == "Standard Jet DB" || tag == "Standard ACE DB";
  }
  std::shared_ptr<Database> Open(const std::string& path, const OpenOptions&) override {
    Refuse("Jet and ACE database files (.mdb, .accdb) are not supported yet: '" + path + "'.");
  }
};

class Server final : public Unbuilt {
 public:
  const char* Name() const override { return "PostgreSQL"; }
  bool TakesConnectionString(std::string_view name) const override {
    return name.starts_with("postgresql://") || name.starts_with("postgres://");
  }
  bool Recognizes(std::string_view) const override { return false; }
  std::shared_ptr<Database> Open(const std::string&, const OpenOptions&) override {
    Refuse("PostgreSQL connections are not supported yet.");
  }
  std::shared_ptr<Database> Create(const std::string&, const OpenOptions&) override {
    Refuse("Creating a database on a server is not supported.");
  }
};

}  // namespace

Backend& UnbuiltJetBackend() {
  static Jet backend;
  return backend;
}

Backend& UnbuiltServerBackend() {
  static Server backend;
  return backend;
}

}  // namespace quorbex::db::internal
