// Address checks on the form of the text alone: numeric IPv4 addresses and http:// addresses.
#include <vector>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "files/TextOps.h"

namespace zrk {
namespace {

constexpr TextView kStrayScheme = u"http://.", kScheme = u"http://";

Text removeSchemes(TextView s) {
  return replaceAll(replaceAll(s, kStrayScheme, u""), kScheme, u"");
}

// Element `index` of a split; failure 9 when the split has none there.
const Text& element(const std::vector<Text>& parts, size_t index) {
  if (index >= parts.size()) throw Failure(err::SubscriptOutOfRange);
  return parts[index];
}

bool isAddressPart(TextView part) {
  return isNumericText(part) && part.size() >= 1 && part.size() <= 3;
}

// The scheme written in another case: the first 8 characters when the eighth is the stray
// point, else the first 7, removed wherever they occur.
Text removeOtherCaseScheme(const Text& s) {
  if (lowerCase(s).find(kScheme) == Text::npos) return s;
  size_t take = (s.size() >= 8 && s[7] == u'.') ? 8 : 7;
  return replaceAll(s, TextView(s).substr(0, take), u"");
}

// The labels joined with points; empty labels in front vanish, later ones stay.
Text joinLabels(const std::vector<Text>& labels) {
  Text host;
  for (const Text& label : labels) {
    if (!host.empty()) host += u'.';
    host += label;
  }
  return host;
}

}  // namespace

bool clsKVN::isIpAdd(Text ipString) {
  bool result = false;
  trapSilently([&] {
    Text s = removeSchemes(lowerCase(trimBlanks(ipString)));
    Text host = element(split(s, u"/"), 0);
    std::vector<Text> parts = split(host, u".");
    if (parts.size() != 4) return;
    for (const Text& part : parts) {
      if (!isAddressPart(part)) return;
    }
    result = true;
  });
  return result;
}

Text clsKVN::validateUrl(Text url) {
  Text result;
  MethodFrame frame(u"validateUrl");
  frame.run([&] {
    frame.line(1);
    if (isIpAdd(url)) {
      result = url;
      return;
    }
    frame.line(2);
    Text s = removeSchemes(url);
    frame.line(3);
    s = removeOtherCaseScheme(s);
    frame.line(4);
    if (s.empty()) return;
    frame.line(5);
    std::vector<Text> parts = split(s, u"/");
    if (lowerCase(element(parts, 0)) == u"localhost") {
      result = Text(kScheme) + s;
      return;
    }
    frame.line(6);
    Text tail;
    for (size_t i = 1; i < parts.size(); ++i)
      tail += u"/" + parts[i];
    frame.line(7);
    Text host = lowerCase(element(parts, 0));
    frame.line(8);
    bool www = host.find(u"www.") != Text::npos;
    frame.line(9);
    std::vector<Text> labels = split(host, u".");
    if (labels.size() == 1) return;
    frame.line(10);
    if (element(labels, www ? 2 : 1).size() < 2) return;
    frame.line(11);
    result = Text(kScheme) + joinLabels(labels) + tail;
  });
  return result;
}

static const CallRegistrar kAddressCalls{
    {u"isIpAdd", calls::method<&clsKVN::isIpAdd>},
    {u"validateUrl", calls::method<&clsKVN::validateUrl>},
};

}  // namespace zrk
