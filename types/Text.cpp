// Small text operations shared by every subsystem.
#include <zrkKVL/Text.h>

namespace zrk {

Text ascii(std::string_view s) {
  return Text(s.begin(), s.end());
}

Text decimal(int64_t n) {
  return ascii(std::to_string(n));
}

Text replaceAll(TextView in, TextView what, TextView with) {
  if (what.empty()) return Text(in);
  Text out;
  out.reserve(in.size());
  size_t pos = 0;
  for (size_t hit; (hit = in.find(what, pos)) != TextView::npos; pos = hit + what.size()) {
    out.append(in.substr(pos, hit - pos));
    out.append(with);
  }
  out.append(in.substr(pos));
  return out;
}

std::vector<Text> split(TextView in, TextView separator) {
  std::vector<Text> parts;
  if (in.empty()) return parts;
  if (separator.empty()) return {Text(in)};
  size_t pos = 0;
  for (size_t hit; (hit = in.find(separator, pos)) != TextView::npos;
       pos = hit + separator.size()) {
    parts.emplace_back(in.substr(pos, hit - pos));
  }
  parts.emplace_back(in.substr(pos));
  return parts;
}

Text trimBlanks(TextView s) {
  size_t b = s.find_first_not_of(u' ');
  if (b == TextView::npos) return Text();
  size_t e = s.find_last_not_of(u' ');
  return Text(s.substr(b, e - b + 1));
}

Text lowerCase(TextView s) {
  Text out(s);
  for (char16_t& c : out) {
    if ((c >= u'A' && c <= u'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7)) {
      c += 32;
    } else if (c == 0x0160 || c == 0x0152 || c == 0x017D) {  // the code page's capitals Š Œ Ž
      c += 1;
    } else if (c == 0x0178) {  // Ÿ
      c = 0x00FF;
    }
  }
  return out;
}

static char16_t foldCase(char16_t c) {
  if (c >= u'a' && c <= u'z') return c - 32;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 32;
  return c;
}

bool equalsNoCase(TextView a, TextView b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (foldCase(a[i]) != foldCase(b[i])) return false;
  }
  return true;
}

// Appends the UTF-8 form of the code point `c` (up to U+10FFFF; a lone surrogate is encoded as
// its three bytes would be, which no decoder takes as a character).
static void appendUtf8(std::string& out, uint32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

std::string toUtf8(TextView s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    uint32_t c = s[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 &&
        s[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
    } else if (isStrayByteCharacter(char16_t(c))) {
      out += static_cast<char>(c - 0xDC00);  // the byte it stands for
      continue;
    }
    appendUtf8(out, c);
  }
  return out;
}

// The length of the well-formed UTF-8 sequence at the start of `s` and its code point; 0 when
// the first byte starts none (a stray byte, an overlong form, a surrogate, beyond U+10FFFF, a
// sequence cut short).
static size_t decodeOne(std::string_view s, uint32_t& c) {
  unsigned char b = s[0];
  size_t n;
  uint32_t min;
  if (b < 0x80) {
    c = b;
    return 1;
  } else if (b >= 0xC2 && b <= 0xDF) {
    c = b & 0x1F, n = 2, min = 0x80;
  } else if (b >= 0xE0 && b <= 0xEF) {
    c = b & 0x0F, n = 3, min = 0x800;
  } else if (b >= 0xF0 && b <= 0xF4) {
    c = b & 0x07, n = 4, min = 0x10000;
  } else {
    return 0;
  }
  if (s.size() < n) return 0;
  for (size_t k = 1; k < n; ++k) {
    unsigned char t = s[k];
    if ((t & 0xC0) != 0x80) return 0;
    c = (c << 6) | (t & 0x3F);
  }
  if (c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return 0;
  return n;
}

Text fromUtf8(std::string_view s) {
  Text out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size();) {
    uint32_t c;
    size_t n = decodeOne(s.substr(i), c);
    if (n == 0) {
      out += strayByteCharacter(static_cast<unsigned char>(s[i]));
      ++i;
      continue;
    }
    i += n;
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (c >> 10));
      out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
    } else {
      out += static_cast<char16_t>(c);
    }
  }
  return out;
}

}  // namespace zrk
