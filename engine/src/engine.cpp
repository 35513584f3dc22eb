#include "engine.h"

#include <cmath>
#include <cstring>
#include <new>

#include "matrix.h"

namespace nb3d {
namespace {

bool IsPowerOfTwoSide(int32_t side) {
  return side >= 1 && side <= nb3D::kMaxTextureSide && (side & (side - 1)) == 0;
}

bool Named(const char* name) { return name && name[0]; }

static_assert(sizeof(nb3D::Vertex) == 10 * sizeof(float), "backends read vertices as 10 packed floats");

void ColorToFloats(uint32_t color, float out[4]) {
  out[0] = float((color >> 16) & 0xFF) / 255.0f;
  out[1] = float((color >> 8) & 0xFF) / 255.0f;
  out[2] = float(color & 0xFF) / 255.0f;
  out[3] = float(color >> 24) / 255.0f;
}

// Vertex colours multiply the texture: zero means "as the texture is".
void TintToFloats(uint32_t color, float out[4]) { ColorToFloats(color ? color : 0xFFFFFFFFu, out); }

bool Finite(const float* v, int n) {
  for (int i = 0; i < n; ++i) {
    if (!std::isfinite(v[i])) return false;
  }
  return true;
}

}  // namespace

Engine::Engine(std::unique_ptr<RenderBackend> backend) : backend_(std::move(backend)) {}

Engine::~Engine() {
  End();
  // Textures go with the backend's context; nothing else holds device state.
  backend_.reset();
}

void Engine::Release() { delete this; }

// ---- errors and messages ---------------------------------------------------------

void Engine::Fail(const char* op, const std::string& reason) {
  ErrorReport(("nb3D::" + std::string(op) + ": " + reason).c_str());
}

void Engine::ErrorReport(const char* text) {
  if (errors_.size() >= kMaxErrors) errors_.pop_front();
  errors_.emplace_back(text ? text : "");
}

int32_t Engine::GetErrorCount() { return int32_t(errors_.size()); }

const char* Engine::GetError(int32_t index) {
  if (index < 0 || size_t(index) >= errors_.size()) return nullptr;
  return errors_[size_t(index)].c_str();
}

void Engine::ClearErrors() { errors_.clear(); }

void Engine::Message(int32_t a, int32_t b) {
  last_message_[0] = a;
  last_message_[1] = b;
  ++message_count_;
}

// ---- device and frame --------------------------------------------------------------

bool Engine::OpenDevice(const char* op) {
  if (device_open_) return true;
  std::string error;
  if (!backend_->Open(&error)) {
    Fail(op, "no drawing device (" + error + ")");
    return false;
  }
  device_open_ = true;
  return true;
}

bool Engine::WithDevice(const char* op, const std::function<void()>& work) {
  if (in_frame_) {
    work();
    return true;
  }
  if (!OpenDevice(op)) return false;
  if (!backend_->Bind()) {
    Fail(op, "the drawing device cannot be bound to this thread");
    return false;
  }
  work();
  backend_->Unbind();
  return true;
}

bool Engine::ApplyTarget(const char* op) {
  if (!target_pending_) return true;
  std::string error;
  if (!backend_->SetTarget(out_w_, out_h_, &error)) {
    Fail(op, "cannot make a " + std::to_string(out_w_) + "x" + std::to_string(out_h_) + " picture (" + error + ")");
    has_target_ = false;
    return false;
  }
  target_pending_ = false;
  has_target_ = true;
  return true;
}

int32_t Engine::Begin() {
  if (!OpenDevice("Begin")) return 0;
  if (!in_frame_) {
    if (!backend_->Bind()) {
      Fail("Begin", "the drawing device cannot be bound to this thread");
      return 0;
    }
    in_frame_ = true;
  }
  if (!ApplyTarget("Begin")) {
    End();
    return 0;
  }
  if (!has_target_) return 1;  // device only: no picture size yet

  float clear[4];
  ColorToFloats(background_color_, clear);
  backend_->Clear(clear);
  if (!background_texture_.empty()) {
    Quad cover{};
    cover.x0 = -out_w_ * 0.5f;
    cover.y0 = -out_h_ * 0.5f;
    cover.x1 = out_w_ * 0.5f;
    cover.y1 = out_h_ * 0.5f;
    cover.texture = background_texture_.c_str();
    DrawQuad(cover);  // an unknown name is reported there; the colour stays
  }
  return 1;
}

void Engine::End() {
  if (!in_frame_) return;
  backend_->Unbind();
  in_frame_ = false;
}

int32_t Engine::SetOutputSize(int32_t width, int32_t height) {
  if (width < 1 || height < 1 || width > kMaxOutputSide || height > kMaxOutputSide) {
    Fail("SetOutputSize", "size " + std::to_string(width) + "x" + std::to_string(height) + " outside 1.." +
                              std::to_string(kMaxOutputSide));
    return 0;
  }
  if (width != out_w_ || height != out_h_ || !has_target_) {
    out_w_ = width;
    out_h_ = height;
    target_pending_ = true;
    if (in_frame_) return ApplyTarget("SetOutputSize") ? 1 : 0;
  }
  return 1;
}

const char* Engine::GetDeviceName() { return device_open_ ? backend_->DeviceName() : ""; }

bool Engine::CheckDrawable(const char* op) {
  if (!in_frame_) {
    Fail(op, "called outside Begin/End");
    return false;
  }
  if (!has_target_) {
    Fail(op, "no output size set");
    return false;
  }
  return true;
}

int32_t Engine::Present(orrery::Screen* screen) {
  if (!CheckDrawable("Present")) return 0;
  if (!screen || !screen->pixels) {
    Fail("Present", "no screen");
    return 0;
  }
  if (screen->width != out_w_ || screen->height != out_h_) {
    Fail("Present", "screen is " + std::to_string(screen->width) + "x" + std::to_string(screen->height) +
                        ", the frame " + std::to_string(out_w_) + "x" + std::to_string(out_h_));
    return 0;
  }
  std::string error;
  if (!backend_->ReadPixels(screen->pixels, &error)) {
    Fail("Present", error);
    return 0;
  }
  return 1;
}

// ---- textures -------------------------------------------------------------------------

int32_t Engine::CreateTexture(const char* name, const TextureDesc& desc) {
  if (!Named(name)) {
    Fail("CreateTexture", "no name");
    return 0;
  }
  std::string what = std::string("texture '") + name + "': ";
  if (!IsPowerOfTwoSide(desc.width) || !IsPowerOfTwoSide(desc.height)) {
    Fail("CreateTexture", what + "size " + std::to_string(desc.width) + "x" + std::to_string(desc.height) +
                              " is not a power of two from 1 to " + std::to_string(kMaxTextureSide));
    return 0;
  }
  if (desc.format < kFormatDefault || desc.format > kFormatRgba) {
    Fail("CreateTexture", what + "unknown pixel format " + std::to_string(desc.format));
    return 0;
  }
  if (desc.filter < kFilterDefault || desc.filter > kFilterNearest) {
    Fail("CreateTexture", what + "unknown filter " + std::to_string(desc.filter));
    return 0;
  }
  int32_t stride = desc.stride ? desc.stride : desc.width;
  if (desc.pixels && stride < desc.width) {
    Fail("CreateTexture", what + "row stride " + std::to_string(stride) + " is shorter than a row");
    return 0;
  }
  uint32_t id = 0;
  bool bound = WithDevice("CreateTexture", [&] {
    id = backend_->CreateTexture(desc.width, desc.height, desc.format == kFormatRgb,
                                 desc.filter == kFilterNearest, desc.pixels, stride);
  });
  if (!bound) return 0;
  if (!id) {
    Fail("CreateTexture", what + "the device refused it");
    return 0;
  }
  auto found = textures_.find(name);
  if (found != textures_.end()) {
    uint32_t old = found->second.id;
    WithDevice("CreateTexture", [&] { backend_->DeleteTexture(old); });
    found->second = {id, desc.width, desc.height};
  } else {
    textures_.emplace(name, TextureRecord{id, desc.width, desc.height});
  }
  return 1;
}

int32_t Engine::UpdateTexture(const char* name, int32_t x, int32_t y, int32_t width, int32_t height,
                              const uint32_t* pixels, int32_t stride) {
  auto found = Named(name) ? textures_.find(name) : textures_.end();
  if (found == textures_.end()) {
    Fail("UpdateTexture", std::string("unknown texture '") + (name ? name : "") + "'");
    return 0;
  }
  const TextureRecord& t = found->second;
  if (!pixels || width < 1 || height < 1 || x < 0 || y < 0 || x > t.width - width || y > t.height - height) {
    Fail("UpdateTexture", std::string("block ") + std::to_string(width) + "x" + std::to_string(height) + " at (" +
                              std::to_string(x) + "," + std::to_string(y) + ") does not fit texture '" + name +
                              "' of " + std::to_string(t.width) + "x" + std::to_string(t.height));
    return 0;
  }
  if (stride == 0) stride = width;
  if (stride < width) {
    Fail("UpdateTexture", "row stride " + std::to_string(stride) + " is shorter than a row");
    return 0;
  }
  return WithDevice("UpdateTexture", [&] { backend_->UpdateTexture(t.id, x, y, width, height, pixels, stride); })
             ? 1
             : 0;
}

int32_t Engine::SetTextureFilter(const char* name, int32_t filter) {
  auto found = Named(name) ? textures_.find(name) : textures_.end();
  if (found == textures_.end() || filter < kFilterDefault || filter > kFilterNearest) {
    Fail("SetTextureFilter", std::string("unknown texture '") + (name ? name : "") + "' or filter " +
                                 std::to_string(filter));
    return 0;
  }
  uint32_t id = found->second.id;
  return WithDevice("SetTextureFilter", [&] { backend_->SetTextureFilter(id, filter == kFilterNearest); }) ? 1 : 0;
}

int32_t Engine::HasTexture(const char* name) { return Named(name) && textures_.count(name) ? 1 : 0; }

int32_t Engine::GetTextureSize(const char* name, int32_t* width, int32_t* height) {
  auto found = Named(name) ? textures_.find(name) : textures_.end();
  bool known = found != textures_.end();
  if (width) *width = known ? found->second.width : 0;
  if (height) *height = known ? found->second.height : 0;
  return known ? 1 : 0;
}

void Engine::DeleteTexture(const char* name) {
  auto found = Named(name) ? textures_.find(name) : textures_.end();
  if (found == textures_.end()) return;
  uint32_t id = found->second.id;
  textures_.erase(found);
  WithDevice("DeleteTexture", [&] { backend_->DeleteTexture(id); });
}

bool Engine::ResolveTexture(const char* op, const char* name, uint32_t* id) {
  *id = 0;
  if (!Named(name)) return true;
  auto found = textures_.find(name);
  if (found == textures_.end()) {
    Fail(op, std::string("unknown texture '") + name + "'");
    return false;
  }
  *id = found->second.id;
  return true;
}

// ---- pixel buffers ---------------------------------------------------------------------

uint32_t Engine::AllocBuffer(int32_t bytes) {
  if (bytes < 1 || bytes > kMaxBufferBytes) {
    Fail("AllocBuffer", "size " + std::to_string(bytes) + " outside 1.." + std::to_string(kMaxBufferBytes));
    return 0;
  }
  std::unique_ptr<uint8_t[]> memory(new (std::nothrow) uint8_t[size_t(bytes)]());
  if (!memory) {
    Fail("AllocBuffer", "out of memory for " + std::to_string(bytes) + " bytes");
    return 0;
  }
  uint32_t handle = next_buffer_++;
  if (next_buffer_ == 0) next_buffer_ = 1;  // 0 stays "no buffer" after wrapping
  buffers_[handle] = {std::move(memory), false};
  return handle;
}

void* Engine::LockBuffer(uint32_t buffer) {
  auto found = buffers_.find(buffer);
  if (found == buffers_.end()) {
    Fail("LockBuffer", "unknown buffer " + std::to_string(buffer));
    return nullptr;
  }
  if (found->second.locked) {
    Fail("LockBuffer", "buffer " + std::to_string(buffer) + " is already locked");
    return nullptr;
  }
  found->second.locked = true;
  return found->second.bytes.get();
}

void Engine::UnlockBuffer(uint32_t buffer) {
  auto found = buffers_.find(buffer);
  if (found == buffers_.end() || !found->second.locked) {
    Fail("UnlockBuffer", "buffer " + std::to_string(buffer) + " is not locked");
    return;
  }
  found->second.locked = false;
}

void Engine::FreeBuffer(uint32_t buffer) {
  if (!buffers_.erase(buffer) && buffer) Fail("FreeBuffer", "unknown buffer " + std::to_string(buffer));
}

// ---- scene ---------------------------------------------------------------------------------

void Engine::SetCamera(const Camera& camera) {
  if (!Finite(camera.position, 3) || !Finite(camera.target, 3) || !std::isfinite(camera.roll) ||
      !std::isfinite(camera.zoom) || camera.zoom < 0.0f) {
    Fail("SetCamera", "position, target, roll and zoom must be finite, zoom not negative");
    return;
  }
  camera_ = camera;
  if (camera_.zoom == 0.0f) camera_.zoom = 1.0f;
}

void Engine::SetProjection(const Projection& projection) {
  Projection p = projection;
  if (p.fov_y_degrees == 0.0f) p.fov_y_degrees = 60.0f;
  if (p.near_plane == 0.0f) p.near_plane = 1.0f;
  if (p.far_plane == 0.0f) p.far_plane = 10000.0f;
  if (!(p.fov_y_degrees > 0.0f && p.fov_y_degrees < 180.0f) || !(p.near_plane > 0.0f) ||
      !(p.far_plane > p.near_plane) || !std::isfinite(p.far_plane)) {
    Fail("SetProjection", "needs 0 < fov < 180 and 0 < near < far");
    return;
  }
  projection_ = p;
}

void Engine::SetBackground(const Background& background) {
  background_color_ = background.color;
  background_texture_ = Named(background.texture) ? background.texture : "";
}

int32_t Engine::DrawQuad(const Quad& quad) {
  if (!CheckDrawable("DrawQuad")) return 0;
  const float corners[8] = {quad.x0, quad.y0, quad.x1, quad.y1, quad.u0, quad.v0, quad.u1, quad.v1};
  if (!Finite(corners, 8)) {
    Fail("DrawQuad", "corners and texture coordinates must be finite");
    return 0;
  }
  DrawCall call;
  if (!ResolveTexture("DrawQuad", quad.texture, &call.texture)) return 0;
  float u0 = quad.u0, v0 = quad.v0, u1 = quad.u1, v1 = quad.v1;
  if (u0 == 0.0f && v0 == 0.0f && u1 == 0.0f && v1 == 0.0f) u1 = v1 = 1.0f;
  // Corners clockwise from the top-left; the layout is nb3D::Vertex.
  const float vertices[40] = {
      quad.x0, quad.y0, 0, 0, 0, 1, u0, v0, u0, v0,  //
      quad.x1, quad.y0, 0, 0, 0, 1, u1, v0, u1, v0,  //
      quad.x1, quad.y1, 0, 0, 0, 1, u1, v1, u1, v1,  //
      quad.x0, quad.y1, 0, 0, 0, 1, u0, v1, u0, v1,
  };
  static const uint32_t kIndices[6] = {0, 1, 2, 0, 2, 3};
  call.vertices = vertices;
  call.vertex_count = 4;
  call.indices = kIndices;
  call.index_count = 6;
  ScreenToClip(float(out_w_), float(out_h_), call.mvp);
  Identity(call.model);
  TintToFloats(quad.color, call.color);
  call.blend = (quad.flags & kFlagAdditive)          ? DrawCall::kBlendAdditive
               : (quad.flags & kFlagHalfTransparent) ? DrawCall::kBlendHalf
                                                     : DrawCall::kBlendOpaque;
  call.depth_test = false;
  call.cull_back = false;
  backend_->Draw(call);
  return 1;
}

int32_t Engine::DrawMesh(const Mesh& mesh) {
  if (!CheckDrawable("DrawMesh")) return 0;
  if (!mesh.vertices || mesh.vertex_count < 1 || mesh.vertex_count > kMaxMeshVertices || !mesh.indices ||
      mesh.index_count < 3 || mesh.index_count > 3 * kMaxMeshVertices || mesh.index_count % 3 != 0) {
    Fail("DrawMesh", "needs 1.." + std::to_string(kMaxMeshVertices) +
                         " vertices and a multiple of three indices, at most three per vertex allowed");
    return 0;
  }
  for (int32_t i = 0; i < mesh.index_count; ++i) {
    if (mesh.indices[i] >= uint32_t(mesh.vertex_count)) {
      Fail("DrawMesh", "index " + std::to_string(mesh.indices[i]) + " past the " +
                           std::to_string(mesh.vertex_count) + " vertices");
      return 0;
    }
  }
  if (mesh.transform && !Finite(mesh.transform, 16)) {
    Fail("DrawMesh", "transform must be finite");
    return 0;
  }
  DrawCall call;
  if (!ResolveTexture("DrawMesh", mesh.texture, &call.texture)) return 0;
  const uint32_t second_flags = kFlagSecondAdded | kFlagSecondSubtracted | kFlagAlphaFromSecondBlue;
  if (mesh.flags & second_flags) {
    if (!Named(mesh.texture2)) {
      Fail("DrawMesh", "render flags " + std::to_string(mesh.flags) + " need a second texture");
      return 0;
    }
    if (!ResolveTexture("DrawMesh", mesh.texture2, &call.texture2)) return 0;
    call.second = (mesh.flags & kFlagAlphaFromSecondBlue) ? DrawCall::kSecondAlphaFromBlue
                  : (mesh.flags & kFlagSecondSubtracted)  ? DrawCall::kSecondSubtract
                                                          : DrawCall::kSecondAdd;
  }
  call.blend = (mesh.flags & kFlagAlphaFromSecondBlue) ? DrawCall::kBlendAlpha
               : (mesh.flags & kFlagAdditive)          ? DrawCall::kBlendAdditive
               : (mesh.flags & kFlagHalfTransparent)   ? DrawCall::kBlendHalf
                                                       : DrawCall::kBlendOpaque;
  call.cull_back = !(mesh.flags & kFlagTwoSided);
  call.lit = mesh.lit ? 1 : 0;
  TintToFloats(mesh.color, call.color);

  // clip = projection * view * model, drawn upside down (see FlipClipY).
  float model[16], view[16], projection[16], view_model[16];
  if (mesh.transform) std::memcpy(model, mesh.transform, sizeof(model));
  else Identity(model);
  LookAt(camera_.position, camera_.target, camera_.roll, view);
  const float half_fov = projection_.fov_y_degrees * 0.5f * float(M_PI / 180.0);
  const float fov = 2.0f * std::atan(std::tan(half_fov) / camera_.zoom);
  Perspective(fov, float(out_w_) / float(out_h_), projection_.near_plane, projection_.far_plane, projection);
  FlipClipY(projection);
  Multiply(view, model, view_model);
  Multiply(projection, view_model, call.mvp);
  std::memcpy(call.model, model, sizeof(model));
  float light[3] = {camera_.position[0] - camera_.target[0], camera_.position[1] - camera_.target[1],
                    camera_.position[2] - camera_.target[2]};
  float length = std::sqrt(light[0] * light[0] + light[1] * light[1] + light[2] * light[2]);
  if (length > 0.0f) {
    for (int i = 0; i < 3; ++i) call.light[i] = light[i] / length;
  }

  call.vertices = &mesh.vertices[0].x;
  call.vertex_count = mesh.vertex_count;
  if (mesh.flags & kFlagWireframe) {
    // Each triangle's three edges as lines (shared edges are drawn twice,
    // which looks the same).
    line_indices_.resize(size_t(mesh.index_count) * 2);
    for (int32_t t = 0; t < mesh.index_count; t += 3) {
      uint32_t* edge = &line_indices_[size_t(t) * 2];
      const uint32_t* tri = &mesh.indices[t];
      edge[0] = tri[0], edge[1] = tri[1], edge[2] = tri[1], edge[3] = tri[2], edge[4] = tri[2], edge[5] = tri[0];
    }
    call.indices = line_indices_.data();
    call.index_count = int32_t(line_indices_.size());
    call.primitive = DrawCall::kLines;
  } else {
    call.indices = mesh.indices;
    call.index_count = mesh.index_count;
  }
  backend_->Draw(call);
  return 1;
}

}  // namespace nb3d
