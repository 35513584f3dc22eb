// nb3D: the 3D engine object an effect draws through.
//
// The engine is its own shared library (kEngineLibraryName), loaded at run
// time; an effect obtains one object per instance through the exported
// factory
//   extern "C" nb3D* Cnb3D(void* effect, float* version);
// which answers null and writes its own version into *version when asked for
// another one (kNb3DVersion is the only version the package accepts).
// The object is released with Release(), never with delete across the
// library boundary.
//
// Index:
//   1. frame: Begin / End, output size, Present
//   2. error report and messages
//   3. textures by name
//   4. pixel buffers
//   5. scene: camera, projection, background, quads, meshes
//
// Conventions:
//   - Results: nonzero = success, 0 = failure. A failing call also appends a
//     text to the error report, so the reason is never lost.
//   - Descriptors are plain structs; a zero field means "the default" (noted
//     per field), so `Desc d{}` plus the fields that matter is always valid.
//   - Pixels are the host's: 32-bit words 0xAARRGGBB (bytes B, G, R, A in
//     memory), rows top to bottom.
//   - Screen space (quads) is in output pixels with the origin at the centre
//     of the output, x to the right and y DOWN, like a Screen's rows; texture
//     coordinate (0, 0) is the first pixel of the first row uploaded.
//   - World space (meshes, camera) is right-handed with y up. Front faces are
//     counter-clockwise as seen by the camera.
//
// Threading: one object is used by one effect, under that effect's lock.
// Objects are independent of each other: each has its own drawing context,
// and two objects may draw at the same time from different threads. Begin
// binds the object's context to the calling thread and End releases it.
#pragma once

#include <cstdint>

#include "orrery/types.h"

inline constexpr float kNb3DVersion = 1.031f;
// The engine's file in the host's bin folder.
inline constexpr const char* kEngineLibraryName = "libnb3D.so";
// The exported factory.
inline constexpr const char* kEngineFactoryName = "Cnb3D";

class nb3D {
 public:
  // Texture sides are powers of two from 1 to kMaxTextureSide.
  static constexpr int32_t kMaxTextureSide = 1024;
  // Output sides the engine accepts.
  static constexpr int32_t kMaxOutputSide = 8192;

  enum PixelFormat : int32_t {
    kFormatDefault = 0,  // = kFormatRgba
    kFormatRgb = 1,      // alpha reads as opaque whatever the A bytes hold
    kFormatRgba = 2,
  };

  enum TextureFilter : int32_t {
    kFilterDefault = 0,  // = kFilterLinear
    kFilterLinear = 1,
    kFilterNearest = 2,  // texels stay hard-edged when magnified
  };

  // Material render flags: how a mesh is combined with what is already drawn
  // and with its second texture. Flags 4, 8 and 32 need the second texture.
  enum RenderFlag : uint32_t {
    kFlagHalfTransparent = 0x1,      // 50% of the mesh over 50% of the scene
    kFlagAdditive = 0x2,             // mesh colour added to the scene
    kFlagSecondAdded = 0x4,          // second texture's colour added
    kFlagSecondSubtracted = 0x8,     // second texture's colour subtracted
    kFlagWireframe = 0x10,           // the triangles' edges only
    kFlagAlphaFromSecondBlue = 0x20, // opacity = second texture's blue
    kFlagTwoSided = 0x100,           // back faces are drawn too
  };

  struct TextureDesc {
    int32_t width;           // power of two, 1..kMaxTextureSide
    int32_t height;
    int32_t format;          // PixelFormat; 0 = RGBA
    int32_t filter;          // TextureFilter; 0 = linear
    const uint32_t* pixels;  // initial content; null = transparent black
    int32_t stride;          // pixels from one row to the next; 0 = width
  };

  // A camera looking from `position` at `target`, turned by `roll` radians
  // about its viewing axis; `zoom` narrows the field of view (0 = 1).
  struct Camera {
    float position[3];
    float target[3];
    float roll;
    float zoom;
  };

  struct Projection {
    float fov_y_degrees;  // vertical field of view; 0 = 60
    float near_plane;     // 0 = 1
    float far_plane;      // 0 = 10000
  };

  // What each frame starts from: the colour, then the texture (if named)
  // stretched over the whole output.
  struct Background {
    uint32_t color;       // 0xAARRGGBB, used as it is (0 = transparent black)
    const char* texture;  // null or "" = none
  };

