// ELF files through libelf, opened when the first file is read.
#include "platform/process/ElfFile.h"

#include <fcntl.h>
#include <gelf.h>
#include <unistd.h>

#include <utility>

#include <zrkKVL/Failure.h>
#include "platform/loader/SharedLibrary.h"

namespace zrk::platform {

// The libelf functions the reader calls.
struct ElfApi {
  decltype(&::elf_version) version;
  decltype(&::elf_begin) begin;
  decltype(&::elf_memory) memory;
  decltype(&::elf_kind) kind;
  decltype(&::elf_end) end;
  decltype(&::elf_getphdrnum) getphdrnum;
  decltype(&::elf_getdata) getdata;
  decltype(&::elf_strptr) strptr;
  decltype(&::elf_nextscn) nextscn;
  decltype(&::gelf_getphdr) getphdr;
  decltype(&::gelf_getsym) getsym;
  decltype(&::gelf_getdyn) getdyn;
  decltype(&::gelf_getshdr) getshdr;
};

namespace {

bool bindElf(const LibrarySymbols& l, ElfApi& e) {
  return l.bind(e.version, "elf_version") && l.bind(e.begin, "elf_begin") &&
         l.bind(e.memory, "elf_memory") && l.bind(e.kind, "elf_kind") && l.bind(e.end, "elf_end") &&
         l.bind(e.getphdrnum, "elf_getphdrnum") && l.bind(e.getdata, "elf_getdata") &&
         l.bind(e.strptr, "elf_strptr") && l.bind(e.nextscn, "elf_nextscn") &&
         l.bind(e.getphdr, "gelf_getphdr") && l.bind(e.getsym, "gelf_getsym") &&
         l.bind(e.getdyn, "gelf_getdyn") && l.bind(e.getshdr, "gelf_getshdr") &&
         e.version(EV_CURRENT) != EV_NONE;
}

// libelf, or failure 429 (a component that cannot be created) without it.
const ElfApi& libelf() {
  static OnDemandLibrary<ElfApi> library(kElfLibrary, bindElf);
  const ElfApi* api = library.get();
  if (!api) throw Failure(err::CantCreateObject);
  return *api;
}

// The lowest loadable segment's address less its file offset: where the file's first byte goes.
std::optional<uint64_t> fileBaseOf(const ElfApi& e, Elf* elf) {
  size_t count = 0;
  if (e.getphdrnum(elf, &count) != 0) return std::nullopt;
  std::optional<uint64_t> base;
  for (size_t i = 0; i < count; ++i) {
    GElf_Phdr ph;
    if (!e.getphdr(elf, int(i), &ph) || ph.p_type != PT_LOAD) continue;
    uint64_t start = ph.p_vaddr - ph.p_offset;
    if (!base || start < *base) base = start;
  }
  return base;
}

// The defined, non-thread-local symbol `name` in one symbol table section.
std::optional<uint64_t> symbolIn(const ElfApi& e, Elf* elf, Elf_Scn* section,
                                 const GElf_Shdr& header, std::string_view name) {
  Elf_Data* data = e.getdata(section, nullptr);
  if (!data || header.sh_entsize == 0) return std::nullopt;
  size_t count = header.sh_size / header.sh_entsize;
  for (size_t i = 0; i < count; ++i) {
    GElf_Sym sym;
    if (!e.getsym(data, int(i), &sym) || sym.st_shndx == SHN_UNDEF) continue;
    if (GELF_ST_TYPE(sym.st_info) == STT_TLS) continue;
    const char* symName = e.strptr(elf, header.sh_link, sym.st_name);
    if (symName && name == symName) return sym.st_value;
  }
  return std::nullopt;
}

// The SONAME entry of one dynamic section.
std::optional<std::string> sonameIn(const ElfApi& e, Elf* elf, Elf_Scn* section,
                                    const GElf_Shdr& header) {
  Elf_Data* data = e.getdata(section, nullptr);
  if (!data) return std::nullopt;
  GElf_Dyn entry;
  for (int i = 0; e.getdyn(data, i, &entry) && entry.d_tag != DT_NULL; ++i) {
    if (entry.d_tag != DT_SONAME) continue;
    const char* name = e.strptr(elf, header.sh_link, entry.d_un.d_val);
    if (!name) return std::nullopt;
    return std::string(name);
  }
  return std::nullopt;
}

// Each section of type `type`, until `visit` gives a value.
template <class Visit>
auto firstOfSections(const ElfApi& e, Elf* elf, uint32_t type, Visit visit)
    -> decltype(visit(nullptr, GElf_Shdr{})) {
  for (Elf_Scn* s = e.nextscn(elf, nullptr); s; s = e.nextscn(elf, s)) {
    GElf_Shdr header;
    if (!e.getshdr(s, &header) || header.sh_type != type) continue;
    if (auto value = visit(s, header)) return value;
  }
  return std::nullopt;
}

}  // namespace

ElfFile::ElfFile(const std::string& path) : api_(&libelf()) {
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ >= 0) begin(api_->begin(fd_, ELF_C_READ, nullptr));
}

ElfFile::ElfFile(ElfImage image) : api_(&libelf()), image_(std::move(image.bytes)) {
  begin(api_->memory(image_.data(), image_.size()));
}

void ElfFile::begin(Elf* elf) {
  if (elf && api_->kind(elf) != ELF_K_ELF) {
    api_->end(elf);
    elf = nullptr;
  }
  elf_ = elf;
}

ElfFile::~ElfFile() {
  if (elf_) api_->end(elf_);
  if (fd_ >= 0) ::close(fd_);
}

std::optional<std::string> ElfFile::soname() const {
  if (!elf_) return std::nullopt;
  return firstOfSections(*api_, elf_, SHT_DYNAMIC, [&](Elf_Scn* s, const GElf_Shdr& h) {
    return sonameIn(*api_, elf_, s, h);
  });
}

std::optional<ElfSymbol> ElfFile::symbol(std::string_view name) const {
  if (!elf_ || name.empty()) return std::nullopt;
  std::optional<uint64_t> fileBase = fileBaseOf(*api_, elf_);
  if (!fileBase) return std::nullopt;
  // The full symbol table first; a stripped file keeps only the dynamic one.
  for (uint32_t type : {uint32_t(SHT_SYMTAB), uint32_t(SHT_DYNSYM)}) {
    auto value = firstOfSections(*api_, elf_, type, [&](Elf_Scn* s, const GElf_Shdr& h) {
      return symbolIn(*api_, elf_, s, h, name);
    });
    if (value) return ElfSymbol{*value, *fileBase};
  }
  return std::nullopt;
}

}  // namespace zrk::platform
