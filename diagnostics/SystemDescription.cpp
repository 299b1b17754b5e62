// The machine's description kept for error logs and reports, and the registry and adapter
// readers it is built from.
#include "diagnostics/SystemDescription.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "core/mdlKVN.h"
#include "platform/system/Registry.h"
#include "platform/system/SystemInfo.h"
#include "platform/system/SystemQuery.h"
#include "platform/text/CodePage.h"
#include "profiles/Base64.h"

namespace zrk {
namespace diagnostics {
namespace {

// The build: the version's third part and, where a kernel release has more parts
// ("5.15.0-1051.56-aws"), the rest with its points, so that the release is kept whole.
Text buildText(const std::vector<Text>& versionParts) {
  Text build = versionParts.at(2);
  for (size_t i = 3; i < versionParts.size(); ++i)
    build += u"." + versionParts[i];
  return build;
}

// Steps 1 to 4 of the description: product name, version, build, service pack.
Text operatingSystemText() {
  Text os;
  std::optional<platform::OperatingSystemRecord> record;
  stepOver([&] { record = platform::queryOperatingSystem(); });
  if (!record) return os;
  const platform::OperatingSystemRecord& r = *record;
  stepOver([&] { os = trimBlanks(split(r.Name, u"|").at(0)); });
  stepOver([&] {
    std::vector<Text> v = split(r.Version, u".");
    Text d(kFieldDelimiter);
    os = Text(os) + d + v.at(0) + u"." + v.at(1) + d + buildText(v) + d +
         decimal(r.ServicePackMajorVersion) + u"." + decimal(r.ServicePackMinorVersion);
  });
  return os;
}

}  // namespace

Text formatTwoDecimals(double value) {
  // 15 significant digits, then decimal rounding at the second place.
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.14e", std::fabs(value));
  std::string digits = std::string(1, buf[0]) + std::string(buf + 2, buf + 16);  // d.ddd..
  int exponent = std::atoi(buf + 17);
  // Scale to hundredths: the integer part of value*100 is the first (exponent + 3) digits.
  int keep = exponent + 3;
  std::string hundredths;
  if (keep > 0) {
    hundredths = keep <= int(digits.size())
                     ? digits.substr(0, size_t(keep))
                     : digits + std::string(size_t(keep) - digits.size(), '0');
  }
  bool roundUp = keep >= 0 && keep < int(digits.size()) && digits[size_t(keep)] >= '5';
  if (hundredths.empty()) hundredths = "0";
  if (roundUp) {
    int i = int(hundredths.size()) - 1;
    for (; i >= 0 && hundredths[size_t(i)] == '9'; --i)
      hundredths[size_t(i)] = '0';
    if (i < 0) {
      hundredths.insert(hundredths.begin(), '1');
    } else {
      ++hundredths[size_t(i)];
    }
  }
  while (hundredths.size() < 3)
    hundredths.insert(hundredths.begin(), '0');
  bool zero = hundredths.find_first_not_of('0') == std::string::npos;
  std::string whole = (value < 0 && !zero ? "-" : "") + hundredths.substr(0, hundredths.size() - 2);
  return ascii(whole) + platform::decimalMark() + ascii(hundredths.substr(hundredths.size() - 2));
}

Text FormatByteSize(const Variant& size) {
  double n;
  if (!trapSilently([&] { n = size.toDouble(); })) return u"0 Bytes";
  if (n >= 1073741824.0) return formatTwoDecimals(n / 1024 / 1024 / 1024) + u" GB";
  if (n >= 1048576.0) return formatTwoDecimals(n / 1024 / 1024) + u" MB";
  if (n >= 1024.0) return formatTwoDecimals(n / 1024) + u" KB";
  double whole = std::trunc(n);
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.0f", whole == 0 ? 0.0 : whole);
  return ascii(buf) + u" Bytes";
}

uint64_t LargeToCount(const std::array<uint8_t, 8>& raw) {
  uint64_t count = 0;
  for (int i = 7; i >= 0; --i)
    count = count << 8 | raw[size_t(i)];
  return count;
}

}  // namespace diagnostics

Text clsKVN::SetUIDStr() {
  Text result;
  mdlKVN::state().systemInfoDue = false;
  Text text = diagnostics::operatingSystemText();
  Text processor;
  stepOver([&] {
    Text key = u"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0";
    Text name = u"ProcessorNameString", mhz = u"~MHz";
    processor = GetRegistryString(key, name).toText() + u", " +
                GetRegistryString(key, mhz).toText() + u" MHz";
  });
  std::array<uint8_t, 8> memory{};
  stepOver([&] {
    if (auto raw = platform::totalPhysicalMemory()) memory = *raw;
  });
  stepOver([&] {
    Text d(diagnostics::kFieldDelimiter);
    Text memoryText = diagnostics::FormatByteSize(
        Variant(ascii(std::to_string(diagnostics::LargeToCount(memory)))));
    text = text + d + processor + d + memoryText + d + GetGPUName();
  });
  mdlKVN::state().SystemInfoStr = text;
  return result;
}

Text clsKVN::GetUIDStr() {
  return noTrap([&] {
    // The description is made when it is first asked for, not at start-up.
    if (mdlKVN::state().systemInfoDue) SetUIDStr();
    Text key = u"SOFTWARE\\Microsoft\\DirectX", name = u"Version";
    return mdlKVN::state().SystemInfoStr + Text(diagnostics::kFieldDelimiter) +
           GetRegistryString(key, name).toText();
  });
}

Variant clsKVN::GetRegistryString(Text& KeyPath, Text& KeyVal) {
  Variant result;
  platform::HKEY key = 0;
  std::string name = platform::toAnsi(KeyVal);
  stepOver([&] {
    platform::RegOpenKeyA(platform::HKEY_LOCAL_MACHINE, platform::toAnsi(KeyPath), &key);
  });
  if (key == 0) return result;
  uint32_t type = 0, size = 0;
  int32_t status = -1;
  stepOver([&] { status = platform::RegQueryValueExA(key, name, &type, nullptr, &size); });
  if (status == platform::ERROR_SUCCESS && type == platform::REG_SZ) {
    stepOver([&] {
      std::string buf(size, '\0');
      if (platform::RegQueryValueExA(key, name, nullptr, reinterpret_cast<uint8_t*>(buf.data()),
                                     &size) != platform::ERROR_SUCCESS) {
        return;
      }
      size_t nul = buf.find('\0');
      if (nul == std::string::npos) throw Failure(err::InvalidCall);  // no terminating NUL
      result = Variant(platform::fromAnsi(std::string_view(buf).substr(0, nul)));
    });
  } else if (status == platform::ERROR_SUCCESS && type == platform::REG_DWORD) {
    stepOver([&] {
      uint8_t bytes[4] = {};
      uint32_t four = 4;
      if (platform::RegQueryValueExA(key, name, nullptr, bytes, &four) != platform::ERROR_SUCCESS) {
        return;
      }
      uint32_t v = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
                   uint32_t(bytes[3]) << 24;
      result = Variant(decimal(int32_t(v)));
    });
  }
  stepOver([&] { platform::RegCloseKey(key); });
  return result;
}

Text clsKVN::GetGPUName() {
  return noTrap([&] {
    platform::AdapterIdentifier id = platform::defaultAdapterIdentifier();
    Text description;
    for (uint8_t b : id.Description) {
      if (b != 0) description += platform::fromAnsiByte(b);
    }
    const platform::Guid& g = id.DeviceIdentifier;
    // The two middle numbers widen as signed 16-bit values.
    Text identifier = TwoDigitHex(int32_t(g.Data1)) + u"-" + TwoDigitHex(int16_t(g.Data2)) + u"-" +
                      TwoDigitHex(int16_t(g.Data3)) + u"-";
    for (uint8_t b : g.Data4)
      identifier += TwoDigitHex(b);
    return description + u"\r\n" + identifier;
  });
}

static const CallRegistrar kDescriptionCalls{
    {u"SetUIDStr", calls::method<&clsKVN::SetUIDStr>},
    {u"GetUIDStr", calls::method<&clsKVN::GetUIDStr>},
    {u"GetRegistryString", calls::method<&clsKVN::GetRegistryString>},
    {u"GetGPUName", calls::method<&clsKVN::GetGPUName>},
};

}  // namespace zrk
