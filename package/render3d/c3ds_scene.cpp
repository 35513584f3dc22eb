// C3DSScene: loading (the file checks and the order of the steps), error
// texts, posing at a frame, and freeing.
#include <cstdio>
#include <memory>
#include <new>

#include "c3ds_builder.h"
#include "c3ds_math.h"
#include "c3ds_tracks.h"

namespace nimbo::scene3ds {
namespace {

// Where the usual layout keeps the low byte of MESH_VERSION: after the
// M3DMAGIC header, the M3D_VERSION chunk, and the MDATA and MESH_VERSION
// headers.
constexpr size_t kVersionOffset = 28;

void PoseFrom(const Tracks& tracks, float frame, bool hidden, Pose* pose) {
  pose->hidden = hidden;
  Evaluate(tracks.position, frame, &pose->position);
  Evaluate(tracks.rotation, frame, &pose->rotation);
  Evaluate(tracks.scale, frame, &pose->scale);
  Evaluate(tracks.hide, frame, &pose->hidden);
  Evaluate(tracks.morph, frame, &pose->morph);
  Evaluate(tracks.fov, frame, &pose->fov);
  Evaluate(tracks.roll, frame, &pose->roll);
}

}  // namespace

C3DSScene::C3DSScene() = default;
C3DSScene::~C3DSScene() = default;

const char* C3DSScene::GetErrorText(int code) {
  static const char* const kTexts[] = {
      "0 : no error",         "1 : out of memory",          "2 : null pointer",
      "3 : runtime error",    "4 : file not found",         "5 : wrong file format",
      "6 : wrong format version", "7 : file read error",    "8 : material read error",
      "9 : mesh read error",  "10: keyframe read error",
  };
  if (code < 0 || code > 10) return "11: illegal error code";
  return kTexts[code];
}

bool C3DSScene::Load(const std::string& path) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) {
    Free();
    error_ = kFileNotFound;
    return false;
  }
  long size = -1;
  if (std::fseek(file.get(), 0, SEEK_END) == 0) size = std::ftell(file.get());
  if (size == 0) return false;  // an empty file changes nothing, not even the code
  Free();
  file_name_ = path;
  if (size < 0 || std::fseek(file.get(), 0, SEEK_SET) != 0) {
    error_ = kReadError;
    return false;
  }
  std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[size_t(size)]);
  if (!buffer) {
    error_ = kOutOfMemory;
    return false;
  }
  if (std::fread(buffer.get(), 1, size_t(size), file.get()) != size_t(size)) {
    error_ = kReadError;
    return false;
  }
  return Read(buffer.get(), size_t(size));
}

bool C3DSScene::LoadFromMemory(const void* data, size_t size, const std::string& name) {
  Free();
  file_name_ = name;
  if (!data) {
    error_ = kNullPointer;
    return false;
  }
  return Read(static_cast<const uint8_t*>(data), size);
}

bool C3DSScene::Read(const uint8_t* data, size_t size) {
  if (size < 2 || data[0] != 'M' || data[1] != 'M') {
    error_ = kWrongFormat;
    return false;
  }
  if (size <= kVersionOffset) {
    error_ = kWrongFormat;  // too short to hold a version, or any scene
    return false;
  }
  version_ = data[kVersionOffset];
  if (version_ < 1) {
    error_ = kWrongVersion;
    return false;
  }
  // The whole file must be the one M3DMAGIC chunk (bytes after it are
  // ignored).
  ChunkList file(data, data + size);
  Builder b{*this, Chunk{}, 0};
  if (!file.Next(&b.root) || b.root.id != id::kM3DMagic) {
    Free();
    error_ = kWrongFormat;
    return false;
  }

  try {
    int failed = kNoError;
    if (!b.ReadMaterials()) failed = kMaterialError;
    else if (!b.ReadObjects()) failed = kMeshError;
    else if (!b.ReadKeyframer()) failed = kKeyframeError;
    if (failed != kNoError) {
      Free();
      error_ = failed;
      return false;
    }
  } catch (const std::bad_alloc&) {
    Free();
    error_ = kOutOfMemory;
    return false;
  }

  node_world_.assign(nodes_.size(), Mat4{});
  frame_rate_ = 30.0f;
  current_time_ = 0;
  error_ = kNoError;
  SetFrame(0);
  return true;
}

void C3DSScene::SetFrame(float frame) {
  current_time_ = frame;
  for (Mesh& mesh : meshes_) {
    PoseFrom(mesh.tracks, frame, mesh.hidden(), &mesh.pose);
    // Without a node the vertices stay where the file put them.
    if (mesh.node < 0) mesh.pose.world = mesh.matrix;
  }
  for (Dummy& dummy : dummies_) PoseFrom(dummy.tracks, frame, false, &dummy.pose);
  for (Camera& camera : cameras_) {
    PoseFrom(camera.tracks, frame, false, &camera.pose);
    PoseFrom(camera.target_tracks, frame, false, &camera.target_pose);
  }
  for (Light& light : lights_) {
    PoseFrom(light.tracks, frame, false, &light.pose);
    PoseFrom(light.target_tracks, frame, false, &light.target_pose);
  }

  // World matrices down the hierarchy, parents first.
  for (int index : node_order_) {
    const Node& node = nodes_[size_t(index)];
    Pose* pose = nullptr;
    Vec3 pivot;
    if (node.object >= 0) {
      const size_t o = size_t(node.object);
      switch (node.type) {
        case NodeType::kMesh: pose = &meshes_[o].pose; pivot = meshes_[o].pivot; break;
        case NodeType::kDummy: pose = &dummies_[o].pose; pivot = dummies_[o].pivot; break;
        case NodeType::kCamera: pose = &cameras_[o].pose; break;
        case NodeType::kCameraTarget: pose = &cameras_[o].target_pose; break;
        case NodeType::kLightTarget: pose = &lights_[o].target_pose; break;
        default: pose = &lights_[o].pose; break;
      }
    }
    Mat4 local = pose ? Compose(pose->position, pose->rotation, pose->scale, pivot) : Mat4{};
    Mat4& world = node_world_[size_t(index)];
    world = node.parent >= 0 ? Multiply(node_world_[size_t(node.parent)], local) : local;
    if (pose) pose->world = world;
  }
}

void C3DSScene::Free() {
  file_name_.clear();
  version_ = 0;
  materials_.clear();
  meshes_.clear();
  lights_.clear();
  cameras_.clear();
  dummies_.clear();
  nodes_.clear();
  node_order_.clear();
  node_world_.clear();
  vertices_.clear();
  faces_.clear();
  ambient_ = Vec3{};
  start_frame_ = end_frame_ = 0;
  frame_rate_ = 30.0f;
  current_time_ = 0;
}

}  // namespace nimbo::scene3ds
