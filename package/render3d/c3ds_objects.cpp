// Objects: the NAMED_OBJECT chunks under MDATA become meshes, lights and
// cameras. A counting pass sizes the arrays and the shared vertex and face
// pools (every count checked against the bytes that hold it), then a second
// pass reads each object.
#include <cmath>

#include "c3ds_builder.h"
#include "c3ds_math.h"

namespace nimbo::scene3ds {
namespace {

constexpr size_t kVertexBytes = 12;  // three floats
constexpr size_t kFaceBytes = 8;     // three indices and the flags word
constexpr size_t kTexVertBytes = 8;  // u, v

enum class Kind { kNone, kMesh, kLight, kCamera };

// The object flag chunks (hidden, doesn't cast, matte, frozen, ...) that
// some exporters put before the object itself.
bool IsObjectFlag(uint16_t chunk_id) { return chunk_id >= 0x4010 && chunk_id <= 0x4017; }

// A NAMED_OBJECT: its name, and the chunk that decides its kind (the first
// one after the flags).
bool ReadNamedObject(const Chunk& named, std::string* name, Chunk* body, Kind* kind) {
  ByteReader r(named);
  *name = r.String();
  if (!r.ok()) return false;
  ChunkList list = ChunkList::After(r);
  *kind = Kind::kNone;
  while (list.Next(body)) {
    if (IsObjectFlag(body->id)) continue;
    if (body->id == id::kNTriObject) *kind = Kind::kMesh;
    else if (body->id == id::kNDirectLight) *kind = Kind::kLight;
    else if (body->id == id::kNCamera) *kind = Kind::kCamera;
    break;
  }
  return !list.bad();
}

// A 16-bit count followed by count records of `record` bytes.
bool CountedRecords(const Chunk& c, size_t record, uint16_t* count) {
  ByteReader r(c);
  *count = r.U16();
  return r.ok() && r.remaining() / record >= *count;
}

// The vertex and face counts of a mesh: its first POINT_ARRAY and FACE_ARRAY.
bool CountMesh(const Chunk& tri, size_t* vertices, size_t* faces) {
  ChunkList list(tri, 0);
  Chunk c;
  bool seen_points = false, seen_faces = false;
  while (!(seen_points && seen_faces) && list.Next(&c)) {
    uint16_t count = 0;
    if (c.id == id::kPointArray && !seen_points) {
      if (!CountedRecords(c, kVertexBytes, &count)) return false;
      *vertices += count;
      seen_points = true;
    } else if (c.id == id::kFaceArray && !seen_faces) {
      if (!CountedRecords(c, kFaceBytes, &count)) return false;
      *faces += count;
      seen_faces = true;
    }
  }
  return !list.bad();
}

Mat4 ReadMeshMatrix(ByteReader& r) {
  float f[12];
  for (float& v : f) v = r.F32();
  Mat4 m;
  // The file lists the x, y and z axes and the origin; each axis becomes a
  // column.
  for (int axis = 0; axis < 3; ++axis)
    for (int row = 0; row < 3; ++row) m.m[row][axis] = f[axis * 3 + row];
  m.m[0][3] = f[9];
  if (Determinant3(m) < 0) {
    // A mirrored object: turn its x axis and x origin around.
    for (int row = 0; row < 3; ++row) m.m[row][0] = -m.m[row][0];
    m.m[0][3] = -m.m[0][3];
  }
  // The origin takes the points' axis swap.
  m.m[1][3] = f[11];
  m.m[2][3] = f[10];
  return m;
}

class MeshReader {
 public:
  MeshReader(C3DSScene::Builder& b, std::vector<Vertex>& vertices, std::vector<Face>& faces, uint32_t options)
      : b_(b), vertices_(vertices), faces_(faces), options_(options) {}

