// qdl compact: compacts a database file in place through the table manager.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "quorbex/DataLayer.h"
#include "quorbex/clsTableManager.h"
#include "tools/qdl/schema_commands.h"
#include "tools/qdl/secrets.h"

namespace quorbex::qdl {

namespace {
std::string SizeText(const std::string& path) {
  std::error_code error;
  const auto size = std::filesystem::file_size(path, error);
  return error ? std::string("?") : std::to_string(size) + " bytes";
}
}  // namespace

int RunCompact(const std::string& database) {
  // Messages go to the error channel, from where the failure text below comes; no dialog on stderr.
  DataLayer().SuppressAllMessages(true);
  const std::string size_before = SizeText(database);
  auto manager = std::make_shared<clsTableManager>();
  manager->SetDatabaseByPath(database);
  if (!manager->ErrorStatus.empty()) {
    std::fprintf(stderr, "qdl compact: %s\n", MaskSecrets(manager->ErrorStatus).c_str());
    return 1;
  }
  if (!CBool(manager->CompactDB())) {
    std::fprintf(stderr, "qdl compact: %s\n", MaskSecrets(manager->ErrorStatus).c_str());
    return 1;
  }
  std::printf("compacted %s: %s before, %s now\noriginal kept as %s\n", MaskSecrets(database).c_str(),
              size_before.c_str(), SizeText(database).c_str(), manager->RenamedOriginalDatabaseName().c_str());
  return 0;
}

}  // namespace quorbex::qdl
