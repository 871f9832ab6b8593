#include <gtest/gtest.h>

#include "KivTestChild.h"

int main(int argc, char** argv) {
  int iCode = 0;
  if (kivtest::RunTestChild(argc, argv, iCode)) return iCode;
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