  bool Read(const Chunk& tri, Mesh* mesh) {
    mesh->first_vertex = vertices_.size();
    mesh->first_face = faces_.size();
    ChunkList list(tri, 0);
    Chunk c;
    bool seen_points = false, seen_faces = false;
    while (list.Next(&c)) {
      if (c.id == id::kPointArray && !seen_points) {
        seen_points = true;
        if (!ReadPoints(c, mesh)) return false;
      } else if (c.id == id::kTexVerts) {
        // Applied by the FACE_ARRAY that follows; one after it is ignored.
        uint16_t count = 0;
        if (!CountedRecords(c, kTexVertBytes, &count)) return false;
        tex_verts_ = c;
        has_tex_verts_ = true;
      } else if (c.id == id::kMeshMatrix) {
        ByteReader r(c);
        mesh->matrix = ReadMeshMatrix(r);
        if (!r.ok()) return false;
        mesh->inverse = InverseAffine(mesh->matrix);
      } else if (c.id == id::kFaceArray && !seen_faces) {
        seen_faces = true;
        if (!ReadFaces(c, mesh)) return false;
      }
    }
    return !list.bad();
  }

 private:
  bool ReadPoints(const Chunk& c, Mesh* mesh) {
    ByteReader r(c);
    const uint16_t count = r.U16();
    if (!r.ok() || r.remaining() / kVertexBytes < count) return false;
    for (uint16_t k = 0; k < count; ++k) {
      Vertex v;
      v.position = r.Point();
      v.used = true;
      vertices_.push_back(v);
    }
    mesh->vertex_count = count;
    return true;
  }

  bool ReadFaces(const Chunk& c, Mesh* mesh) {
    ByteReader r(c);
    const uint16_t count = r.U16();
    if (!r.ok() || r.remaining() / kFaceBytes < count) return false;
    const Vertex* verts = vertices_.data() + mesh->first_vertex;
    for (uint16_t k = 0; k < count; ++k) {
      Face f;
      for (uint16_t& index : f.v) {
        index = r.U16();
        if (index >= mesh->vertex_count) return false;
      }
      f.flags = r.U16();
      f.material = 0;
      if (options_ & kOptionFaceNormals)
        f.normal = FaceNormal(verts[f.v[0]].position, verts[f.v[1]].position, verts[f.v[2]].position);
      faces_.push_back(f);
    }
    mesh->face_count = count;

    ChunkList groups = ChunkList::After(r);
    Chunk g;
    while (groups.Next(&g)) {
      if (g.id == id::kMshMatGroup && !ReadMaterialGroup(g, mesh)) return false;
    }
    if (groups.bad()) return false;
    if (has_tex_verts_) ApplyTexVerts(mesh);
    return true;
  }

  bool ReadMaterialGroup(const Chunk& g, const Mesh* mesh) {
    ByteReader r(g);
    std::string name = r.String();
    const uint16_t count = r.U16();
    if (!r.ok() || r.remaining() / 2 < count) return false;
    if (name.size() > kMaxMaterialName) name.resize(kMaxMaterialName);
    int material = -1;
    const std::vector<Material>& materials = b_.scene.Materials();
    for (size_t k = 0; k < materials.size() && material < 0; ++k)
      if (materials[k].name == name) material = int(k);
    for (uint16_t k = 0; k < count; ++k) {
      const uint16_t face = r.U16();
      if (face >= mesh->face_count) return false;
      // A name no material has leaves the faces with the default.
      if (material >= 0) faces_[mesh->first_face + face].material = material;
    }
    return true;
  }

  // Every face corner takes (u, 1 - v) of its vertex; a vertex beyond the
  // TEX_VERTS list takes (0, 1), as a pair of zeros would give.
  void ApplyTexVerts(Mesh* mesh) {
    ByteReader r(tex_verts_);
    const uint16_t count = r.U16();
    const uint8_t* pairs = r.pos();
    mesh->texcoords.resize(mesh->face_count * 6);
    for (size_t k = 0; k < mesh->face_count; ++k) {
      const Face& f = faces_[mesh->first_face + k];
      for (int corner = 0; corner < 3; ++corner) {
        float u = 0, v = 0;
        if (f.v[corner] < count) {
          ByteReader pair(pairs + f.v[corner] * kTexVertBytes, pairs + (f.v[corner] + 1) * kTexVertBytes);
          u = pair.F32();
          v = pair.F32();
        }
        mesh->texcoords[k * 6 + corner * 2] = u;
        mesh->texcoords[k * 6 + corner * 2 + 1] = 1.0f - v;
      }
    }
  }

