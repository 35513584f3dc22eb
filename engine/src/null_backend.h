// A backend that draws nothing: every call succeeds and is counted, and
// Present reads the last clear colour. It makes the engine object's state
// logic testable where no EGL exists, and lets a host run 3D effects
// headless when asked for it (NB3D_BACKEND=null).
#pragma once

#include <set>

#include "backend.h"

namespace nb3d {

class NullBackend final : public RenderBackend {
 public:
  bool Open(std::string*) override { return true; }
  const char* DeviceName() const override { return "null"; }
  bool Bind() override {
    ++binds;
    return true;
  }
  void Unbind() override { ++unbinds; }
  bool SetTarget(int32_t width, int32_t height, std::string*) override;
  uint32_t CreateTexture(int32_t, int32_t, bool, bool, const uint32_t*, int32_t) override;
  void UpdateTexture(uint32_t, int32_t, int32_t, int32_t, int32_t, const uint32_t*, int32_t) override { ++uploads; }
  void SetTextureFilter(uint32_t, bool) override {}
  void DeleteTexture(uint32_t texture) override { textures.erase(texture); }
  void Clear(const float color[4]) override;
  void Draw(const DrawCall& call) override;
  bool ReadPixels(uint32_t* pixels, std::string*) override;

  // What a test looks at.
  int32_t width = 0;
  int32_t height = 0;
  int32_t binds = 0;
  int32_t unbinds = 0;
  int32_t uploads = 0;
  int32_t draws = 0;
  DrawCall last_draw;
  std::set<uint32_t> textures;
  uint32_t clear_pixel = 0;

 private:
  uint32_t next_texture_ = 1;
};

}  // namespace nb3d
