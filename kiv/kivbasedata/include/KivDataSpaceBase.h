// The process-wide root of the library: the settings and the place in the undo history that files read.
//
// One thread at a time, but for the first GetInstance.
#pragma once

#include <cstdint>

namespace kiv {

class KivDataSpaceBase {
 public:
  KivDataSpaceBase() = default;
  virtual ~KivDataSpaceBase() = default;
  KivDataSpaceBase(const KivDataSpaceBase&) = delete;
  KivDataSpaceBase& operator=(const KivDataSpaceBase&) = delete;

  // The installed instance, else one that is built on first use. Never null.
  static KivDataSpaceBase* GetInstance();
  // Puts an instance of a derived class in the place of the built-in one; null takes it off. It stays the caller's.
  static void InstallInstance(KivDataSpaceBase* pzInstance);

  // Index of the state that the models are at, -1 without one.
  int32_t GetCurBaseSnapShot() const { return m_iCurBaseSnapShot; }

  bool m_bNoDirectBuffer = false;         // no file mappings
  uint32_t m_iStackBufferLimit = 200000;  // bytes; larger buffers of file and element code go to the heap
  uint16_t m_iLanguageId = 0;             // the system's language, stored by a program's entry
  bool m_bBackGroundRead = false;         // files opened for reading get a second handle for the background reader
  int32_t m_iCurBaseSnapShot = -1;
  bool m_bDiscardingSnapShot = false;  // history entries are being destroyed from the back, or a restore runs
};

// Accessors of m_bNoDirectBuffer.
bool KivGetNoDirectBuffer();
void KivSetNoDirectBuffer(bool bOn);

}  // namespace kiv