  C3DSScene::Builder& b_;
  std::vector<Vertex>& vertices_;
  std::vector<Face>& faces_;
  uint32_t options_;
  Chunk tex_verts_;
  bool has_tex_verts_ = false;
};

bool ReadLight(const Chunk& c, Light* light) {
  ByteReader r(c);
  light->position = r.Point();
  if (!r.ok()) return false;
  ChunkList list = ChunkList::After(r);
  Chunk sub;
  while (list.Next(&sub)) {
    ByteReader s(sub);
    if (sub.id == id::kColorF) {
      light->color = s.Vec();  // lights take COLOR_F
    } else if (sub.id == id::kDlSpotlight) {
      light->spot = true;
      light->target = s.Point();
      light->hotspot = s.F32();
      light->falloff = s.F32();
    }
    if (!s.ok()) return false;
  }
  return !list.bad();
}

bool ReadCamera(const Chunk& c, Camera* camera) {
  ByteReader r(c);
  camera->position = r.Point();
  camera->target = r.Point();
  camera->bank = r.F32() * 3.1415927f / 180.0f;
  camera->lens = r.F32();
  if (!r.ok()) return false;
  // The ranges are taken from where a first CAM_RANGES sub-chunk holds them
  // (bytes 44..51 of the camera chunk), without looking for that chunk.
  constexpr size_t kRangesAt = 44;
  if (c.size() >= kRangesAt + 8) {
    ByteReader ranges(c.begin + kRangesAt, c.begin + kRangesAt + 8);
    camera->near_range = ranges.F32();
    camera->far_range = ranges.F32();
  }
  ChunkList list = ChunkList::After(r);
  Chunk sub;
  while (list.Next(&sub)) {
  }
  return !list.bad();
}

}  // namespace

bool C3DSScene::Builder::ReadObjects() {
  Chunk mdata;
  bool found = false;
  if (!FindMData(root, &mdata, &found) || !found) return false;

  // Counting pass.
  size_t meshes = 0, lights = 0, cameras = 0, vertices = 0, faces = 0;
  ChunkList list(mdata, 0);
  Chunk c;
  while (list.Next(&c)) {
    if (c.id != id::kNamedObject) continue;
    std::string name;
    Chunk body;
    Kind kind;
    if (!ReadNamedObject(c, &name, &body, &kind)) return false;
    if (kind == Kind::kMesh) {
      ++meshes;
      if (!CountMesh(body, &vertices, &faces)) return false;
    } else if (kind == Kind::kLight) {
      ++lights;
    } else if (kind == Kind::kCamera) {
      ++cameras;
    }
  }
  if (list.bad()) return false;
  scene.meshes_.reserve(meshes);
  scene.lights_.reserve(lights);
  scene.cameras_.reserve(cameras);
  scene.vertices_.reserve(vertices);
  scene.faces_.reserve(faces);

  // Reading pass.
  list = ChunkList(mdata, 0);
  while (list.Next(&c)) {
    if (c.id == id::kAmbientLight) {
      // Whatever colour the file gives, the scene's ambient is 10 in each
      // channel; the viewer's lighting is tuned to that.
      scene.ambient_ = Vec3{10.0f, 10.0f, 10.0f};
      continue;
    }
    if (c.id != id::kNamedObject) continue;
    std::string name;
    Chunk body;
    Kind kind;
    ReadNamedObject(c, &name, &body, &kind);
    if (kind == Kind::kMesh) {
      Mesh& mesh = scene.meshes_.emplace_back();
      mesh.name = name;
      mesh.index = running_index++;
      MeshReader reader(*this, scene.vertices_, scene.faces_, scene.options_);
      if (!reader.Read(body, &mesh)) return false;
    } else if (kind == Kind::kLight) {
      Light& light = scene.lights_.emplace_back();
      light.name = name;
      light.index = running_index++;
      if (!ReadLight(body, &light)) return false;
    } else if (kind == Kind::kCamera) {
      Camera& camera = scene.cameras_.emplace_back();
      camera.name = name;
      camera.index = running_index++;
      if (!ReadCamera(body, &camera)) return false;
    }
  }
  return true;
}

}  // namespace nimbo::scene3ds
