// Drawing primitives for ColorTracker's debug overlay: lines and rectangle
// outlines straight into a screen of 0xAARRGGBB words, clipped to it.
#pragma once

#include <cstdint>

namespace nimbo {

void DrawLine(uint32_t* pixels, int32_t width, int32_t height, int32_t x0, int32_t y0, int32_t x1, int32_t y1,
              uint32_t color);
void DrawRectOutline(uint32_t* pixels, int32_t width, int32_t height, int32_t x, int32_t y, int32_t w, int32_t h,
                     uint32_t color);

}  // namespace nimbo
