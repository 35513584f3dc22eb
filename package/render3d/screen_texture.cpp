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
  // Two texels to spare on each axis for the edge copies below.
  const int32_t side_w = TextureSideFor(screen.width + 2), side_h = TextureSideFor(screen.height + 2);
  int32_t tex_w = 0, tex_h = 0;
  if (!engine->GetTextureSize(name, &tex_w, &tex_h) || tex_w != side_w || tex_h != side_h) {
    nb3D::TextureDesc desc{};
    desc.width = side_w;
    desc.height = side_h;
    desc.format = nb3D::kFormatRgb;
    if (!engine->CreateTexture(name, desc)) return false;
  }
  const int32_t w = std::min(screen.width, side_w - 2), h = std::min(screen.height, side_h - 2);
  const uint32_t* src = screen.pixels;
  int32_t stride = screen.width;
  std::vector<uint32_t> fitted;
  if (w != screen.width || h != screen.height) {
    // Nearest sampling down to the largest texture: a preview-quality copy
    // of a picture the engine cannot hold whole.
    fitted.resize(size_t(w) * size_t(h));
    for (int32_t y = 0; y < h; ++y) {
      const uint32_t* row = screen.pixels + size_t(int64_t(y) * screen.height / h) * size_t(screen.width);
      for (int32_t x = 0; x < w; ++x) fitted[size_t(y) * size_t(w) + size_t(x)] = row[int64_t(x) * screen.width / w];
    }
    src = fitted.data();
    stride = w;
  }
  bool ok = engine->UpdateTexture(name, 0, 0, w, h, src, stride);
  // The texture repeats, so filtering at the picture's edges reads the
  // texels beyond them: the column and row after the picture repeat its last
  // ones and the texture's last column and row its first ones, so no dark
  // seam shows where the picture ends.
  ok = ok && engine->UpdateTexture(name, w, 0, 1, h, src + (w - 1), stride);
  ok = ok && engine->UpdateTexture(name, side_w - 1, 0, 1, h, src, stride);
  const uint32_t* last = src + size_t(h - 1) * size_t(stride);
  ok = ok && engine->UpdateTexture(name, 0, h, w, 1, last, stride);
  ok = ok && engine->UpdateTexture(name, 0, side_h - 1, w, 1, src, stride);
  texture->width = side_w;
  texture->height = side_h;
  texture->u_scale = float(w) / float(side_w);
  texture->v_scale = float(h) / float(side_h);
  return ok;
}

}  // namespace nimbo
