#include "test_screen.h"

namespace nimbo::testing {

OwnedScreen::OwnedScreen(int32_t width, int32_t height, uint32_t fill)
    : pixels(size_t(width) * size_t(height), fill) {
  screen = {width, height, pixels.data()};
}

void FillRandom(OwnedScreen& s, uint32_t seed) {
  uint32_t x = seed * 2654435761u + 12345u;
  for (uint32_t& p : s.pixels) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    p = x;
  }
}

}  // namespace nimbo::testing
