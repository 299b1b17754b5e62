// The machine description over a fixture machine: fields, failed stages, registry, adapter, sizes.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "core/mdlKVN.h"
#include "diagnostics/SystemDescription.h"
#include "platform/system/Clock.h"
#include "platform/system/SystemInfo.h"
#include "platform/system/SystemQuery.h"
#include "support/TestSupport.h"

namespace zrk::test {
namespace {

const char* kCpuInfo =
    "processor\t: 0\n"
    "vendor_id\t: FixtureVendor\n"
    "model name\t: Fixture CPU @ 3.00GHz\n"
    "cpu MHz\t\t: 2999.600\n"
    "\n"
    "processor\t: 1\n"
    "model name\t: Second \xc3\xa9 CPU\n"
    "cpu MHz\t\t: 4294967295.000\n";

const char* kPciIds =
    "# fixture\n"
    "0abc  Acme Graphics\n"
    "\t0001  Acme Vision 1\n"
    "10de  NVIDIA Corporation\n"
    "\t2204  GA102 [GeForce RTX 3090]\n"
    "\t\t1043 87b5  ROG Strix\n"
    "\t2206  Other\n"
    "C 03  Display controller\n"
    "\t00  VGA compatible controller\n";

const Text kNvidia =
    u"NVIDIA Corporation GA102 [GeForce RTX 3090]\r\n10DE2204-1043-FFFF87B5-A103020000000000";

const Text kBasicAdapter = u"Basic Display Adapter\r\n00-00-00-0003000000000000";

class SystemTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    writeBytes(sys / "os-release", "NAME=Testix\nPRETTY_NAME=\"  Testix 3  \"\nID=testix\n");
    makeDir(sys / "proc");
    writeBytes(sys / "proc/cpuinfo", kCpuInfo);
    device("0000:00:01.0", {{"class", "0x060000"}, {"vendor", "0x8086"}});
    device("0000:00:02.0", {{"class", "0x030000"},
                            {"vendor", "0x0abc"},
                            {"device", "0x0001"},
                            {"subsystem_vendor", "0x8086"},
                            {"subsystem_device", "0x1234"},
                            {"revision", "0x05"},
                            {"boot_vga", "0"}});
    device("0000:00:03.0", {{"class", "0x030200"},
                            {"vendor", "0x10de"},
                            {"device", "0x2204"},
                            {"subsystem_vendor", "0x1043"},
                            {"subsystem_device", "0x87b5"},
                            {"revision", "0xa1"},
                            {"boot_vga", "1"}});
    makeDir(sys / "usr/share/misc");
    writeBytes(sys / "usr/share/misc/pci.ids", kPciIds);
    platform::setOsReleaseFile(sys / "os-release");
    platform::setKernelReleaseOverride("5.10.0-21-amd64");
    override.root = sys.path();
    override.totalMemory = 17179869184ull;
    platform::overrideSystem(override);
  }
  void TearDown() override {
    platform::overrideSystem(std::nullopt);
    platform::setOsReleaseFile(std::nullopt);
    platform::setKernelReleaseOverride(std::nullopt);
    LibraryTest::TearDown();
  }

  void device(const std::string& name, std::vector<std::pair<std::string, std::string>> files) {
    std::string dir = sys / ("sys/bus/pci/devices/" + name);
    makeDir(dir);
    for (const auto& [file, value] : files)
      writeBytes(dir + "/" + file, value + "\n");
  }

  Text description() {
    EXPECT_EQ(kvn->SetUIDStr(), u"");
    return mdlKVN::state().SystemInfoStr;
  }

  Variant registry(Text key, Text value) { return kvn->GetRegistryString(key, value); }

  TempDir sys;
  platform::SystemOverride override;
};

TEST_F(SystemTest, DescriptionHoldsSevenFields) {
  EXPECT_EQ(description(),
            u"Testix 3[zorv]5.10[zorv]0-21-amd64[zorv]0.0[zorv]Fixture CPU @ 3.00GHz, 3000 MHz"
            u"[zorv]16.00 GB[zorv]" +
                kNvidia);
  EXPECT_EQ(kvn->GetUIDStr(), mdlKVN::state().SystemInfoStr + u"[zorv]");  // no DirectX key
}