  // An axis-aligned rectangle in screen space, drawn over everything before
  // it with no depth test.
  struct Quad {
    float x0, y0;  // top-left corner
    float x1, y1;  // bottom-right corner
    float u0, v0;  // texture coordinates at the top-left corner
    float u1, v1;  // at the bottom-right; all four 0 = the whole texture
    const char* texture;  // null or "" = plain colour
    uint32_t color;       // multiplies the texture; 0 = opaque white
    uint32_t flags;       // kFlagHalfTransparent or kFlagAdditive
  };

  struct Vertex {
    float x, y, z;
    float nx, ny, nz;  // unit normal; used when the mesh is lit
    float u, v;        // first texture
    float u2, v2;      // second texture
  };

  // An indexed triangle list drawn with depth test.
  struct Mesh {
    const Vertex* vertices;
    int32_t vertex_count;
    const uint32_t* indices;  // three per triangle, each < vertex_count
    int32_t index_count;
    const char* texture;      // null or "" = plain colour
    const char* texture2;     // second texture (flags 4, 8, 32)
    uint32_t flags;           // RenderFlag bits
    uint32_t color;           // multiplies the texture; 0 = opaque white
    const float* transform;   // 4x4 model matrix, column-major; null = identity
    int32_t lit;              // 0 = colours as they are (pre-lit textures);
                              // 1 = diffuse light from the camera's direction
  };

  // ---- 1. frame ---------------------------------------------------------------
  // Creates the drawing device on first use, binds it to this thread and
  // starts a frame from the background. 0 when there is no device.
  virtual int32_t Begin() = 0;
  // Ends the frame and unbinds the device from this thread.
  virtual void End() = 0;
  // Size of the picture a frame draws; kept until changed. Needed before the
  // first quad, mesh or Present.
  virtual int32_t SetOutputSize(int32_t width, int32_t height) = 0;
  // Copies the frame into `screen`, which must have the output size.
  virtual int32_t Present(orrery::Screen* screen) = 0;
  // The device's renderer ("llvmpipe ...", a GPU's name), "" before Begin.
  virtual const char* GetDeviceName() = 0;

  // ---- 2. error report and messages --------------------------------------------
  // Render-time error texts and trace labels; the engine keeps them, together
  // with its own, oldest first (the oldest are dropped past a few hundred).
  virtual void ErrorReport(const char* text) = 0;
  virtual int32_t GetErrorCount() = 0;
  virtual const char* GetError(int32_t index) = 0;  // null out of range
  virtual void ClearErrors() = 0;
  // The two arguments of the effect's SendEffectMessage, unchanged.
  virtual void Message(int32_t a, int32_t b) = 0;

  // ---- 3. textures by name ---------------------------------------------------------
  // Creates or replaces the texture `name`.
  virtual int32_t CreateTexture(const char* name, const TextureDesc& desc) = 0;
  // Replaces a width x height block at (x, y); the block must lie inside.
  virtual int32_t UpdateTexture(const char* name, int32_t x, int32_t y, int32_t width, int32_t height,
                                const uint32_t* pixels, int32_t stride) = 0;
  virtual int32_t SetTextureFilter(const char* name, int32_t filter) = 0;
  virtual int32_t HasTexture(const char* name) = 0;
  // The texture's sides; 0 (and both set to 0) when there is no such texture.
  virtual int32_t GetTextureSize(const char* name, int32_t* width, int32_t* height) = 0;
  virtual void DeleteTexture(const char* name) = 0;

  // ---- 4. pixel buffers --------------------------------------------------------------
  // Zeroed memory owned by the engine object, reached through a handle
  // (0 = failure). Lock gives the pointer (null when the handle is unknown or
  // already locked); it stays valid until Unlock. Freeing a locked buffer is
  // allowed. Everything left is freed with the object.
  virtual uint32_t AllocBuffer(int32_t bytes) = 0;
  virtual void* LockBuffer(uint32_t buffer) = 0;
  virtual void UnlockBuffer(uint32_t buffer) = 0;
  virtual void FreeBuffer(uint32_t buffer) = 0;

  // ---- 5. scene ----------------------------------------------------------------------
  virtual void SetCamera(const Camera& camera) = 0;
  virtual void SetProjection(const Projection& projection) = 0;
  // Takes effect at the next Begin.
  virtual void SetBackground(const Background& background) = 0;
  virtual int32_t DrawQuad(const Quad& quad) = 0;
  virtual int32_t DrawMesh(const Mesh& mesh) = 0;

  virtual void Release() = 0;

 protected:
  ~nb3D() = default;
};

extern "C" {
using Cnb3DFactory = nb3D* (*)(void* effect, float* version);
}
