#include "KivSysEvent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "KivPlatformTest.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

std::vector<KivSysEvent> MakeEvents(uint32_t nEvents) {
  std::vector<KivSysEvent> vzEvents;
  bool bExisted = false;
  for (uint32_t i = 0; i < nEvents; ++i) vzEvents.push_back(KivSysEvent::Create(UniqueName("Many"), bExisted));
  return vzEvents;
}

std::vector<const KivSysEvent*> Pointers(const std::vector<KivSysEvent>& vzEvents) {
  std::vector<const KivSysEvent*> vpEvents;
  for (const KivSysEvent& zEvent : vzEvents) vpEvents.push_back(&zEvent);
  return vpEvents;
}

}  // namespace

TEST(Event, IsOffAtFirstAndKeepsItsStateUntilReset) {
  bool bExisted = true;
  KivSysEvent zEvent = KivSysEvent::Create(UniqueName("State"), bExisted);
  ASSERT_TRUE(zEvent.IsOpen());
  EXPECT_FALSE(bExisted);
  EXPECT_EQ(zEvent.Test(), KivSysWait::TimedOut);
  EXPECT_EQ(zEvent.Wait(1), KivSysWait::TimedOut);
  EXPECT_TRUE(zEvent.Set());
  EXPECT_TRUE(zEvent.Set());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(zEvent.Wait(KivSysEvent::kInfinite), KivSysWait::Signalled);
  EXPECT_EQ(zEvent.Test(), KivSysWait::Signalled);
  EXPECT_TRUE(zEvent.Reset());
  EXPECT_TRUE(zEvent.Reset());
  EXPECT_EQ(zEvent.Test(), KivSysWait::TimedOut);
}

TEST(Event, CreatedTwiceSaysThatItExistedAndIsTheSame) {
  const KivWString csName = UniqueName("Twice");
  bool bExisted = true;
  KivSysEvent zFirst = KivSysEvent::Create(csName, bExisted);
  EXPECT_FALSE(bExisted);
  KivSysEvent zSecond = KivSysEvent::Create(csName, bExisted);
  ASSERT_TRUE(zSecond.IsOpen());
  EXPECT_TRUE(bExisted);
  EXPECT_TRUE(zFirst.Set());
  EXPECT_EQ(zSecond.Test(), KivSysWait::Signalled);
}

TEST(Event, LivesAsLongAsAnyHolder) {
  const KivWString csName = UniqueName("Holders");
  bool bExisted = true;
  KivSysEvent zMaker = KivSysEvent::Create(csName, bExisted);
  KivSysEvent zOpener = KivSysEvent::Open(csName);
  ASSERT_TRUE(zOpener.IsOpen());
  EXPECT_TRUE(zMaker.Set());
  zMaker.Close();
  EXPECT_FALSE(zMaker.IsOpen());
  {
    KivSysEvent zAgain = KivSysEvent::Create(csName, bExisted);
    EXPECT_TRUE(bExisted);
    EXPECT_EQ(zAgain.Test(), KivSysWait::Signalled);
  }
  zOpener.Close();
  EXPECT_FALSE(KivSysEvent::Open(csName).IsOpen());
  KivSysEvent zNew = KivSysEvent::Create(csName, bExisted);
  EXPECT_FALSE(bExisted);
  EXPECT_EQ(zNew.Test(), KivSysWait::TimedOut);
}

TEST(Event, NamesMayHoldAnyCharactersAndBeLong) {
  const KivWString csBase = UniqueName("Names");
  bool bExisted = false;
  std::vector<KivSysEvent> vzEvents;
  for (const KivWString& csEnd : {KivWString(u"/"), KivWString(u":"), KivWString(u"%"), KivWString(u"\u00e4\U0001F600"),
                                  KivWString(u" "), KivWString(150, u'x'), KivWString(150, u'x') + u"y"}) {
    vzEvents.push_back(KivSysEvent::Create(csBase + csEnd, bExisted));
    EXPECT_TRUE(vzEvents.back().IsOpen());
    EXPECT_FALSE(bExisted);
    EXPECT_TRUE(KivSysEvent::Open(csBase + csEnd).IsOpen());
  }
}

TEST(Event, OpenOfANameThatNobodyHoldsFails) {
  EXPECT_FALSE(KivSysEvent::Open(UniqueName("Nobody")).IsOpen());
  EXPECT_FALSE(KivSysEvent::Open(u"").IsOpen());
}

