// Forms reached by control and property names at run time, and a plain map-backed form for
// hosts, tests and the tool.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <zrkKVL/Export.h>
#include <zrkKVL/Variant.h>

namespace zrk {

// control.property of any late-bound form, read or written by name; a form or control that does
// not answer to the name fails with 438.
ZRK_API Variant formGet(Dispatch& form, TextView control, TextView property,
                        std::vector<Variant> args = {});
ZRK_API void formLet(Dispatch& form, TextView control, TextView property, Variant value);

// A control: named properties, and for list controls the items behind List(i) and ListCount.
class ZRK_API FormControl : public Dispatch {
 public:
  void set(TextView property, Variant value);
  // Makes this a list control holding `items`.
  void setList(std::vector<Text> items);
  Variant invoke(TextView name, CallKind kind, std::vector<Variant>& args) override;

 private:
  std::map<Text, Variant> properties_;  // by upper-case name
  std::optional<std::vector<Text>> list_;
};

// A form of named controls; names compare without regard to case.
class ZRK_API FormObject : public Dispatch {
 public:
  // The control of that name, made empty when missing.
  FormControl& control(TextView name);
  FormObject& set(TextView control, TextView property, Variant value);
  // Reading a control's name gives the control as an object.
  Variant invoke(TextView name, CallKind kind, std::vector<Variant>& args) override;

 private:
  std::map<Text, std::shared_ptr<FormControl>> controls_;  // by upper-case name
};

}  // namespace zrk