TEST_F(SystemTest, FailedStagesLeaveTheRest) {
  const Text rest = u"[zorv]Fixture CPU @ 3.00GHz, 3000 MHz[zorv]16.00 GB[zorv]" + kNvidia;
  struct Case {
    const char* name;
    std::function<void()> change;
    Text expected;
  } cases[] = {
      {"no os-release", [&] { platform::setOsReleaseFile(sys / "missing"); }, rest},
      {"two-part version", [&] { platform::setKernelReleaseOverride("6.1-rc1"); },
       u"Testix 3" + rest},
      {"no cpuinfo", [&] { std::remove((sys / "proc/cpuinfo").c_str()); },
       u"Testix 3[zorv]5.10[zorv]0-21-amd64[zorv]0.0[zorv],  MHz[zorv]16.00 GB[zorv]" + kNvidia},
      {"memory query fails",
       [&] {
         override.totalMemory.reset();
         platform::overrideSystem(override);
       },
       u"Testix 3[zorv]5.10[zorv]0-21-amd64[zorv]0.0[zorv]Fixture CPU @ 3.00GHz, 3000 MHz[zorv]0 "
       u"Bytes[zorv]" +
           kNvidia},
      {"no display device",
       [&] {
         std::filesystem::remove_all(sys / "sys/bus/pci/devices/0000:00:02.0");
         std::filesystem::remove_all(sys / "sys/bus/pci/devices/0000:00:03.0");
       },
       u"Testix 3[zorv]5.10[zorv]0-21-amd64[zorv]0.0[zorv]Fixture CPU @ 3.00GHz, 3000 MHz[zorv]"
       u"16.00 GB[zorv]" +
           kBasicAdapter},
      {"a release with more points",
       [&] { platform::setKernelReleaseOverride("5.15.0-1051.56-aws"); },
       u"Testix 3[zorv]5.15[zorv]0-1051.56-aws[zorv]0.0" + rest},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TearDown();
    SetUp();
    c.change();
    EXPECT_EQ(description(), c.expected);
  }
}

TEST_F(SystemTest, GpuNameAndIdentifier) {
  EXPECT_EQ(kvn->GetGPUName(), kNvidia);
  writeBytes(sys / "sys/bus/pci/devices/0000:00:03.0/boot_vga", "0\n");
  // The first display device; the identifier's first number loses its leading zero.
  EXPECT_EQ(kvn->GetGPUName(),
            u"Acme Graphics Acme Vision 1\r\nABC0001-FFFF8086-1234-0503000000000000");
  std::remove((sys / "usr/share/misc/pci.ids").c_str());
  EXPECT_EQ(kvn->GetGPUName().substr(0, 19), u"Device 0abc:0001\r\nA");
  std::filesystem::remove_all(sys / "sys/bus/pci/devices");
  EXPECT_EQ(kvn->GetGPUName(), kBasicAdapter);
}

// Whole machines as trees of /proc and /sys: what each one's description says.
struct Machine {
  const char* name;
  const char* kernel;
  uint64_t memory;
  std::vector<std::pair<std::string, std::string>> files;  // path below the root, content
  const char16_t* expected;
};

const char* kDebian = "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nID=debian\n";

