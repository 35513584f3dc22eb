// C3DSWriter: writes what a 3D effect shows as a 3D Studio (.3ds) file, the
// one writer behind every "Save as 3DS..." command.
//
// The file is a tree of chunks (16-bit id, 32-bit total length, data,
// children), all little-endian. The writer builds the tree in memory and
// writes it in one go; a chunk's length is 6 + its data + the lengths of its
// children, computed when written. The constructor builds the skeleton:
//   M3DMAGIC 0x4D4D
//     M3D_VERSION 0x0002 (3)
//     MDATA 0x3D3D: MESH_VERSION 0x3D3E (3), MASTER_SCALE 0x0100 (1.0)
//                   ... materials, meshes, cameras
//     KFDATA 0xB000: KFHDR 0xB00A (5, "Exported", 100), KFSEG 0xB008 (0, 100),
//                    KFCURTIME 0xB009 (0)
//                   ... one node per mesh object and camera
//
// Axes: meshes and cameras are given in the engine's axes (y up); the file's
// are z up, so every point is written as (x, z, y).
//
// Limits of the format: counts and vertex indices are 16-bit, so one object
// holds at most 65535 vertices and 65535 faces. A larger mesh is written as
// several objects named "<name>", "<name>1", "<name>2", ..., each within the
// limits, instead of a file a reader would misread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "render3d/material.h"

namespace nimbo {

// Chunk ids the writer uses.
namespace chunk3ds {
inline constexpr uint16_t kColor24 = 0x0011;
inline constexpr uint16_t kIntPercentage = 0x0030;
inline constexpr uint16_t kM3DVersion = 0x0002;
inline constexpr uint16_t kMasterScale = 0x0100;
inline constexpr uint16_t kMData = 0x3D3D;
inline constexpr uint16_t kMeshVersion = 0x3D3E;
inline constexpr uint16_t kNamedObject = 0x4000;
inline constexpr uint16_t kNTriObject = 0x4100;
inline constexpr uint16_t kPointArray = 0x4110;
inline constexpr uint16_t kFaceArray = 0x4120;
inline constexpr uint16_t kMshMatGroup = 0x4130;
inline constexpr uint16_t kTexVerts = 0x4140;
inline constexpr uint16_t kSmoothGroup = 0x4150;
inline constexpr uint16_t kMeshMatrix = 0x4160;
inline constexpr uint16_t kNCamera = 0x4700;
inline constexpr uint16_t kCamRanges = 0x4720;
inline constexpr uint16_t kM3DMagic = 0x4D4D;
inline constexpr uint16_t kMatName = 0xA000;
inline constexpr uint16_t kMatAmbient = 0xA010;
inline constexpr uint16_t kMatDiffuse = 0xA020;
inline constexpr uint16_t kMatSpecular = 0xA030;
inline constexpr uint16_t kMatShininess = 0xA040;
inline constexpr uint16_t kMatShin2Pct = 0xA041;
inline constexpr uint16_t kMatTransparency = 0xA050;
inline constexpr uint16_t kMatXpFall = 0xA052;
inline constexpr uint16_t kMatRefBlur = 0xA053;
inline constexpr uint16_t kMatTwoSide = 0xA081;
inline constexpr uint16_t kMatAdditive = 0xA083;
inline constexpr uint16_t kMatSelfIlPct = 0xA084;
inline constexpr uint16_t kMatWire = 0xA085;
inline constexpr uint16_t kMatWireSize = 0xA087;
inline constexpr uint16_t kMatShading = 0xA100;
inline constexpr uint16_t kMatTexMap = 0xA200;
inline constexpr uint16_t kMatMapName = 0xA300;
inline constexpr uint16_t kMatMapTiling = 0xA351;
inline constexpr uint16_t kMatMapTexBlur = 0xA353;
inline constexpr uint16_t kMatEntry = 0xAFFF;
inline constexpr uint16_t kKfData = 0xB000;
inline constexpr uint16_t kObjectNodeTag = 0xB002;
inline constexpr uint16_t kCameraNodeTag = 0xB003;
inline constexpr uint16_t kTargetNodeTag = 0xB004;
inline constexpr uint16_t kKfSeg = 0xB008;
inline constexpr uint16_t kKfCurTime = 0xB009;
inline constexpr uint16_t kKfHdr = 0xB00A;
inline constexpr uint16_t kNodeHdr = 0xB010;
inline constexpr uint16_t kPivot = 0xB013;
inline constexpr uint16_t kPosTrackTag = 0xB020;
inline constexpr uint16_t kRotTrackTag = 0xB021;
inline constexpr uint16_t kSclTrackTag = 0xB022;
inline constexpr uint16_t kFovTrackTag = 0xB023;
inline constexpr uint16_t kRollTrackTag = 0xB024;
inline constexpr uint16_t kNodeId = 0xB030;
}  // namespace chunk3ds

// One chunk: its id, its data (a buffer whose capacity doubles whenever an
// append does not fit, and always grows enough to hold it) and its children
// in the order added (a first/last child list linked through `next`).
class ChunkNode {
 public:
  explicit ChunkNode(uint16_t id) : id_(id) {}
  ~ChunkNode();
  ChunkNode(const ChunkNode&) = delete;
  ChunkNode& operator=(const ChunkNode&) = delete;

