#include "cli/demo_scene.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <system_error>

#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

// One chunk: id, own data, sub-chunks; written with its total length.
struct Chunk {
  uint16_t id;
  std::vector<uint8_t> data;
  std::vector<Chunk> children;

  explicit Chunk(uint16_t chunk_id) : id(chunk_id) {}
  Chunk& U16(uint16_t v) { return Le(v, 2); }
  Chunk& U32(uint32_t v) { return Le(v, 4); }
  Chunk& F32(std::initializer_list<float> values) {
    for (float v : values) {
      uint32_t bits;
      std::memcpy(&bits, &v, 4);
      Le(bits, 4);
    }
    return *this;
  }
  Chunk& Str(const char* text) {
    for (const char* c = text;; ++c) {
      data.push_back(uint8_t(*c));
      if (!*c) return *this;
    }
  }
  Chunk& Add(Chunk child) {
    children.push_back(std::move(child));
    return *this;
  }
  // The file's byte order, little-endian, whatever the machine's.
  Chunk& Le(uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) data.push_back(uint8_t(v >> (8 * i)));
    return *this;
  }
  void Write(std::vector<uint8_t>& out) const {
    const size_t at = out.size();
    out.resize(at + 6);
    out.insert(out.end(), data.begin(), data.end());
    for (const Chunk& c : children) c.Write(out);
    const uint32_t length = uint32_t(out.size() - at);
    for (int i = 0; i < 2; ++i) out[at + size_t(i)] = uint8_t(id >> (8 * i));
    for (int i = 0; i < 4; ++i) out[at + 2 + size_t(i)] = uint8_t(length >> (8 * i));
  }
};

Chunk Color(uint16_t id, uint8_t r, uint8_t g, uint8_t b) {
  Chunk c(0x0011);
  c.data = {r, g, b};
  return Chunk(id).Add(c);
}

Chunk Material(const char* name, uint8_t r, uint8_t g, uint8_t b) {
  return Chunk(0xAFFF).Add(Chunk(0xA000).Str(name)).Add(Color(0xA010, r / 4, g / 4, b / 4)).Add(Color(0xA020, r, g, b));
}

// A box of half sides hx, hy, hz about (cx, cy, cz), file axes (z up): four
// corners a face, counter-clockwise seen from outside, starting at the
// face's lower left, with the picture upright on the sides.
Chunk Box(const char* name, float cx, float cy, float cz, float hx, float hy, float hz, const char* material) {
  // Each face: its four corners as signs of (x, y, z).
  static const int kFaces[6][4][3] = {
      {{-1, -1, -1}, {1, -1, -1}, {1, -1, 1}, {-1, -1, 1}},  // front (-y)
      {{1, 1, -1}, {-1, 1, -1}, {-1, 1, 1}, {1, 1, 1}},      // back (+y)
      {{1, -1, -1}, {1, 1, -1}, {1, 1, 1}, {1, -1, 1}},      // right (+x)
      {{-1, 1, -1}, {-1, -1, -1}, {-1, -1, 1}, {-1, 1, 1}},  // left (-x)
      {{-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}},      // top (+z)
      {{1, -1, -1}, {-1, -1, -1}, {-1, 1, -1}, {1, 1, -1}},  // bottom (-z)
  };
  static const float kUv[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  Chunk points(0x4110), uvs(0x4140), faces(0x4120);
  points.U16(24);
  uvs.U16(24);
  faces.U16(12);
  for (int f = 0; f < 6; ++f) {
    for (int k = 0; k < 4; ++k) {
      points.F32({cx + hx * float(kFaces[f][k][0]), cy + hy * float(kFaces[f][k][1]), cz + hz * float(kFaces[f][k][2])});
      uvs.F32({kUv[k][0], kUv[k][1]});
    }
    const uint16_t a = uint16_t(4 * f);
    faces.U16(a).U16(uint16_t(a + 1)).U16(uint16_t(a + 2)).U16(7);
    faces.U16(a).U16(uint16_t(a + 2)).U16(uint16_t(a + 3)).U16(7);
  }
  Chunk group(0x4130);
  group.Str(material).U16(12);
  for (uint16_t f = 0; f < 12; ++f) group.U16(f);
  faces.Add(group);
  // TEX_VERTS before FACE_ARRAY: the corners take their coordinates from it.
  return Chunk(0x4000).Str(name).Add(Chunk(0x4100).Add(points).Add(uvs).Add(faces));
}

Chunk Light(const char* name, float x, float y, float z, float r, float g, float b) {
  return Chunk(0x4000).Str(name).Add(Chunk(0x4600).F32({x, y, z}).Add(Chunk(0x0010).F32({r, g, b})));
}

// A track of keys without spline values: (frame, floats of the value).
struct Key {
  int32_t frame;
  std::initializer_list<float> value;
};
Chunk Track(uint16_t id, std::initializer_list<Key> keys) {
  Chunk t(id);
  t.U16(0).U32(0).U32(0).U32(uint32_t(keys.size()));
  for (const Key& k : keys) {
    t.U32(uint32_t(k.frame)).U16(0);
    t.F32(k.value);
  }
  return t;
}

Chunk Node(uint16_t tag, uint16_t id, const char* name, uint16_t parent, std::initializer_list<Chunk> tracks) {
  Chunk n(tag);
  n.Add(Chunk(0xB030).U16(id)).Add(Chunk(0xB010).Str(name).U16(0x4000).U16(0).U16(parent));
  for (const Chunk& t : tracks) n.Add(t);
  return n;
}

}  // namespace

