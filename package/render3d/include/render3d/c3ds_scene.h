// C3DSScene: a 3D Studio (.3ds) scene read into memory: materials, meshes,
// lights, cameras, and the keyframer's node hierarchy and animation tracks.
//
// The file is a tree of chunks (16-bit id, 32-bit length including the 6-byte
// header, data, sub-chunks), little-endian. The reader trusts nothing in it:
// every length, count and index is checked against its parent chunk and the
// end of the file before use, allocations are bounded by the bytes that could
// hold them, and a bad file ends the load with the error code of the step
// that met it (8 materials, 9 objects, 10 keyframer, 5 not a .3ds file).
//
// Axes: the file is z-up; the scene stores every point, pivot, position and
// scale key as (x, z, y), the engine's y-up axes. Rotation keys keep the
// file's axis; their quaternions are built in the engine's axes (see
// RotationKey).
//
// Readings that are intended, although other readers differ:
//   - material colours come only from COLOR_24 sub-chunks; lights take COLOR_F;
//   - any AMBIENT_LIGHT chunk makes the ambient colour (10, 10, 10);
//   - a camera's near and far ranges are read at bytes 44..51 of its chunk,
//     where a first CAM_RANGES sub-chunk keeps them, without looking for it;
//   - TEX_VERTS after a mesh's FACE_ARRAY is ignored;
//   - a rotation track of exactly two keys gets a third key half way.
//
// Threading: a scene is one object with no shared state; separate scenes may
// be loaded and posed on separate threads at the same time. One scene must
// not be used from two threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nimbo::scene3ds {

struct Vec3 {
  float x = 0, y = 0, z = 0;
};

// w + xi + yj + zk.
struct Quat {
  float w = 1, x = 0, y = 0, z = 0;
};

// Row-major: m[row][column].
struct Mat4 {
  float m[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
};

// Error codes of GetError / GetErrorText.
enum ErrorCode : int {
  kNoError = 0,
  kOutOfMemory = 1,
  kNullPointer = 2,
  kRuntimeError = 3,
  kFileNotFound = 4,
  kWrongFormat = 5,
  kWrongVersion = 6,
  kReadError = 7,
  kMaterialError = 8,
  kMeshError = 9,
  kKeyframeError = 10,
};

// Option bits of SetOptions.
inline constexpr uint32_t kOptionFaceNormals = 4;  // compute face normals while reading

// Material flag bits.
inline constexpr uint32_t kMatTwoSide = 1;
inline constexpr uint32_t kMatPhongSoft = 2;
inline constexpr uint32_t kMatWire = 4;
inline constexpr uint32_t kMatAdditive = 8;
inline constexpr uint32_t kMatTextureMap = 16;
inline constexpr uint32_t kMatSpecularMap = 32;
inline constexpr uint32_t kMatBumpMap = 64;
inline constexpr uint32_t kMatReflectionMap = 128;
inline constexpr uint32_t kMatOpacityMap = 0x100;

// Mesh flag bits.
inline constexpr uint32_t kMeshHidden = 2;

// The longest material name kept; longer names are cut.
inline constexpr size_t kMaxMaterialName = 19;
// Material entries a file may hold.
inline constexpr size_t kMaxMaterialEntries = 1024;

struct Material {
  std::string name;
  int index = 0;        // running index in the scene's object/material numbering
  uint32_t color = 0;   // packed 0x00RRGGBB; 0xF0F0F0 for "default", 0 for the file's
  Vec3 ambient, diffuse, specular;  // 0..1 each
  float shininess = 0, shin_strength = 0, transparency = 0, falloff = 0, refblur = 0;  // percent / 100
  uint32_t flags = 0;
  // Map file names; empty when the material has none.
  std::string texture_map, specular_map, reflection_map, opacity_map, bump_map;
};

struct Vertex {
  Vec3 position;  // (x, z, y) of the file
  bool used = false;
};

struct Face {
  uint16_t v[3] = {0, 0, 0};  // vertex indices within the owning mesh
  uint16_t flags = 0;         // the file's face-flags word
  int material = 0;           // index into Materials(); 0 = "default"
  Vec3 normal;                // with kOptionFaceNormals, else zero
};

// Spline values of one key; those the key does not carry are 0.
struct KeySpline {
  int32_t frame = 0;
  float tension = 0, continuity = 0, bias = 0, ease_to = 0, ease_from = 0;
};

struct VectorKey {
  KeySpline spline;
  Vec3 value;                 // (x, z, y) of the file
  Vec3 in_tangent, out_tangent;  // prepared after reading
};

// Rotation keys in the file are relative: each turns from the previous key's
// orientation by `angle` (radians) about `axis` (the file's axes). `rotation`
// is the running orientation after this key (the product of every key so far)
// in the engine's axes, and `angle_sum` the running sum of the angles.
struct RotationKey {
  KeySpline spline;
  float angle = 0;
  Vec3 axis;
  Quat rotation;
  float angle_sum = 0;
  Vec3 log_step;                 // logarithm of this key's own turn (engine axes)
  Vec3 in_tangent, out_tangent;  // in the logarithm space of `rotation`, prepared after reading
};

struct FloatKey {
  KeySpline spline;
  float value = 0;
  float in_tangent = 0, out_tangent = 0;
};

struct MorphKey {
  KeySpline spline;
  std::string target;  // name of the mesh to morph to
  int mesh = -1;       // its index in Meshes(), -1 when no mesh has that name
};

struct HideKey {
  KeySpline spline;
  bool hidden = false;  // alternates from true on the first key
};

template <class Key>
struct Track {
  uint16_t flags = 0;
  std::vector<Key> keys;
};

struct Tracks {
  Track<VectorKey> position, scale;
  Track<RotationKey> rotation;
  Track<MorphKey> morph;
  Track<HideKey> hide;
  Track<FloatKey> fov, roll;  // camera nodes
};

// An object's state at the current frame (SetFrame).
struct Pose {
  Vec3 position;
  Quat rotation;
  Vec3 scale{1, 1, 1};
  bool hidden = false;
  int morph = -1;         // mesh index of the current morph target, -1 none
  float fov = 0, roll = 0;
  Mat4 world;             // parent's world * T(position) * R * S * T(-pivot)
};

struct Mesh {
  std::string name;
  int index = 0;
  uint32_t flags = 0;           // kMeshHidden
  size_t first_vertex = 0, vertex_count = 0;  // into Vertices()
  size_t first_face = 0, face_count = 0;      // into Faces()
  std::vector<float> texcoords;  // 6 per face: (u, v) of each corner; empty without TEX_VERTS
  Mat4 matrix;                   // local matrix from MESH_MATRIX (identity without)
  Mat4 inverse;                  // its inverse
  Vec3 pivot;
  Tracks tracks;
  int node_id = -1;              // keyframer node id, -1 without a node
  int node = -1;                 // index into Nodes(), -1 without
  Pose pose;
  bool hidden() const { return (flags & kMeshHidden) != 0; }
};

struct Light {
  std::string name;
  int index = 0;
  Vec3 position, color;
  bool spot = false;
  Vec3 target;
  float hotspot = 0, falloff = 0;  // degrees, spots only
  Tracks tracks, target_tracks;
  Pose pose, target_pose;
};

struct Camera {
  std::string name;
  int index = 0;
  Vec3 position, target;
  float bank = 0;  // radians
  float lens = 0;
  float near_range = 0, far_range = 0;
  Tracks tracks, target_tracks;
  Pose pose, target_pose;
};

// An object of the hierarchy without geometry ("$$$DUMMY" nodes).
struct Dummy {
  std::string name;  // the node's INSTANCE_NAME
  Vec3 pivot;
  Tracks tracks;
  int node = -1;
  Pose pose;
};

enum class NodeType : int {
  kMesh = 1,
  kCamera = 2,
  kCameraTarget = 3,
  kLight = 4,
  kLightTarget = 5,
  kDummy = 6,
  kSpotlight = 7,
};

struct Node {
  NodeType type = NodeType::kMesh;
  int id = 0;            // NODE_ID, or the node's position among the nodes without one
  int object = -1;       // index into the array of its type, -1 when no object has its name
  int parent = -1;       // indices into Nodes(), -1 none
  int first_child = -1;
  int next_sibling = -1;
  std::string name;      // NODE_HDR's name
};

class C3DSScene {
 public:
  C3DSScene();
  ~C3DSScene();
  C3DSScene(const C3DSScene&) = delete;
  C3DSScene& operator=(const C3DSScene&) = delete;

