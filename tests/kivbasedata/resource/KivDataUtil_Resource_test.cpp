// This program is built with a data resource and with a configured domain; the other test programs have neither.
#include <gtest/gtest.h>

#include "KivDataUtil.h"
#include "KivSysLocale.h"
#include "KivTestProgram.h"

using namespace kiv;

TEST(DataResource, AProgramThatWasBuiltWithOneHasIt) {
  EXPECT_TRUE(KivHasDataResource());
  EXPECT_TRUE(KivHasDataResource());
}

namespace {

// How the mode comes out with these answers to the two queries; a text of "fails" makes the query fail.
bool ModeWith(const KivWString& csLogical, const KivWString& csPhysical) {
  sys::SetDomainHook([&](sys::KivSysDomain iDomain, KivWString& csDomain) {
    csDomain = iDomain == sys::KivSysDomain::Logical ? csLogical : csPhysical;
    return csDomain != u"fails";
  });
  const bool bMode = KivIsDeveloperMode();
  sys::SetDomainHook(nullptr);
  return bMode;
}

KIV_TEST_CHILD(DeveloperModeByDomains) {
  const KivWString csOwn = u"kiv.example";
  const bool bMarker = vcsArgs[0] == u"marker";
  CHILD_CHECK(ModeWith(csOwn, csOwn) == bMarker);
  CHILD_CHECK(ModeWith(u"fails", csOwn) == bMarker);
  CHILD_CHECK(ModeWith(csOwn, u"fails") == bMarker);
  CHILD_CHECK(ModeWith(u"fails", u"fails") == bMarker);
  CHILD_CHECK(!ModeWith(u"other.example", csOwn));
  CHILD_CHECK(!ModeWith(csOwn, u"other.example"));
  CHILD_CHECK(!ModeWith(u"", u""));
  CHILD_CHECK(!ModeWith(u"KIV.example", csOwn));
  return 0;
}

}  // namespace

TEST(DeveloperMode, NeedsTheMarkerAndBothDomainsToBeTheConfiguredOneWhereTheyCanBeAsked) {
  const kivtest::TestProgram zProgram;
  EXPECT_EQ(zProgram.Run("DeveloperModeByDomains", {u"none"}), 0);
  zProgram.Folder().WriteBytes(u"_DeveloperMode", "");
  EXPECT_EQ(zProgram.Run("DeveloperModeByDomains", {u"marker"}), 0);
}
