#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "KivByteBuffer.h"
#include "KivTestReport.h"

using namespace kiv;

namespace {

KivByteBuffer Bytes(std::initializer_list<int> viBytes) {
  return KivByteBuffer(viBytes.begin(), viBytes.end());
}

}  // namespace

TEST(ByteBuffer, IntegersAreEightBytesLittleEndian) {
  KivByteBuffer vcBuffer;
  KivPutInt64(vcBuffer, 0x0102030405060708);
  KivPutInt64(vcBuffer, -2);
  EXPECT_EQ(vcBuffer, Bytes({8, 7, 6, 5, 4, 3, 2, 1, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(ByteBuffer, FloatsAreTheirBitPattern) {
  KivByteBuffer vcBuffer;
  KivPutDouble(vcBuffer, 1.5);
  EXPECT_EQ(vcBuffer, Bytes({0, 0, 0, 0, 0, 0, 0xF8, 0x3F}));
}

TEST(ByteBuffer, StringsAreUnitCountAndUnitsWithoutTerminator) {
  KivByteBuffer vcBuffer;
  KivPutString(vcBuffer, u"A\u20AC");
  EXPECT_EQ(vcBuffer, Bytes({2, 0, 0, 0, 0, 0, 0, 0, 0x41, 0, 0xAC, 0x20}));
}

TEST(ByteBuffer, BlocksAreSizeAndBytes) {
  KivByteBuffer vcBuffer;
  KivPutBlock(vcBuffer, "xyz", 3);
  KivPutBlock(vcBuffer, nullptr, 0);
  EXPECT_EQ(vcBuffer, Bytes({3, 0, 0, 0, 0, 0, 0, 0, 'x', 'y', 'z', 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(ByteBuffer, CoordinatesAreThreeFloats) {
  KivByteBuffer vcBuffer;
  KivPutCoord3(vcBuffer, KivECoord3{1, -2, 0.5});
  ASSERT_EQ(vcBuffer.size(), 24u);
  uint64_t iCursor = 0;
  double adValue[3] = {};
  for (double& dValue : adValue) ASSERT_TRUE(KivGetDouble(iCursor, vcBuffer, &dValue));
  EXPECT_EQ(adValue[0], 1);
  EXPECT_EQ(adValue[1], -2);
  EXPECT_EQ(adValue[2], 0.5);
}

TEST(ByteBuffer, ANullSourceAppendsZeros) {
  KivByteBuffer vcBuffer = Bytes({1});
  KivPutBytes(vcBuffer, nullptr, 3);
  KivPutBlock(vcBuffer, nullptr, 2);
  EXPECT_EQ(vcBuffer, Bytes({1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(ByteBuffer, APartOfTheBufferCanBeAppendedToIt) {
  KivByteBuffer vcBuffer = Bytes({1, 2, 3});
  vcBuffer.shrink_to_fit();
  KivPutBytes(vcBuffer, vcBuffer.data() + 1, 2);
  EXPECT_EQ(vcBuffer, Bytes({1, 2, 3, 2, 3}));
}

TEST(ByteBuffer, ACountThatNoBufferCanHoldIsAnException) {
  KivByteBuffer vcBuffer = Bytes({1});
  const char cByte = 0;
  EXPECT_THROW(KivPutBytes(vcBuffer, nullptr, std::numeric_limits<uint64_t>::max()), std::length_error);
  EXPECT_THROW(KivPutBytes(vcBuffer, &cByte, std::numeric_limits<uint64_t>::max()), std::length_error);
  EXPECT_EQ(vcBuffer, Bytes({1}));
}

TEST(ByteBuffer, TheSequenceRisesByOneThroughAllBuffers) {
  KivByteBuffer vcFirst;
  KivByteBuffer vcSecond;
  KivPutSequence(vcFirst);
  KivPutSequence(vcSecond);
  KivPutSequence(vcFirst);
  uint64_t iCursor = 0;
  uint64_t aiValue[3] = {};
  ASSERT_TRUE(KivGetInt64(iCursor, vcFirst, &aiValue[0]));
  ASSERT_TRUE(KivGetInt64(iCursor, vcFirst, &aiValue[2]));
  iCursor = 0;
  ASSERT_TRUE(KivGetInt64(iCursor, vcSecond, &aiValue[1]));
  EXPECT_EQ(aiValue[1], aiValue[0] + 1);
  EXPECT_EQ(aiValue[2], aiValue[1] + 1);
}

TEST(ByteBuffer, AnEmptyStringTakesExactlyEightZeroBytes) {
  KivByteBuffer vcBuffer;
  KivPutString(vcBuffer, u"");
  EXPECT_EQ(vcBuffer, KivByteBuffer(8));
  uint64_t iCursor = 0;
  KivWString csValue = u"before";
  EXPECT_TRUE(KivGetString(iCursor, vcBuffer, &csValue));
  EXPECT_EQ(csValue, u"");
  EXPECT_EQ(iCursor, 8u);
}

TEST(ByteBuffer, AtTheEndOfTheBufferAReadFailsAndAReadOfZeroBytesSucceeds) {
  const KivByteBuffer vcBuffer = Bytes({1, 2});
  uint64_t iCursor = 2;
  char cByte = 7;
  EXPECT_REPORT(KivGetBytes(iCursor, vcBuffer, &cByte, 1), "0");
  EXPECT_TRUE(KivGetBytes(iCursor, vcBuffer, &cByte, 0));
  EXPECT_EQ(cByte, 7);
  EXPECT_EQ(iCursor, 2u);
}

TEST(ByteBuffer, ACursorBehindTheEndFailsEvenForZeroBytes) {
  const KivByteBuffer vcBuffer = Bytes({1, 2});
  char cByte = 0;
  for (uint64_t iStart : {uint64_t{3}, std::numeric_limits<uint64_t>::max()}) {
    uint64_t iCursor = iStart;
    EXPECT_REPORT(KivGetBytes(iCursor, vcBuffer, &cByte, 0), "0");
    EXPECT_REPORT(KivGetBytes(iCursor, vcBuffer, &cByte, 1), "0");
    EXPECT_EQ(iCursor, iStart);
  }
}

TEST(ByteBuffer, ACountThatOverflowsTheCursorFails) {
  const KivByteBuffer vcBuffer(16);
  uint64_t iCursor = 8;
  char cByte = 0;
  EXPECT_REPORT(KivGetBytes(iCursor, vcBuffer, &cByte, std::numeric_limits<uint64_t>::max() - 4), "0");
  EXPECT_EQ(iCursor, 8u);
}

TEST(ByteBuffer, ANullDestinationFails) {
  kivtest::NoThrowScope zNoThrow;
  const KivByteBuffer vcBuffer(32);
  uint64_t iCursor = 0;
  EXPECT_FALSE(KivGetBytes(iCursor, vcBuffer, nullptr, 0));
  EXPECT_FALSE(KivGetInt64(iCursor, vcBuffer, static_cast<int64_t*>(nullptr)));
  EXPECT_FALSE(KivGetDouble(iCursor, vcBuffer, nullptr));
  EXPECT_FALSE(KivGetString(iCursor, vcBuffer, nullptr));
  EXPECT_EQ(iCursor, 0u);
}

TEST(ByteBuffer, AStringLongerThanTheBufferFailsAndLeavesTheDestinationUnchanged) {
  KivByteBuffer vcBuffer;
  KivPutString(vcBuffer, u"abc");
  vcBuffer[0] = 4;
  uint64_t iCursor = 0;
  KivWString csValue = u"before";
  EXPECT_REPORT(KivGetString(iCursor, vcBuffer, &csValue), "0");
  EXPECT_EQ(csValue, u"before");
  EXPECT_EQ(iCursor, 8u);
  kivtest::NoThrowScope zNoThrow;
  iCursor = 0;
  EXPECT_FALSE(KivGetString(iCursor, vcBuffer, &csValue));
  EXPECT_EQ(csValue, u"before");
  EXPECT_EQ(iCursor, 8u);
}

TEST(ByteBuffer, AStringLengthWhoseByteCountOverflowsFailsBeforeAnythingIsAllocated) {
  for (uint64_t nUnits : {uint64_t{1} << 63, (uint64_t{1} << 63) + 1, std::numeric_limits<uint64_t>::max(),
                          std::numeric_limits<uint64_t>::max() - 8, uint64_t{1} << 40}) {
    KivByteBuffer vcBuffer;
    KivPutInt64(vcBuffer, static_cast<int64_t>(nUnits));
    KivPutInt64(vcBuffer, 0);
    uint64_t iCursor = 0;
    KivWString csValue = u"before";
    EXPECT_REPORT(KivGetString(iCursor, vcBuffer, &csValue), "0") << nUnits;
    EXPECT_EQ(csValue, u"before");
    EXPECT_EQ(iCursor, 8u);
  }
}

TEST(ByteBuffer, ABlockOfAnotherSizeThanExpectedFailsEvenIfEnoughBytesFollow) {
  KivByteBuffer vcBuffer;
  KivPutBlock(vcBuffer, "0123456789", 10);
  char acBlock[16] = {};
  for (uint64_t nExpected : {uint64_t{9}, uint64_t{11}, uint64_t{0}}) {
    uint64_t iCursor = 0;
    EXPECT_REPORT(KivGetBlock(iCursor, vcBuffer, acBlock, nExpected), "0");
    EXPECT_EQ(iCursor, 8u);
    kivtest::NoThrowScope zNoThrow;
    iCursor = 0;
    EXPECT_FALSE(KivGetBlock(iCursor, vcBuffer, acBlock, nExpected));
    EXPECT_EQ(iCursor, 8u);
  }
  EXPECT_EQ(acBlock[0], 0);
}

TEST(ByteBuffer, AnEmptyBlockNeedsNoDestinationAndAFullOneDoes) {
  KivByteBuffer vcBuffer;
  KivPutBlock(vcBuffer, nullptr, 0);
  KivPutBlock(vcBuffer, "x", 1);
  uint64_t iCursor = 0;
  EXPECT_TRUE(KivGetBlock(iCursor, vcBuffer, nullptr, 0));
  EXPECT_EQ(iCursor, 8u);
  EXPECT_REPORT(KivGetBlock(iCursor, vcBuffer, nullptr, 1), "0");
  EXPECT_EQ(iCursor, 16u);
}

TEST(ByteBuffer, AStringWithAZeroInsideComesBackShorterAndTheCursorStandsBehindAllOfIt) {
  KivByteBuffer vcBuffer;
  KivPutString(vcBuffer, KivWString(u"ab\0cd", 5));
  KivPutInt64(vcBuffer, 77);
  uint64_t iCursor = 0;
  KivWString csValue;
  int64_t iValue = 0;
  ASSERT_TRUE(KivGetString(iCursor, vcBuffer, &csValue));
  EXPECT_EQ(csValue, u"ab");
  EXPECT_EQ(iCursor, 18u);
  EXPECT_TRUE(KivGetInt64(iCursor, vcBuffer, &iValue));
  EXPECT_EQ(iValue, 77);
}

TEST(ByteBuffer, NegativeIntegersPassUnchanged) {
  for (int64_t iValue : {int64_t{-1}, int64_t{-123456789012345}, std::numeric_limits<int64_t>::min()}) {
    KivByteBuffer vcBuffer;
    KivPutInt64(vcBuffer, iValue);
    uint64_t iCursor = 0;
    int64_t iBack = 0;
    ASSERT_TRUE(KivGetInt64(iCursor, vcBuffer, &iBack));
    EXPECT_EQ(iBack, iValue);
  }
}

TEST(ByteBuffer, NonFiniteFloatsPassUnchangedByteForByte) {
  for (uint64_t iBits : {0x7FF0000000000000u, 0xFFF0000000000000u, 0x7FF8000000000001u, 0x7FF0000000000001u,
                         0xFFFFFFFFFFFFFFFFu, 0x8000000000000000u}) {
    KivByteBuffer vcBuffer;
    KivPutDouble(vcBuffer, std::bit_cast<double>(uint64_t{iBits}));
    uint64_t iCursor = 0;
    uint64_t iStored = 0;
    ASSERT_TRUE(KivGetInt64(iCursor, vcBuffer, &iStored));
    EXPECT_EQ(iStored, iBits);
    iCursor = 0;
    double dBack = 0;
    ASSERT_TRUE(KivGetDouble(iCursor, vcBuffer, &dBack));
    EXPECT_EQ(std::bit_cast<uint64_t>(dBack), iBits);
  }
}

TEST(ByteBuffer, AFailureNamesItsSource) {
  uint64_t iCursor = 0;
  int64_t iValue = 0;
  try {
    KivGetInt64(iCursor, KivByteBuffer(7), &iValue);
    FAIL();
  } catch (const KivException& zError) {
    EXPECT_EQ(zError.GetFile(), u"src\\KivDataUtil");
    EXPECT_EQ(zError.GetMessageText(), u"0");
    EXPECT_GT(zError.GetLine(), 0);
  }
}

// Every primitive after each other, cut at every byte: each read before the cut succeeds, the one across it fails.
TEST(ByteBuffer, EveryTruncationFailsAtThePrimitiveThatItCuts) {
  kivtest::NoThrowScope zNoThrow;
  KivByteBuffer vcWhole;
  std::vector<uint64_t> viEnds;
  KivPutInt64(vcWhole, 5);
  viEnds.push_back(vcWhole.size());
  KivPutDouble(vcWhole, 2.5);
  viEnds.push_back(vcWhole.size());
  KivPutString(vcWhole, u"text");
  viEnds.push_back(vcWhole.size());
  KivPutBlock(vcWhole, "block", 5);
  viEnds.push_back(vcWhole.size());
  KivPutBytes(vcWhole, "raw", 3);
  viEnds.push_back(vcWhole.size());

  for (size_t nBytes = 0; nBytes <= vcWhole.size(); ++nBytes) {
    // In an allocation of its own, so that a sanitizer sees each byte read behind the end.
    const KivByteBuffer vcCut(vcWhole.begin(), vcWhole.begin() + static_cast<ptrdiff_t>(nBytes));
    uint64_t iCursor = 0;
    int64_t iValue = 0;
    double dValue = 0;
    KivWString csValue;
    char acBlock[5];
    char acRaw[3];
    size_t nGood = 0;
    if (KivGetInt64(iCursor, vcCut, &iValue)) {
      ++nGood;
      if (KivGetDouble(iCursor, vcCut, &dValue)) {
        ++nGood;
        if (KivGetString(iCursor, vcCut, &csValue)) {
          ++nGood;
          if (KivGetBlock(iCursor, vcCut, acBlock, 5)) {
            ++nGood;
            if (KivGetBytes(iCursor, vcCut, acRaw, 3)) ++nGood;
          }
        }
      }
    }
    size_t nExpected = 0;
    while (nExpected < viEnds.size() && viEnds[nExpected] <= nBytes) ++nExpected;
    EXPECT_EQ(nGood, nExpected) << nBytes << " bytes";
    EXPECT_LE(iCursor, nBytes);
  }
}

// Random primitives against a model that builds the bytes by hand, one at a time, and remembers the values.
TEST(ByteBuffer, RandomSequencesEqualANaiveModel) {
  const uint32_t iSeed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(iSeed));
  std::mt19937_64 zRandom(iSeed);

  struct Item {
    uint32_t m_iKind;
    uint64_t m_iBits;
    KivWString m_csText;
    std::vector<uint8_t> m_vcBytes;
  };
  for (int iRound = 0; iRound < 50; ++iRound) {
    std::vector<Item> vzItems;
    std::vector<uint8_t> vcModel;
    KivByteBuffer vcBuffer;
    const auto modelInteger = [&](uint64_t iValue) {
      for (int i = 0; i < 8; ++i) vcModel.push_back(static_cast<uint8_t>(iValue >> (8 * i)));
    };
    for (int i = 0; i < 200; ++i) {
      Item zItem{static_cast<uint32_t>(zRandom() % 6), zRandom(), {}, {}};
      const size_t nLength = zRandom() % 8 == 0 ? zRandom() % 5000 : zRandom() % 20;
      for (size_t k = 0; k < nLength; ++k) {
        zItem.m_csText.push_back(static_cast<char16_t>(1 + zRandom() % 0xFFFF));
        zItem.m_vcBytes.push_back(static_cast<uint8_t>(zRandom()));
      }
      switch (zItem.m_iKind) {
        case 0:
          KivPutInt64(vcBuffer, static_cast<int64_t>(zItem.m_iBits));
          modelInteger(zItem.m_iBits);
          break;
        case 1:
          KivPutDouble(vcBuffer, std::bit_cast<double>(zItem.m_iBits));
          modelInteger(zItem.m_iBits);
          break;
        case 2:
          KivPutString(vcBuffer, zItem.m_csText);
          modelInteger(nLength);
          for (char16_t cUnit : zItem.m_csText) {
            vcModel.push_back(static_cast<uint8_t>(cUnit));
            vcModel.push_back(static_cast<uint8_t>(cUnit >> 8));
          }
          break;
        case 3:
          KivPutBlock(vcBuffer, zItem.m_vcBytes.data(), nLength);
          modelInteger(nLength);
          for (uint8_t cByte : zItem.m_vcBytes) vcModel.push_back(cByte);
          break;
        case 4:
          // An empty vector has no data, and a null source counts as zeros, of which there are then none.
          KivPutBytes(vcBuffer, zItem.m_vcBytes.data(), nLength);
          for (uint8_t cByte : zItem.m_vcBytes) vcModel.push_back(cByte);
          break;
        default:
          KivPutCoord3(vcBuffer, KivECoord3{std::bit_cast<double>(zItem.m_iBits), 0, -1});
          modelInteger(zItem.m_iBits);
          modelInteger(0);
          modelInteger(0xBFF0000000000000u);
          break;
      }
      vzItems.push_back(std::move(zItem));
    }
    ASSERT_EQ(vcBuffer, vcModel);

    uint64_t iCursor = 0;
    for (const Item& zItem : vzItems) {
      std::vector<uint8_t> vcBytes(zItem.m_vcBytes.size() + 1);
      uint64_t iValue = 0;
      double adValue[3] = {};
      KivWString csText;
      switch (zItem.m_iKind) {
        case 0:
          ASSERT_TRUE(KivGetInt64(iCursor, vcBuffer, &iValue));
          ASSERT_EQ(iValue, zItem.m_iBits);
          break;
        case 1:
          ASSERT_TRUE(KivGetDouble(iCursor, vcBuffer, &adValue[0]));
          ASSERT_EQ(std::bit_cast<uint64_t>(adValue[0]), zItem.m_iBits);
          break;
        case 2:
          ASSERT_TRUE(KivGetString(iCursor, vcBuffer, &csText));
          ASSERT_EQ(csText, zItem.m_csText);
          break;
        case 3:
        case 4:
          ASSERT_TRUE(zItem.m_iKind == 3 ? KivGetBlock(iCursor, vcBuffer, vcBytes.data(), zItem.m_vcBytes.size())
                                         : KivGetBytes(iCursor, vcBuffer, vcBytes.data(), zItem.m_vcBytes.size()));
          vcBytes.pop_back();
          ASSERT_EQ(vcBytes, zItem.m_vcBytes);
          break;
        default:
          for (double& dValue : adValue) ASSERT_TRUE(KivGetDouble(iCursor, vcBuffer, &dValue));
          ASSERT_EQ(std::bit_cast<uint64_t>(adValue[0]), zItem.m_iBits);
          ASSERT_EQ(adValue[2], -1);
          break;
      }
    }
    ASSERT_EQ(iCursor, vcBuffer.size());
  }
}
