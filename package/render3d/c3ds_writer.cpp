// The .3ds chunk tree and the objects written into it.
#include "render3d/c3ds_writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <unordered_map>

namespace nimbo {

using namespace chunk3ds;

// ---- ChunkNode ---------------------------------------------------------------------

ChunkNode::~ChunkNode() {
  // Siblings are freed in a loop, not through each other's destructors, so
  // a node with many children never recurses deeply.
  ChunkNode* child = first_child_;
  while (child) {
    ChunkNode* next = child->next_;
    delete child;
    child = next;
  }
}

void ChunkNode::AppendBytes(const void* bytes, size_t count) {
  if (count == 0) return;
  if (size_ + count > capacity_) {
    size_t capacity = capacity_ ? capacity_ * 2 : 16;
    while (capacity < size_ + count) capacity *= 2;  // one doubling may not be enough
    std::unique_ptr<uint8_t[]> grown(new uint8_t[capacity]);
    if (size_) std::memcpy(grown.get(), data_.get(), size_);
    data_ = std::move(grown);
    capacity_ = capacity;
  }
  std::memcpy(data_.get() + size_, bytes, count);
  size_ += count;
}

void ChunkNode::AppendU8(uint8_t v) { AppendBytes(&v, 1); }

void ChunkNode::AppendU16(uint16_t v) {
  const uint8_t b[2] = {uint8_t(v), uint8_t(v >> 8)};
  AppendBytes(b, 2);
}

void ChunkNode::AppendU32(uint32_t v) {
  const uint8_t b[4] = {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
  AppendBytes(b, 4);
}

void ChunkNode::AppendI32(int32_t v) { AppendU32(uint32_t(v)); }

void ChunkNode::AppendFloat(float v) {
  uint32_t bits;
  std::memcpy(&bits, &v, 4);
  AppendU32(bits);
}

void ChunkNode::AppendString(const char* text) {
  if (!text) text = "";
  AppendBytes(text, std::strlen(text) + 1);
}

ChunkNode* ChunkNode::AddChild(uint16_t id) {
  ChunkNode* child = new ChunkNode(id);
  if (last_child_)
    last_child_->next_ = child;
  else
    first_child_ = child;
  last_child_ = child;
  return child;
}

uint64_t ChunkNode::TotalLength() const {
  uint64_t length = 6 + size_;
  for (const ChunkNode* c = first_child_; c; c = c->next_) length += c->TotalLength();
  return length;
}

void ChunkNode::Serialize(std::vector<uint8_t>& out) const {
  const uint32_t length = uint32_t(TotalLength());
  const uint8_t head[6] = {uint8_t(id_), uint8_t(id_ >> 8), uint8_t(length), uint8_t(length >> 8),
                           uint8_t(length >> 16), uint8_t(length >> 24)};
  out.insert(out.end(), head, head + 6);
  if (size_) out.insert(out.end(), data_.get(), data_.get() + size_);
  for (const ChunkNode* c = first_child_; c; c = c->next_) c->Serialize(out);
}

// ---- C3DSWriter --------------------------------------------------------------------

namespace {

constexpr float kPi = 3.14159265358979f;
constexpr uint16_t kNodeFlags = 0x4000;
constexpr uint16_t kNoParent = 0xFFFF;
constexpr size_t kMaxName = 63;  // readers keep names in 64-byte fields

std::string CutName(const char* name) {
  std::string s = name ? name : "";
  if (s.size() > kMaxName) s.resize(kMaxName);
  return s;
}

std::string FileNameOf(const char* path) {
  const std::string p = path ? path : "";
  const size_t cut = p.find_last_of("/\\");
  return cut == std::string::npos ? p : p.substr(cut + 1);
}

// A track with one key at frame 0: the track header (flags, two reserved
// words, key count), then the key's frame and its empty spline flags,
// followed by the caller's values.
ChunkNode* AddSingleKeyTrack(ChunkNode* node, uint16_t id) {
  ChunkNode* track = node->AddChild(id);
  track->AppendU16(0);  // track flags
  track->AppendU32(0);
  track->AppendU32(0);
  track->AppendU32(1);  // keys
  track->AppendU32(0);  // frame
  track->AppendU16(0);  // no tension/continuity/bias values follow
  return track;
}

void AppendPoint(ChunkNode* node, const float p[3]) {
  // Engine axes (y up) to the file's (z up).
  node->AppendFloat(p[0]);
  node->AppendFloat(p[2]);
  node->AppendFloat(p[1]);
}

}  // namespace

C3DSWriter::C3DSWriter() : root_(std::make_unique<ChunkNode>(kM3DMagic)) {
  root_->AddChild(kM3DVersion)->AppendI32(3);
  mdata_ = root_->AddChild(kMData);
  mdata_->AddChild(kMeshVersion)->AppendI32(3);
  mdata_->AddChild(kMasterScale)->AppendFloat(1.0f);
  kfdata_ = root_->AddChild(kKfData);
  ChunkNode* hdr = kfdata_->AddChild(kKfHdr);
  hdr->AppendU16(5);
  hdr->AppendString("Exported");
  hdr->AppendI32(100);
  ChunkNode* seg = kfdata_->AddChild(kKfSeg);
  seg->AppendI32(0);
  seg->AppendI32(100);
  kfdata_->AddChild(kKfCurTime)->AppendI32(0);
  created_ = true;
}

C3DSWriter::~C3DSWriter() = default;

ChunkNode* C3DSWriter::AddColor(ChunkNode* parent, uint16_t id, int32_t rgb) {
  ChunkNode* node = parent->AddChild(id);
  ChunkNode* color = node->AddChild(kColor24);
  color->AppendU8(uint8_t(rgb >> 16));
  color->AppendU8(uint8_t(rgb >> 8));
  color->AppendU8(uint8_t(rgb));
  return node;
}

ChunkNode* C3DSWriter::AddPercent(ChunkNode* parent, uint16_t id, int16_t value) {
  ChunkNode* node = parent->AddChild(id);
  node->AddChild(kIntPercentage)->AppendU16(uint16_t(value));
  return node;
}

void C3DSWriter::AddMaterial(const char* name, const Material& m) {
  const TextureLayer& t = m.tex[0];
  const int32_t flags = GetMaterialFlags(m);
  ChunkNode* entry = mdata_->AddChild(kMatEntry);
  entry->AddChild(kMatName)->AppendString(CutName(name).c_str());
  AddColor(entry, kMatAmbient, t.base_clr);
  AddColor(entry, kMatDiffuse, t.diff_clr);
  AddColor(entry, kMatSpecular, t.spec_clr);
  AddPercent(entry, kMatShininess, int16_t(std::clamp(int64_t(t.spec_power) * 10, int64_t(0), int64_t(100))));
  AddPercent(entry, kMatShin2Pct, 0);
  AddPercent(entry, kMatTransparency, (flags & kMatFlagHalfTransparent) ? 50 : 0);
  AddPercent(entry, kMatXpFall, 0);
  AddPercent(entry, kMatRefBlur, 0);
  entry->AddChild(kMatShading)->AppendU16(3);  // Phong
  AddPercent(entry, kMatSelfIlPct, 0);
  if (flags & kMatFlagTwoSided) entry->AddChild(kMatTwoSide);
  if (flags & kMatFlagAdditive) entry->AddChild(kMatAdditive);
  if (flags & kMatFlagWireframe) entry->AddChild(kMatWire);
  entry->AddChild(kMatWireSize)->AppendFloat(1.0f);
  const std::string map = CutName(FileNameOf(t.bitmapname).c_str());
  if (t.texmode != kTexModeInput && !map.empty()) {
    ChunkNode* texmap = entry->AddChild(kMatTexMap);
    texmap->AddChild(kIntPercentage)->AppendU16(100);
    texmap->AddChild(kMatMapName)->AppendString(map.c_str());
    texmap->AddChild(kMatMapTiling)->AppendU16(0);
    const float blur = std::isfinite(t.blur) ? std::clamp(t.blur, 0.0f, 1.0f) : 0.0f;
    texmap->AddChild(kMatMapTexBlur)->AppendFloat(blur);
  }
}

void C3DSWriter::AddObjectNode(const char* name) {
  ChunkNode* node = kfdata_->AddChild(kObjectNodeTag);
  AddNodeHeader(node, name);
  ChunkNode* pivot = node->AddChild(kPivot);
  for (int i = 0; i < 3; ++i) pivot->AppendFloat(0.0f);
  ChunkNode* pos = AddSingleKeyTrack(node, kPosTrackTag);
  for (int i = 0; i < 3; ++i) pos->AppendFloat(0.0f);
  ChunkNode* rot = AddSingleKeyTrack(node, kRotTrackTag);
  rot->AppendFloat(0.0f);  // angle, then the axis
  rot->AppendFloat(0.0f);
  rot->AppendFloat(0.0f);
  rot->AppendFloat(1.0f);
  ChunkNode* scl = AddSingleKeyTrack(node, kSclTrackTag);
  for (int i = 0; i < 3; ++i) scl->AppendFloat(1.0f);
}

ChunkNode* C3DSWriter::AddNodeHeader(ChunkNode* node, const char* name) {
  node->AddChild(kNodeId)->AppendU16(uint16_t(next_node_id_++));
  ChunkNode* hdr = node->AddChild(kNodeHdr);
  hdr->AppendString(name);
  hdr->AppendU16(kNodeFlags);
  hdr->AppendU16(0);
  hdr->AppendU16(kNoParent);
  return hdr;
}

int32_t C3DSWriter::AddMesh(const float* positions, int32_t vertex_count, const float* uvs,
                            const uint32_t* triangles, int32_t face_count, const char* object_name,
                            const float* matrix, const char* material_name) {
  if (vertex_count < 0 || face_count < 0) return 0;
  if ((vertex_count > 0 && !positions) || (face_count > 0 && !triangles)) return 0;
  for (size_t i = 0; i < size_t(face_count) * 3; ++i)
    if (triangles[i] >= uint32_t(vertex_count)) return 0;
  static const float kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  const float* m = matrix ? matrix : kIdentity;
  const std::string base = CutName(object_name);
  const std::string mat_name = CutName(material_name);

  // One object's vertices (indices into the mesh) and faces.
  std::vector<uint32_t> verts;
  std::vector<uint32_t> faces;
  int32_t objects = 0;
  auto emit = [&]() {
    std::string name = base;
    if (objects > 0) {
      // Room for the number within the name limit.
      const std::string number = std::to_string(objects);
      if (name.size() + number.size() > kMaxName) name.resize(kMaxName - number.size());
      name += number;
    }
    ChunkNode* named = mdata_->AddChild(kNamedObject);
    named->AppendString(name.c_str());
    ChunkNode* tri = named->AddChild(kNTriObject);
    ChunkNode* points = tri->AddChild(kPointArray);
    points->AppendU16(uint16_t(verts.size()));
    for (uint32_t v : verts) {
      const float* p = positions + size_t(v) * 3;
      float q[3];
      for (int c = 0; c < 3; ++c) q[c] = p[0] * m[0 * 4 + c] + p[1] * m[1 * 4 + c] + p[2] * m[2 * 4 + c] + m[3 * 4 + c];
      AppendPoint(points, q);
    }
    if (uvs) {
      ChunkNode* tex = tri->AddChild(kTexVerts);
      tex->AppendU16(uint16_t(verts.size()));
      for (uint32_t v : verts) {
        tex->AppendFloat(uvs[size_t(v) * 2]);
        tex->AppendFloat(uvs[size_t(v) * 2 + 1]);
      }
    }
    const size_t n_faces = faces.size() / 3;
    ChunkNode* face_array = tri->AddChild(kFaceArray);
    face_array->AppendU16(uint16_t(n_faces));
    for (size_t f = 0; f < n_faces; ++f) {
      for (int c = 0; c < 3; ++c) face_array->AppendU16(uint16_t(faces[f * 3 + size_t(c)]));
      face_array->AppendU16(7);  // all three edges visible
    }
    ChunkNode* smooth = face_array->AddChild(kSmoothGroup);
    for (size_t f = 0; f < n_faces; ++f) smooth->AppendU32(1);
    ChunkNode* group = face_array->AddChild(kMshMatGroup);
    group->AppendString(mat_name.c_str());
    group->AppendU16(uint16_t(n_faces));
    for (size_t f = 0; f < n_faces; ++f) group->AppendU16(uint16_t(f));
    // The points are already placed: the object's own matrix is the identity.
    ChunkNode* mesh_matrix = tri->AddChild(kMeshMatrix);
    static const float kAxes[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    for (float f : kAxes) mesh_matrix->AppendFloat(f);
    AddObjectNode(name.c_str());
    ++objects;
  };

  if (vertex_count <= kMaxObjectCount && face_count <= kMaxObjectCount) {
    verts.resize(size_t(vertex_count));
    for (int32_t i = 0; i < vertex_count; ++i) verts[size_t(i)] = uint32_t(i);
    faces.assign(triangles, triangles + size_t(face_count) * 3);
    emit();
    return objects;
  }
  // Too big for one object: faces in their order, each object taking faces
  // until one more could overflow its vertex or face count, with only the
  // vertices its faces use.
  std::unordered_map<uint32_t, uint32_t> local;
  for (int32_t f = 0; f < face_count; ++f) {
    if (faces.size() / 3 + 1 > size_t(kMaxObjectCount) || verts.size() + 3 > size_t(kMaxObjectCount)) {
      emit();
      verts.clear();
      faces.clear();
      local.clear();
    }
    for (int c = 0; c < 3; ++c) {
      const uint32_t v = triangles[size_t(f) * 3 + size_t(c)];
      auto [it, inserted] = local.try_emplace(v, uint32_t(verts.size()));
      if (inserted) verts.push_back(v);
      faces.push_back(it->second);
    }
  }
  if (!faces.empty() || objects == 0) emit();
  return objects;
}

void C3DSWriter::AddCamera(const float position[3], const float target[3], float roll_radians, float fov_degrees) {
  // Readers turn the lens back into a field of view as 2400 / lens; a field
  // of view outside (0, 180) degrees has no lens and is written as 60.
  if (!(fov_degrees > 0.0f && fov_degrees < 180.0f)) fov_degrees = 60.0f;
  const float lens = 2400.0f / fov_degrees;
  const float roll = std::isfinite(roll_radians) ? roll_radians * 180.0f / kPi : 0.0f;
  const std::string name = "Camera" + std::to_string(++camera_count_);

  ChunkNode* named = mdata_->AddChild(kNamedObject);
  named->AppendString(name.c_str());
  ChunkNode* cam = named->AddChild(kNCamera);
  AppendPoint(cam, position);
  AppendPoint(cam, target);
  cam->AppendFloat(roll);
  cam->AppendFloat(lens);
  ChunkNode* ranges = cam->AddChild(kCamRanges);
  ranges->AppendFloat(1.0f);
  ranges->AppendFloat(10000.0f);

  ChunkNode* node = kfdata_->AddChild(kCameraNodeTag);
  AddNodeHeader(node, name.c_str());
  AppendPoint(AddSingleKeyTrack(node, kPosTrackTag), position);
  AddSingleKeyTrack(node, kFovTrackTag)->AppendFloat(fov_degrees);
  AddSingleKeyTrack(node, kRollTrackTag)->AppendFloat(roll);
  ChunkNode* target_node = kfdata_->AddChild(kTargetNodeTag);
  AddNodeHeader(target_node, name.c_str());
  AppendPoint(AddSingleKeyTrack(target_node, kPosTrackTag), target);
}

std::vector<uint8_t> C3DSWriter::Bytes() const {
  std::vector<uint8_t> out;
  out.reserve(size_t(root_->TotalLength()));
  root_->Serialize(out);
  return out;
}

bool C3DSWriter::Save(const char* path) const {
  if (!path || !*path || !created_) return false;
  if (root_->TotalLength() > std::numeric_limits<uint32_t>::max()) return false;
  const std::vector<uint8_t> bytes = Bytes();
  // Written beside the target and renamed over it, so a failed save leaves
  // any previous file as it was.
  const std::string temp = std::string(path) + ".tmp";
  FILE* f = std::fopen(temp.c_str(), "w+b");
  if (!f) return false;
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  const bool closed = std::fclose(f) == 0;
  if (!written || !closed || std::rename(temp.c_str(), path) != 0) {
    std::remove(temp.c_str());
    return false;
  }
  return true;
}

}  // namespace nimbo
