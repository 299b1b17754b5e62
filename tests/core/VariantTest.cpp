#include "core/Variant.h"
#include "core/Failure.h"
#include <gtest/gtest.h>
using namespace zrk;
TEST(Variant, Placeholder) { EXPECT_EQ(Variant(int32_t(5)).toText(), u"5"); }
