// The drawing backend behind an engine object.
//
// The engine object (engine.h) owns every piece of state an effect can see
// (texture names, buffers, camera, error report) and checks every argument;
// a backend only does what it is told with arguments already checked. Two
// backends exist: OpenGL ES 3 over EGL (gles_backend.h), and a null backend
// (null_backend.h) that draws nothing, so the state logic is testable on a
// machine without any EGL.
#pragma once

#include <cstdint>
#include <string>

namespace nb3d {

// One draw of indexed primitives with everything resolved: matrices
// computed, textures looked up, flags split into states.
struct DrawCall {
  enum Primitive : int32_t { kTriangles, kLines };
  enum SecondTexture : int32_t { kSecondNone, kSecondAdd, kSecondSubtract, kSecondAlphaFromBlue };
  enum Blend : int32_t { kBlendOpaque, kBlendHalf, kBlendAdditive, kBlendAlpha };

  const float* vertices = nullptr;  // nb3D::Vertex layout, 10 floats each
  int32_t vertex_count = 0;
  const uint32_t* indices = nullptr;
  int32_t index_count = 0;
  Primitive primitive = kTriangles;
  float mvp[16] = {};    // clip-space matrix, column-major, y already flipped
  float model[16] = {};  // for normals
  float light[3] = {0, 0, 1};
  int32_t lit = 0;
  uint32_t texture = 0;   // backend texture id; 0 = white
  uint32_t texture2 = 0;
  SecondTexture second = kSecondNone;
  Blend blend = kBlendOpaque;
  float color[4] = {1, 1, 1, 1};  // r, g, b, a
  bool depth_test = true;
  bool cull_back = true;
};

class RenderBackend {
 public:
  virtual ~RenderBackend() = default;

  // Creates the device on first call; later calls answer the first result.
  virtual bool Open(std::string* error) = 0;
  virtual const char* DeviceName() const = 0;
  // Binds the device to the calling thread / unbinds it.
  virtual bool Bind() = 0;
  virtual void Unbind() = 0;

  // The rest is called with the device bound.
  virtual bool SetTarget(int32_t width, int32_t height, std::string* error) = 0;
  // Texture ids are nonzero. `pixels` may be null (transparent black).
  virtual uint32_t CreateTexture(int32_t width, int32_t height, bool rgb_only, bool nearest, const uint32_t* pixels,
                                 int32_t stride) = 0;
  virtual void UpdateTexture(uint32_t texture, int32_t x, int32_t y, int32_t width, int32_t height,
                             const uint32_t* pixels, int32_t stride) = 0;
  virtual void SetTextureFilter(uint32_t texture, bool nearest) = 0;
  virtual void DeleteTexture(uint32_t texture) = 0;
  // Clears colour (r, g, b, a in 0..1) and depth.
  virtual void Clear(const float color[4]) = 0;
  virtual void Draw(const DrawCall& call) = 0;
  // Reads the target into `pixels` (0xAARRGGBB, rows top to bottom).
  virtual bool ReadPixels(uint32_t* pixels, std::string* error) = 0;
};

}  // namespace nb3d
