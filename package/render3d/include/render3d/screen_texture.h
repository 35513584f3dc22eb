// A host screen as an engine texture: the engine takes power-of-two sides of
// at most nb3D::kMaxTextureSide, so the picture sits in the top-left corner
// of the smallest such texture that holds it with two texels to spare on
// each axis (pictures larger than that are sampled down to fit), and
// `u_scale`, `v_scale` say how much of the texture it covers. The spare
// texels repeat the picture's edges, so filtering never blends in black.
#pragma once

#include <cstdint>
#include <vector>

#include "nb3d/nb3d.h"
#include "orrery/types.h"

namespace nimbo {

struct ScreenTexture {
  int32_t width = 0;   // texture sides
  int32_t height = 0;
  float u_scale = 1;   // picture width / texture width
  float v_scale = 1;
};

// Smallest power of two from 2 to nb3D::kMaxTextureSide that holds `side`
// (the top side when `side` is larger).
int32_t TextureSideFor(int32_t side);

// Creates (or resizes) texture `name` and uploads `screen` into it, as RGB
// (alpha opaque). False when the engine refuses it.
bool UploadScreenTexture(nb3D* engine, const char* name, const orrery::Screen& screen, ScreenTexture* texture);

}  // namespace nimbo
