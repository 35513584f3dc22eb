#include "c3ds_files.h"

#include <cmath>
#include <cstring>

namespace nimbo::scene3ds::testing {

ChunkBuilder& ChunkBuilder::U8(uint8_t v) {
  data.push_back(v);
  return *this;
}
ChunkBuilder& ChunkBuilder::U16(uint16_t v) {
  data.push_back(uint8_t(v));
  data.push_back(uint8_t(v >> 8));
  return *this;
}
ChunkBuilder& ChunkBuilder::U32(uint32_t v) {
  for (int shift = 0; shift < 32; shift += 8) data.push_back(uint8_t(v >> shift));
  return *this;
}
ChunkBuilder& ChunkBuilder::F32(float v) {
  uint32_t bits;
  std::memcpy(&bits, &v, 4);
  return U32(bits);
}
ChunkBuilder& ChunkBuilder::F32s(std::initializer_list<float> values) {
  for (float v : values) F32(v);
  return *this;
}
ChunkBuilder& ChunkBuilder::Str(const std::string& text) {
  data.insert(data.end(), text.begin(), text.end());
  data.push_back(0);
  return *this;
}
ChunkBuilder& ChunkBuilder::Add(ChunkBuilder child) {
  children.push_back(std::move(child));
  return *this;
}

std::vector<uint8_t> ChunkBuilder::Bytes() const {
  std::vector<uint8_t> body = data;
  for (const ChunkBuilder& child : children) {
    const std::vector<uint8_t> bytes = child.Bytes();
    body.insert(body.end(), bytes.begin(), bytes.end());
  }
  ChunkBuilder header(0);
  header.U16(id).U32(uint32_t(body.size() + 6));
  header.data.insert(header.data.end(), body.begin(), body.end());
  return header.data;
}

ChunkBuilder Track(uint16_t id, const std::vector<TrackKey>& keys, uint16_t flags) {
  ChunkBuilder c(id);
  c.U16(flags).U32(0).U32(0).U32(uint32_t(keys.size()));
  for (const TrackKey& k : keys) {
    c.U32(uint32_t(k.frame)).U16(uint16_t((1u << k.spline.size()) - 1));
    for (float s : k.spline) c.F32(s);
    for (float v : k.value) c.F32(v);
    if (!k.name.empty()) c.Str(k.name);
  }
  return c;
}

ChunkBuilder Color24(uint16_t id, uint8_t r, uint8_t g, uint8_t b) {
  ChunkBuilder color(0x0011);
  color.U8(r).U8(g).U8(b);
  return ChunkBuilder(id).Add(color);
}
ChunkBuilder ColorF(uint16_t id, float r, float g, float b) {
  return ChunkBuilder(id).Add(ChunkBuilder(0x0010).F32s({r, g, b}));
}
ChunkBuilder IntPercent(uint16_t id, int16_t percent) {
  return ChunkBuilder(id).Add(ChunkBuilder(0x0030).U16(uint16_t(percent)));
}
ChunkBuilder FloatPercent(uint16_t id, float percent) { return ChunkBuilder(id).Add(ChunkBuilder(0x0031).F32(percent)); }
ChunkBuilder MapChunk(uint16_t id, const std::string& file) {
  return ChunkBuilder(id).Add(ChunkBuilder(0x0030).U16(100)).Add(ChunkBuilder(0xA300).Str(file));
}

ChunkBuilder SceneFile(std::vector<ChunkBuilder> mdata, std::vector<ChunkBuilder> kfdata, uint32_t version) {
  ChunkBuilder root(0x4D4D);
  root.Add(ChunkBuilder(0x0002).U32(3));
  ChunkBuilder m(0x3D3D);
  m.Add(ChunkBuilder(0x3D3E).U32(version));
  m.Add(ChunkBuilder(0x0100).F32(1.0f));
  for (ChunkBuilder& c : mdata) m.Add(std::move(c));
  root.Add(std::move(m));
  if (!kfdata.empty()) {
    ChunkBuilder k(0xB000);
    k.Add(ChunkBuilder(0xB00A).U16(5).Str("MAXSCENE").U32(100));
    for (ChunkBuilder& c : kfdata) k.Add(std::move(c));
    root.Add(std::move(k));
  }
  return root;
}

ChunkBuilder MeshObject(const MeshSpec& mesh) {
  ChunkBuilder tri(0x4100);
  ChunkBuilder points(0x4110);
  points.U16(uint16_t(mesh.points.size() / 3));
  for (float v : mesh.points) points.F32(v);
  tri.Add(points);
  ChunkBuilder uv(0x4140);
  uv.U16(uint16_t(mesh.uv.size() / 2));
  for (float v : mesh.uv) uv.F32(v);
  if (!mesh.uv.empty() && !mesh.uv_after_faces) tri.Add(uv);
  if (!mesh.matrix.empty()) {
    ChunkBuilder m(0x4160);
    for (float v : mesh.matrix) m.F32(v);
    tri.Add(m);
  }
  ChunkBuilder faces(0x4120);
  faces.U16(uint16_t(mesh.faces.size() / 3));
  for (size_t k = 0; k + 2 < mesh.faces.size(); k += 3)
    faces.U16(mesh.faces[k]).U16(mesh.faces[k + 1]).U16(mesh.faces[k + 2]).U16(7);
  for (const auto& [name, list] : mesh.groups) {
    ChunkBuilder g(0x4130);
    g.Str(name).U16(uint16_t(list.size()));
    for (uint16_t f : list) g.U16(f);
    faces.Add(g);
  }
  ChunkBuilder smooth(0x4150);
  for (size_t k = 0; k < mesh.faces.size() / 3; ++k) smooth.U32(1);
  faces.Add(smooth);
  tri.Add(faces);
  if (!mesh.uv.empty() && mesh.uv_after_faces) tri.Add(uv);
  return ChunkBuilder(0x4000).Str(mesh.name).Add(tri);
}

ChunkBuilder ObjectNode(uint16_t node_id, const std::string& name, uint16_t parent, std::vector<ChunkBuilder> extra,
                        uint16_t flags, uint16_t tag) {
  ChunkBuilder node(tag);
  node.Add(ChunkBuilder(0xB030).U16(node_id));
  node.Add(ChunkBuilder(0xB010).Str(name).U16(flags).U16(0).U16(parent));
  for (ChunkBuilder& c : extra) node.Add(std::move(c));
  return node;
}

namespace {

MeshSpec Cube(const std::string& name, float x, float y, float z) {
  MeshSpec m;
  m.name = name;
  for (int k = 0; k < 8; ++k) {
    m.points.push_back(x + float(k & 1));
    m.points.push_back(y + float((k >> 1) & 1));
    m.points.push_back(z + float((k >> 2) & 1));
  }
  m.faces = {0, 1, 3, 0, 3, 2, 4, 6, 7, 4, 7, 5, 0, 4, 5, 0, 5, 1, 2, 3, 7, 2, 7, 6, 0, 2, 6, 0, 6, 4, 1, 5, 7, 1, 7, 3};
  m.matrix = {1, 0, 0, 0, 1, 0, 0, 0, 1, x, y, z};
  return m;
}

}  // namespace

std::vector<uint8_t> SampleScene() {
  std::vector<ChunkBuilder> mdata;
  ChunkBuilder red(0xAFFF);
  red.Add(ChunkBuilder(0xA000).Str("red plastic"));
  red.Add(Color24(0xA010, 51, 0, 0)).Add(Color24(0xA020, 255, 0, 0)).Add(Color24(0xA030, 255, 255, 255));
  red.Add(IntPercent(0xA040, 40)).Add(FloatPercent(0xA041, 25.0f)).Add(IntPercent(0xA050, 50));
  red.Add(IntPercent(0xA052, 10)).Add(IntPercent(0xA053, 20));
  red.Add(ChunkBuilder(0xA081)).Add(ChunkBuilder(0xA083)).Add(ChunkBuilder(0xA085)).Add(ChunkBuilder(0xA08C));
  red.Add(ChunkBuilder(0xA100).U16(3));
  red.Add(MapChunk(0xA200, "bricks.png")).Add(MapChunk(0xA204, "spec.png")).Add(MapChunk(0xA210, "opac.png"));
  red.Add(MapChunk(0xA220, "refl.png")).Add(MapChunk(0xA230, "bump.png"));
  mdata.push_back(red);
  ChunkBuilder floaty(0xAFFF);
  floaty.Add(ChunkBuilder(0xA000).Str("float colours"));
  floaty.Add(ColorF(0xA010, 0.5f, 0.5f, 0.5f)).Add(ColorF(0xA020, 0.25f, 0.5f, 0.75f));
  mdata.push_back(floaty);
  mdata.push_back(ChunkBuilder(0x2100).Add(ChunkBuilder(0x0010).F32s({0.1f, 0.2f, 0.3f})));

  MeshSpec box = Cube("Box", 0, 0, 0);
  box.uv = {0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 1, 0, 0, 1, 1, 1};
  box.groups = {{"red plastic", {0, 1, 2, 3}}, {"float colours", {4}}};
  mdata.push_back(MeshObject(box));
  MeshSpec lid = Cube("Lid", 0, 0, 2);
  lid.uv = box.uv;
  lid.uv_after_faces = true;  // ignored
  mdata.push_back(MeshObject(lid));
  MeshSpec mirrored = Cube("Mirror", 4, 0, 0);
  mirrored.matrix = {-1, 0, 0, 0, 1, 0, 0, 0, 1, 4, 5, 6};
  mdata.push_back(MeshObject(mirrored));
  // A second shape for the box to morph to.
  mdata.push_back(MeshObject(Cube("BoxMorph", 0, 0, 1)));

  ChunkBuilder light(0x4000);
  ChunkBuilder direct(0x4600);
  direct.F32s({1, 2, 3});
  direct.Add(ChunkBuilder(0x0010).F32s({1.0f, 0.5f, 0.25f}));
  direct.Add(ChunkBuilder(0x4610).F32s({4, 5, 6, 30, 45}));
  light.Str("Spot01").Add(direct);
  mdata.push_back(light);
  ChunkBuilder camera(0x4000);
  ChunkBuilder cam(0x4700);
  cam.F32s({10, 20, 30, 0, 0, 0, 45, 35});
  cam.Add(ChunkBuilder(0x4720).F32s({1.5f, 1000.0f}));
  camera.Str("Camera01").Add(cam);
  mdata.push_back(camera);

  std::vector<ChunkBuilder> kf;
  kf.push_back(ChunkBuilder(0xB008).U32(0).U32(100));
  kf.push_back(ChunkBuilder(0xB009).U32(0));
  const float quarter = 1.5707964f;
  kf.push_back(ObjectNode(0, "Box", 0xFFFF,
                          {ChunkBuilder(0xB013).F32s({0.5f, 0.5f, 0.5f}),
                           Track(0xB020, {{0, {}, {0, 0, 0}}, {50, {0.5f, 0, 0, 0.5f, 0.5f}, {10, 20, 30}}, {100, {}, {0, 0, 0}}}),
                           Track(0xB021, {{0, {}, {0, 0, 0, 1}}, {60, {}, {quarter * 2, 0, 0, 1}}}),
                           Track(0xB022, {{0, {}, {1, 1, 1}}, {100, {}, {2, 2, 2}}}),
                           Track(0xB026, {{0, {}, {}, "Box"}, {40, {}, {}, "BoxMorph"}}),
                           Track(0xB029, {{20, {}, {}}, {30, {}, {}}, {70, {}, {}}})}));
  kf.push_back(ObjectNode(1, "$$$DUMMY", 0xFFFF,
                          {ChunkBuilder(0xB011).Str("Group"), ChunkBuilder(0xB013).F32s({0, 0, 0}),
                           Track(0xB020, {{0, {}, {1, 2, 3}}})}));
  kf.push_back(ObjectNode(2, "Lid", 1,
                          {Track(0xB020, {{0, {}, {0, 0, 2}}, {120, {}, {0, 0, 4}}}),
                           Track(0xB021, {{0, {}, {0, 0, 0, 1}}, {30, {}, {quarter, 1, 0, 0}}, {90, {}, {quarter, 0, 1, 0}}})},
                          0x800));
  kf.push_back(ObjectNode(3, "Mirror", 2, {}));
  kf.push_back(ObjectNode(4, "Camera01", 0xFFFF,
                          {Track(0xB020, {{0, {}, {10, 20, 30}}}), Track(0xB023, {{0, {}, {45}}}),
                           Track(0xB024, {{0, {}, {0}}})},
                          0, 0xB003));
  kf.push_back(ObjectNode(5, "Camera01", 0xFFFF, {Track(0xB020, {{0, {}, {0, 0, 0}}})}, 0, 0xB004));
  kf.push_back(ObjectNode(6, "Spot01", 0xFFFF, {Track(0xB020, {{0, {}, {1, 2, 3}}})}, 0, 0xB007));
  kf.push_back(ObjectNode(7, "Spot01", 0xFFFF, {Track(0xB020, {{0, {}, {4, 5, 6}}})}, 0, 0xB006));
  return SceneFile(std::move(mdata), std::move(kf)).Bytes();
}

std::vector<uint8_t> AnimatedScene(int nodes, int keys) {
  std::vector<ChunkBuilder> mdata, kf;
  kf.push_back(ChunkBuilder(0xB008).U32(0).U32(uint32_t(keys * 10)));
  for (int n = 0; n < nodes; ++n) {
    const std::string name = "Node" + std::to_string(n);
    mdata.push_back(MeshObject(Cube(name, float(n), 0, 0)));
    std::vector<TrackKey> pos, rot, scl;
    for (int k = 0; k < keys; ++k) {
      const float f = float(k);
      pos.push_back({k * 10, {0.1f, 0.2f, 0.3f}, {f, std::sin(f), std::cos(f)}});
      rot.push_back({k * 10, {}, {0.3f + 0.1f * f, 0.2f, 1, 0.5f}});
      scl.push_back({k * 10, {}, {1 + 0.1f * f, 1, 1}});
    }
    const uint16_t parent = n % 10 == 0 ? 0xFFFF : uint16_t(n - 1);
    kf.push_back(ObjectNode(uint16_t(n), name, parent,
                            {ChunkBuilder(0xB013).F32s({0.5f, 0.5f, 0.5f}), Track(0xB020, pos), Track(0xB021, rot),
                             Track(0xB022, scl)}));
  }
  return SceneFile(std::move(mdata), std::move(kf)).Bytes();
}

std::vector<uint8_t> LargeScene(size_t bytes) {
  std::vector<ChunkBuilder> mdata;
  ChunkBuilder mat(0xAFFF);
  mat.Add(ChunkBuilder(0xA000).Str("grid")).Add(Color24(0xA020, 200, 200, 200));
  mdata.push_back(mat);
  // A 181 x 181 grid: 32761 vertices and 64800 faces (the 16-bit limits),
  // about 1.3 MB each.
  constexpr int kSide = 181;
  size_t written = 0;
  for (int n = 0; written < bytes; ++n) {
    MeshSpec m;
    m.name = "Grid" + std::to_string(n);
    for (int y = 0; y < kSide; ++y)
      for (int x = 0; x < kSide; ++x) {
        m.points.insert(m.points.end(), {float(x), float(y), std::sin(float(x + y + n) * 0.1f)});
        m.uv.insert(m.uv.end(), {float(x) / kSide, float(y) / kSide});
      }
    std::vector<uint16_t> all;
    for (int y = 0; y + 1 < kSide; ++y)
      for (int x = 0; x + 1 < kSide; ++x) {
        const uint16_t a = uint16_t(y * kSide + x), b = uint16_t(a + 1), c = uint16_t(a + kSide), d = uint16_t(c + 1);
        m.faces.insert(m.faces.end(), {a, b, d, a, d, c});
      }
    for (size_t f = 0; f < m.faces.size() / 3; ++f) all.push_back(uint16_t(f));
    m.groups = {{"grid", all}};
    m.matrix = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    written += m.points.size() * 4 + m.uv.size() * 4 + m.faces.size() / 3 * 14 + all.size() * 2;
    mdata.push_back(MeshObject(m));
  }
  return SceneFile(std::move(mdata), {}).Bytes();
}

}  // namespace nimbo::scene3ds::testing
