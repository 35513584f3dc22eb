#include "render3d/screen_texture.h"

#include <algorithm>

namespace nimbo {

int32_t TextureSideFor(int32_t side) {
  int32_t texture = 2;
  while (texture < side && texture < nb3D::kMaxTextureSide) texture *= 2;
  return texture;
}

bool UploadScreenTexture(nb3D* engine, const char* name, const orrery::Screen& screen, ScreenTexture* texture) {
  if (!engine || !screen.pixels || screen.width <= 0 || screen.height <= 0) return false;
  const int32_t side_w = TextureSideFor(screen.width), side_h = TextureSideFor(screen.height);
  int32_t tex_w = 0, tex_h = 0;
  if (!engine->GetTextureSize(name, &tex_w, &tex_h) || tex_w != side_w || tex_h != side_h) {
    nb3D::TextureDesc desc{};
    desc.width = side_w;
    desc.height = side_h;
    desc.format = nb3D::kFormatRgb;
    if (!engine->CreateTexture(name, desc)) return false;
  }
  const int32_t w = std::min(screen.width, side_w), h = std::min(screen.height, side_h);
  bool ok;
  if (w == screen.width && h == screen.height) {
    ok = engine->UpdateTexture(name, 0, 0, w, h, screen.pixels, screen.width);
  } else {
    // Nearest sampling down to the largest texture: a preview-quality copy
    // of a picture the engine cannot hold whole.
    std::vector<uint32_t> fitted(size_t(w) * size_t(h));
    for (int32_t y = 0; y < h; ++y) {
      const uint32_t* row = screen.pixels + size_t(int64_t(y) * screen.height / h) * size_t(screen.width);
      for (int32_t x = 0; x < w; ++x) fitted[size_t(y) * size_t(w) + size_t(x)] = row[int64_t(x) * screen.width / w];
    }
    ok = engine->UpdateTexture(name, 0, 0, w, h, fitted.data(), w);
  }
  texture->width = side_w;
  texture->height = side_h;
  texture->u_scale = float(w) / float(side_w);
  texture->v_scale = float(h) / float(side_h);
  return ok;
}

}  // namespace nimbo
