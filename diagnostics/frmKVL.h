// The hidden form that holds the report's web-transfer control and the last answer it read.
#pragma once

#include <zrkKVL/Text.h>
#include "platform/WebTransfer.h"

namespace zrk::diagnostics {

class frmKVL {
 public:
  frmKVL();
  frmKVL(const frmKVL&) = delete;
  frmKVL& operator=(const frmKVL&) = delete;

  platform::WebTransfer inetKVL;
  // True once the answer of the present exchange has been read.
  bool ResponseRecieved = false;
  // The whole text of the last answer read completely.
  Text ResponseResult;

  // The control's state changes: a completed response is read in parts of at most 100.
  void inetKVL_StateChanged(int16_t State);
};

// This thread's one instance, made at first use.
frmKVL& KVL();

}  // namespace zrk::diagnostics
