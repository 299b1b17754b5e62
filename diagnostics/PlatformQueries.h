// The platform id that tells the two process-enumeration strategies apart.
#pragma once

#include <cstdint>

namespace zrk::diagnostics {

// The version record's platform id (1 or 2; 0 when the query failed). Failures reach the
// caller.
int32_t GetPlatformId();

}  // namespace zrk::diagnostics
