// The SONAME of an ELF shared object, read from its section headers and dynamic section.
#include "platform/SharedObject.h"

#include <cstdint>
#include <fstream>
#include <iterator>

#include "platform/Paths.h"

namespace zrk::platform {
namespace {

constexpr uint32_t kSectionDynamic = 6;  // SHT_DYNAMIC
constexpr uint64_t kTagEnd = 0, kTagSoname = 14;
// A plug-in larger than this is not read for its name.
constexpr std::streamoff kMaxFileSize = 256ll << 20;

// Reads whole numbers of the file's class and byte order at offsets; a read out of bounds marks
// the reader bad and gives 0.
class ElfReader {
 public:
  explicit ElfReader(std::string_view bytes) : bytes_(bytes) {
    ok_ = bytes.size() >= 52 && bytes.substr(0, 4) ==
                                    "\x7f"
                                    "ELF";
    if (!ok_) return;
    wide_ = bytes[4] == 2;
    bigEndian_ = bytes[5] == 2;
    ok_ = (bytes[4] == 1 || bytes[4] == 2) && (bytes[5] == 1 || bytes[5] == 2);
  }
  bool ok() const { return ok_; }
  bool wide() const { return wide_; }

  uint64_t number(uint64_t at, size_t width) {
    if (!ok_ || at > bytes_.size() || bytes_.size() - at < width) {
      ok_ = false;
      return 0;
    }
    uint64_t v = 0;
    for (size_t i = 0; i < width; ++i) {
      uint8_t b = uint8_t(bytes_[at + (bigEndian_ ? i : width - 1 - i)]);
      v = v << 8 | b;
    }
    return v;
  }
  // An address-sized number: 8 bytes in a 64-bit file, 4 in a 32-bit one.
  uint64_t word(uint64_t at) { return number(at, wide_ ? 8 : 4); }

  std::optional<std::string> textAt(uint64_t at, uint64_t end) {
    if (!ok_ || at >= end || end > bytes_.size()) return std::nullopt;
    std::string_view rest = bytes_.substr(at, end - at);
    size_t nul = rest.find('\0');
    if (nul == std::string_view::npos) return std::nullopt;
    return std::string(rest.substr(0, nul));
  }

 private:
  std::string_view bytes_;
  bool ok_ = false, wide_ = false, bigEndian_ = false;
};

struct Section {
  uint32_t type = 0;
  uint64_t offset = 0, size = 0;
  uint32_t link = 0;
};

Section sectionAt(ElfReader& r, uint64_t at) {
  Section s;
  s.type = uint32_t(r.number(at + 4, 4));
  if (r.wide()) {
    s.offset = r.number(at + 24, 8);
    s.size = r.number(at + 32, 8);
    s.link = uint32_t(r.number(at + 40, 4));
  } else {
    s.offset = r.number(at + 16, 4);
    s.size = r.number(at + 20, 4);
    s.link = uint32_t(r.number(at + 24, 4));
  }
  return s;
}

}  // namespace

std::optional<std::string> sharedObjectNameOf(std::string_view elf) {
  ElfReader r(elf);
  if (!r.ok()) return std::nullopt;
  uint64_t table = r.wide() ? r.number(0x28, 8) : r.number(0x20, 4);
  uint64_t entrySize = r.number(r.wide() ? 0x3A : 0x2E, 2);
  uint64_t count = r.number(r.wide() ? 0x3C : 0x30, 2);
  if (!r.ok() || entrySize == 0) return std::nullopt;
  for (uint64_t i = 0; i < count && r.ok(); ++i) {
    Section dynamic = sectionAt(r, table + i * entrySize);
    if (dynamic.type != kSectionDynamic) continue;
    Section strings = sectionAt(r, table + uint64_t(dynamic.link) * entrySize);
    uint64_t entry = r.wide() ? 16 : 8;
    for (uint64_t at = dynamic.offset; at + entry <= dynamic.offset + dynamic.size && r.ok();
         at += entry) {
      uint64_t tag = r.word(at);
      if (tag == kTagEnd) break;
      if (tag == kTagSoname) {
        return r.textAt(strings.offset + r.word(at + entry / 2), strings.offset + strings.size);
      }
    }
    return std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> sharedObjectName(TextView path) {
  std::ifstream in(nativePath(path), std::ios::binary);
  if (!in) return std::nullopt;
  in.seekg(0, std::ios::end);
  std::streamoff size = in.tellg();
  if (size < 0 || size > kMaxFileSize) return std::nullopt;
  in.seekg(0);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return sharedObjectNameOf(bytes);
}

}  // namespace zrk::platform
