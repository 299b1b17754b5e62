// What the report reads of ELF files: a shared object's soname in either byte order and class,
// and the libraries the library itself names as needed, among which libcurl is not.
#include <gtest/gtest.h>

#include <elf.h>

#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/process/ElfFile.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

TEST(ElfSoname, ByteOrderAndClass) {
  // A minimal 32-bit big-endian shared object: header, a string table, a dynamic section.
  std::string elf(0x100, '\0');
  auto put = [&](size_t at, uint64_t v, int width) {
    for (int i = 0; i < width; ++i)
      elf[at + size_t(i)] = char(v >> (8 * (width - 1 - i)));
  };
  elf.replace(0, 6,
              "\x7f"
              "ELF\x01\x02");
  put(6, 1, 1);  // the ELF version, in the identification and the header
  put(0x14, 1, 4);
  put(0x20, 0x80, 4);  // section headers
  put(0x2E, 40, 2);
  put(0x30, 3, 2);
  put(0x80 + 40 + 4, 3, 4);  // section 1: strings at 0x10, 0x20 long
  put(0x80 + 40 + 16, 0x10 + 0x30, 4);
  put(0x80 + 40 + 20, 0x20, 4);
  put(0x80 + 80 + 4, 6, 4);  // section 2: dynamic at 0x60, linked to section 1
  put(0x80 + 80 + 16, 0x60, 4);
  put(0x80 + 80 + 20, 0x18, 4);
  put(0x80 + 80 + 24, 1, 4);
  elf.replace(0x41, 10, "libbe.so.7");
  put(0x60, 1, 4);  // DT_NEEDED first, then DT_SONAME at offset 1 of the strings
  put(0x68, 14, 4);
  put(0x6C, 1, 4);
  EXPECT_EQ(platform::ElfFile(platform::ElfImage{elf}).soname(),
            std::optional<std::string>("libbe.so.7"));
  put(0x6C, 0x40, 4);  // a name beyond its table
  EXPECT_EQ(platform::ElfFile(platform::ElfImage{elf}).soname(), std::nullopt);
  EXPECT_EQ(platform::ElfFile(platform::ElfImage{elf.substr(0, 0x90)}).soname(), std::nullopt);
  EXPECT_EQ(platform::ElfFile(ZRK_LIBRARY_FILE).soname(),
            std::optional<std::string>("libzrkKVL.so.1"));
}

// The libraries an ELF file names as needed.
std::vector<std::string> neededLibraries(const std::string& path) {
  std::string elf = readBytes(path);
  auto at = [&](size_t offset, size_t size) {
    if (offset > elf.size() || size > elf.size() - offset) throw std::out_of_range(path);
    return elf.data() + offset;
  };
  Elf64_Ehdr header;
  std::memcpy(&header, at(0, sizeof header), sizeof header);
  std::vector<Elf64_Shdr> sections(header.e_shnum);
  std::memcpy(sections.data(), at(header.e_shoff, sections.size() * sizeof(Elf64_Shdr)),
              sections.size() * sizeof(Elf64_Shdr));
  std::vector<std::string> needed;
  for (const Elf64_Shdr& s : sections) {
    if (s.sh_type != SHT_DYNAMIC) continue;
    const char* names = at(sections.at(s.sh_link).sh_offset, sections.at(s.sh_link).sh_size);
    for (size_t off = 0; off + sizeof(Elf64_Dyn) <= s.sh_size; off += sizeof(Elf64_Dyn)) {
      Elf64_Dyn entry;
      std::memcpy(&entry, at(s.sh_offset + off, sizeof entry), sizeof entry);
      if (entry.d_tag == DT_NEEDED) needed.emplace_back(names + entry.d_un.d_val);
    }
  }
  return needed;
}

// libcurl is loaded by the first report, never by loading the library.
TEST(ReportLibrary, TheLibraryDoesNotLinkLibcurl) {
  std::vector<std::string> needed = neededLibraries(ZRK_LIBRARY_FILE);
  ASSERT_FALSE(needed.empty());
  for (const std::string& name : needed)
    EXPECT_EQ(name.find("libcurl"), std::string::npos) << name;
}

}  // namespace
}  // namespace zrk::test