const Machine kMachines[] = {
    {"x86 desktop",
     "6.1.0-18-amd64",
     16ull << 30,
     {{"etc/os-release", kDebian},
      {"proc/cpuinfo",
       "processor\t: 0\nvendor_id\t: GenuineIntel\nmodel name\t: Intel(R) Core(TM) i5-8400 CPU @ "
       "2.80GHz\ncpu MHz\t\t: 800.021\n\nprocessor\t: 1\nvendor_id\t: GenuineIntel\n"
       "model name\t: Intel(R) Core(TM) i5-8400 CPU @ 2.80GHz\ncpu MHz\t\t: 3900.4\n\n"},
      {"sys/bus/pci/devices/0000:00:00.0/class", "0x060000\n"},
      {"sys/bus/pci/devices/0000:00:02.0/class", "0x030000\n"},
      {"sys/bus/pci/devices/0000:00:02.0/vendor", "0x8086\n"},
      {"sys/bus/pci/devices/0000:00:02.0/device", "0x3e92\n"},
      {"sys/bus/pci/devices/0000:00:02.0/boot_vga", "1\n"}},
     u"Debian GNU/Linux 12 (bookworm)[zorv]6.1[zorv]0-18-amd64[zorv]0.0[zorv]Intel(R) Core(TM) "
     u"i5-8400 CPU @ 2.80GHz, 800 MHz[zorv]16.00 GB[zorv]Device 8086:3e92\r\n"
     u"80863E92-00-00-0003000000000000"},
    {"x86 headless VM",
     "6.18.44-fc-v657",
     4ull << 30,
     {{"etc/os-release", kDebian},
      {"proc/cpuinfo",
       "processor\t: 0\nvendor_id\t: AuthenticAMD\nmodel name\t: AMD EPYC 7B13\n"
       "cpu MHz\t\t: 2449.998\n\n"},
      {"sys/bus/pci/devices/0000:00:00.0/class", "0x060000\n"},
      {"sys/bus/pci/devices/0000:00:01.0/class", "0x010000\n"}},
     u"Debian GNU/Linux 12 (bookworm)[zorv]6.18[zorv]44-fc-v657[zorv]0.0[zorv]AMD EPYC 7B13, 2450 "
     u"MHz[zorv]4.00 GB[zorv]Basic Display Adapter\r\n00-00-00-0003000000000000"},
    {"aarch64 board",
     "6.6.20+rpt-rpi-v8",
     (8ull << 30) - (300ull << 20),
     {{"etc/os-release", kDebian},
      {"proc/cpuinfo",
       "processor\t: 0\nBogoMIPS\t: 108.00\nFeatures\t: fp asimd evtstrm crc32 cpuid\n"
       "CPU implementer\t: 0x41\nCPU architecture: 8\nCPU variant\t: 0x0\nCPU part\t: 0xd08\n"
       "CPU revision\t: 3\n\nprocessor\t: 1\nCPU implementer\t: 0x51\nCPU part\t: 0x803\n\n"
       "Hardware\t: BCM2835\nRevision\t: c03114\nModel\t\t: Raspberry Pi 4 Model B Rev 1.4\n"},
      {"sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", "1800000\n"}},
     u"Debian GNU/Linux 12 (bookworm)[zorv]6.6[zorv]20+rpt-rpi-v8[zorv]0.0[zorv]ARM Cortex-A72, "
     u"1800 MHz[zorv]7.71 GB[zorv]Basic Display Adapter\r\n00-00-00-0003000000000000"},
};

TEST_F(SystemTest, RealMachineTrees) {
  for (const Machine& m : kMachines) {
    SCOPED_TRACE(m.name);
    TempDir tree;
    for (const auto& [path, content] : m.files) {
      std::filesystem::create_directories(std::filesystem::path(tree / path).parent_path());
      writeBytes(tree / path, content);
    }
    platform::setOsReleaseFile(tree / "etc/os-release");
    platform::setKernelReleaseOverride(m.kernel);
    platform::overrideSystem(platform::SystemOverride{tree.path(), m.memory});
    EXPECT_EQ(toUtf8(description()), toUtf8(m.expected));
  }
}

TEST_F(SystemTest, ProcessorsOfOtherArchitectures) {
  const Text key = u"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\";
  struct Case {
    const char* cpuinfo;
    int cpu;
    const char16_t* name;
    const char16_t* mhz;
  } cases[] = {
      // The second Arm core of a big.LITTLE pair, an unknown part, and the board's lines after
      // the last block, which name no processor.
      {"processor\t: 0\nCPU implementer\t: 0x41\nCPU part\t: 0xd05\n\nprocessor\t: 1\n"
       "CPU implementer\t: 0x41\nCPU part\t: 0xd0b\n\nHardware\t: Board\n",
       1, u"ARM Cortex-A76", u"2400"},
      {"processor\t: 0\nCPU implementer\t: 0x51\nCPU part\t: 0x803\n", 0, u"Qualcomm part 0x803",
       u"1500"},
      {"processor\t: 0\nCPU implementer\t: 0x99\nCPU part\t: 0x1\n", 0,
       u"CPU implementer 0x99 part 0x001", u"1500"},
      {"Processor\t: AArch64 Processor rev 4 (aarch64)\nprocessor\t: 0\nFeatures\t: fp\n", 0,
       u"AArch64 Processor rev 4 (aarch64)", u"1500"},
      {"processor\t: 0\ncpu\t\t: POWER9 (architected), altivec supported\n"
       "clock\t\t: 2200.000000MHz\n",
       0, u"POWER9 (architected), altivec supported", u"2200"},
      {"processor\t: 0\nhart\t\t: 0\nisa\t\t: rv64imafdc\nuarch\t\t: sifive,u74-mc\n", 0,
       u"sifive,u74-mc", u"1500"},
  };
  makeDir(sys / "sys/devices/system/cpu/cpu0/cpufreq");
  makeDir(sys / "sys/devices/system/cpu/cpu1/cpufreq");
  writeBytes(sys / "sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq", "1500000\n");
  writeBytes(sys / "sys/devices/system/cpu/cpu1/cpufreq/cpuinfo_max_freq", "2400000\n");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.cpuinfo);
    writeBytes(sys / "proc/cpuinfo", c.cpuinfo);
    Text k = key + decimal(c.cpu);
    EXPECT_EQ(registry(k, u"ProcessorNameString"), Variant(Text(c.name)));
    EXPECT_EQ(registry(k, u"~MHz"), Variant(Text(c.mhz)));
  }
}

