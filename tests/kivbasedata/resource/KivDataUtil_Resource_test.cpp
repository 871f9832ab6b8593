#include <gtest/gtest.h>

#include "KivDataUtil.h"

// This program is built with a data resource; the other test programs have none.
TEST(DataResource, AProgramThatWasBuiltWithOneHasIt) {
  EXPECT_TRUE(kiv::KivHasDataResource());
  EXPECT_TRUE(kiv::KivHasDataResource());
}
