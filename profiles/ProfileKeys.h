// The keys of a saved profile, in the order they are written, and where each value comes from.
#pragma once

#include <zrkKVL/Variant.h>

namespace zrk {

// The upload key has no control of its own: its value is the joined URL list.
struct ProfileKey {
  const char16_t* key;
  const char16_t* control;
  const char16_t* property;
};

inline constexpr ProfileKey kProfileKeys[] = {
    {u"path", u"txtPath", u"Text"},         {u"upload", nullptr, nullptr},
    {u"game", u"cboGames", u"ToolTipText"}, {u"host", u"txtSrHost", u"Text"},
    {u"nll", u"cboLL", u"ListIndex"},       {u"acs", u"chkAcs", u"Value"},
    {u"ara", u"chkAra", u"Value"},          {u"rbm", u"chkRbm", u"Value"},
    {u"asp", u"chkAntiStatsPad", u"Value"}, {u"apt", u"txtPadtime", u"Text"},
    {u"apn", u"txtPadnum", u"Text"},        {u"sss", u"cboStats", u"Text"},
    {u"port", u"txtGamePort", u"Text"},
};

// The items of lstUrls joined with "|", or a single space for an empty list.
Text uploadUrls(Dispatch& form);

// The value the key takes from the form; `urls` is the joined list.
Text profileValue(Dispatch& form, const ProfileKey& key, const Text& urls);

}  // namespace zrk
