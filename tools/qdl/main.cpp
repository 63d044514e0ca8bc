// qdl: the command-line tool over the Quorbex DataLayer library.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string>

#include "tools/qdl/demo.h"
#include "tools/qdl/schema_commands.h"
#include "tools/qdl/secrets.h"

int main(int argc, char** argv) {
  CLI::App app{"qdl: work with relational data through the Quorbex DataLayer"};
  app.require_subcommand(1);

  std::string demo_folder = "qdl-demo";
  auto* demo = app.add_subcommand("demo", "Create a sample SQLite database and walk a change through it");
  demo->add_option("--folder", demo_folder, "Folder for the sample database and its session logs")
      ->capture_default_str();

  // Schema work.
  std::string schema_db, update_script;
  auto* tables = app.add_subcommand("tables", "List the tables of a database with their fields, type codes and indexes");
  tables->add_option("DB", schema_db, "Database file (or server connection string)")->required();
  auto* update = app.add_subcommand(
      "update", "Apply a script of numbered schema actions that the database has not received yet");
  update->add_option("DB", schema_db, "Database file (or server connection string)")->required();
  update->add_option("SCRIPT", update_script,
                     "Text file, one action per line: number;code;Option1;Option2;Option3 (codes: 1 create table, "
                     "2 delete table, 3 append field, 4 remove field, 5 set index); '#' starts a comment line")
      ->required();
  auto* compact = app.add_subcommand("compact", "Compact a database file in place, keeping the original beside it");
  compact->add_option("DB", schema_db, "Database file")->required();

  CLI11_PARSE(app, argc, argv);
  try {
    if (*demo) return quorbex::qdl::RunDemo(demo_folder);
    if (*tables) return quorbex::qdl::RunTables(schema_db);
    if (*update) return quorbex::qdl::RunUpdate(schema_db, update_script);
    if (*compact) return quorbex::qdl::RunCompact(schema_db);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qdl: %s\n", quorbex::qdl::MaskSecrets(e.what()).c_str());
    return 1;
  }
  return 0;
}
