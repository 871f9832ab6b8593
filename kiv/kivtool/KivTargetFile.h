// The file that a command makes: written under a temporary name beside the target, and moved into its place when it is
// whole. On every other way out the temporary file goes, and the target is as it was.
//
//   KivTargetFile zTarget(csOut, bForce, {csIn});
//   ... write zTarget.GetTemporaryPath() ...
//   zTarget.Commit();
#pragma once

#include <mutex>
#include <vector>

#include "KivSysText.h"

namespace kiv {

// Throws KivToolError if the target has no name, or one that does not end in the suffix, whatever its letters: else
// --force could replace a file that a source names.
void KivCheckTargetName(const KivWString& csTarget, const KivWString& csSuffix);

class KivTargetFile {
 public:
  // Throws KivToolError if the target exists and bForce is not set, is no regular file or one of the sources, or if
  // nothing can be written beside it.
  KivTargetFile(const KivWString& csTarget, bool bForce, const std::vector<KivWString>& vcsSource = {});
  ~KivTargetFile();
  KivTargetFile(const KivTargetFile&) = delete;
  KivTargetFile& operator=(const KivTargetFile&) = delete;

  // No file has this name before it is written.
  const KivWString& GetTemporaryPath() const { return m_csTemporary; }
  // All handles on the temporary file are closed by then. Throws KivToolError, also if a target has come up meanwhile
  // and bForce is not set, and once the user wants to stop.
  void Commit();
  // From any thread: takes the temporary file away, and what stands beside it. False if it cannot, as where a file that
  // is open stays, and from the commit on. It may come up again as long as somebody writes.
  bool Abandon();

 private:
  void CheckTarget() const;
  bool RemoveTemporary() const;

  KivWString m_csTarget;
  bool m_bForce;
  std::vector<KivWString> m_vcsSource;
  KivWString m_csTemporary;
  std::mutex m_zLock;
  bool m_bCommitted = false;  // or about to be
};

}  // namespace kiv
