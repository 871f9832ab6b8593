// Byte buffers beside memcpy, and the cost of a report.
//
//   usage: buffer_bench
// Each line gives our figure, its peer's, and the ratio of the two (above 1: slower than the peer).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "KivByteBuffer.h"
#include "KivDataUtil.h"
#include "KivException.h"
#include "KivSysDiag.h"

namespace {

using Clock = std::chrono::steady_clock;

// Keeps a value alive in the eyes of the optimiser.
template <typename T>
void Use(T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

// Seconds of the fastest of several runs.
template <typename Body>
double Fastest(Body&& body) {
  double dBest = 1e9;
  for (int i = 0; i < 15; ++i) {
    const auto tStart = Clock::now();
    body();
    dBest = std::min(dBest, std::chrono::duration<double>(Clock::now() - tStart).count());
  }
  return dBest;
}

void PrintRate(const char* szName, double dBytes, double dOurs, double dPeer) {
  std::printf("%-34s %8.2f GB/s   memcpy %8.2f GB/s   ratio %5.2f\n", szName, dBytes / dOurs / 1e9,
              dBytes / dPeer / 1e9, dOurs / dPeer);
}

// One pass over nItems items of nBytes each, item by item, into memory that is there already.
double CopyItems(size_t nItems, size_t nBytes) {
  std::vector<uint8_t> vcFrom(nItems * nBytes, 1);
  std::vector<uint8_t> vcTo(nItems * nBytes);
  return Fastest([&] {
    for (size_t i = 0; i < nItems; ++i) {
      const uint8_t* pFrom = vcFrom.data() + i * nBytes;
      asm volatile("" : "+r"(pFrom));  // keeps the items apart, so that they stay single copies
      std::memcpy(vcTo.data() + i * nBytes, pFrom, nBytes);
    }
    Use(vcTo);
  });
}

// The same with a size that the compiler knows, which makes each copy one load and one store.
template <size_t nBytes>
double CopyFixedItems(size_t nItems) {
  std::vector<uint8_t> vcFrom(nItems * nBytes, 1);
  std::vector<uint8_t> vcTo(nItems * nBytes);
  return Fastest([&] {
    for (size_t i = 0; i < nItems; ++i) {
      const uint8_t* pFrom = vcFrom.data() + i * nBytes;
      asm volatile("" : "+r"(pFrom));
      std::memcpy(vcTo.data() + i * nBytes, pFrom, nBytes);
    }
    Use(vcTo);
  });
}

void Integers() {
  constexpr size_t nItems = 4096;
  const double dPeer = CopyFixedItems<8>(nItems);
  kiv::KivByteBuffer vcBuffer;
  vcBuffer.reserve(nItems * 8);
  const double dPut = Fastest([&] {
    vcBuffer.clear();
    for (size_t i = 0; i < nItems; ++i) kiv::KivPutInt64(vcBuffer, static_cast<int64_t>(i));
    Use(vcBuffer);
  });
  const double dGet = Fastest([&] {
    uint64_t iCursor = 0;
    int64_t iSum = 0;
    int64_t iValue = 0;
    for (size_t i = 0; i < nItems; ++i) {
      kiv::KivGetInt64(iCursor, vcBuffer, &iValue);
      iSum += iValue;
    }
    Use(iSum);
  });
  const double dGrow = Fastest([&] {
    kiv::KivByteBuffer vcFresh;
    for (size_t i = 0; i < nItems; ++i) kiv::KivPutInt64(vcFresh, static_cast<int64_t>(i));
    Use(vcFresh);
  });
  PrintRate("put integer, room reserved", nItems * 8.0, dPut, dPeer);
  PrintRate("put integer, growing from empty", nItems * 8.0, dGrow, dPeer);
  PrintRate("get integer", nItems * 8.0, dGet, dPeer);
}

void Strings(size_t nUnits) {
  constexpr size_t nItems = 1024;
  const size_t nBytes = 8 + 2 * nUnits;
  const double dPeer = CopyItems(nItems, nBytes);
  const kiv::KivWString csText(nUnits, u'x');
  kiv::KivByteBuffer vcBuffer;
  vcBuffer.reserve(nItems * nBytes);
  const double dPut = Fastest([&] {
    vcBuffer.clear();
    for (size_t i = 0; i < nItems; ++i) kiv::KivPutString(vcBuffer, csText);
    Use(vcBuffer);
  });
  const double dGet = Fastest([&] {
    uint64_t iCursor = 0;
    kiv::KivWString csValue;
    for (size_t i = 0; i < nItems; ++i) kiv::KivGetString(iCursor, vcBuffer, &csValue);
    Use(csValue);
  });
  const std::string strSize = std::to_string(nUnits) + " units";
  PrintRate(("put string of " + strSize).c_str(), static_cast<double>(nItems * nBytes), dPut, dPeer);
  PrintRate(("get string of " + strSize).c_str(), static_cast<double>(nItems * nBytes), dGet, dPeer);
}

void Blocks() {
  constexpr size_t nSize = 1u << 20;
  constexpr size_t nItems = 16;
  const double dPeer = CopyItems(nItems, nSize);
  std::vector<uint8_t> vcBlock(nSize, 7);
  kiv::KivByteBuffer vcBuffer;
  vcBuffer.reserve(nItems * (nSize + 8));
  const double dPut = Fastest([&] {
    vcBuffer.clear();
    for (size_t i = 0; i < nItems; ++i) kiv::KivPutBlock(vcBuffer, vcBlock.data(), nSize);
    Use(vcBuffer);
  });
  std::vector<uint8_t> vcTo(nItems * nSize);
  const double dGet = Fastest([&] {
    uint64_t iCursor = 0;
    for (size_t i = 0; i < nItems; ++i) kiv::KivGetBlock(iCursor, vcBuffer, vcTo.data() + i * nSize, nSize);
    Use(vcTo);
  });
  PrintRate("put block of 1 MiB", 16.0 * nSize, dPut, dPeer);
  PrintRate("get block of 1 MiB", 16.0 * nSize, dGet, dPeer);
}

double MicroSeconds(Clock::duration tSpan) {
  return std::chrono::duration<double, std::micro>(tSpan).count();
}

// A report that is caught at once, with or without a look at its stack.
double OneReport(bool bReadStack) {
  const auto tStart = Clock::now();
  try {
    kiv::KivReportFailure("0", "src\\KivBench", 1);
  } catch (const kiv::KivException& zError) {
    if (bReadStack) Use(zError.GetCallStack());
  }
  return MicroSeconds(Clock::now() - tStart);
}

double PlainThrow() {
  const auto tStart = Clock::now();
  try {
    throw std::string("0");
  } catch (const std::string& strText) {
    Use(strText);
  }
  return MicroSeconds(Clock::now() - tStart);
}

template <typename Body>
double Median(int nRounds, Body&& body) {
  std::vector<double> vdTimes;
  for (int i = 0; i < nRounds; ++i) vdTimes.push_back(body());
  std::nth_element(vdTimes.begin(), vdTimes.begin() + nRounds / 2, vdTimes.end());
  return vdTimes[static_cast<size_t>(nRounds) / 2];
}

void Reports() {
  kiv::sys::SetSystemLogHook([](const kiv::KivWString&, const kiv::KivWString&) { return true; });
  kiv::KivGetWorkFolder();
  const double dFirst = OneReport(true);
  const double dThrow = Median(1001, PlainThrow);
  const double dCaught = Median(1001, [] { return OneReport(false); });
  const double dRead = Median(101, [] { return OneReport(true); });
  std::printf("first report, recorded in the logs %12.1f us\n", dFirst);
  std::printf("later report, stack not read       %12.1f us   bare throw %6.2f us   ratio %5.1f\n", dCaught, dThrow,
              dCaught / dThrow);
  std::printf("later report, stack text read      %12.1f us   bare throw %6.2f us   ratio %5.1f\n", dRead, dThrow,
              dRead / dThrow);
  kiv::KivCloseLog();
  kiv::KivRemoveTree(kiv::KivGetWorkFolder());
}

}  // namespace

int main() {
  Integers();
  Strings(8);
  Strings(256);
  Blocks();
  Reports();
  return 0;
}
