#include "KivSysThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <shared_mutex>

#include "KivPlatformTest.h"

using namespace kiv;
using namespace kivtest;

namespace {

// Uses the stack, so that the size asked for has to be there.
uint32_t Deep(uint32_t nLevels) {
  volatile uint8_t acBytes[1024];
  acBytes[0] = static_cast<uint8_t>(nLevels);
  return nLevels == 0 ? 0 : acBytes[0] % 2 + Deep(nLevels - 1);
}

}  // namespace

TEST(Thread, RunsTheBodyAndReleasesIt) {
  auto pzValue = std::make_shared<std::atomic<int>>(0);
  ASSERT_TRUE(sys::StartThread([pzValue] { pzValue->store(1); }, 0));
  EXPECT_TRUE(Eventually([&] { return pzValue->load() == 1 && pzValue.use_count() == 1; }));
}

TEST(Thread, HasTheStackThatWasAskedFor) {
  std::atomic<bool> bDone{false};
  uint32_t iSum = 0;
  ASSERT_TRUE(sys::StartThread(
      [&] {
        iSum = Deep(2000);
        bDone = true;
      },
      16 << 20));
  EXPECT_TRUE(Eventually([&] { return bDone.load(); }));
  EXPECT_GT(iSum, 0u);
}

TEST(Thread, TheLockLetsReadersInTogetherAndAWriterAlone) {
  KivSysSharedLock zLock;
  // Asked from another thread, as the rules are about others.
  const auto Others = [&zLock](bool bExclusive) {
    std::atomic<int> iGot{-1};
    sys::StartThread(
        [&] {
          const bool bGot = bExclusive ? zLock.try_lock() : zLock.try_lock_shared();
          if (bGot && bExclusive) zLock.unlock();
          if (bGot && !bExclusive) zLock.unlock_shared();
          iGot = bGot;
        },
        0x10000);
    EXPECT_TRUE(Eventually([&] { return iGot.load() != -1; }));
    return iGot.load() == 1;
  };
  EXPECT_TRUE(Others(true));
  EXPECT_TRUE(Others(false));
  zLock.lock_shared();
  EXPECT_TRUE(Others(false));
  EXPECT_FALSE(Others(true));
  zLock.unlock_shared();
  zLock.lock();
  EXPECT_FALSE(Others(false));
  EXPECT_FALSE(Others(true));
  zLock.unlock();
  EXPECT_TRUE(Others(true));
}

TEST(Thread, ManyAtOnceAndTheLockKeepsWritersApart) {
  KivSysSharedLock zLock;
  int nCount = 0;
  std::atomic<int> nDone{0};
  for (int i = 0; i < 32; ++i) {
    ASSERT_TRUE(sys::StartThread(
        [&] {
          for (int j = 0; j < 100; ++j) {
            const std::unique_lock zGuard(zLock);
            ++nCount;
          }
          ++nDone;
        },
        0x10000));
  }
  EXPECT_TRUE(Eventually([&] { return nDone.load() == 32; }));
  const std::shared_lock zGuard(zLock);
  EXPECT_EQ(nCount, 3200);
}
