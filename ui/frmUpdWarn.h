// The update warning form, loaded hidden at start-up.
#pragma once

namespace zrk::ui {

class frmUpdWarn {
 public:
  // The form's load step.
  void Load() {}
};

}  // namespace zrk::ui
