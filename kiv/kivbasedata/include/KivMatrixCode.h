// The short form of a placement, and its class word.
//
//   code, bits 0 to 1   form                                          payload
//   0                   any matrix                                    16 f64
//   1                   identity                                      none
//   2                   quarter turns and a translation               3 f64
//   3                   quarter turns                                 none
//   code, bits 2 to 3, 4 to 5, 6 to 7 (forms 2 and 3): quarter turns about X, then Y, then Z
#pragma once

#include <cstddef>
#include <cstdint>

#include "KivEMatrix4.h"
#include "KivLittleEndian.h"

namespace kiv {

constexpr size_t kMatrixPayloadMax = 128;

// Bytes of payload behind a code: 0, 24 or 128.
size_t KivMatrixPayloadSize(uint8_t iCode);
// The code of a matrix, and as many bytes of payload as it has. Differences up to 1e-12 on an element are ignored.
uint8_t KivEncodeMatrix(const KivEMatrix4& zMatrix, uint8_t acPayload[kMatrixPayloadMax]);
// pPayload holds KivMatrixPayloadSize(iCode) bytes.
KivEMatrix4 KivDecodeMatrix(uint8_t iCode, const uint8_t* pPayload);

// Code and payload as fields of a record, for the classes of KivElementFields.h.
template <typename Fields>
bool KivVisitMatrix(Fields& zFields, KivEMatrix4& zMatrix) {
  uint8_t acPayload[kMatrixPayloadMax] = {};
  uint8_t iCode = 0;
  if constexpr (!Fields::kReading) iCode = KivEncodeMatrix(zMatrix, acPayload);
  if (!zFields.Numbers(iCode)) return false;
  for (size_t i = 0; i < KivMatrixPayloadSize(iCode); i += sizeof(double)) {
    double d = KivLoad<double>(acPayload + i);
    if (!zFields.Numbers(d)) return false;
    KivStore<double>(acPayload + i, d);
  }
  if constexpr (Fields::kReading) zMatrix = KivDecodeMatrix(iCode, acPayload);
  return true;
}

// Class word of a placement: bits 0 to 1 scaling (1) or not (2), bits 4 to 5 mirroring (1) or not (2), bits 8 to 9
// carried. The pairs that are 0 in iClass are filled in.
constexpr uint32_t kMatrixClassDefault = 546;
uint32_t KivFillMatrixClass(const KivEMatrix4& zMatrix, uint32_t iClass);

}  // namespace kiv
