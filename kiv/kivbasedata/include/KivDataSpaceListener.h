// Told about models and undo by the data space; implemented by the embedding application.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace kiv {

class KivModelStatusBase;
struct KivProcInfo;

// Two words that AddModel passes on.
using KivListenerData = std::array<uint64_t, 2>;

// All but the first answer true for success; a false answer is reported. Those that the library does not call are
// there for the application's own use.
class KivDataSpaceListener {
 public:
  virtual void NotCalled1() {}
  virtual bool ModelAdded(KivModelStatusBase*, const KivListenerData&) { return true; }
  virtual bool ModelRemoved(KivModelStatusBase*) { return true; }
  virtual bool NotCalled2() { return true; }
  virtual bool SnapShotCreated() { return true; }
  virtual bool Undone(int32_t /*iSteps*/) { return true; }
  virtual bool Redone(int32_t /*iSteps*/) { return true; }
  virtual bool NotCalled3() { return true; }
  virtual bool OptimiserStarted(const std::vector<KivProcInfo*>&) { return true; }
  virtual ~KivDataSpaceListener() = default;
};

}  // namespace kiv
