// nb3d::Engine: the engine object an effect holds (the nb3D interface).
//
// It keeps everything an effect can observe (texture names and sizes,
// buffers and their lock state, camera, projection, background, the error
// report, the frame state) and checks every argument before the backend sees
// it, so a bad call from an effect is an error text, never a crash. The
// drawing itself is the backend's (backend.h).
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "backend.h"
#include "nb3d/nb3d.h"

namespace nb3d {

class Engine final : public nb3D {
 public:
  // Error texts kept; older ones are dropped first.
  static constexpr size_t kMaxErrors = 256;
  // Largest pixel buffer: a 1024 x 1024 texture of 32-bit pixels, 16 times.
  static constexpr int32_t kMaxBufferBytes = 64 << 20;
  // Largest mesh; its index count may be three times this.
  static constexpr int32_t kMaxMeshVertices = 1 << 24;

  explicit Engine(std::unique_ptr<RenderBackend> backend);
  ~Engine();

  int32_t Begin() override;
  void End() override;
  int32_t SetOutputSize(int32_t width, int32_t height) override;
  int32_t Present(orrery::Screen* screen) override;
  const char* GetDeviceName() override;

  void ErrorReport(const char* text) override;
  int32_t GetErrorCount() override;
  const char* GetError(int32_t index) override;
  void ClearErrors() override;
  void Message(int32_t a, int32_t b) override;

  int32_t CreateTexture(const char* name, const TextureDesc& desc) override;
  int32_t UpdateTexture(const char* name, int32_t x, int32_t y, int32_t width, int32_t height,
                        const uint32_t* pixels, int32_t stride) override;
  int32_t SetTextureFilter(const char* name, int32_t filter) override;
  int32_t HasTexture(const char* name) override;
  int32_t GetTextureSize(const char* name, int32_t* width, int32_t* height) override;
  void DeleteTexture(const char* name) override;

  uint32_t AllocBuffer(int32_t bytes) override;
  void* LockBuffer(uint32_t buffer) override;
  void UnlockBuffer(uint32_t buffer) override;
  void FreeBuffer(uint32_t buffer) override;

  void SetCamera(const Camera& camera) override;
  void SetProjection(const Projection& projection) override;
  void SetBackground(const Background& background) override;
  int32_t DrawQuad(const Quad& quad) override;
  int32_t DrawMesh(const Mesh& mesh) override;

  void Release() override;

  // The last SendEffectMessage arguments and how many arrived.
  int32_t MessageCount() const { return message_count_; }
  int32_t LastMessage(int32_t which) const { return last_message_[which & 1]; }

 private:
  struct TextureRecord {
    uint32_t id;
    int32_t width;
    int32_t height;
  };
  struct BufferRecord {
    std::unique_ptr<uint8_t[]> bytes;
    bool locked;
  };

  // Runs `work` with the device bound: inside a frame it already is,
  // outside one it is bound for the call and unbound after.
  bool WithDevice(const char* op, const std::function<void()>& work);
  bool OpenDevice(const char* op);
  bool ApplyTarget(const char* op);
  bool CheckDrawable(const char* op);
  // Texture id for `name` (0 for none); false when the name is unknown.
  bool ResolveTexture(const char* op, const char* name, uint32_t* id);
  void Fail(const char* op, const std::string& reason);

  std::unique_ptr<RenderBackend> backend_;
  bool device_open_ = false;
  bool in_frame_ = false;
  int32_t out_w_ = 0;
  int32_t out_h_ = 0;
  bool target_pending_ = false;
  bool has_target_ = false;

  std::map<std::string, TextureRecord, std::less<>> textures_;
  std::map<uint32_t, BufferRecord> buffers_;
  uint32_t next_buffer_ = 1;

  Camera camera_{{0.0f, 0.0f, 100.0f}, {0.0f, 0.0f, 0.0f}, 0.0f, 1.0f};
  Projection projection_{60.0f, 1.0f, 10000.0f};
  uint32_t background_color_ = 0;
  std::string background_texture_;

  std::deque<std::string> errors_;
  int32_t last_message_[2] = {0, 0};
  int32_t message_count_ = 0;
  std::vector<uint32_t> line_indices_;  // wireframe edges, reused
};

}  // namespace nb3d