TEST(Event, AClosedOneFails) {
  KivSysEvent zEvent;
  EXPECT_FALSE(zEvent.Set());
  EXPECT_FALSE(zEvent.Reset());
  EXPECT_EQ(zEvent.Test(), KivSysWait::Failed);
  EXPECT_EQ(zEvent.Wait(0), KivSysWait::Failed);
}

KIV_TEST_CHILD(EventMaker) {
  bool bExisted = false;
  KivSysEvent zEvent = KivSysEvent::Create(vcsArgs[1], bExisted);
  if (!zEvent.Set()) return 1;
  return ReadyUntilKilled(vcsArgs[0]);
}

TEST(Event, ANameWhoseMakersWereAllKilledIsFree) {
  const KivWString csName = UniqueName("Killed");
  ReadyChild zFirst("EventMaker", {csName});
  ReadyChild zSecond("EventMaker", {csName});
  ASSERT_TRUE(zFirst.IsReady() && zSecond.IsReady());
  EXPECT_TRUE(KivSysEvent::Open(csName).IsOpen());
  ASSERT_TRUE(zFirst.Kill());
  bool bExisted = false;
  { KivSysEvent zHeld = KivSysEvent::Create(csName, bExisted); }
  EXPECT_TRUE(bExisted) << "one of its makers lives";
  ASSERT_TRUE(zSecond.Kill());
  EXPECT_FALSE(KivSysEvent::Open(csName).IsOpen());
  KivSysEvent zNew = KivSysEvent::Create(csName, bExisted);
  EXPECT_FALSE(bExisted);
  EXPECT_EQ(zNew.Test(), KivSysWait::TimedOut) << "the state of the dead is gone";
}

TEST(Event, AHolderKeepsTheStateOfAKilledMaker) {
  const KivWString csName = UniqueName("Kept");
  ReadyChild zChild("EventMaker", {csName});
  ASSERT_TRUE(zChild.IsReady());
  KivSysEvent zEvent = KivSysEvent::Open(csName);
  ASSERT_TRUE(zChild.Kill());
  EXPECT_EQ(zEvent.Test(), KivSysWait::Signalled);
}

TEST(Event, WaitAnyGivesTheLowestThatIsOn) {
  std::vector<KivSysEvent> vzEvents = MakeEvents(5);
  const auto vpEvents = Pointers(vzEvents);
  EXPECT_EQ(KivSysEvent::WaitAny(vpEvents, 0).m_iState, KivSysWait::TimedOut);
  EXPECT_EQ(KivSysEvent::WaitAny(vpEvents, 2).m_iState, KivSysWait::TimedOut);
  vzEvents[3].Set();
  vzEvents[1].Set();
  const KivSysWaitResult zResult = KivSysEvent::WaitAny(vpEvents, 0);
  EXPECT_EQ(zResult.m_iState, KivSysWait::Signalled);
  EXPECT_EQ(zResult.m_iIndex, 1u);
}

TEST(Event, WaitAnyTakes64EventsAndNoMoreThanItsLimit) {
  std::vector<KivSysEvent> vzEvents = MakeEvents(KivSysEvent::WaitLimit() + 1);
  const auto vpEvents = Pointers(vzEvents);
  ASSERT_GE(KivSysEvent::WaitLimit(), 64u);
  for (const uint32_t nEvents : {64u, 65u, KivSysEvent::WaitLimit(), KivSysEvent::WaitLimit() + 1}) {
    std::thread zSetter([&] { vzEvents[nEvents - 1].Set(); });
    const KivSysWaitResult zResult = KivSysEvent::WaitAny({vpEvents.data(), nEvents}, kLong);
    zSetter.join();
    if (nEvents <= KivSysEvent::WaitLimit()) {
      EXPECT_EQ(zResult.m_iState, KivSysWait::Signalled);
      EXPECT_EQ(zResult.m_iIndex, nEvents - 1);
    } else {
      EXPECT_EQ(zResult.m_iState, KivSysWait::Failed);
    }
    vzEvents[nEvents - 1].Reset();
  }
}

TEST(Event, WaitAnyRefusesNoneAndAClosedOne) {
  EXPECT_EQ(KivSysEvent::WaitAny({}, 0).m_iState, KivSysWait::Failed);
  std::vector<KivSysEvent> vzEvents = MakeEvents(2);
  vzEvents[0].Set();
  vzEvents[1].Close();
  EXPECT_EQ(KivSysEvent::WaitAny(Pointers(vzEvents), 0).m_iState, KivSysWait::Failed);
}

