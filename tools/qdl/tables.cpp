// qdl tables: the user tables of a database with their fields and indexes.
#include <cstdio>
#include <string>

#include "quorbex/engine.h"
#include "tools/qdl/schema_commands.h"
#include "tools/qdl/secrets.h"

namespace quorbex::qdl {

namespace {

std::string TypeName(const db::Field& field) {
  switch (field.Type()) {
    case db::dbBoolean: return "Boolean";
    case db::dbByte: return "Byte";
    case db::dbInteger: return "Integer";
    case db::dbLong: return (field.Attributes() & db::dbAutoIncrField) ? "Long, auto-increment" : "Long";
    case db::dbCurrency: return "Currency";
    case db::dbSingle: return "Single";
    case db::dbDouble: return "Double";
    case db::dbDate: return "Date";
    case db::dbText: return "Text(" + std::to_string(field.Size()) + ")";
    case db::dbLongBinary: return "Binary";
    case db::dbMemo: return "Memo";
    case db::dbGUID: return "GUID";
    default: return "no declared type";
  }
}

}  // namespace

int RunTables(const std::string& database_name) {
  auto database = db::DBEngine::Default()->OpenDatabase(database_name, false, true);
  auto tables = database->TableDefs();
  int shown = 0;
  for (int32_t t = 0; t < tables->Count(); ++t) {
    auto table = tables->Item(t);
    if (table->Attributes() & db::dbSystemObject) continue;
    std::printf("%s%s\n", shown++ ? "\n" : "", table->Name().c_str());
    auto fields = table->Fields();
    for (int32_t f = 0; f < fields->Count(); ++f) {
      auto field = fields->Item(f);
      std::printf("  %-30s %3d  %s%s\n", field->Name().c_str(), field->Type(), TypeName(*field).c_str(),
                  field->Required() ? ", required" : "");
    }
    auto indexes = table->Indexes();
    for (int32_t i = 0; i < indexes->Count(); ++i) {
      auto index = indexes->Item(i);
      std::string columns;
      auto index_fields = index->Fields();
      for (int32_t f = 0; f < index_fields->Count(); ++f) {
        columns += (f ? ", " : "") + index_fields->Item(f)->Name();
      }
      std::printf("  index %s (%s)%s\n", index->Name().c_str(), columns.c_str(),
                  index->Primary() ? " primary" : index->Unique() ? " unique" : "");
    }
  }
  if (shown == 0) std::printf("%s has no tables\n", MaskSecrets(database_name).c_str());
  return 0;
}

}  // namespace quorbex::qdl
