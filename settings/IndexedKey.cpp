// Splitting one raw "key=value" line, with the two indexed forms whose key ends in [1] or [2].
#include <vector>

#include <zrkKVL/clsKVN.h>
#include "core/CallTable.h"
#include "core/MethodFrame.h"

namespace zrk {
namespace {

struct IndexedForm {
  TextView marker;     // chooses the form
  TextView separator;  // splits the line
  TextView index;      // put back at the end of the key
};

constexpr IndexedForm kIndexedForms[] = {
    {u"[1]=20", u"[1]=", u"[1]"},
    {u"[2]=20", u"[2]=", u"[2]"},
};

// The line's parts: key, value, and whatever further splits the form leaves behind.
std::vector<Text> parseKeyLine(TextView line) {
  for (const IndexedForm& form : kIndexedForms) {
    if (line.find(form.marker) == TextView::npos) continue;
    std::vector<Text> parts = split(line, form.separator);
    parts[0] += form.index;
    return parts;
  }
  // The plain form: a value that held "=" is joined back into element 1; the pieces stay.
  std::vector<Text> parts = split(line, u"=");
  for (size_t i = 2; i < parts.size(); ++i)
    parts[1] += u"=" + parts[i];
  return parts;
}

}  // namespace

Variant clsKVN::ParseIniKey(Text iKey, std::optional<bool> ReturnKey) {
  Variant result;
  MethodFrame frame(u"ParseIniKey");
  frame.run([&] {
    frame.line(1);
    std::vector<Text> parsed = parseKeyLine(iKey);
    frame.line(4);
    if (ReturnKey.value_or(false)) {
      result = Variant::textArray(std::move(parsed));
    } else {
      if (parsed.size() < 2) throw Failure(err::SubscriptOutOfRange);
      result = Variant(parsed[1]);
    }
  });
  return result;
}

static const CallRegistrar kIndexedKeyCalls{
    {u"ParseIniKey", calls::method<&clsKVN::ParseIniKey>},
};

}  // namespace zrk