  // Reads a file. An empty file returns false and leaves everything, the
  // error code included, as it was; any other failure frees the scene, sets
  // the error code and returns false.
  bool Load(const std::string& path);
  // The same on a buffer the caller keeps; a null buffer is error 2.
  bool LoadFromMemory(const void* data, size_t size, const std::string& name);

  int GetError() const { return error_; }
  static const char* GetErrorText(int code);

  void SetOptions(uint32_t options) { options_ = options; }
  uint32_t Options() const { return options_; }

  // Evaluates every track at `frame` (fractions allowed): each mesh's,
  // dummy's, camera's and light's Pose, world matrices down the hierarchy.
  // Before a track's first key it holds that key, after its last the last.
  void SetFrame(float frame);
  float CurrentTime() const { return current_time_; }

  void Free();

  const std::string& FileName() const { return file_name_; }
  int Version() const { return version_; }
  const std::vector<Material>& Materials() const { return materials_; }
  const std::vector<Mesh>& Meshes() const { return meshes_; }
  const std::vector<Light>& Lights() const { return lights_; }
  const std::vector<Camera>& Cameras() const { return cameras_; }
  const std::vector<Dummy>& Dummies() const { return dummies_; }
  const std::vector<Node>& Nodes() const { return nodes_; }
  const std::vector<Vertex>& Vertices() const { return vertices_; }
  const std::vector<Face>& Faces() const { return faces_; }
  Vec3 Ambient() const { return ambient_; }
  int32_t StartFrame() const { return start_frame_; }
  int32_t EndFrame() const { return end_frame_; }
  int64_t FrameCount() const { return int64_t(end_frame_) - start_frame_ + 1; }
  float FrameRate() const { return frame_rate_; }

  // The steps of a load write these directly (c3ds_*.cpp).
  struct Builder;

 private:
  friend struct Builder;
  bool Read(const uint8_t* data, size_t size);

  std::string file_name_;
  int error_ = kNoError;
  uint32_t options_ = 0;
  int version_ = 0;
  std::vector<Material> materials_;
  std::vector<Mesh> meshes_;
  std::vector<Light> lights_;
  std::vector<Camera> cameras_;
  std::vector<Dummy> dummies_;
  std::vector<Node> nodes_;
  std::vector<int> node_order_;  // parents before children, for SetFrame
  std::vector<Mat4> node_world_;  // each node's world matrix at the current frame
  std::vector<Vertex> vertices_;
  std::vector<Face> faces_;
  Vec3 ambient_;
  int32_t start_frame_ = 0, end_frame_ = 0;
  float frame_rate_ = 30.0f;
  float current_time_ = 0;
};

}  // namespace nimbo::scene3ds

namespace nimbo {
using scene3ds::C3DSScene;
}  // namespace nimbo
