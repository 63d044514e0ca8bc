#include "platform/db/types.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include "platform/db/errors.h"
#include "value/text_util.h"

namespace quorbex::db::internal {
namespace {

using quorbex::internal::IsBlank;
using quorbex::internal::UpperAscii;

// The words of a declaration before any "(".
struct DeclWords {
  std::string first;
  std::string rest;  // the remaining words, upper case, blank-separated
  std::string all;   // the whole declaration, upper case
};

DeclWords SplitDeclaration(std::string_view declared) {
  DeclWords w;
  w.all = UpperAscii(declared);
  std::string_view s = w.all;
  auto paren = s.find('(');
  std::string_view head = s.substr(0, paren);
  size_t i = 0;
  while (i < head.size() && IsBlank(head[i])) ++i;
  size_t start = i;
  while (i < head.size() && !IsBlank(head[i])) ++i;
  w.first = std::string(head.substr(start, i - start));
  while (i < head.size() && IsBlank(head[i])) ++i;
  w.rest = std::string(head.substr(i));
  while (!w.rest.empty() && IsBlank(w.rest.back())) w.rest.pop_back();
  return w;
}

bool Contains(const std::string& s, std::string_view part) { return s.find(part) != std::string::npos; }

bool OneOf(const std::string& word, std::initializer_list<std::string_view> names) {
  for (auto n : names) {
    if (word == n) return true;
  }
  return false;
}

Variant WideInteger(int64_t v) {
  if (v >= std::numeric_limits<int32_t>::min() && v <= std::numeric_limits<int32_t>::max()) {
    return Variant(static_cast<int32_t>(v));
  }
  return Variant(static_cast<double>(v));
}

// Shortest decimal text that reads back as the same double.
std::string RealText(double d) {
  char buf[64];
  auto res = std::to_chars(buf, buf + sizeof buf, d);
  return std::string(buf, res.ptr);
}

constexpr int64_t kCurrencyMaxUnits = std::numeric_limits<int64_t>::max() / 10000;

// The text form of a 16-byte GUID: {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}, in the byte order the
// classic engine writes (first three groups little-endian).
std::string GuidText(std::string_view b) {
  static const char* hex = "0123456789ABCDEF";
  auto byte = [&](std::string& out, int i) {
    auto v = static_cast<unsigned char>(b[static_cast<size_t>(i)]);
    out += hex[v >> 4];
    out += hex[v & 15];
  };
  std::string out = "{";
  for (int i : {3, 2, 1, 0}) byte(out, i);
  out += '-';
  for (int i : {5, 4}) byte(out, i);
  out += '-';
  for (int i : {7, 6}) byte(out, i);
  out += '-';
  for (int i : {8, 9}) byte(out, i);
  out += '-';
  for (int i = 10; i < 16; ++i) byte(out, i);
  out += '}';
  return out;
}

// ---- encoding helpers ----------------------------------------------------------------------------

Stored Null() { return Stored{}; }
Stored Integer(int64_t v) {
  Stored s;
  s.kind = Stored::Kind::Integer;
  s.integer = v;
  return s;
}
Stored Real(double v) {
  Stored s;
  s.kind = Stored::Kind::Real;
  s.real = v;
  return s;
}
Stored Text(std::string v) {
  Stored s;
  s.kind = Stored::Kind::Text;
  s.bytes = std::move(v);
  return s;
}
Stored Blob(std::string v) {
  Stored s;
  s.kind = Stored::Kind::Blob;
  s.bytes = std::move(v);
  return s;
}

std::string Describe(const Variant& v) {
  // A non-finite number or date has no text of its own (a NaN date would read as midnight).
  if (v.Type() == VarType::Double || v.Type() == VarType::Single || v.Type() == VarType::Date) {
    const double d = v.Type() == VarType::Date ? v.AsDate().serial
                     : v.Type() == VarType::Single ? static_cast<double>(v.AsSingle()) : v.AsDouble();
    if (std::isnan(d)) return std::string("the ") + (v.Type() == VarType::Date ? "date" : "number") + " NaN";
    if (std::isinf(d)) return std::string("the ") + (v.Type() == VarType::Date ? "date " : "number ") + (d < 0 ? "-Inf" : "+Inf");
  }
  try {
    std::string t = CStr(v);
    if (t.size() > 40) t = t.substr(0, 40) + "...";
    return "'" + t + "'";
  } catch (const std::exception&) {
    return "the value";
  }
}

[[noreturn]] void CannotStore(const Variant& v, int32_t code) {
  RaiseConversion(Describe(v) + " cannot be stored as " + TypeName(code) + ".");
}

// Any value as a double, the way a numeric column reads it; nullopt when it is no number.
std::optional<double> NumberOf(const Variant& v) {
  switch (v.Type()) {
    case VarType::Boolean: return v.AsBoolean() ? -1.0 : 0.0;
    case VarType::Byte: return v.AsByte();
    case VarType::Integer: return v.AsInteger();
    case VarType::Long: return v.AsLong();
    case VarType::Single: return v.AsSingle();
    case VarType::Double: return v.AsDouble();
    case VarType::Currency: return v.AsCurrency().ToDouble();
    case VarType::Date: return v.AsDate().serial;
    case VarType::String: return ParseNumber(v.AsString());
    default: return std::nullopt;
  }
}

Stored EncodeWhole(const Variant& v, int32_t code) {
  int64_t value = 0;
  switch (v.Type()) {
    case VarType::Byte: value = v.AsByte(); break;
    case VarType::Integer: value = v.AsInteger(); break;
    case VarType::Long: value = v.AsLong(); break;
    default: {
      // A whole number written as text is read exactly: through a double, 9007199254740993 would
      // become 9007199254740992.
      if (v.IsString()) {
        const std::string_view text = quorbex::internal::TrimSpaces(v.AsString());
        int64_t exact = 0;
        const char* first = text.data() + (!text.empty() && text.front() == '+' ? 1 : 0);
        const char* end = text.data() + text.size();
        auto [ptr, ec] = std::from_chars(first, end, exact);
        if (ec == std::errc::result_out_of_range) CannotStore(v, code);
        if (ec == std::errc() && ptr == end && first != ptr) {
          value = exact;
          break;
        }
      }
      auto d = NumberOf(v);
      if (!d || !std::isfinite(*d)) CannotStore(v, code);
      double r = std::nearbyint(*d);  // the default rounding mode: half to even
      if (r < -9.2233720368547758e18 || r >= 9.2233720368547758e18) CannotStore(v, code);
      value = static_cast<int64_t>(r);
    }
  }
  if (code == 2 && (value < 0 || value > 255)) CannotStore(v, code);
  if (code == 3 && (value < -32768 || value > 32767)) CannotStore(v, code);
  if (code == 4 && (value < INT32_MIN || value > INT32_MAX)) CannotStore(v, code);
  return Integer(value);
}

Stored EncodeDate(const Variant& v, int32_t code) {
  double serial = 0.0;
  if (v.IsDateValue()) {
    serial = v.AsDate().serial;
  } else if (v.IsString()) {
    if (auto iso = ParseIsoDateTime(v.AsString())) {
      serial = *iso;
    } else if (auto local = ParseDate(v.AsString())) {
      serial = local->serial;
    } else {
      CannotStore(v, code);
    }
  } else {
    auto d = NumberOf(v);
    if (!d) CannotStore(v, code);
    serial = *d;
  }
  // The classic date range: 100-01-01 to 9999-12-31.
  if (!std::isfinite(serial) || serial < -657434.0 || serial >= 2958466.0) CannotStore(v, code);
  return Text(FormatIsoDateTime(serial));
}

Stored EncodeCurrency(const Variant& v, int32_t code) {
  Currency c;
  if (v.Type() == VarType::Currency) {
    c = v.AsCurrency();
  } else {
    auto d = NumberOf(v);
    if (!d || !std::isfinite(*d)) CannotStore(v, code);
    try {
      c = Currency::FromDouble(*d);
    } catch (const std::exception&) {
      CannotStore(v, code);
    }
  }
  if (c.scaled % 10000 == 0) return Integer(c.scaled / 10000);
  return Real(c.ToDouble());
}

Stored EncodeSingle(const Variant& v, int32_t code) {
  auto d = NumberOf(v);
  if (!d || !std::isfinite(*d) || std::fabs(*d) > std::numeric_limits<float>::max()) CannotStore(v, code);
  // Through the float's shortest text, so that 0.1 is stored as 0.1 and not as 0.100000001490116.
  float f = static_cast<float>(*d);
  char buf[32];
  auto res = std::to_chars(buf, buf + sizeof buf, f);
  double back = 0.0;
  std::from_chars(buf, res.ptr, back);
  return Real(back);
}

Stored EncodeText(const Variant& v, int32_t code) {
  if (v.IsString()) return Text(v.AsString());
  try {
    return Text(CStr(v));
  } catch (const std::exception&) {
    CannotStore(v, code);
  }
}

Stored EncodeNatural(const Variant& v) {
  switch (v.Type()) {
    case VarType::Boolean: return Integer(v.AsBoolean() ? 1 : 0);
    case VarType::Byte: return Integer(v.AsByte());
    case VarType::Integer: return Integer(v.AsInteger());
    case VarType::Long: return Integer(v.AsLong());
    case VarType::Single: return EncodeSingle(v, 6);
    case VarType::Double:
      if (!std::isfinite(v.AsDouble())) CannotStore(v, 7);
      return Real(v.AsDouble());
    case VarType::Currency: return EncodeCurrency(v, 5);
    case VarType::Date: return EncodeDate(v, 8);
    case VarType::String: return Text(v.AsString());
    default: return Null();
  }
}

}  // namespace

int32_t TypeCodeFromDeclared(std::string_view declared) {
  DeclWords w = SplitDeclaration(declared);
  const std::string& f = w.first;
  if (f.empty()) return 0;
  if (f == "LONG" && !w.rest.empty()) {  // LONG TEXT, LONG VARCHAR, LONG BINARY
    if (Contains(w.rest, "CHAR") || Contains(w.rest, "TEXT")) return 12;
    if (Contains(w.rest, "BINARY")) return 11;
  }
  if (OneOf(f, {"COUNTER", "AUTOINCREMENT", "AUTONUMBER", "IDENTITY", "LONG", "INT", "INTEGER", "INTEGER4",
                "INT4", "MEDIUMINT", "SERIAL"})) {
    return 4;
  }
  if (OneOf(f, {"BIT", "YESNO", "BOOLEAN", "BOOL", "LOGICAL", "LOGICAL1"})) return 1;
  if (OneOf(f, {"BYTE", "TINYINT", "INTEGER1"})) return 2;
  if (OneOf(f, {"SHORT", "SMALLINT", "INTEGER2", "INT2"})) return 3;
  if (OneOf(f, {"CURRENCY", "MONEY", "SMALLMONEY"})) return 5;
  if (OneOf(f, {"SINGLE", "REAL", "FLOAT4", "IEEESINGLE"})) return 6;
  if (OneOf(f, {"DOUBLE", "FLOAT", "FLOAT8", "IEEEDOUBLE", "NUMERIC", "DECIMAL", "NUMBER", "BIGINT", "INT8",
                "INTEGER8", "BIGSERIAL"})) {
    return 7;
  }
  if (OneOf(f, {"DATETIME", "DATE", "TIME", "TIMESTAMP", "SMALLDATETIME", "DATETIME2", "TIMESTAMPTZ"})) return 8;
  if (OneOf(f, {"MEMO", "LONGTEXT", "NOTE", "CLOB", "MEDIUMTEXT", "NTEXT", "LONGCHAR", "HYPERLINK"})) return 12;
  if (OneOf(f, {"TEXT", "VARCHAR", "CHAR", "NVARCHAR", "NCHAR", "CHARACTER", "STRING", "ALPHANUMERIC",
                "VARCHAR2", "NVARCHAR2"})) {
    return 10;
  }
  if (OneOf(f, {"BLOB", "BINARY", "VARBINARY", "LONGBINARY", "IMAGE", "OLEOBJECT", "GENERAL", "BYTEA"})) return 11;
  if (OneOf(f, {"GUID", "UNIQUEIDENTIFIER", "UUID"})) return 15;
  // Other spellings, by the words they contain (the same order of tests the SQL engines use).
  if (Contains(w.all, "INT")) return 4;
  if (Contains(w.all, "CHAR") || Contains(w.all, "TEXT")) return 10;
  if (Contains(w.all, "BLOB")) return 11;
  if (Contains(w.all, "DOUB") || Contains(w.all, "FLOA")) return 7;
  return 0;
}

int32_t SizeFromDeclared(std::string_view declared) {
  auto open = declared.find('(');
  if (open == std::string_view::npos) return 0;
  size_t i = open + 1;
  while (i < declared.size() && IsBlank(declared[i])) ++i;
  int32_t n = 0;
  auto res = std::from_chars(declared.data() + i, declared.data() + declared.size(), n);
  if (res.ec != std::errc() || n < 0) return 0;
  return n;
}

const char* TypeName(int32_t code) {
  switch (code) {
    case 1: return "Boolean";
    case 2: return "Byte";
    case 3: return "Integer";
    case 4: return "Long";
    case 5: return "Currency";
    case 6: return "Single";
    case 7: return "Double";
    case 8: return "Date";
    case 10: return "Text";
    case 11: return "Binary";
    case 12: return "Memo";
    case 15: return "GUID";
    default: return "Value";
  }
}

Variant DecodeInteger(int64_t v, int32_t code) {
  switch (code) {
    case 1: return Variant(v != 0);
    case 2:
      if (v >= 0 && v <= 255) return Variant(static_cast<uint8_t>(v));
      return WideInteger(v);
    case 3:
      if (v >= -32768 && v <= 32767) return Variant(static_cast<int16_t>(v));
      return WideInteger(v);
    case 5:
      if (v >= -kCurrencyMaxUnits && v <= kCurrencyMaxUnits) return Variant(Currency{v * 10000});
      return Variant(static_cast<double>(v));
    case 6: return Variant(static_cast<float>(v));
    case 7: return Variant(static_cast<double>(v));
    case 10:
    case 11:
    case 12:
    case 15: return Variant(std::to_string(v));
    default: return WideInteger(v);
  }
}

Variant DecodeReal(double d, int32_t code) {
  switch (code) {
    case 1: return Variant(d != 0.0);
    case 2:
    case 3:
    case 4:
      if (d == std::trunc(d) && std::fabs(d) < 9.2e18) return DecodeInteger(static_cast<int64_t>(d), code);
      return Variant(d);
    case 5:
      if (std::isfinite(d) && std::fabs(d) < 9.2e14) {
        return Variant(Currency{static_cast<int64_t>(std::nearbyint(d * 10000.0))});
      }
      return Variant(d);
    case 6: return Variant(static_cast<float>(d));
    case 10:
    case 11:
    case 12:
    case 15: return Variant(RealText(d));
    default: return Variant(d);
  }
}

Variant DecodeText(std::string_view text, int32_t code) {
  switch (code) {
    case 8:
      if (auto serial = ParseIsoDateTime(text)) return Variant(Date{*serial});
      break;
    case 1: {
      std::string u = UpperAscii(text);
      if (u == "TRUE" || u == "YES" || u == "1" || u == "-1") return Variant(true);
      if (u == "FALSE" || u == "NO" || u == "0") return Variant(false);
      break;
    }
    default: break;
  }
  return Variant(std::string(text));
}

Variant DecodeBlob(std::string_view bytes, int32_t code) {
  if (code == 15 && bytes.size() == 16) return Variant(GuidText(bytes));
  return Variant(std::string(bytes));
}

Stored Encode(const Variant& value, int32_t code) {
  if (value.IsNull() || value.IsEmpty()) return Null();
  if (value.IsObject()) {
    Variant inner;
    try {
      inner = value.AsObject() ? value.AsObject()->DefaultValue() : Variant();
    } catch (const std::exception&) {
      CannotStore(value, code);
    }
    if (inner.IsObject()) CannotStore(value, code);
    return Encode(inner, code);
  }
  if (value.IsString() && value.AsString().empty() && !IsTextCode(code) && code != 11 && code != 0) return Null();
  switch (code) {
    case 1: {
      if (value.IsBoolean()) return Integer(value.AsBoolean() ? 1 : 0);
      try {
        return Integer(CBool(value) ? 1 : 0);
      } catch (const std::exception&) {
        CannotStore(value, code);
      }
    }
    case 2:
    case 3:
    case 4: return EncodeWhole(value, code);
    case 5: return EncodeCurrency(value, code);
    case 6: return EncodeSingle(value, code);
    case 7: {
      // NaN and the infinities have no column value (SQL engines store NULL or refuse them).
      auto d = NumberOf(value);
      if (!d || !std::isfinite(*d)) CannotStore(value, code);
      return Real(*d);
    }
    case 8: return EncodeDate(value, code);
    case 10:
    case 12:
    case 15: return EncodeText(value, code);
    case 11: {
      if (value.IsString()) return Blob(value.AsString());
      Stored t = EncodeText(value, code);
      t.kind = Stored::Kind::Blob;
      return t;
    }
    default: return EncodeNatural(value);
  }
}

}  // namespace quorbex::db::internal
