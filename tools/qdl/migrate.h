#pragma once

#include <string>

namespace quorbex::qdl {

struct MigrateOptions {
  std::string source;  // the database to copy (typically a read-only Jet/ACE file)
  std::string target;  // a new SQLite file, or a server connection string
};

// Copies the source database whole into the target, through the engine interface only, so any
// writable backend can be the target: every user table with its fields (type codes, sizes,
// auto-increment, required), its indexes (the primary key among them), the relationships as foreign
// keys, every row, and the stored queries as views. All in one transaction: on any failure the target
// is left as it was (a new target file is removed again). What cannot be copied (a query without a SQL
// form, a view or relationship the target refuses) is listed in the closing report with the reason,
// together with what was copied and the time it took. Shows a progress bar on a terminal. Returns the
// exit code; a failure prints one line.
int RunMigrate(const MigrateOptions& options);

}  // namespace quorbex::qdl
