// A small bitmap font for overlay texts drawn straight into a screen (the
// tracker's debug readouts). Glyphs are 5 x 8 pixels in a 6-pixel advance,
// covering printable ASCII; other characters draw as a hollow box.
#pragma once

#include <cstdint>

namespace nimbo {

inline constexpr int32_t kGlyphWidth = 5;
inline constexpr int32_t kGlyphHeight = 8;
inline constexpr int32_t kGlyphAdvance = 6;

// The glyph's 8 rows, bit 4 the leftmost pixel. Never null.
const uint8_t* GlyphRows(char c);

// Width in pixels that DrawText advances over `text`.
int32_t TextWidth(const char* text, int32_t scale);

// Draws `text` with its top-left corner at (x, y) on a width x height screen
// of 0xAARRGGBB words, each font pixel a scale x scale block of `color`,
// clipped to the screen. Only the glyphs' set pixels are written. Returns the
// x where a following character would start.
int32_t DrawText(uint32_t* pixels, int32_t width, int32_t height, int32_t x, int32_t y, const char* text,
                 uint32_t color, int32_t scale = 1);

}  // namespace nimbo
