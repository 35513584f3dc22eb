// The overlay font: glyph shapes land where they should, at any scale, and
// nothing is written outside the screen.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "shared/overlay_font.h"

namespace {

constexpr uint32_t kInk = 0xFFFFFFFF;

TEST(OverlayFont, EveryPrintableGlyphIsDistinctAndOthersDrawABox) {
  std::set<std::vector<uint8_t>> shapes;
  for (char c = ' '; c <= '~'; ++c) {
    const uint8_t* rows = nimbo::GlyphRows(c);
    std::vector<uint8_t> shape(rows, rows + nimbo::kGlyphHeight);
    for (uint8_t r : shape) EXPECT_LT(r, 0x20) << c;  // five pixels wide
    bool blank = true;
    for (uint8_t r : shape) blank = blank && r == 0;
    EXPECT_EQ(blank, c == ' ') << c;
    EXPECT_TRUE(shapes.insert(shape).second) << "glyph '" << c << "' repeats another";
  }
  // Characters outside printable ASCII share one visible box.
  EXPECT_EQ(nimbo::GlyphRows('\n'), nimbo::GlyphRows(char(0xE9)));
  EXPECT_NE(nimbo::GlyphRows('\n')[0], 0);
}

TEST(OverlayFont, DrawsTheGlyphBitsAtEveryScale) {
  for (int32_t scale : {1, 2, 3}) {
    const int32_t w = 40, h = 30;
    std::vector<uint32_t> screen(w * h, 0);
    int32_t end = nimbo::DrawText(screen.data(), w, h, 2, 3, "H%", kInk, scale);
    EXPECT_EQ(end, 2 + 2 * nimbo::kGlyphAdvance * scale);
    EXPECT_EQ(nimbo::TextWidth("H%", scale), 2 * nimbo::kGlyphAdvance * scale);
    for (int32_t i = 0; i < 2; ++i) {
      const uint8_t* rows = nimbo::GlyphRows("H%"[i]);
      for (int32_t y = 0; y < nimbo::kGlyphHeight * scale; ++y) {
        for (int32_t x = 0; x < nimbo::kGlyphAdvance * scale; ++x) {
          int32_t col = x / scale, row = y / scale;
          bool ink = col < nimbo::kGlyphWidth && ((rows[row] >> (nimbo::kGlyphWidth - 1 - col)) & 1);
          int32_t sx = 2 + i * nimbo::kGlyphAdvance * scale + x, sy = 3 + y;
          if (sx >= w || sy >= h) continue;
          EXPECT_EQ(screen[sy * w + sx], ink ? kInk : 0u) << scale << ": " << x << "," << y;
        }
      }
    }
  }
}

TEST(OverlayFont, ClipsAtEveryEdgeWithoutWritingOutside) {
  // The screen sits inside a guard band that must stay untouched.
  const int32_t w = 17, h = 9, guard = 64;
  std::vector<uint32_t> buffer(w * h + 2 * guard, 0x12345678);
  uint32_t* screen = buffer.data() + guard;
  for (int32_t x : {-40, -3, 0, 12, 16, 100}) {
    for (int32_t y : {-20, -4, 0, 5, 8, 50}) {
      nimbo::DrawText(screen, w, h, x, y, "RE-SCANNING WHOLE SCREEN", kInk, 2);
    }
  }
  for (int32_t i = 0; i < guard; ++i) {
    EXPECT_EQ(buffer[i], 0x12345678u);
    EXPECT_EQ(buffer[guard + w * h + i], 0x12345678u);
  }
  // Some ink landed, and nothing happens for a null screen or text.
  int inked = 0;
  for (int32_t i = 0; i < w * h; ++i) inked += screen[i] == kInk;
  EXPECT_GT(inked, 0);
  EXPECT_EQ(nimbo::DrawText(nullptr, w, h, 1, 1, "x", kInk), 1);
  EXPECT_EQ(nimbo::DrawText(screen, w, h, 1, 1, nullptr, kInk), 1);
}

}  // namespace