  uint16_t Id() const { return id_; }
  const uint8_t* Data() const { return data_.get(); }
  size_t DataSize() const { return size_; }
  size_t Capacity() const { return capacity_; }

  void AppendU8(uint8_t v);
  void AppendU16(uint16_t v);
  void AppendI32(int32_t v);
  void AppendU32(uint32_t v);
  void AppendFloat(float v);
  void AppendString(const char* text);  // with its terminating zero
  void AppendBytes(const void* bytes, size_t count);

  // Appends a child as the last one and returns it (owned by this node).
  ChunkNode* AddChild(uint16_t id);
  ChunkNode* FirstChild() const { return first_child_; }
  ChunkNode* Next() const { return next_; }

  // 6 + data + the total lengths of all children.
  uint64_t TotalLength() const;
  // Appends the node as the file holds it: id, length, data, children.
  void Serialize(std::vector<uint8_t>& out) const;

 private:
  uint16_t id_;
  std::unique_ptr<uint8_t[]> data_;
  size_t size_ = 0;
  size_t capacity_ = 0;
  ChunkNode* first_child_ = nullptr;  // owned, with their `next` chain
  ChunkNode* last_child_ = nullptr;
  ChunkNode* next_ = nullptr;
};

class C3DSWriter {
 public:
  // Format limit of one object's vertex and face counts.
  static constexpr int32_t kMaxObjectCount = 65535;

  C3DSWriter();
  ~C3DSWriter();
  C3DSWriter(const C3DSWriter&) = delete;
  C3DSWriter& operator=(const C3DSWriter&) = delete;

  ChunkNode* Root() const { return root_.get(); }
  ChunkNode* MData() const { return mdata_; }
  ChunkNode* KfData() const { return kfdata_; }

  // A chunk `id` under `parent` holding one COLOR_24 child with the bytes
  // R, G, B of `rgb` (0x00RRGGBB).
  static ChunkNode* AddColor(ChunkNode* parent, uint16_t id, int32_t rgb);
  // A chunk `id` under `parent` holding one INT_PERCENTAGE child.
  static ChunkNode* AddPercent(ChunkNode* parent, uint16_t id, int16_t value);

  // A MAT_ENTRY named `name` (cut to 63 characters) under MDATA, from `m`'s
  // layer 0:
  //   ambient = base colour, diffuse = diffuse colour, specular = specular
  //   colour; shininess = min(100, 10 * spec_power), shin2pct 0; transparency 50
  //   for "50% transparency", else 0; xpfall 0, refblur 0 (blur as a
  //   percentage when the layer is a picture); shading 3 (Phong);
  //   self-illumination 0; MAT_TWO_SIDE / MAT_ADDITIVE / MAT_WIRE when the
  //   material's render flags have two-sided / additive / wireframe;
  //   wire size 1.0; and for a picture texture with a file name MAT_TEXMAP
  //   (100 %, the file name without its folder, tiling 0, texture blur = the
  //   layer's blur).
  void AddMaterial(const char* name, const Material& m);

  // A mesh: `vertex_count` points (x, y, z each) in the engine's axes,
  // optional texture coordinates (u, v each; null = none), `face_count`
  // triangles (three vertex indices each), transformed by `matrix` as a row
  // vector (matrix[row * 4 + col], translation in matrix[12..14]; null =
  // identity): x' = x*m00 + y*m10 + z*m20 + m30, likewise y', z'; written as
  // (x', z', y'). Each object gets its NAMED_OBJECT under MDATA (with an
  // identity MESH_MATRIX, the points being already transformed) and an
  // OBJECT_NODE_TAG under KFDATA with single-key tracks (position 0, no
  // rotation, scale 1). Returns the number of objects written (several when
  // the mesh exceeds 65535 vertices or faces), 0 when a triangle names a
  // vertex outside the mesh or a count is negative (nothing is added then).
  int32_t AddMesh(const float* positions, int32_t vertex_count, const float* uvs, const uint32_t* triangles,
                  int32_t face_count, const char* object_name, const float* matrix, const char* material_name);

  // A camera "Camera<n>" (n = 1, 2, ... in the order added) at `position`
  // looking at `target`, in the engine's axes; `roll_radians` about the view
  // axis (written in degrees); `fov_degrees` the field of view. N_CAMERA's
  // lens is 2400 / fov_degrees (the relation readers use to get the field of
  // view back); CAM_RANGES 1 .. 10000. Under KFDATA a camera node (position,
  // field of view and roll tracks) and a target node (position track).
  void AddCamera(const float position[3], const float target[3], float roll_radians, float fov_degrees);

  // The whole file as bytes.
  std::vector<uint8_t> Bytes() const;
  // Opens `path` with "w+b" and writes the file; false when the file cannot
  // be created or written. The bytes go to "<path>.tmp" first and are renamed
  // over `path`, so a failed save leaves an earlier file untouched.
  bool Save(const char* path) const;

 private:
  void AddObjectNode(const char* name);
  ChunkNode* AddNodeHeader(ChunkNode* node, const char* name);  // NODE_ID and NODE_HDR

  std::unique_ptr<ChunkNode> root_;
  ChunkNode* mdata_ = nullptr;
  ChunkNode* kfdata_ = nullptr;
  bool created_ = false;
  int32_t camera_count_ = 0;
  int32_t next_node_id_ = 0;
};

}  // namespace nimbo
