// A stand-in game for the process tests: maps pages at fixed addresses below and above 4 GiB,
// writes known strings and numbers there, prints "ready" and waits until its standard input
// closes.
#include <sys/mman.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uintptr_t kLowPage = 0x30000000;      // two pages mapped, the second unmapped again
constexpr uintptr_t kHighPage = 0xC0000000;     // an address that crosses as a negative number
constexpr uintptr_t k4GiB = 0x100000000;        // a page either side of it
constexpr uintptr_t kFarPage = 0x200000000000;  // far above, the page after it unmapped

char* mapAt(uintptr_t address, size_t size) {
  void* p = ::mmap(reinterpret_cast<void*>(address), size, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  if (p != reinterpret_cast<void*>(address)) {
    std::fprintf(stderr, "fake_game: cannot map 0x%lx\n", static_cast<unsigned long>(address));
    std::_Exit(3);
  }
  return static_cast<char*>(p);
}

void put(char* page, size_t offset, const void* bytes, size_t n) {
  std::memcpy(page + offset, bytes, n);
}

}  // namespace

// Named state, found through the executable's symbol table.
extern "C" {
__attribute__((used)) volatile int32_t gameScore = 4242;
__attribute__((used)) extern const char gameTitle[] = "Stand-in Arena";
}

int main() {
  const size_t page = size_t(::sysconf(_SC_PAGESIZE));
  ::prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY);  // readable also where only a parent may read

  char* low = mapAt(kLowPage, 2 * page);
  ::munmap(low + page, page);  // a hole right after the first page

  std::memset(low, 'x', 300);  // 0x000: 300 non-zero bytes, then 0
  put(low, 0x200, "\0abc", 4);
  put(low, 0x210, "\x01\x02\x00\x00", 4);
  put(low, 0x214, "\xFF\xFF\xFF\xFF", 4);
  put(low, 0x220, "Hello, game", 12);
  for (int b = 0x80; b <= 0xFF; ++b)
    low[0x300 + b - 0x80] = char(b);      // 0x300: 80..FF, 0
  put(low, page - 10, "0123456789", 10);  // runs into the hole

  char* high = mapAt(kHighPage, page);
  put(high, 0, "\x78\x56\x34\x12", 4);
  put(high, 4, "high half", 10);

  char* across = mapAt(k4GiB - page, 2 * page);
  put(across, page - 8, "crosses 4 GiB", 14);        // from 4 GiB - 8 over the boundary
  put(across, page + 0x100, "\x21\x43\x65\x87", 4);  // 4 GiB + 0x100

  char* far = mapAt(kFarPage, page);
  put(far, 0, "\xEF\xBE\xAD\xDE", 4);
  put(far, 8, "far above 4 GiB", 16);
  put(far, page - 4, "tail", 4);  // runs into the unmapped page

  std::printf("ready\n");
  std::fflush(stdout);
  char c;
  while (::read(0, &c, 1) > 0) {
  }
  return 0;
}
