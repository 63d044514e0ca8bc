#include "platform/db/errors.h"

namespace quorbex::db::internal {

void Raise(ErrorKind kind, std::string description) { throw EngineError(kind, description); }

void RaiseItemNotFound(std::string_view what) {
  Raise(ErrorKind::ItemNotFound, "Item not found in this collection: " + std::string(what));
}

void RaiseItemNotFound(int32_t position) {
  Raise(ErrorKind::ItemNotFound, "Item not found in this collection: position " + std::to_string(position));
}

void RaiseFileNotFound(const std::string& path) {
  Raise(ErrorKind::FileNotFound, "Could not find file '" + path + "'.");
}

void RaiseNotADatabase(const std::string& path) {
  Raise(ErrorKind::NotADatabase, "Unrecognized database format '" + path + "'.");
}

void RaiseBusy(const std::string& path, int32_t waited_ms) {
  Raise(ErrorKind::Busy, "Could not use '" + path + "'; file already in use (locked by another connection, waited " +
                             std::to_string(waited_ms) + " ms).");
}

void RaiseConversion(std::string_view detail) {
  Raise(ErrorKind::Conversion, "Data type conversion error: " + std::string(detail));
}

}  // namespace quorbex::db::internal
