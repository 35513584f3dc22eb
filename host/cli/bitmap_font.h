// A small built-in 5x7 bitmap font for labels on generated pictures (the
// demo's text input and its contact sheet), so the host needs no font files.
#pragma once

#include <cstdint>
#include <string>

#include "media/frame_buffer.h"

namespace nimbo::host {

inline constexpr int32_t kGlyphWidth = 5;
inline constexpr int32_t kGlyphHeight = 7;
inline constexpr int32_t kGlyphAdvance = 6;  // one blank column between letters

// Width in pixels of `text` drawn at `scale` (each font pixel scale x scale).
int32_t TextWidth(const std::string& text, int32_t scale);
// Draws `text` with its top-left corner at (x, y), clipped to the picture.
void DrawText(FrameBuffer& target, int32_t x, int32_t y, const std::string& text, uint32_t color, int32_t scale);

}  // namespace nimbo::host
