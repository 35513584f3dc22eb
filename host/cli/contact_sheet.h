// ContactSheet: a labelled grid of pictures, one tile per effect, with a
// title row: the demo's overview image.
#pragma once

#include <cstdint>
#include <string>

#include "media/frame_buffer.h"
#include "media/frame_scaler.h"

namespace nimbo::host {

class ContactSheet {
 public:
  ContactSheet(int32_t tile_width, int32_t tile_height, int32_t count, const std::string& title);
  // Tile `n` shows `picture` (scaled to the tile) with `label` under it and,
  // when not empty, `note` over the picture (such as "no picture").
  void SetTile(int32_t n, const FrameBuffer& picture, const std::string& label, const std::string& note);
  const FrameBuffer& Picture() const { return sheet_; }

  static constexpr int32_t kColumns = 6;

 private:
  void TileOrigin(int32_t n, int32_t* x, int32_t* y) const;

  int32_t tile_width_;
  int32_t tile_height_;
  FrameBuffer sheet_;
  FrameBuffer scaled_;
  FrameScaler scaler_;
};

}  // namespace nimbo::host
