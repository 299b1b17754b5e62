// The method frame: the four ways a public method meets a failure in its body.
#pragma once

#include <cstdint>
#include <utility>

#include <zrkKVL/Failure.h>
#include "core/mdlKVN.h"

namespace zrk {

// Trap and report. The body runs; a failure stops it, the optional `adjust` may change the
// failure's words, and HandleFailure reports it with the method's text and the line that was
// running. The method then returns whatever its result held.
class MethodFrame {
 public:
  explicit MethodFrame(Text text) : text_(std::move(text)) {}

  // Marks the step of the algorithm now running; a failure reports this line.
  void line(int32_t n) { line_ = n; }
  int32_t line() const { return line_; }

  template <class Body>
  void run(Body&& body) {
    run(std::forward<Body>(body), [](FailureInfo&) {});
  }

  template <class Body, class Adjust>
  void run(Body&& body, Adjust&& adjust) {
    FailureInfo info;
    try {
      body();
      return;
    } catch (...) {
      info = infoFromCurrentException();
    }
    if (info.Number == 0) return;
    adjust(info);
    mdlKVN::HandleFailure(text_, std::move(info), line_);
  }

 private:
  Text text_;
  int32_t line_ = 0;
};

// Trap and stay silent: gives false when the body failed.
template <class Body>
bool trapSilently(Body&& body) {
  try {
    body();
    return true;
  } catch (...) {
    return false;
  }
}

// Step over: one statement runs; a failure in it passes unnoticed and the next one runs.
template <class Statement>
void stepOver(Statement&& statement) {
  try {
    statement();
  } catch (...) {
  }
}

// No trap: a failure reaches the caller unchanged, and only as a Failure.
template <class Body>
decltype(auto) noTrap(Body&& body) {
  return mapExceptions(std::forward<Body>(body));
}

}  // namespace zrk
