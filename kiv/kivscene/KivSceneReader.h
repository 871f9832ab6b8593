// Readers of foreign files: the main of such a program, and the side that starts it. A reader is a program of its own,
// since the libraries behind it print, take memory without limit and may crash.
//
//   READER FORMAT SOURCE SCENE_FILE [TOLERANCE...]
//
// reads SOURCE, which is of FORMAT whatever its name is, and writes SCENE_FILE (KivScene.h), which holds the scene or
// the reason why there is none; the exit code is 0 or 2. Tolerances are numbers above 0, the coarsest first:
// millimetres if the source has a unit, else plain numbers of the source; without any the reader that makes levels
// chooses by the size of the model (KivSceneLevels.h). What it prints belongs to nobody.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "KivScene.h"
#include "KivSysText.h"

namespace kiv {

// --- In the reader --------------------------------------------------------------------------------------------------

// Why a source cannot be read, a sentence for the user, in UTF-8.
class KivSceneError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct KivSceneRequest {
  KivWString m_csFormat;  // one of the reader's formats.txt
  KivWString m_csSource;
  std::vector<double> m_vdTolerance;  // empty: as the model's size asks for
};

// Fills the empty scene, or throws KivSceneError. What else it throws is told to the user as well as can be.
using KivSceneReaderBody = std::function<void(const KivSceneRequest& zRequest, KivScene& zScene)>;

// For KivMain of a reader: gives its exit code. A scene with a fault (KivCheckScene) counts as a failure.
// The process gets a bound on its memory: 2 GiB and what KivAllowSceneMemory adds, at most what the machine has.
int32_t KivSceneReaderMain(const std::vector<KivWString>& vcsArguments, const KivSceneReaderBody& pfnRead);

// Raises the bound by 64 times the bytes of a file that is about to be read. Does nothing outside of a reader.
void KivAllowSceneMemory(uint64_t nBytes);

// True if little memory is left of what the process may take (256 MiB or less): what a library has left undone may be
// for want of it, though it does not say so.
bool KivIsMemoryUsedUp();

// The whole file, for which memory is allowed. Throws KivSceneError if it is a folder, is not there, cannot be read, is
// empty or larger than nMax.
std::vector<uint8_t> KivReadSceneSource(const KivWString& csSource, uint64_t nMax);

// --- In the tool ----------------------------------------------------------------------------------------------------

// The ending of a path's name, in lower case; empty if it has none.
KivWString KivLowerSuffix(const KivWString& csPath);

// Path of a program that stands beside this one; the name without the suffix of programs.
KivWString KivProgramBeside(const KivWString& csName);

// Runs a reader to its end and takes its scene. csWorkFile is the scene file: nothing must
// stand there, and nothing is left there. pfnTurn is called about ten times a second; false from it, or a noted request
// to stop (KivSysTerminal.h), ends the reader. False with one sentence in strError.
bool KivRunSceneReader(const KivWString& csReader, const KivSceneRequest& zRequest, const KivWString& csWorkFile,
                       KivScene& zScene, std::string& strError, const std::function<bool()>& pfnTurn);

}  // namespace kiv
