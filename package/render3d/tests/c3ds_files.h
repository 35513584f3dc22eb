// Building .3ds files chunk by chunk for the reader's tests, the fuzzer's
// seed corpus and the benchmarks: well-formed scenes with every chunk kind
// the reader knows, which the tests then damage on purpose.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nimbo::scene3ds::testing {

// One chunk: id, its own data, its sub-chunks. Bytes() writes the header
// with the length of all of it.
struct ChunkBuilder {
  uint16_t id = 0;
  std::vector<uint8_t> data;
  std::vector<ChunkBuilder> children;

  explicit ChunkBuilder(uint16_t chunk_id) : id(chunk_id) {}
  ChunkBuilder& U8(uint8_t v);
  ChunkBuilder& U16(uint16_t v);
  ChunkBuilder& U32(uint32_t v);
  ChunkBuilder& F32(float v);
  ChunkBuilder& F32s(std::initializer_list<float> values);
  ChunkBuilder& Str(const std::string& text);  // with its terminating zero
  ChunkBuilder& Add(ChunkBuilder child);
  std::vector<uint8_t> Bytes() const;
};

// A key of a track: frame, spline flags word and the floats it announces,
// then the value's bytes are appended by the caller.
struct TrackKey {
  TrackKey(int32_t f, std::vector<float> s, std::vector<float> v, std::string n = {})
      : frame(f), spline(std::move(s)), value(std::move(v)), name(std::move(n)) {}
  int32_t frame = 0;
  std::vector<float> spline;  // tension, continuity, bias, ease to, ease from: the first n
  std::vector<float> value;   // floats of the value
  std::string name;           // morph keys: the target's name
};

ChunkBuilder Track(uint16_t id, const std::vector<TrackKey>& keys, uint16_t flags = 0);
ChunkBuilder Color24(uint16_t id, uint8_t r, uint8_t g, uint8_t b);
ChunkBuilder ColorF(uint16_t id, float r, float g, float b);
ChunkBuilder IntPercent(uint16_t id, int16_t percent);
ChunkBuilder FloatPercent(uint16_t id, float percent);
ChunkBuilder MapChunk(uint16_t id, const std::string& file);
// M3DMAGIC with M3D_VERSION 3, MDATA (MESH_VERSION `version` first, so its
// low byte lands at offset 28) holding `mdata`, and KFDATA holding `kfdata`
// when it is not empty.
ChunkBuilder SceneFile(std::vector<ChunkBuilder> mdata, std::vector<ChunkBuilder> kfdata, uint32_t version = 3);

// A mesh object: NAMED_OBJECT with N_TRI_OBJECT: points (file axes), faces
// (index triples, flags 7), optional texture coordinates, material groups.
struct MeshSpec {
  std::string name;
  std::vector<float> points;        // x, y, z per vertex
  std::vector<uint16_t> faces;      // a, b, c per face
  std::vector<float> uv;            // u, v per vertex; empty: no TEX_VERTS
  bool uv_after_faces = false;
  std::vector<float> matrix;        // 12 floats; empty: no MESH_MATRIX
  std::vector<std::pair<std::string, std::vector<uint16_t>>> groups;  // material name, faces
};
ChunkBuilder MeshObject(const MeshSpec& mesh);

// An OBJECT_NODE_TAG with NODE_ID, NODE_HDR and the given extra sub-chunks.
ChunkBuilder ObjectNode(uint16_t node_id, const std::string& name, uint16_t parent,
                        std::vector<ChunkBuilder> extra = {}, uint16_t flags = 0, uint16_t tag = 0xB002);

// The scene of every chunk kind the reader knows: two materials (one with
// COLOR_F only), three meshes (one with TEX_VERTS after FACE_ARRAY), a spot
// light, a camera with ranges, the ambient chunk, and a keyframer with a
// hierarchy, a dummy and position, rotation, scale, morph and hide tracks.
std::vector<uint8_t> SampleScene();
// A scene of `nodes` meshes (a cube each), each with animated position,
// rotation and scale tracks of `keys` keys, every node a child of the one
// before in groups of ten.
std::vector<uint8_t> AnimatedScene(int nodes, int keys);
// About `bytes` of meshes: a grid mesh per 60000 vertices.
std::vector<uint8_t> LargeScene(size_t bytes);

}  // namespace nimbo::scene3ds::testing
