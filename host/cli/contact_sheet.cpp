#include "cli/contact_sheet.h"

#include <algorithm>

#include "cli/bitmap_font.h"

namespace nimbo::host {
namespace {

constexpr int32_t kMargin = 8;
constexpr int32_t kLabelHeight = kGlyphHeight + 8;
constexpr int32_t kTitleScale = 2;
constexpr int32_t kTitleHeight = kGlyphHeight * kTitleScale + 2 * kMargin;
constexpr uint32_t kBackground = 0xFF202024u;
constexpr uint32_t kLabelColor = 0xFFE8E8E8u;
constexpr uint32_t kNoteColor = 0xFFFFC040u;

}  // namespace

ContactSheet::ContactSheet(int32_t tile_width, int32_t tile_height, int32_t count, const std::string& title)
    : tile_width_(tile_width), tile_height_(tile_height) {
  const int32_t columns = std::clamp(count, 1, kColumns);
  const int32_t rows = std::max(1, (count + kColumns - 1) / kColumns);
  sheet_.Reset(kMargin + columns * (tile_width + kMargin), kTitleHeight + rows * (tile_height + kLabelHeight + kMargin),
               kBackground);
  DrawText(sheet_, kMargin, kMargin, title, kLabelColor, kTitleScale);
}

void ContactSheet::TileOrigin(int32_t n, int32_t* x, int32_t* y) const {
  *x = kMargin + (n % kColumns) * (tile_width_ + kMargin);
  *y = kTitleHeight + (n / kColumns) * (tile_height_ + kLabelHeight + kMargin);
}

void ContactSheet::SetTile(int32_t n, const FrameBuffer& picture, const std::string& label, const std::string& note) {
  int32_t x0 = 0, y0 = 0;
  TileOrigin(n, &x0, &y0);
  if (y0 + tile_height_ > sheet_.height) return;
  const FrameBuffer* tile = &picture;
  if (!picture.pixels.empty()) {
    scaler_.Scale(picture, scaled_, tile_width_, tile_height_);
    tile = &scaled_;
    for (int32_t y = 0; y < tile_height_; ++y) {
      // Opaque on the sheet whatever alpha the effect left.
      for (int32_t x = 0; x < tile_width_; ++x) sheet_.At(x0 + x, y0 + y) = tile->At(x, y) | 0xFF000000u;
    }
  }
  if (!note.empty()) {
    const int32_t w = TextWidth(note, 1);
    DrawText(sheet_, x0 + (tile_width_ - w) / 2, y0 + tile_height_ / 2 - kGlyphHeight / 2, note, kNoteColor, 1);
  }
  std::string shown = label;
  const int32_t max_chars = std::max(1, tile_width_ / kGlyphAdvance);
  if (int32_t(shown.size()) > max_chars) shown.resize(size_t(max_chars));
  DrawText(sheet_, x0, y0 + tile_height_ + 4, shown, kLabelColor, 1);
}

}  // namespace nimbo::host
