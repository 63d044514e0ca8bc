// Reading field values for the analyzer: text forms, numeric readings and distinct values, written to
// give exactly what CStr, Val, LCase and Trim give, without a temporary string per record.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <unordered_map>

#include "analysis/analyzer_internal.h"
#include "quorbex/errors.h"
#include "quorbex/text.h"
#include "value/text_util.h"
#include "value/failure.h"

namespace quorbex::internal {

namespace {

// The 15-significant-digit text of a finite, non-zero double with "." and "e" (printf's %.15g).
std::string_view PlainDoubleText(double value, char (&buffer)[40]) noexcept {
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 15);
  return {buffer, static_cast<size_t>(result.ptr - buffer)};
}

// The shortest digits that read back as the value, with the decimal exponent of the first digit.
// When there are at most 15 of them they are also the digits of the 15-digit text: the value lies
// closer to them than a tenth of a unit in the 15th digit, so rounding it to 15 digits gives them
// back. Finding them is several times cheaper than rounding to a given precision.
struct ShortDigits {
  char digits[20];
  int count = 0;
  int exponent = 0;
  bool negative = false;
};

bool ShortestDigits(double value, ShortDigits& out) noexcept {
  char buffer[40];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::scientific);
  const char* p = buffer;
  out.negative = *p == '-';
  if (out.negative) ++p;
  out.count = 0;
  for (; p != result.ptr && *p != 'e'; ++p) {
    if (*p == '.') continue;
    if (out.count == 15) return false;
    out.digits[out.count++] = *p;
  }
  if (p == result.ptr) return false;
  std::from_chars(p + (p[1] == '+' ? 2 : 1), result.ptr, out.exponent);
  return true;
}

// The value an Object stands for in comparisons and texts: its default value.
Variant Dereference(const Variant& value) {
  const ObjectRef& object = value.AsObject();
  if (!object) RaiseRuntimeError(errnum::kObjectNotSet);
  return object->DefaultValue();
}

}  // namespace

const Variant& StoredValue(const clsOfflineField& field) noexcept {
  static const Variant kEmptyText{std::string()};
  return field.varValue.IsNull() ? kEmptyText : field.varValue;
}

clsOfflineField& FieldOf(const clsOfflineRecord* record, int32_t id) {
  clsOfflineField* field = record ? record->FieldAt(id) : nullptr;
  if (!field) RaiseRuntimeError(errnum::kObjectNotSet);
  return *field;
}

void AppendDoubleText(std::string& out, double value) {
  if (std::isnan(value) || std::isinf(value) || value == 0.0) {
    out += CStr(Variant(value));
    return;
  }
  const std::string& decimal = Locale::Current().decimal_separator;
  ShortDigits d;
  // printf's %G writes exponents from -4 to 14 plainly; others, and values with more than 15 digits,
  // take the general route below.
  if (ShortestDigits(value, d) && d.exponent >= -4 && d.exponent < 15) {
    if (d.negative) out.push_back('-');
    if (d.exponent < 0) {
      out.push_back('0');
      out += decimal;
      out.append(static_cast<size_t>(-d.exponent - 1), '0');
      out.append(d.digits, static_cast<size_t>(d.count));
    } else if (d.count <= d.exponent + 1) {
      out.append(d.digits, static_cast<size_t>(d.count));
      out.append(static_cast<size_t>(d.exponent + 1 - d.count), '0');
    } else {
      out.append(d.digits, static_cast<size_t>(d.exponent + 1));
      out += decimal;
      out.append(d.digits + d.exponent + 1, static_cast<size_t>(d.count - d.exponent - 1));
    }
    return;
  }
  char buffer[40];
  const std::string_view plain = PlainDoubleText(value, buffer);
  for (char c : plain) {
    if (c == '.') {
      out += decimal;
    } else if (c == 'e') {
      out.push_back('E');
    } else {
      out.push_back(c);
    }
  }
}

void AppendValueText(std::string& out, const Variant& value) {
  char buffer[16];
  switch (value.Type()) {
    case VarType::String: out += value.AsString(); return;
    case VarType::Empty: return;
    case VarType::Double: AppendDoubleText(out, value.AsDouble()); return;
    case VarType::Long: {
      const auto r = std::to_chars(buffer, buffer + sizeof buffer, value.AsLong());
      out.append(buffer, r.ptr);
      return;
    }
    case VarType::Integer: {
      const auto r = std::to_chars(buffer, buffer + sizeof buffer, value.AsInteger());
      out.append(buffer, r.ptr);
      return;
    }
    default: out += CStr(value); return;
  }
}

