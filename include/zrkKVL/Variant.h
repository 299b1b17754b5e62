// The interface's dynamically typed value: empty, text, numbers, boolean, array or object.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include <zrkKVL/Export.h>
#include <zrkKVL/Text.h>

namespace zrk {

class Variant;
class Dispatch;

// An array with its own lower bound; upper bound = lower bound + count - 1, so an empty array
// with lower bound 0 has upper bound -1.
struct ZRK_API VariantArray {
  int32_t lowerBound = 0;
  std::vector<Variant> items;

  int32_t upperBound() const;
  // Element by index; failure 9 outside the bounds.
  Variant& at(int32_t index);
  const Variant& at(int32_t index) const;
};

class ZRK_API Variant {
 public:
  enum class Kind { Empty, Text, Integer, Long, Double, Boolean, Array, Object };

  Variant() = default;
  Variant(Text t) : v_(std::move(t)) {}
  Variant(const char16_t* t) : v_(Text(t)) {}
  Variant(int16_t n) : v_(n) {}
  Variant(int32_t n) : v_(n) {}
  Variant(double d) : v_(d) {}
  Variant(bool b) : v_(b) {}
  Variant(VariantArray a) : v_(std::move(a)) {}
  Variant(std::shared_ptr<Dispatch> o) : v_(std::move(o)) {}

  // An array of texts with lower bound 0.
  static Variant textArray(std::vector<Text> items);

  Kind kind() const { return static_cast<Kind>(v_.index()); }
  bool isEmpty() const { return kind() == Kind::Empty; }
  bool isArray() const { return kind() == Kind::Array; }
  bool isObject() const { return kind() == Kind::Object; }
  bool isNumber() const;

  // The array inside; failure 13 when this holds none.
  VariantArray& array();
  const VariantArray& array() const;
  // The object inside; failure 91 for empty, 13 for any other kind.
  Dispatch& object() const;

  // Conversions as the interface makes them; failure 13 where none exists, 6 on overflow.
  Text toText() const;
  int32_t toLong() const;
  int16_t toInteger() const;
  double toDouble() const;
  bool toBool() const;

  bool operator==(const Variant& o) const;

 private:
  std::variant<std::monostate, Text, int16_t, int32_t, double, bool, VariantArray,
               std::shared_ptr<Dispatch>>
      v_;
};

// Defined once Variant is complete, which clang needs for the vector's members.
inline int32_t VariantArray::upperBound() const {
  return lowerBound + static_cast<int32_t>(items.size()) - 1;
}

inline bool operator==(const VariantArray& a, const VariantArray& b) {
  return a.lowerBound == b.lowerBound && a.items == b.items;
}

inline bool Variant::operator==(const Variant& o) const {
  return v_ == o.v_;
}

// An object reached by member names at run time.
class ZRK_API Dispatch {
 public:
  enum class CallKind { Method, Get, Let };
  virtual ~Dispatch() = default;
  // Calls member `name`; by-reference arguments are written back into `args`. An unknown name
  // is failure 438.
  virtual Variant invoke(TextView name, CallKind kind, std::vector<Variant>& args) = 0;
};

// Convenience: property read and write through invoke.
ZRK_API Variant getProperty(Dispatch& obj, TextView name);
ZRK_API void letProperty(Dispatch& obj, TextView name, Variant value);

// The platform's numeric-text test: blanks round the number, a sign, digits with one decimal
// point, an exponent (E or D) with its sign, or the &H and &O forms. Gives the value if numeric.
ZRK_API std::optional<double> parseNumericText(TextView s);
ZRK_API bool isNumericText(TextView s);

// Round half to even, as the interface rounds a double into a whole number; failure 6 outside
// the 32-bit range.
ZRK_API int32_t roundToLong(double d);

// Text form of a double as the interface prints it (15 significant digits, no trailing zeros).
ZRK_API Text formatDouble(double d);

}  // namespace zrk
