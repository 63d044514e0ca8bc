// SaveAsXML + LoadFromXML of 100,000 records against a baseline that writes and reads the same
// document shape with pugixml directly, from and into plain structs.
#include <pugixml.hpp>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench_util.h"
#include "quorbex/DataLayer.h"
#include "service/thread_state.h"

namespace {

constexpr int kRecords = 100000;

struct Row {
  int32_t id = 0;
  std::string name;
  std::string city;
  double balance = 0;
  double since = 0;
  bool active = false;
};

std::vector<Row> MakeRows() {
  static const char* const kCities[] = {"Wien", "Graz", "Linz", "Salzburg", "Innsbruck", "Klagenfurt", "Sankt Pölten"};
  std::vector<Row> rows;
  rows.reserve(kRecords);
  for (int i = 0; i < kRecords; ++i) {
    Row row;
    row.id = i + 1;
    row.name = "Customer " + std::to_string(i * 7919 % 100003) + " & Söhne";
    row.city = kCities[i % 7];
    row.balance = (i % 1000) * 1.25 - 300.5;
    row.since = 40000 + i % 5000;  // whole days, as the dates of a table mostly are
    row.active = i % 3 != 0;
    rows.push_back(std::move(row));
  }
  return rows;
}

// ---- Baseline -------------------------------------------------------------------------------------

template <class T>
const char* Text(char* buffer, size_t size, T value) {
  auto result = std::to_chars(buffer, buffer + size - 1, value);
  *result.ptr = 0;
  return buffer;
}

void AddField(pugi::xml_node record, const char* name, const char* type, const char* kind, const char* value) {
  pugi::xml_node field = record.append_child("Field");
  field.append_attribute("name") = name;
  field.append_attribute("type") = type;
  field.append_attribute("kind") = kind;
  field.text() = value;
}

void BaselineWrite(const std::vector<Row>& rows, const std::string& path) {
  pugi::xml_document document;
  auto declaration = document.append_child(pugi::node_declaration);
  declaration.append_attribute("version") = "1.0";
  declaration.append_attribute("encoding") = "UTF-8";
  pugi::xml_node root = document.append_child("Customers");
  root.append_attribute("format") = "quorbex-datalayer";
  root.append_attribute("version") = "1";
  root.append_attribute("records") = static_cast<int>(rows.size());
  root.append_child("Query").text() = "SELECT * FROM customers";
  char buffer[64];
  for (const Row& row : rows) {
    pugi::xml_node record = root.append_child("Record");
    AddField(record, "id", "4", "Long", Text(buffer, sizeof buffer, row.id));
    AddField(record, "name", "10", "String", row.name.c_str());
    AddField(record, "city", "10", "String", row.city.c_str());
    AddField(record, "balance", "7", "Double", Text(buffer, sizeof buffer, row.balance));
    AddField(record, "since", "8", "Date", Text(buffer, sizeof buffer, row.since));
    AddField(record, "active", "1", "Boolean", row.active ? "True" : "False");
  }
  document.save_file(path.c_str(), "  ");
}

std::vector<Row> BaselineRead(const std::string& path) {
  pugi::xml_document document;
  document.load_file(path.c_str(), pugi::parse_default | pugi::parse_ws_pcdata_single);
  std::vector<Row> rows;
  pugi::xml_node root = document.document_element();
  rows.reserve(static_cast<size_t>(root.attribute("records").as_int()));
  for (pugi::xml_node record = root.child("Record"); record; record = record.next_sibling("Record")) {
    Row row;
    for (pugi::xml_node field = record.child("Field"); field; field = field.next_sibling("Field")) {
      const char* name = field.attribute("name").value();
      const char* value = field.child_value();
      const char* end = value + std::strlen(value);
      if (std::strcmp(name, "id") == 0) std::from_chars(value, end, row.id);
      else if (std::strcmp(name, "name") == 0) row.name = value;
      else if (std::strcmp(name, "city") == 0) row.city = value;
      else if (std::strcmp(name, "balance") == 0) std::from_chars(value, end, row.balance);
      else if (std::strcmp(name, "since") == 0) std::from_chars(value, end, row.since);
      else if (std::strcmp(name, "active") == 0) row.active = std::strcmp(value, "True") == 0;
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

// ---- Library --------------------------------------------------------------------------------------

std::shared_ptr<quorbex::DataLayer> MakeLayer(const std::vector<Row>& rows) {
  using quorbex::Variant;
  auto layer = std::make_shared<quorbex::DataLayer>();
  std::string description = "customers", fields = "id;name;city;balance;since;active";
  layer->CreateNewVirtualOfflineTable(description, fields);
  const int32_t types[] = {4, 10, 10, 7, 8, 1};
  for (const Row& row : rows) {
    layer->AddNew();
    auto record = layer->GetOfflineRecordset()->Records(layer->RecordCount());
    record->NewlyAdded = false;
    const Variant values[] = {Variant(row.id), Variant(row.name), Variant(row.city), Variant(row.balance),
                              Variant(quorbex::Date{row.since}), Variant(row.active)};
    for (int j = 0; j < 6; ++j) {
      record->FieldAt(j + 1)->varValue = values[j];
      record->FieldAt(j + 1)->lngFieldType = types[j];
    }
  }
  return layer;
}

}  // namespace

int main() {
  namespace fs = std::filesystem;
  const fs::path folder = fs::temp_directory_path() / ("quorbex-xml-bench-" + std::to_string(::getpid()));
  fs::create_directories(folder);
  const std::string library_path = (folder / "library.xml").string();
  const std::string baseline_path = (folder / "baseline.xml").string();
  quorbex::internal::State().log_disabled = true;

  const std::vector<Row> rows = MakeRows();
  auto layer = MakeLayer(rows);

  double best_library = 1e9, best_baseline = 1e9;
  for (int round = 0; round < 3; ++round) {
    double start = quorbex::bench::Seconds();
    if (!layer->SaveAsXML(library_path, "Customers", true)) {
      std::fprintf(stderr, "SaveAsXML failed: %s\n", layer->ErrorStatus().c_str());
      return 1;
    }
    auto loaded = std::make_shared<quorbex::DataLayer>();
    if (!loaded->LoadFromXML(library_path, true) || loaded->RecordCount() != kRecords) {
      std::fprintf(stderr, "LoadFromXML failed: %s\n", loaded->ErrorStatus().c_str());
      return 1;
    }
    best_library = std::min(best_library, quorbex::bench::Seconds() - start);
    loaded.reset();

    start = quorbex::bench::Seconds();
    BaselineWrite(rows, baseline_path);
    std::vector<Row> read = BaselineRead(baseline_path);
    best_baseline = std::min(best_baseline, quorbex::bench::Seconds() - start);
    if (read.size() != rows.size()) {
      std::fprintf(stderr, "baseline read %zu rows\n", read.size());
      return 1;
    }
  }
  std::printf("file sizes: library %ju bytes, baseline %ju bytes\n",
              static_cast<uintmax_t>(fs::file_size(library_path)), static_cast<uintmax_t>(fs::file_size(baseline_path)));
  quorbex::bench::Report("xml save+load 100k records", best_library, best_baseline);
  fs::remove_all(folder);
  return 0;
}