std::vector<uint8_t> DemoScene3DS() {
  constexpr float kThird = 2.0943952f;  // a third of a turn: three keys make one
  Chunk mdata(0x3D3D);
  mdata.Add(Chunk(0x3D3E).U32(3)).Add(Chunk(0x0100).F32({1.0f}));
  mdata.Add(Material("screen", 255, 255, 255)).Add(Material("gold", 235, 180, 60)).Add(Material("floor", 70, 110, 160));
  mdata.Add(Box("Screen", 0, 0, 0, 24, 24, 24, "screen"));
  mdata.Add(Box("Moon", 0, 0, 0, 6, 6, 6, "gold"));
  mdata.Add(Box("Floor", 0, 0, -3, 110, 110, 3, "floor"));
  mdata.Add(Light("Key", -120, -160, 200, 1.0f, 0.95f, 0.85f));
  mdata.Add(Light("Fill", 150, -60, 60, 0.35f, 0.4f, 0.6f));
  mdata.Add(Chunk(0x4000).Str("Camera01").Add(Chunk(0x4700).F32({0, -190, 95, 0, 0, 28, 0, 40})));

  Chunk kf(0xB000);
  kf.Add(Chunk(0xB00A).U16(5).Str("nimbo demo").U32(89));
  kf.Add(Chunk(0xB008).U32(0).U32(89));
  kf.Add(Node(0xB002, 0, "Floor", 0xFFFF, {Track(0xB020, {{0, {0, 0, 0}}})}));
  // The box turns once round its vertical axis and bobs; rotation keys turn
  // from the key before.
  kf.Add(Node(0xB002, 1, "Screen", 0xFFFF,
              {Track(0xB020, {{0, {0, 0, 34}}, {45, {0, 0, 44}}, {89, {0, 0, 34}}}),
               Track(0xB021, {{0, {0, 0, 0, 1}}, {30, {kThird, 0, 0, 1}}, {60, {kThird, 0, 0, 1}}, {89, {kThird, 0, 0, 1}}}),
               Track(0xB022, {{0, {1, 1, 1}}})}));
  // The moon rides on the box, out to its side and up and down.
  kf.Add(Node(0xB002, 2, "Moon", 1,
              {Track(0xB020, {{0, {48, 0, 8}}, {45, {48, 0, -8}}, {89, {48, 0, 8}}}),
               Track(0xB021, {{0, {0, 0, 0, 1}}, {45, {3.1415927f, 1, 0, 0}}, {89, {3.1415927f, 1, 0, 0}}})}));
  kf.Add(Node(0xB003, 3, "Camera01", 0xFFFF,
              {Track(0xB020, {{0, {-70, -190, 95}}, {45, {70, -170, 70}}, {89, {-70, -190, 95}}}),
               Track(0xB023, {{0, {60}}}), Track(0xB024, {{0, {0}}})}));
  kf.Add(Node(0xB004, 4, "Camera01", 0xFFFF, {Track(0xB020, {{0, {0, 0, 28}}})}));

  Chunk file(0x4D4D);
  file.Add(Chunk(0x0002).U32(3)).Add(mdata).Add(kf);
  std::vector<uint8_t> bytes;
  file.Write(bytes);
  return bytes;
}

DemoSceneFile::DemoSceneFile() {
  path_ = (std::filesystem::temp_directory_path() / ("nimbo-demo-scene-" + std::to_string(::getpid()) + ".3ds")).string();
  const std::vector<uint8_t> bytes = DemoScene3DS();
  std::FILE* file = std::fopen(path_.c_str(), "wb");
  if (!file) throw HostError("cannot write the demo's scene " + path_);
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (std::fclose(file) != 0 || !written) {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
    throw HostError("cannot write the demo's scene " + path_);
  }
}

DemoSceneFile::~DemoSceneFile() {
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

}  // namespace nimbo::host