// A waiter sees an event that was on for an instant only.
TEST(Event, ASetThatIsResetAtOnceStillWakes) {
  std::vector<KivSysEvent> vzEvents = MakeEvents(2);
  const auto vpEvents = Pointers(vzEvents);
  for (const uint32_t nEvents : {1u, 2u}) {
    std::atomic<bool> bWoken{false};
    std::thread zWaiter([&] {
      bWoken = KivSysEvent::WaitAny({vpEvents.data(), nEvents}, kLong).m_iState == KivSysWait::Signalled;
    });
    // The pulses before the wait begins pass unseen; one after it must not.
    EXPECT_TRUE(Eventually([&] {
      vzEvents[0].Set();
      vzEvents[0].Reset();
      return bWoken.load();
    }));
    zWaiter.join();
  }
}

KIV_TEST_CHILD(EventWaiter) {
  const KivSysEvent zFirst = KivSysEvent::Open(vcsArgs[1]);
  const KivSysEvent zSecond = KivSysEvent::Open(vcsArgs[2]);
  KivSysEvent::Open(vcsArgs[0]).Set();
  const KivSysEvent* const vpEvents[] = {&zFirst, &zSecond};
  return KivSysEvent::WaitAny(vpEvents, KivSysEvent::kInfinite).m_iIndex == 1 ? 0 : 1;
}

TEST(Event, AKilledWaiterTakesNoWakeFromOthers) {
  const KivWString csFirst = UniqueName("First");
  const KivWString csSecond = UniqueName("Second");
  bool bExisted = false;
  KivSysEvent zFirst = KivSysEvent::Create(csFirst, bExisted);
  KivSysEvent zSecond = KivSysEvent::Create(csSecond, bExisted);
  ReadyChild zKilled("EventWaiter", {csFirst, csSecond});
  ReadyChild zLiving("EventWaiter", {csFirst, csSecond});
  ASSERT_TRUE(zKilled.IsReady() && zLiving.IsReady());
  ASSERT_TRUE(zKilled.Kill());
  EXPECT_TRUE(zSecond.Set());
  ASSERT_EQ(zLiving.Process().Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  EXPECT_TRUE(zLiving.Process().GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

KIV_TEST_CHILD(EventPong) {
  const KivSysEvent zPing = KivSysEvent::Open(vcsArgs[0]);
  KivSysEvent zPong = KivSysEvent::Open(vcsArgs[1]);
  KivSysEvent zPingToReset = KivSysEvent::Open(vcsArgs[0]);
  const bool bAny = vcsArgs[3] == u"any";
  const KivSysEvent zNever = KivSysEvent::Open(vcsArgs[4]);
  const KivSysEvent* const vpEvents[] = {&zNever, &zPing};
  const uint64_t nRounds = std::stoull(sys::WideToUtf8(vcsArgs[2]));
  for (uint64_t i = 0; i < nRounds; ++i) {
    const KivSysWait iWait = bAny ? KivSysEvent::WaitAny(vpEvents, kLong).m_iState : zPing.Wait(kLong);
    if (iWait != KivSysWait::Signalled) return 1;
    if (!zPingToReset.Reset() || !zPong.Set()) return 2;
  }
  return 0;
}

TEST(Event, TwoProcessesThatSetAndWaitLoseNoWake) {
  const uint64_t nRounds = Scaled(1'000'000, 20'000);
  bool bExisted = false;
  const KivWString csNever = UniqueName("Never");
  KivSysEvent zNever = KivSysEvent::Create(csNever, bExisted);
  for (const KivWString csWay : {u"one", u"any"}) {
    const KivWString csPing = UniqueName("Ping");
    const KivWString csPong = UniqueName("Pong");
    KivSysEvent zPing = KivSysEvent::Create(csPing, bExisted);
    KivSysEvent zPong = KivSysEvent::Create(csPong, bExisted);
    const uint64_t nHalf = nRounds / 2;
    KivSysProcess zChild =
        StartTestChild("EventPong", {csPing, csPong, sys::Utf8ToWide(std::to_string(nHalf)), csWay, csNever});
    ASSERT_TRUE(zChild.IsOpen());
    for (uint64_t i = 0; i < nHalf; ++i) {
      ASSERT_TRUE(zPing.Set());
      ASSERT_EQ(zPong.Wait(kLong), KivSysWait::Signalled) << "round " << i;
      ASSERT_TRUE(zPong.Reset());
    }
    ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
    int32_t iCode = -1;
    EXPECT_TRUE(zChild.GetExitCode(iCode));
    EXPECT_EQ(iCode, 0);
  }
}
