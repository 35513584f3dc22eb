// OpenGL ES 3 over EGL, with no window: each backend has its own context
// and draws into its own framebuffer object (RGBA8 colour + 24-bit depth).
//
// The display is chosen once per process, shared by every backend and kept
// until the process ends:
//   1. a hardware EGL device (EGL_EXT_platform_device), when there is one;
//   2. Mesa's surfaceless platform (a GPU render node, or llvmpipe);
//   3. the default display.
// So the engine uses a GPU where one exists and otherwise runs in software,
// without a display server, as in CI.
#pragma once

#include <EGL/egl.h>
#include <GLES3/gl3.h>

#include "backend.h"

namespace nb3d {

class GlesBackend final : public RenderBackend {
 public:
  // `read_bgra`: read pixels in the Screen's byte order when the device can;
  // false forces the RGBA read and the CPU swizzle (tests compare the two).
  explicit GlesBackend(bool read_bgra = true) : want_bgra_read_(read_bgra) {}
  ~GlesBackend() override;

  bool Open(std::string* error) override;
  const char* DeviceName() const override { return device_name_.c_str(); }
  bool Bind() override;
  void Unbind() override;
  bool SetTarget(int32_t width, int32_t height, std::string* error) override;
  uint32_t CreateTexture(int32_t width, int32_t height, bool rgb_only, bool nearest, const uint32_t* pixels,
                         int32_t stride) override;
  void UpdateTexture(uint32_t texture, int32_t x, int32_t y, int32_t width, int32_t height, const uint32_t* pixels,
                     int32_t stride) override;
  void SetTextureFilter(uint32_t texture, bool nearest) override;
  void DeleteTexture(uint32_t texture) override;
  void Clear(const float color[4]) override;
  void Draw(const DrawCall& call) override;
  bool ReadPixels(uint32_t* pixels, std::string* error) override;

 private:
  // Copies `bytes` of `data` into the bound buffer `target`, growing its
  // storage (tracked in *capacity) only when it is too small.
  void Upload(GLenum target, GLsizeiptr bytes, const void* data, GLsizeiptr* capacity);
  bool CreateContext(std::string* error);
  bool CreateGlObjects(std::string* error);
  void DestroyTarget();

  bool want_bgra_read_;
  bool opened_ = false;
  bool open_ok_ = false;
  std::string open_error_;
  std::string device_name_;

  EGLDisplay display_ = EGL_NO_DISPLAY;
  EGLContext context_ = EGL_NO_CONTEXT;
  EGLSurface surface_ = EGL_NO_SURFACE;  // a 1x1 pbuffer where surfaceless contexts are missing

  bool read_bgra_ = false;
  struct Program {
    GLuint id = 0;
    GLint mvp = -1, model = -1, color = -1, second = -1, lit = -1, light = -1;
  };
  bool BuildProgram(bool full, Program* program, std::string* error);

  Program plain_;  // texture times colour
  Program full_;   // and the second texture, and light
  GLuint vao_ = 0, vertex_buffer_ = 0, index_buffer_ = 0;
  GLsizeiptr vertex_capacity_ = 0, index_capacity_ = 0;  // bytes of storage the buffers hold
  GLuint white_ = 0;
  GLuint framebuffer_ = 0, color_ = 0, depth_ = 0;
  int32_t width_ = 0, height_ = 0;
};

}  // namespace nb3d
