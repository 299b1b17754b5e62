// Late-bound form access, and the map-backed form.
#include <zrkKVL/FormObject.h>

#include <zrkKVL/Failure.h>

namespace zrk {
namespace {

constexpr int32_t kInvalidArrayIndex = 381;

Text folded(TextView name) {
  Text k(name);
  for (char16_t& c : k) {
    if (c >= u'a' && c <= u'z') c -= 32;
  }
  return k;
}

}  // namespace

Variant formGet(Dispatch& form, TextView control, TextView property, std::vector<Variant> args) {
  std::vector<Variant> none;
  Variant c = form.invoke(control, Dispatch::CallKind::Get, none);
  return c.object().invoke(property, Dispatch::CallKind::Get, args);
}

void formLet(Dispatch& form, TextView control, TextView property, Variant value) {
  std::vector<Variant> none;
  Variant c = form.invoke(control, Dispatch::CallKind::Get, none);
  std::vector<Variant> args{std::move(value)};
  c.object().invoke(property, Dispatch::CallKind::Let, args);
}

void FormControl::set(TextView property, Variant value) {
  properties_[folded(property)] = std::move(value);
}

void FormControl::setList(std::vector<Text> items) {
  list_ = std::move(items);
}

Variant FormControl::invoke(TextView name, CallKind kind, std::vector<Variant>& args) {
  Text key = folded(name);
  if (list_ && key == u"LISTCOUNT" && args.empty()) return Variant(int32_t(list_->size()));
  if (list_ && key == u"LIST" && args.size() == 1) {
    int32_t i = args[0].toLong();
    if (i < 0 || size_t(i) >= list_->size()) {
      throw Failure(kInvalidArrayIndex, u"Invalid property array index");
    }
    return Variant((*list_)[size_t(i)]);
  }
  if (kind == CallKind::Let) {
    if (args.size() != 1) throw Failure(err::WrongArgumentCount);
    properties_[key] = args[0];
    return Variant();
  }
  auto it = properties_.find(key);
  if (it == properties_.end() || !args.empty()) throw Failure(err::NoSuchMember);
  return it->second;
}

FormControl& FormObject::control(TextView name) {
  auto& c = controls_[folded(name)];
  if (!c) c = std::make_shared<FormControl>();
  return *c;
}

FormObject& FormObject::set(TextView control, TextView property, Variant value) {
  this->control(control).set(property, std::move(value));
  return *this;
}

Variant FormObject::invoke(TextView name, CallKind kind, std::vector<Variant>& args) {
  auto it = controls_.find(folded(name));
  if (it == controls_.end() || kind == CallKind::Let || !args.empty()) {
    throw Failure(err::NoSuchMember);
  }
  return Variant(std::shared_ptr<Dispatch>(it->second));
}

}  // namespace zrk
