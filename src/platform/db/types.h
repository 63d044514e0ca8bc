// Type codes and values: how declared column types map to the engine's type codes, and how stored
// values become Variants and back. Shared by every backend, so a Long, a Date or a Currency means the
// same whatever engine holds it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "quorbex/variant.h"
#include "value/date_time.h"

namespace quorbex::db::internal {

// The type code a declared column type stands for (COUNTER and LONG 4, TEXT(n)/VARCHAR 10, MEMO and
// LONGTEXT 12, DATETIME 8, BIT/YESNO/BOOLEAN 1, CURRENCY 5, DOUBLE/FLOAT 7, SINGLE/REAL 6, BYTE 2,
// SHORT/SMALLINT 3, BLOB/BINARY 11, GUID 15, and the usual SQL spellings of each). 0 when the
// declaration is empty or names no known type; such columns keep their stored values as they are.
int32_t TypeCodeFromDeclared(std::string_view declared);
// The n of a declaration "NAME(n)" or "NAME(n, m)"; 0 when there is none.
int32_t SizeFromDeclared(std::string_view declared);
// "Long", "Text", ... for messages; "Value" for 0 and unknown codes.
const char* TypeName(int32_t code);
// True for the codes whose values are texts (Text, Memo, GUID).
inline bool IsTextCode(int32_t code) { return code == 10 || code == 12 || code == 15; }

// A value as a database stores it.
struct Stored {
  enum class Kind : uint8_t { Null, Integer, Real, Text, Blob };
  Kind kind = Kind::Null;
  int64_t integer = 0;
  double real = 0.0;
  std::string bytes;  // Text (UTF-8) or Blob
};

// Stored value -> Variant for a column of type `code`. Integers become Boolean, Byte, Integer, Long,
// Currency, Single or Double by the code (a number too large for the code's kind becomes Long or Double
// instead); ISO date texts in Date columns become Dates; 1/0 and "true"/"false" in Boolean columns
// become Booleans; numbers in text columns become their text. Anything that does not fit the code is
// kept as it is stored. Code 0 keeps every value as stored. Never raises.
Variant DecodeInteger(int64_t value, int32_t code);
Variant DecodeReal(double value, int32_t code);
Variant DecodeText(std::string_view text, int32_t code);
Variant DecodeBlob(std::string_view bytes, int32_t code);

// Variant -> stored value for a column of type `code`: Booleans 1/0, whole numbers for Byte/Integer/Long
// (rounded half to even), reals for Single/Double/Currency, ISO text "YYYY-MM-DD HH:MM:SS" for dates,
// texts for Text/Memo/GUID, raw bytes for binaries. Null and Empty become NULL, and so does the empty
// text for a non-text column. Raises EngineError Conversion when the value cannot become the type
// (text that is no number, a number out of the type's range, an impossible date).
Stored Encode(const Variant& value, int32_t code);

// Dates travel as ISO text (value/date_time.h).
using quorbex::internal::FormatIsoDateTime;
using quorbex::internal::ParseIsoDateTime;

}  // namespace quorbex::db::internal
