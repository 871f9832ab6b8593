#include <atomic>

#include "KivDataUtil.h"

namespace kiv {
namespace {

std::atomic<int32_t> g_iUrgent{0};
std::atomic<int32_t> g_iIdle{0};

}  // namespace

void KivGetBackGroundQueueSizes(int32_t& iUrgent, int32_t& iIdle) {
  iUrgent = g_iUrgent.load(std::memory_order_relaxed);
  iIdle = g_iIdle.load(std::memory_order_relaxed);
}

void KivSetBackGroundQueueSizes(int32_t iUrgent, int32_t iIdle) {
  g_iUrgent.store(iUrgent, std::memory_order_relaxed);
  g_iIdle.store(iIdle, std::memory_order_relaxed);
}

}  // namespace kiv
