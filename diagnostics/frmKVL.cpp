// The report form: reads a completed answer when its control says so.
#include "diagnostics/frmKVL.h"

#include <memory>

#include "core/mdlKVN.h"

namespace zrk::diagnostics {

frmKVL::frmKVL() {
  inetKVL.StateChanged = [this](int16_t state) { inetKVL_StateChanged(state); };
}

void frmKVL::inetKVL_StateChanged(int16_t State) {
  if (State != platform::WebTransfer::icResponseCompleted) return;
  Text answer;
  for (Text chunk; !(chunk = inetKVL.GetChunk(100, platform::WebTransfer::icString)).empty();) {
    answer += chunk;
  }
  ResponseRecieved = true;
  ResponseResult = answer;
}

frmKVL& KVL() {
  mdlKVN::State& s = mdlKVN::state();
  if (!s.KVL) s.KVL = std::make_shared<frmKVL>();
  return *s.KVL;
}

FormHold::FormHold() {
  frmKVL& shared = KVL();
  form_ = shared.held ? std::make_shared<frmKVL>() : mdlKVN::state().KVL;
  form_->held = true;
}

FormHold::~FormHold() {
  form_->held = false;
}

}  // namespace zrk::diagnostics
