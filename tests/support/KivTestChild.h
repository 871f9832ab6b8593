// Child processes of tests. The body of a child stands in the test that needs it:
//
//   KIV_TEST_CHILD(HoldsMarker) { ...; return 0; }          // vcsArgs are the arguments given to the start
//   TEST(Marker, ...) { auto zChild = StartTestChild("HoldsMarker", {csPath}); ... }
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "KivSysProcess.h"

namespace kivtest {

using ChildBody = std::function<int(const std::vector<kiv::KivWString>&)>;

struct ChildRegistration {
  ChildRegistration(const char* szName, ChildBody pfnBody);
};

// Starts this test program again, running one child body; its return value is the exit code.
kiv::KivSysProcess StartTestChild(const std::string& strName, const std::vector<kiv::KivWString>& vcsArgs);
// The command line of such a start, for tests that start it themselves.
kiv::KivWString TestChildCommandLine(const std::string& strName, const std::vector<kiv::KivWString>& vcsArgs);

// All arguments of this process, the program's name first.
const std::vector<kiv::KivWString>& ProcessArguments();
// What asks a start of this test program for a child body, wherever it stands among the arguments.
kiv::KivWString TestChildArgument(const std::string& strName);

// For main: true if the arguments ask for a child body, which then has run.
bool RunTestChild(int argc, char** argv, int& iCode);

}  // namespace kivtest

#define KIV_TEST_CHILD(name)                                                                  \
  static int KivTestChild_##name(const std::vector<kiv::KivWString>& vcsArgs);                \
  static const kivtest::ChildRegistration g_zKivTestChild_##name(#name, KivTestChild_##name); \
  static int KivTestChild_##name([[maybe_unused]] const std::vector<kiv::KivWString>& vcsArgs)