double ReadAsNumber(const Variant& value, bool comma_as_point, std::string& text) {
  text.clear();
  switch (value.Type()) {
    case VarType::Long: return value.AsLong();
    case VarType::Integer: return value.AsInteger();
    case VarType::Byte: return value.AsByte();
    case VarType::Empty: return 0.0;
    case VarType::Double: {
      const double x = value.AsDouble();
      const std::string& decimal = Locale::Current().decimal_separator;
      // Where the text would read back with its decimal point, reading it back is the rounding to 15
      // significant digits; only a comma that stays a comma needs the text itself.
      if (std::isfinite(x) && x != 0.0 && (decimal == "." || (comma_as_point && decimal == ","))) {
        ShortDigits d;
        if (ShortestDigits(x, d)) return x;  // its 15-digit text reads back as the value itself
        char buffer[40];
        const std::string_view plain = PlainDoubleText(x, buffer);
        double result = 0.0;
        std::from_chars(plain.data(), plain.data() + plain.size(), result);
        return result;
      }
      break;
    }
    default: break;
  }
  AppendValueText(text, value);
  if (comma_as_point) std::replace(text.begin(), text.end(), ',', '.');
  return Val(std::string_view(text));
}

void LowerTrimmedText(const Variant& value, std::string& out) {
  out.clear();
  if (value.IsString() && internal::IsAscii(value.AsString())) {
    // For ASCII text LCase changes A-Z only.
    for (char c : internal::TrimSpaces(value.AsString())) out.push_back(internal::LowerAscii(c));
    return;
  }
  std::string text;
  AppendValueText(text, value);
  out = LCase(Trim(text));
}

namespace {

// The ordering key of a distinct value: numbers (number kinds, Booleans as -1/0, dates by serial)
// before texts; NaN after the other numbers.
struct SortKey {
  enum Kind : uint8_t { kNumber, kNaN, kText } kind = kNumber;
  double number = 0.0;
  std::string_view text;
};

bool KeyLess(const SortKey& a, const SortKey& b) noexcept {
  if (a.kind != b.kind) return a.kind < b.kind;
  if (a.kind == SortKey::kNumber) return a.number < b.number;
  if (a.kind == SortKey::kText) return a.text < b.text;
  return false;
}

}  // namespace

