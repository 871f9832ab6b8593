// kiv-read-step: gives STEP files as scenes (KivSceneReader.h).
#include "KivSceneReader.h"
#include "KivStepDocument.h"
#include "KivSysMain.h"

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  return KivSceneReaderMain(vcsArguments, [](const KivSceneRequest& z, KivScene& zScene) {
    KivReadStep(z.m_csSource, z.m_vdTolerance, zScene);
  });
}
