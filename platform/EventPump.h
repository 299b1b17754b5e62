// The thread's event processing as the library runs it while it waits (a dialog open, an answer
// awaited): what runs in such a pass is the host's code, and a call of the library that arrives
// there is a call of its own.
#pragma once

namespace zrk::platform {

// One pass of this thread's pending events (platform::processEvents), counted as host code.
void pumpHostEvents();

// How many passes of pumpHostEvents enclose the code now running on this thread.
int hostEventDepth();

}  // namespace zrk::platform