DistinctValues GatherDistinct(const Collection<std::shared_ptr<clsOfflineRecord>>* records, int32_t field_id,
                              bool with_counts) {
  DistinctValues out;
  if (!records) return out;
  if (field_id <= 0) {
    // Every record would fail alike on the missing field.
    if (records->Count() > 0) out.last_failure = RuntimeErrorText(errnum::kObjectNotSet);
    return out;
  }

  // One lookup per record: each exact value (a text by its text, anything else by its kind and bits)
  // becomes an entry that counts its records. A value's text, and so its count key, and its place in
  // the order depend on nothing else, so they are worked out once per entry afterwards.
  struct Entry {
    Variant value;
    int32_t records = 0;
  };
  struct Bits {
    VarType type;
    uint64_t bits;
    bool operator==(const Bits&) const = default;
  };
  struct BitsHash {
    size_t operator()(const Bits& b) const noexcept {
      return std::hash<uint64_t>{}(b.bits) ^ (static_cast<size_t>(b.type) * 0x9E3779B97F4A7C15ULL);
    }
  };
  auto bits_of = [](const Variant& v) -> Bits {
    uint64_t bits = 0;
    auto put = [&bits](auto x) { std::memcpy(&bits, &x, sizeof x); };
    switch (v.Type()) {
      case VarType::Boolean: bits = v.AsBoolean(); break;
      case VarType::Byte: bits = v.AsByte(); break;
      case VarType::Integer: put(static_cast<int64_t>(v.AsInteger())); break;
      case VarType::Long: put(static_cast<int64_t>(v.AsLong())); break;
      case VarType::Single: put(v.AsSingle()); break;
      case VarType::Double: put(v.AsDouble()); break;
      case VarType::Currency: put(v.AsCurrency().scaled); break;
      case VarType::Date: put(v.AsDate().serial); break;
      default: break;  // Empty and Null carry nothing but their kind
    }
    return Bits{v.Type(), bits};
  };

  std::vector<Entry> entries;
  std::unordered_map<std::string, uint32_t, TextHash, std::equal_to<>> text_entries;
  std::unordered_map<Bits, uint32_t, BitsHash> other_entries;
  std::string scratch;
  for (const auto& record : records->Items()) {
    try {
      const Variant* value = &StoredValue(FieldOf(record.get(), field_id));
      Variant dereferenced;
      if (value->IsObject()) {
        // An object counts as its default value; one whose value has no text fails like its text.
        if (with_counts) LowerTrimmedText(*value, scratch);
        dereferenced = Dereference(*value);
        if (dereferenced.IsObject()) RaiseRuntimeError(errnum::kTypeMismatch);
        value = &dereferenced;
      }
      uint32_t index = 0;
      if (value->IsString()) {
        const std::string& text = value->AsString();
        auto it = text_entries.find(std::string_view(text));
        if (it == text_entries.end()) {
          it = text_entries.emplace(text, static_cast<uint32_t>(entries.size())).first;
          entries.push_back(Entry{*value});
        }
        index = it->second;
      } else {
        auto [it, added] = other_entries.emplace(bits_of(*value), static_cast<uint32_t>(entries.size()));
        if (added) entries.push_back(Entry{*value});
        index = it->second;
      }
      ++entries[index].records;
    } catch (const std::exception& e) {
      out.last_failure = internal::FailureDescription(e);
    }
  }

  // The count of every count key, from the entries that share it.
  TextMap totals;
  std::vector<const std::string*> key_of(entries.size(), nullptr);
  if (with_counts) {
    for (size_t i = 0; i < entries.size(); ++i) {
      try {
        LowerTrimmedText(entries[i].value, scratch);
        auto it = totals.find(std::string_view(scratch));
        if (it == totals.end()) it = totals.emplace(scratch, 0).first;
        it->second += entries[i].records;
        key_of[i] = &it->first;
      } catch (const AutomationError& e) {
        out.last_failure = e.Description();  // a value without a text fails at each of its records
      }
    }
  }

  // The distinct values: entries that are values at all, numbers merged by their numeric value (the
  // entry seen first stands for them), in ascending order.
  std::vector<SortKey> keys;
  std::vector<uint32_t> chosen;
  std::unordered_map<double, size_t> numbers;
  size_t nan_at = SIZE_MAX;
  for (uint32_t i = 0; i < entries.size(); ++i) {
    const Variant& value = entries[i].value;
    if (value.IsEmpty() || value.IsNull() || (value.IsString() && value.AsString().empty())) continue;
    if (value.IsString()) {
      keys.push_back(SortKey{SortKey::kText, 0.0, value.AsString()});
      chosen.push_back(i);
      continue;
    }
    double number = 0.0;
    try {
      if (value.IsBoolean()) {
        number = value.AsBoolean() ? -1.0 : 0.0;
      } else if (value.IsDateValue()) {
        number = value.AsDate().serial;
      } else {
        number = CDbl(value);
      }
    } catch (const AutomationError& e) {
      out.last_failure = e.Description();
      continue;
    }
    size_t at = SIZE_MAX;
    if (std::isnan(number)) {
      if (nan_at == SIZE_MAX) nan_at = chosen.size();
      at = nan_at;
    } else {
      if (number == 0.0) number = 0.0;  // -0 and 0 are one value
      at = numbers.emplace(number, chosen.size()).first->second;
    }
    if (at == chosen.size()) {
      keys.push_back(SortKey{std::isnan(number) ? SortKey::kNaN : SortKey::kNumber, number, {}});
      chosen.push_back(i);
    }
  }

  std::vector<size_t> order(chosen.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return KeyLess(keys[a], keys[b]); });

  out.values.reserve(order.size());
  if (with_counts) out.counts.reserve(order.size());
  for (size_t at : order) {
    const uint32_t entry = chosen[at];
    out.values.push_back(entries[entry].value);
    if (with_counts) {
      // OccurrenceCount of the value: every record whose text matches its text, trimmed and in lower
      // case, which is the total of its count key.
      const std::string* key = key_of[entry];
      out.counts.push_back(key ? totals.find(std::string_view(*key))->second : 0);
    }
  }
  return out;
}

}  // namespace quorbex::internal
