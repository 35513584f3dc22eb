#include "color_tracker_overlay.h"

#include <cstdlib>

namespace nimbo {

void DrawLine(uint32_t* pixels, int32_t width, int32_t height, int32_t x0, int32_t y0, int32_t x1, int32_t y1,
              uint32_t color) {
  // Bresenham over 64-bit coordinates; each point is clipped on its own,
  // which is cheap for the short lines of an overlay.
  int64_t x = x0, y = y0;
  const int64_t dx = std::llabs(int64_t(x1) - x0), dy = -std::llabs(int64_t(y1) - y0);
  const int64_t step_x = x0 < x1 ? 1 : -1, step_y = y0 < y1 ? 1 : -1;
  int64_t err = dx + dy;
  for (;;) {
    if (x >= 0 && x < width && y >= 0 && y < height) pixels[y * width + x] = color;
    if (x == x1 && y == y1) break;
    int64_t e2 = 2 * err;
    if (e2 >= dy) {
      err += dy;
      x += step_x;
    }
    if (e2 <= dx) {
      err += dx;
      y += step_y;
    }
  }
}

void DrawRectOutline(uint32_t* pixels, int32_t width, int32_t height, int32_t x, int32_t y, int32_t w, int32_t h,
                     uint32_t color) {
  if (w <= 0 || h <= 0) return;
  int32_t right = x + w - 1, bottom = y + h - 1;
  DrawLine(pixels, width, height, x, y, right, y, color);
  DrawLine(pixels, width, height, x, bottom, right, bottom, color);
  DrawLine(pixels, width, height, x, y, x, bottom, color);
  DrawLine(pixels, width, height, right, y, right, bottom, color);
}

}  // namespace nimbo