TEST_F(SystemTest, DescriptionIsMadeWhenFirstAskedFor) {
  mdlKVN::state() = mdlKVN::State{};
  clsKVN fresh;
  EXPECT_EQ(mdlKVN::state().SystemInfoStr, u"") << "start-up queries nothing";
  Text uid = fresh.GetUIDStr();
  EXPECT_TRUE(uid.starts_with(u"Testix 3[zorv]5.10[zorv]")) << toUtf8(uid);
  writeBytes(sys / "proc/cpuinfo", "processor\t: 0\nmodel name\t: Changed\n");
  EXPECT_EQ(fresh.GetUIDStr(), uid) << "made once, then kept";
  fresh.Unload();
}

TEST(PciDatabase, NamesAsListed) {
  struct Case {
    uint16_t vendor, device;
    const char* name;
  } cases[] = {
      {0x10de, 0x2204, "NVIDIA Corporation GA102 [GeForce RTX 3090]"},
      {0x10de, 0x2206, "NVIDIA Corporation Other"},
      {0x10de, 0x87b5, "NVIDIA Corporation Device 87b5"},  // a subsystem line is no device
      {0x0abc, 0x0002, "Acme Graphics Device 0002"},
      {0x0003, 0x0000, "Device 0003:0000"},  // class lines are no vendors
  };
  for (const auto& c : cases)
    EXPECT_EQ(platform::pciDeviceName(kPciIds, c.vendor, c.device), c.name);
}

