// qdl: the command-line tool over the Quorbex DataLayer library.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string>

#include "tools/qdl/demo.h"
#include "tools/qdl/export.h"
#include "tools/qdl/import.h"
#include "tools/qdl/migrate.h"
#include "tools/qdl/query.h"
#include "tools/qdl/schema_commands.h"
#include "tools/qdl/secrets.h"

int main(int argc, char** argv) {
  CLI::App app{"qdl: work with relational data through the Quorbex DataLayer"};
  app.require_subcommand(1);

  std::string demo_folder = "qdl-demo";
  auto* demo = app.add_subcommand("demo", "Create a sample SQLite database and walk a change through it");
  demo->add_option("--folder", demo_folder, "Folder for the sample database and its session logs")
      ->capture_default_str();
  std::string demo_server;
  demo->add_option("--db", demo_server,
                   "A server database to use instead of a new SQLite file (postgresql://user@host/db)");

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

  // ---- import, export, query ----
  quorbex::qdl::ImportOptions import_options;
  auto* importer = app.add_subcommand(
      "import", "Read a ';'-separated file (first line: field names) into a database table, all or nothing");
  importer->add_option("FILE", import_options.file, "The CSV file")->required();
  importer->add_option("DB", import_options.database, "The database (a SQLite file is created when missing)")->required();
  importer->add_option("--table", import_options.table, "The table to fill (default: the file's name)");
  quorbex::qdl::ExportOptions export_options;
  auto* exporter = app.add_subcommand("export", "Write the rows of a SELECT to a .csv or .xml data file");
  exporter->add_option("DB", export_options.database, "The database")->required();
  exporter->add_option("SQL", export_options.sql, "The SELECT to run")->required();
  exporter->add_option("OUT", export_options.output, "The file to write: OUT.csv or OUT.xml")->required();
  quorbex::qdl::QueryOptions query_options;
  auto* query = app.add_subcommand("query", "Print the rows of a SELECT: a table on a terminal, CSV otherwise");
  query->add_option("DB", query_options.database, "The database (opened read-only)")->required();
  query->add_option("SQL", query_options.sql, "The SELECT to run")->required();
  query->add_flag("--csv", query_options.csv, "CSV even on a terminal");
  query->add_option("--max-width", query_options.max_width, "Widest column of the table, in characters")
      ->capture_default_str()
      ->check(CLI::Range(4, 10000));
  quorbex::qdl::MigrateOptions migrate_options;
  auto* migrate = app.add_subcommand(
      "migrate", "Copy a database whole (e.g. a Jet .mdb/.accdb file) into a new SQLite file or a server database");
  migrate->add_option("SOURCE", migrate_options.source, "The database to copy")->required();
  migrate->add_option("TARGET", migrate_options.target, "A new SQLite file, or a server connection string")->required();
  // ---- end of import, export, query ----

  CLI11_PARSE(app, argc, argv);
  try {
    if (*demo) return quorbex::qdl::RunDemo(demo_folder, demo_server);
    if (*tables) return quorbex::qdl::RunTables(schema_db);
    if (*update) return quorbex::qdl::RunUpdate(schema_db, update_script);
    if (*compact) return quorbex::qdl::RunCompact(schema_db);
    if (*importer) return quorbex::qdl::RunImport(import_options);
    if (*exporter) return quorbex::qdl::RunExport(export_options);
    if (*query) return quorbex::qdl::RunQuery(query_options);
    if (*migrate) return quorbex::qdl::RunMigrate(migrate_options);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qdl: %s\n", quorbex::qdl::MaskSecrets(e.what()).c_str());
    return 1;
  }
  return 0;
}
