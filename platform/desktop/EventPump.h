// One pass of the thread's event processing, as the library runs it on each round of its waits
// (a report awaited, a message box open): the library's own transfers move on, then the host's
// pending events run. What runs in such a pass is the host's code, and a call of the library that
// arrives there is a call of its own.
#pragma once

namespace zrk::platform {

// How long one round of a wait that runs passes of events lasts at most, in milliseconds.
inline constexpr int kEventTickMs = 10;

// One pass: this thread's transfers, then the dialog backend's processEvents (the host's events).
void processEvents();

// How many passes of processEvents enclose the code now running on this thread.
int hostEventDepth();

}  // namespace zrk::platform