TEST_F(SystemTest, RegistryValues) {
  const Text cpu0 = u"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0";
  const Text cpu1 = u"hardware\\description\\system\\centralprocessor\\1";
  struct Case {
    Text key, value;
    std::optional<Text> expected;  // nullopt: the empty Variant
  } cases[] = {
      {cpu0, u"ProcessorNameString", u"Fixture CPU @ 3.00GHz"},
      {cpu0, u"~MHz", u"3000"},
      {cpu0, u"VendorIdentifier", u"FixtureVendor"},
      {cpu1, u"processornamestring", u"Second \u00e9 CPU"},
      {cpu1, u"~MHz", u"-1"},  // 4294967295 as a signed 32-bit number
      {cpu1, u"VendorIdentifier", std::nullopt},
      {u"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\2", u"~MHz", std::nullopt},
      {u"SOFTWARE\\Microsoft\\DirectX", u"Version", std::nullopt},
      {u"", u"", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(toUtf8(c.key + u" " + c.value));
    Text key = c.key, value = c.value;
    Variant v = kvn->GetRegistryString(key, value);
    if (c.expected) {
      EXPECT_EQ(v, Variant(*c.expected));
    } else {
      EXPECT_TRUE(v.isEmpty());
    }
    EXPECT_EQ(key, c.key);
    EXPECT_EQ(value, c.value);
  }
}

TEST(FormatByteSize, Thresholds) {
  struct Case {
    Variant size;
    const char16_t* text;
  } cases[] = {
      {Variant(0.0), u"0 Bytes"},
      {Variant(1023.9), u"1023 Bytes"},
      {Variant(int32_t(1024)), u"1.00 KB"},
      {Variant(1152.0), u"1.13 KB"},  // 1.125: half away from zero
      {Variant(1048575.0), u"1024.00 KB"},
      {Variant(int32_t(1048576)), u"1.00 MB"},
      {Variant(1572864.0), u"1.50 MB"},
      {Variant(Text(u"1073741824")), u"1.00 GB"},
      {Variant(Text(u"17179869184")), u"16.00 GB"},
      {Variant(Text(u"1099511627776")), u"1024.00 GB"},
      {Variant(Text(u"")), u"0 Bytes"},
      {Variant(Text(u"lots")), u"0 Bytes"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(toUtf8(c.text));
    EXPECT_EQ(diagnostics::FormatByteSize(c.size), c.text);
  }
}

TEST(FormatByteSize, TwoDecimalsRoundOnTheDecimalForm) {
  struct Case {
    double value;
    const char* text;
  } cases[] = {
      {0, "0.00"},
      {0.004, "0.00"},
      {0.005, "0.01"},
      {1.005, "1.01"},
      {2.675, "2.68"},
      {9.995, "10.00"},
      {99.999, "100.00"},
      {123456.789, "123456.79"},
      {1e15 + 0.125, "1000000000000000.00"},  // beyond 15 digits
  };
  for (const auto& c : cases)
    EXPECT_EQ(toUtf8(diagnostics::formatTwoDecimals(c.value)), c.text);
}

// Sets environment variables for its lifetime (nullptr: unset) and restores them after.
class EnvironmentScope {
 public:
  EnvironmentScope(std::initializer_list<std::pair<const char*, const char*>> values) {
    for (const auto& [name, value] : values) {
      const char* old = std::getenv(name);
      saved_.push_back({name, old ? std::optional<std::string>(old) : std::nullopt});
      value ? ::setenv(name, value, 1) : ::unsetenv(name);
    }
  }
  ~EnvironmentScope() {
    for (const auto& [name, old] : saved_)
      old ? ::setenv(name.c_str(), old->c_str(), 1) : ::unsetenv(name.c_str());
  }

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST(FormatByteSize, DecimalMarkFollowsTheNumericLocale) {
  TempDir locales;
  std::string make =
      "localedef -i de_DE -f UTF-8 '" + (locales / "de_DE.UTF-8") + "' >/dev/null 2>&1";
  if (std::system(make.c_str()) != 0) GTEST_SKIP() << "localedef cannot make de_DE.UTF-8 here";
  struct Case {
    const char* numeric;
    const char* lang;
    const char16_t* text;
  } cases[] = {
      {"de_DE.UTF-8", nullptr, u"1,50 MB"},
      {nullptr, "de_DE.UTF-8", u"1,50 MB"},  // LANG stands in for an unset LC_NUMERIC
      {"C", "de_DE.UTF-8", u"1.50 MB"},
      {"xx_NOWHERE.UTF-8", nullptr, u"1.50 MB"},  // a locale that can't be loaded
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.numeric ? c.numeric : "-") + " " + (c.lang ? c.lang : "-"));
    EnvironmentScope env{{"LOCPATH", locales.path().c_str()},
                         {"LC_ALL", nullptr},
                         {"LC_NUMERIC", c.numeric},
                         {"LANG", c.lang}};
    EXPECT_EQ(diagnostics::FormatByteSize(Variant(1572864.0)), c.text);
  }
}

TEST(TickCount, CountsFromBootWithSuspendedTimeIncluded) {
  // /proc/uptime counts from boot with the time the machine was suspended, as ticks must.
  std::ifstream in("/proc/uptime");
  double seconds = 0;
  ASSERT_TRUE(in >> seconds);
  uint32_t ticks = platform::tickCount();
  uint32_t uptime = uint32_t(uint64_t(seconds * 1000));
  int64_t drift = int32_t(ticks - uptime);  // the tick count wraps at 2^32
  EXPECT_LT(std::llabs(drift), 2000) << ticks << " ticks, " << uptime << " ms since boot";
}

TEST(LargeToCount, LittleEndianUnsigned) {
  EXPECT_EQ(diagnostics::LargeToCount({0, 0, 0, 0, 4, 0, 0, 0}), 17179869184ull);
  EXPECT_EQ(diagnostics::LargeToCount({0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x81}),
            0x8102030405060708ull);
}

}  // namespace
}  // namespace zrk::test
