#include "random/rand15.h"

#include <atomic>

namespace nimbo::random {
namespace {
std::atomic<uint32_t> g_seed{1};
}  // namespace

int32_t Rand15() {
  uint32_t seed = g_seed.load(std::memory_order_relaxed);
  uint32_t next;
  do {
    next = seed * 214013u + 2531011u;
  } while (!g_seed.compare_exchange_weak(seed, next, std::memory_order_relaxed));
  return int32_t((next >> 16) & 0x7fff);
}

void SeedRand15(uint32_t seed) { g_seed = seed; }

}  // namespace nimbo::random
