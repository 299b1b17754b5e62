// The widest vector instructions that the whole-string loops (code page, base64) may use.
#pragma once

namespace zrk::platform {

enum class VectorLevel { Plain, Avx2, Avx512 };

// What the processor offers, unless lowered by useVectorLevel.
VectorLevel vectorLevel();

// Uses `level`, or the processor's own when that is lower; the tests check every version
// against the plain loops this way.
void useVectorLevel(VectorLevel level);

}  // namespace zrk::platform
