// qdl: the command-line tool over the Quorbex DataLayer library.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <string>

#include "tools/qdl/demo.h"

int main(int argc, char** argv) {
  CLI::App app{"qdl: work with relational data through the Quorbex DataLayer"};
  app.require_subcommand(1);

  std::string demo_folder = "qdl-demo";
  auto* demo = app.add_subcommand("demo", "Create a sample SQLite database and walk a change through it");
  demo->add_option("--folder", demo_folder, "Folder for the sample database and its session logs")
      ->capture_default_str();

  CLI11_PARSE(app, argc, argv);
  try {
    if (*demo) return quorbex::qdl::RunDemo(demo_folder);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "qdl: %s\n", e.what());
    return 1;
  }
  return 0;
}
