// The hidden form that holds the report's web-transfer control and the last answer it read.
#pragma once

#include <memory>

#include <zrkKVL/Text.h>
#include "platform/net/WebTransfer.h"

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

  // Whether a report's exchange is under way on this form.
  bool held = false;
};

// This thread's one instance, made at first use.
frmKVL& KVL();

// The form one report uses, held from its request to its result: this thread's one instance,
// unless that one already carries an exchange (a report sent from the host's events while another
// report's answer is awaited). Such a report gets a form of its own, dropped with the hold, since
// the control carries one exchange at a time.
class FormHold {
 public:
  FormHold();
  ~FormHold();
  FormHold(const FormHold&) = delete;
  FormHold& operator=(const FormHold&) = delete;
  frmKVL& form() { return *form_; }

 private:
  std::shared_ptr<frmKVL> form_;
};

}  // namespace zrk::diagnostics
