// The file that a command makes: written under a temporary name beside the target, and moved into its place when it is
// whole. On every other way out the temporary file goes, and the target is as it was.
//
//   KivTargetFile zTarget(csOut, bForce, {csIn});
//   ... write zTarget.GetTemporaryPath() ...
//   zTarget.Commit();
#pragma once

#include <vector>

#include "KivSysText.h"

namespace kiv {

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

 private:
  void CheckTarget() const;

  KivWString m_csTarget;
  bool m_bForce;
  std::vector<KivWString> m_vcsSource;
  KivWString m_csTemporary;
};

}  // namespace kiv
