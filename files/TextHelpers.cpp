// Text helpers: the growing buffer under its two names, array look-up, URL decoding.
#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"
#include "files/TextOps.h"
#include "platform/text/CodePage.h"

namespace zrk {

void clsKVN::BuildString(Text& rBuf, int32_t& rLen, Text& rAdd) {
  noTrap([&] { files::appendToBuffer(rBuf, rLen, rAdd); });
}

void clsKVN::ConcatStr(Text& sBuf, int32_t& sLen, Text& sAdd) {
  noTrap([&] { files::appendToBuffer(sBuf, sLen, sAdd); });
}

bool clsKVN::IsInArray(Variant FindValue, Variant arrSearch) {
  return noTrap([&] {
    if (!arrSearch.isArray()) return false;
    // One search over the joined elements, each fenced by NUL, finds whole elements only.
    const VariantArray& items = arrSearch.array();
    Text joined(1, u'\0');
    for (const Variant& item : items.items) {
      joined += item.toText();
      joined += u'\0';
    }
    if (items.items.empty()) joined += u'\0';
    Text needle = Text(1, u'\0') + FindValue.toText() + Text(1, u'\0');
    return joined.find(needle) != Text::npos;
  });
}

Text clsKVN::URLDecode(Text txt) {
  Text result;
  MethodFrame frame(u"URLDecode");
  frame.run([&] {
    frame.line(1);
    Text out;
    out.reserve(txt.size());
    for (size_t i = 0; i < txt.size(); ++i) {
      char16_t c = txt[i];
      if (c == u'+') {
        out += u' ';
      } else if (c != u'%' || txt.size() - i - 1 < 2) {
        out += c;
      } else {
        frame.line(2);
        int32_t code = files::numberFromText(u"&H" + txt.substr(i + 1, 2));
        out += platform::fromAnsiByte(static_cast<unsigned char>(code));
        i += 2;
        frame.line(1);
      }
    }
    result = std::move(out);
  });
  return result;
}

static const CallRegistrar kTextHelperCalls{
    {u"BuildString", calls::method<&clsKVN::BuildString>},
    {u"ConcatStr", calls::method<&clsKVN::ConcatStr>},
    {u"IsInArray", calls::method<&clsKVN::IsInArray>},
    {u"URLDecode", calls::method<&clsKVN::URLDecode>},
};

}  // namespace zrk
