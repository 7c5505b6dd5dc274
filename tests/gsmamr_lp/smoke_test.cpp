#include <gtest/gtest.h>
#include "kvosc.h"
TEST(Smoke, Links) { Kvo16s x[128] = {}; EXPECT_EQ(kvosFFTFwd_RToPerm_GSMAMR_16s_I(x), kvoOk); }
