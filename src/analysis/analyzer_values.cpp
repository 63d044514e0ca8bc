// Reading field values for the analyzer: text forms, numeric readings and distinct values, written to
// give exactly what CStr, Val, LCase and Trim give, without a temporary string per record.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <unordered_map>

#include "analysis/analyzer_internal.h"
#include "quorbex/errors.h"
#include "quorbex/text.h"

namespace quorbex::analysis {

namespace {

constexpr int32_t kObjectNotSet = 91;

bool IsAscii(std::string_view text) noexcept {
  for (unsigned char c : text) {
    if (c >= 0x80) return false;
  }
  return true;
}

std::string_view TrimBlanks(std::string_view text) noexcept {
  size_t begin = 0;
  size_t end = text.size();
  while (begin < end && text[begin] == ' ') ++begin;
  while (end > begin && text[end - 1] == ' ') --end;
  return text.substr(begin, end - begin);
}

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
  if (!object) RaiseRuntimeError(kObjectNotSet);
  return object->DefaultValue();
}

}  // namespace

const Variant& StoredValue(const clsOfflineField& field) noexcept {
  static const Variant kEmptyText{std::string()};
  return field.varValue.IsNull() ? kEmptyText : field.varValue;
}

clsOfflineField& FieldOf(const clsOfflineRecord* record, int32_t id) {
  clsOfflineField* field = record ? record->FieldAt(id) : nullptr;
  if (!field) RaiseRuntimeError(kObjectNotSet);
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
  if (value.IsString() && IsAscii(value.AsString())) {
    // For ASCII text LCase changes A-Z only.
    for (char c : TrimBlanks(value.AsString())) out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
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
    if (records->Count() > 0) out.last_failure = "Object variable or With block variable not set";
    return out;
  }

  std::unordered_map<double, size_t> numbers;
  std::unordered_map<std::string, size_t, TextHash, std::equal_to<>> texts;
  size_t nan_index = SIZE_MAX;
  std::vector<Variant> seen;  // first occurrence of each distinct value
  std::vector<SortKey> keys;
  TextCounts counts;
  std::string count_key;

  for (const auto& record : records->Items()) {
    try {
      const Variant& stored = StoredValue(FieldOf(record.get(), field_id));
      if (with_counts) {
        LowerTrimmedText(stored, count_key);
        auto it = counts.find(std::string_view(count_key));
        if (it == counts.end()) it = counts.emplace(count_key, 0).first;
        ++it->second;
      }

      Variant dereferenced;
      const Variant* value = &stored;
      if (stored.IsObject()) {
        dereferenced = Dereference(stored);
        value = &dereferenced;
      }
      // Empty, Null and the empty text are no values to list.
      if (value->IsEmpty() || value->IsNull() || (value->IsString() && value->AsString().empty())) continue;

      if (value->IsString()) {
        const std::string& text = value->AsString();
        if (texts.find(std::string_view(text)) != texts.end()) continue;
        texts.emplace(text, seen.size());
        seen.push_back(*value);
        continue;
      }
      double number = 0.0;
      if (value->IsBoolean()) {
        number = value->AsBoolean() ? -1.0 : 0.0;
      } else if (value->IsDateValue()) {
        number = value->AsDate().serial;
      } else {
        number = CDbl(*value);
      }
      if (std::isnan(number)) {
        if (nan_index == SIZE_MAX) {
          nan_index = seen.size();
          seen.push_back(*value);
        }
        continue;
      }
      if (number == 0.0) number = 0.0;  // -0 and 0 are one value
      if (numbers.emplace(number, seen.size()).second) seen.push_back(*value);
    } catch (const AutomationError& e) {
      out.last_failure = e.Description();
    } catch (const std::exception& e) {
      out.last_failure = e.what();
    }
  }

  keys.resize(seen.size());
  for (const auto& [number, index] : numbers) keys[index] = SortKey{SortKey::kNumber, number, {}};
  for (const auto& [text, index] : texts) keys[index] = SortKey{SortKey::kText, 0.0, text};
  if (nan_index != SIZE_MAX) keys[nan_index] = SortKey{SortKey::kNaN, 0.0, {}};

  std::vector<size_t> order(seen.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return KeyLess(keys[a], keys[b]); });

  out.values.reserve(order.size());
  if (with_counts) out.counts.reserve(order.size());
  for (size_t index : order) {
    out.values.push_back(std::move(seen[index]));
    if (with_counts) {
      try {
        LowerTrimmedText(out.values.back(), count_key);
        auto it = counts.find(std::string_view(count_key));
        out.counts.push_back(it == counts.end() ? 0 : it->second);
      } catch (const AutomationError& e) {
        out.last_failure = e.Description();
        out.counts.push_back(0);
      }
    }
  }
  return out;
}

}  // namespace quorbex::analysis
