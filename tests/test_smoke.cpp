// test_smoke.cpp - placeholder
#include <gtest/gtest.h>
#include "test_support.h"
TEST(Smoke, InitWorks) { dk_Context *c = nullptr; EXPECT_EQ(1, dk_Init(&c)); EXPECT_EQ(0, dk_Destroy(&c)); }
