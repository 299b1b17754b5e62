// An ELF file read through libelf: the name a shared object was linked under, and its symbols.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct Elf;

namespace zrk::platform {

// The libelf file the first ElfFile opens (overrideLibraryFile names another, for tests).
inline constexpr const char* kElfLibrary = "libelf.so.1";
struct ElfApi;

struct ElfSymbol {
  uint64_t value = 0;     // the symbol's address in the file's own layout
  uint64_t fileBase = 0;  // the address in that layout where the file's first byte goes
};

// A file's bytes, of either class and byte order.
struct ElfImage {
  std::string bytes;
};

class ElfFile {
 public:
  // The file at `path`; one that can't be opened or is no ELF file has no names or symbols.
  // Failure 429 (a component that cannot be created) where libelf cannot be loaded.
  explicit ElfFile(const std::string& path);
  explicit ElfFile(ElfImage image);
  ElfFile(const ElfFile&) = delete;
  ElfFile& operator=(const ElfFile&) = delete;
  ~ElfFile();

  // The SONAME of a shared object ("libstats.so.2"); nothing when it records none.
  std::optional<std::string> soname() const;
  // The defined symbol `name`, from the symbol table or, in a stripped file, the dynamic
  // symbols. Nothing for a symbol only referred to, or a thread-local one (its value is no
  // address).
  std::optional<ElfSymbol> symbol(std::string_view name) const;

 private:
  void begin(Elf* elf);

  const ElfApi* api_;
  int fd_ = -1;
  std::string image_;  // the bytes, when read from bytes
  Elf* elf_ = nullptr;
};

}  // namespace zrk::platform
