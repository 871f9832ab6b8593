// The values of the data space that lower layers read: settings, and the place in the undo history.
#pragma once

#include <cstdint>
#include <vector>

namespace kiv {

// What the embedding application wants to be kept with every snapshot; the library only copies it.
struct KivDataSpaceSettings {
  std::vector<uint8_t> m_vcApplicationData;

  friend bool operator==(const KivDataSpaceSettings&, const KivDataSpaceSettings&) = default;
};

// The values that a snapshot keeps and a restore brings back. Limits are those of the setters of KivDataSpaceBase.
struct KivDataSpaceValues {
  uint8_t m_bSetting0 = 0;
  uint32_t m_iSetting1 = 0;
  uint8_t m_bSetting2 = 0;
  uint32_t m_iSetting7 = 0;               // 0 to 2; changes only while no model is open
  uint32_t m_iSetting3 = 0;               // 0 to 3
  uint32_t m_iKeepRawData = 1;            // non-zero: an element without a block of its own keeps the raw record
  bool m_bBlockPerElement = false;        // each element allocates its block; else one static block per element class
  bool m_bNoDirectBuffer = false;         // no file mappings
  uint32_t m_iStackBufferLimit = 200000;  // bytes; larger buffers of file and element code go to the heap
  uint32_t m_iSetting4 = 0;               // at most 60
  float m_fSetting5 = 0;                  // 1e-6 to 1e6 when set
  uint32_t m_iSetting6 = 20;
  int32_t m_iSpeedClass = 0x3F800000;  // of the machine, by MeasureSpeed; this value until then
  uint16_t m_iLanguageId = 0;          // the system's language, stored by a program's entry
  bool m_bBackGroundRead = false;      // files opened for reading get a second handle for the background reader
  KivDataSpaceSettings m_zSettings;
};

// The part of a data space that files see. There is always one: before the data space is built, and after it has been
// destroyed at the end of the process, a plain object holds the values.
class KivDataSpaceFields : public KivDataSpaceValues {
 public:
  // The fields of the data space in use. Never null.
  static KivDataSpaceFields* GetInstance();

  // Index of the state that the models are at, -1 without one.
  int32_t GetCurBaseSnapShot() const { return m_iCurBaseSnapShot; }

  int32_t m_iCurBaseSnapShot = -1;
  bool m_bDiscardingSnapShot = false;  // history entries are being destroyed from the back, or a restore runs

 protected:
  // Makes these fields the ones in use; null goes back to the plain object.
  static void SetInstance(KivDataSpaceFields* pzFields);
};

// Accessors of m_bNoDirectBuffer.
bool KivGetNoDirectBuffer();
void KivSetNoDirectBuffer(bool bOn);

}  // namespace kiv
