// Variant conversions and the numeric-text test.
#include <zrkKVL/Variant.h>

#include <cmath>
#include <cstdio>
#include <limits>

#include <zrkKVL/Failure.h>

namespace zrk {

Variant& VariantArray::at(int32_t index) {
  int64_t i = int64_t(index) - lowerBound;
  if (i < 0 || i >= int64_t(items.size())) throw Failure(err::SubscriptOutOfRange);
  return items[size_t(i)];
}

const Variant& VariantArray::at(int32_t index) const {
  return const_cast<VariantArray*>(this)->at(index);
}

Variant Variant::textArray(std::vector<Text> items) {
  VariantArray a;
  a.items.reserve(items.size());
  for (auto& t : items)
    a.items.emplace_back(std::move(t));
  return Variant(std::move(a));
}

bool Variant::isNumber() const {
  auto k = kind();
  return k == Kind::Integer || k == Kind::Long || k == Kind::Double;
}

VariantArray& Variant::array() {
  if (auto* a = std::get_if<VariantArray>(&v_)) return *a;
  throw Failure(err::TypeMismatch);
}

const VariantArray& Variant::array() const {
  return const_cast<Variant*>(this)->array();
}

Dispatch& Variant::object() const {
  if (auto* o = std::get_if<std::shared_ptr<Dispatch>>(&v_); o && *o) return **o;
  if (isEmpty() || isObject()) throw Failure(err::ObjectNotSet);
  throw Failure(err::TypeMismatch);
}

Text Variant::toText() const {
  switch (kind()) {
    case Kind::Empty:
      return Text();
    case Kind::Text:
      return std::get<Text>(v_);
    case Kind::Integer:
      return decimal(std::get<int16_t>(v_));
    case Kind::Long:
      return decimal(std::get<int32_t>(v_));
    case Kind::Double:
      return formatDouble(std::get<double>(v_));
    case Kind::Boolean:
      return std::get<bool>(v_) ? u"True" : u"False";
    default:
      throw Failure(err::TypeMismatch);
  }
}

double Variant::toDouble() const {
  switch (kind()) {
    case Kind::Empty:
      return 0;
    case Kind::Integer:
      return std::get<int16_t>(v_);
    case Kind::Long:
      return std::get<int32_t>(v_);
    case Kind::Double:
      return std::get<double>(v_);
    case Kind::Boolean:
      return std::get<bool>(v_) ? -1 : 0;
    case Kind::Text: {
      const Text& t = std::get<Text>(v_);
      if (auto d = parseNumericText(t)) return *d;
      if (equalsNoCase(t, u"True")) return -1;
      if (equalsNoCase(t, u"False")) return 0;
      throw Failure(err::TypeMismatch);
    }
    default:
      throw Failure(err::TypeMismatch);
  }
}

int32_t Variant::toLong() const {
  switch (kind()) {
    case Kind::Integer:
      return std::get<int16_t>(v_);
    case Kind::Long:
      return std::get<int32_t>(v_);
    default:
      return roundToLong(toDouble());
  }
}

int16_t Variant::toInteger() const {
  int32_t n = toLong();
  if (n < std::numeric_limits<int16_t>::min() || n > std::numeric_limits<int16_t>::max()) {
    throw Failure(err::Overflow);
  }
  return static_cast<int16_t>(n);
}

bool Variant::toBool() const {
  if (kind() == Kind::Boolean) return std::get<bool>(v_);
  return toDouble() != 0;
}

Variant getProperty(Dispatch& obj, TextView name) {
  std::vector<Variant> none;
  return obj.invoke(name, Dispatch::CallKind::Get, none);
}

void letProperty(Dispatch& obj, TextView name, Variant value) {
  std::vector<Variant> args{std::move(value)};
  obj.invoke(name, Dispatch::CallKind::Let, args);
}

namespace {

bool isBlank(char16_t c) {
  return c == u' ' || c == u'\t';
}

std::optional<double> parseRadix(TextView s, int radix) {
  if (s.empty() || s.size() > 16) return std::nullopt;
  uint64_t v = 0;
  for (char16_t c : s) {
    int d;
    if (c >= u'0' && c <= u'9') {
      d = c - u'0';
    } else if (c >= u'a' && c <= u'f') {
      d = c - u'a' + 10;
    } else if (c >= u'A' && c <= u'F') {
      d = c - u'A' + 10;
    } else {
      return std::nullopt;
    }
    if (d >= radix) return std::nullopt;
    v = v * radix + d;
  }
  // &H and &O forms up to 16 bits are Integer, up to 32 bits Long, both two's complement.
  if (v <= 0xFFFF && s.size() <= (radix == 16 ? 4u : 6u)) return double(int16_t(uint16_t(v)));
  if (v <= 0xFFFFFFFFull) return double(int32_t(uint32_t(v)));
  return std::nullopt;
}

}  // namespace

std::optional<double> parseNumericText(TextView s) {
  size_t b = 0, e = s.size();
  while (b < e && isBlank(s[b]))
    ++b;
  while (e > b && isBlank(s[e - 1]))
    --e;
  s = s.substr(b, e - b);
  if (s.empty()) return std::nullopt;
  if (s[0] == u'&') {
    if (s.size() >= 2 && (s[1] == u'H' || s[1] == u'h')) return parseRadix(s.substr(2), 16);
    if (s.size() >= 2 && (s[1] == u'O' || s[1] == u'o')) return parseRadix(s.substr(2), 8);
    return parseRadix(s.substr(1), 8);
  }
  std::string ascii;
  size_t i = 0;
  if (s[i] == u'+' || s[i] == u'-') ascii += char(s[i++]);
  size_t digits = 0;
  bool point = false;
  for (; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c >= u'0' && c <= u'9') {
      ascii += char(c), ++digits;
    } else if (c == u'.' && !point) {
      ascii += '.', point = true;
    } else {
      break;
    }
  }
  if (digits == 0) return std::nullopt;
  if (i < s.size() && (s[i] == u'e' || s[i] == u'E' || s[i] == u'd' || s[i] == u'D')) {
    ascii += 'e';
    ++i;
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) ascii += char(s[i++]);
    size_t expDigits = 0;
    for (; i < s.size() && s[i] >= u'0' && s[i] <= u'9'; ++i)
      ascii += char(s[i]), ++expDigits;
    if (expDigits == 0) return std::nullopt;
  }
  if (i != s.size()) return std::nullopt;
  double d = std::strtod(ascii.c_str(), nullptr);
  if (!std::isfinite(d)) return std::nullopt;
  return d;
}

bool isNumericText(TextView s) {
  return parseNumericText(s).has_value();
}

int32_t roundToLong(double d) {
  double r = std::nearbyint(d);  // default rounding mode: half to even
  if (!(r >= -2147483648.0 && r <= 2147483647.0)) throw Failure(err::Overflow);
  return static_cast<int32_t>(r);
}

Text formatDouble(double d) {
  if (d == std::floor(d) && std::fabs(d) < 1e15) return decimal(static_cast<int64_t>(d));
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.15G", d);
  std::string s = buf;
  auto ePos = s.find('E');
  std::string mant = s.substr(0, ePos), exp = ePos == std::string::npos ? "" : s.substr(ePos);
  if (mant.find('.') != std::string::npos) {
    while (mant.back() == '0')
      mant.pop_back();
    if (mant.back() == '.') mant.pop_back();
  }
  return ascii(mant + exp);
}

}  // namespace zrk
