// nimbo scene: what a 3D Studio (.3ds) scene holds, read by the same reader
// the 3D effects use (linked directly, as `nimbo formula` links the formula
// library): a summary for people, or with --json one object for programs.
#include <cstdio>
#include <map>
#include <string>

#include "cli/commands.h"
#include "cli/text_out.h"
#include "render3d/c3ds_scene.h"

namespace nimbo::host {
namespace {

using namespace nimbo::scene3ds;

// Names in .3ds files are bytes, often Latin-1: a name that is not UTF-8 is
// shown with each byte above 0x7F as the Latin-1 character it stands for.
std::string Utf8Name(const std::string& name) {
  size_t k = 0;
  bool valid = true;
  while (valid && k < name.size()) {
    const unsigned char c = static_cast<unsigned char>(name[k]);
    const size_t extra = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : 99;
    if (extra == 99 || k + extra >= name.size() + (extra == 0 ? 1 : 0)) valid = extra == 0;
    for (size_t j = 1; valid && j <= extra; ++j)
      valid = k + j < name.size() && (static_cast<unsigned char>(name[k + j]) >> 6) == 2;
    k += extra + 1;
  }
  if (valid) return name;
  std::string out;
  for (unsigned char c : name) {
    if (c < 0x80) {
      out += char(c);
    } else {
      out += char(0xC0 | c >> 6);
      out += char(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::string Str(const std::string& text) { return JsonString(Utf8Name(text)); }
std::string OrNull(const std::string& text) { return text.empty() ? "null" : Str(text); }
std::string Num(float value) { return JsonNumber(value); }
std::string Bool(bool value) { return value ? "true" : "false"; }
std::string Vec(Vec3 v) { return "[" + Num(v.x) + ", " + Num(v.y) + ", " + Num(v.z) + "]"; }
std::string QuatText(Quat q) { return "[" + Num(q.w) + ", " + Num(q.x) + ", " + Num(q.y) + ", " + Num(q.z) + "]"; }

std::string MatrixText(const Mat4& m) {
  std::string out = "[";
  for (int row = 0; row < 4; ++row)
    for (int col = 0; col < 4; ++col) out += (row || col ? ", " : "") + Num(m.m[row][col]);
  return out + "]";
}

// The name of the object a node stands for (a dummy's is its instance name),
// or the node's own name when no object has it.
std::string NodeObjectName(const C3DSScene& s, const Node& node) {
  if (node.object >= 0) {
    const size_t o = size_t(node.object);
    switch (node.type) {
      case NodeType::kMesh: return s.Meshes()[o].name;
      case NodeType::kDummy: return s.Dummies()[o].name;
      case NodeType::kCamera:
      case NodeType::kCameraTarget: return s.Cameras()[o].name;
      default: return s.Lights()[o].name;
    }
  }
  return node.name;
}

// Faces per material name, in material order.
std::vector<std::pair<std::string, size_t>> FaceMaterials(const C3DSScene& s, const Mesh& mesh) {
  std::vector<size_t> counts(s.Materials().size(), 0);
  for (size_t k = 0; k < mesh.face_count; ++k) ++counts[size_t(s.Faces()[mesh.first_face + k].material)];
  std::vector<std::pair<std::string, size_t>> out;
  for (size_t m = 0; m < counts.size(); ++m) {
    if (counts[m] == 0) continue;
    bool merged = false;  // two materials of one name count together
    for (auto& entry : out)
      if (entry.first == s.Materials()[m].name) entry.second += counts[m], merged = true;
    if (!merged) out.emplace_back(s.Materials()[m].name, counts[m]);
  }
  return out;
}

std::string MaterialJson(const Material& m) {
  return "{\"name\": " + Str(m.name) + ", \"index\": " + std::to_string(m.index) + ", \"ambient\": " + Vec(m.ambient) +
         ", \"diffuse\": " + Vec(m.diffuse) + ", \"specular\": " + Vec(m.specular) +
         ", \"shininess\": " + Num(m.shininess) + ", \"shin_strength\": " + Num(m.shin_strength) +
         ", \"transparency\": " + Num(m.transparency) + ", \"falloff\": " + Num(m.falloff) +
         ", \"refblur\": " + Num(m.refblur) + ", \"flags\": " + std::to_string(m.flags) +
         ", \"maps\": {\"texture\": " + OrNull(m.texture_map) + ", \"specular\": " + OrNull(m.specular_map) +
         ", \"reflection\": " + OrNull(m.reflection_map) + ", \"opacity\": " + OrNull(m.opacity_map) +
         ", \"bump\": " + OrNull(m.bump_map) + "}}";
}

std::string MeshJson(const C3DSScene& s, const Mesh& mesh, const SceneOptions& o) {
  std::string out = "{\"name\": " + Str(mesh.name) + ", \"index\": " + std::to_string(mesh.index) +
                    ", \"hidden\": " + Bool(mesh.hidden()) + ", \"vertices\": " + std::to_string(mesh.vertex_count) +
                    ", \"faces\": " + std::to_string(mesh.face_count) +
                    ", \"texcoords\": " + Bool(!mesh.texcoords.empty()) + ", \"matrix\": " + MatrixText(mesh.matrix) +
                    ", \"pivot\": " + Vec(mesh.pivot) + ", \"first_vertex\": " + std::to_string(mesh.first_vertex) +
                    ", \"last_vertex\": " +
                    std::to_string(static_cast<long long>(mesh.first_vertex + mesh.vertex_count) - 1) +
                    ", \"face_materials\": {";
  bool first = true;
  for (const auto& [name, count] : FaceMaterials(s, mesh)) {
    out += (first ? "" : ", ") + Str(name) + ": " + std::to_string(count);
    first = false;
  }
  const Tracks& t = mesh.tracks;
  out += "}, \"tracks\": {\"position\": " + std::to_string(t.position.keys.size()) +
         ", \"rotation\": " + std::to_string(t.rotation.keys.size()) +
         ", \"scale\": " + std::to_string(t.scale.keys.size()) + ", \"morph\": " + std::to_string(t.morph.keys.size()) +
         ", \"hide\": " + std::to_string(t.hide.keys.size()) + "}";
  out += ", \"node_id\": " + (mesh.node >= 0 ? std::to_string(mesh.node_id) : std::string("null"));
  const int parent = mesh.node >= 0 ? s.Nodes()[size_t(mesh.node)].parent : -1;
  out += ", \"parent\": " + (parent >= 0 ? Str(NodeObjectName(s, s.Nodes()[size_t(parent)])) : std::string("null"));
  if (o.vertices) {
    out += ", \"positions\": [";
    for (size_t k = 0; k < mesh.vertex_count; ++k)
      out += (k ? ", " : "") + Vec(s.Vertices()[mesh.first_vertex + k].position);
    out += "], \"triangles\": [";
    for (size_t k = 0; k < mesh.face_count; ++k) {
      const Face& f = s.Faces()[mesh.first_face + k];
      out += std::string(k ? ", " : "") + "[" + std::to_string(f.v[0]) + ", " + std::to_string(f.v[1]) + ", " +
             std::to_string(f.v[2]) + ", " + std::to_string(f.flags) + "]";
    }
    out += "]";
  }
  if (o.frame_given) {
    const Pose& p = mesh.pose;
    out += ", \"pose\": {\"position\": " + Vec(p.position) + ", \"rotation\": " + QuatText(p.rotation) +
           ", \"scale\": " + Vec(p.scale) + ", \"hidden\": " + Bool(p.hidden) + "}";
  }
  return out + "}";
}

std::string LightJson(const Light& l) {
  return "{\"name\": " + Str(l.name) + ", \"index\": " + std::to_string(l.index) + ", \"position\": " +
         Vec(l.position) + ", \"color\": " + Vec(l.color) + ", \"spot\": " + Bool(l.spot) +
         ", \"target\": " + (l.spot ? Vec(l.target) : std::string("null")) + "}";
}

std::string CameraJson(const Camera& c) {
  return "{\"name\": " + Str(c.name) + ", \"index\": " + std::to_string(c.index) + ", \"position\": " +
         Vec(c.position) + ", \"target\": " + Vec(c.target) + ", \"bank\": " + Num(c.bank) +
         ", \"lens\": " + Num(c.lens) + ", \"near\": " + Num(c.near_range) + ", \"far\": " + Num(c.far_range) + "}";
}

template <class Item, class Text>
std::string List(const std::vector<Item>& items, Text text) {
  std::string out = "[";
  for (size_t k = 0; k < items.size(); ++k) out += (k ? ", " : "") + text(items[k]);
  return out + "]";
}

void PrintJson(const C3DSScene& s, const SceneOptions& o) {
  const Vec3 a = s.Ambient();
  std::string out = "{\"ok\": true, \"version\": " + std::to_string(s.Version()) +
                    ", \"frames\": {\"start\": " + std::to_string(s.StartFrame()) +
                    ", \"end\": " + std::to_string(s.EndFrame()) + ", \"count\": " + std::to_string(s.FrameCount()) +
                    "}, \"ambient\": " + Vec(a) + ", \"materials\": " + List(s.Materials(), MaterialJson) +
                    ", \"meshes\": " + List(s.Meshes(), [&](const Mesh& m) { return MeshJson(s, m, o); }) +
                    ", \"lights\": " + List(s.Lights(), LightJson) + ", \"cameras\": " + List(s.Cameras(), CameraJson) +
                    ", \"dummies\": " + std::to_string(s.Dummies().size()) + "}\n";
  std::fputs(out.c_str(), stdout);
}

std::string Plain(Vec3 v) { return "(" + NumberText(v.x) + ", " + NumberText(v.y) + ", " + NumberText(v.z) + ")"; }

void PrintSummary(const C3DSScene& s, const SceneOptions& o) {
  std::printf("%s: version %d, frames %d..%d (%lld), ambient %s\n", Utf8Name(o.file).c_str(), s.Version(),
              s.StartFrame(), s.EndFrame(), static_cast<long long>(s.FrameCount()), Plain(s.Ambient()).c_str());
  std::printf("%zu materials (with \"default\"), %zu meshes (%zu vertices, %zu faces), %zu lights, %zu cameras, "
              "%zu dummies\n",
              s.Materials().size(), s.Meshes().size(), s.Vertices().size(), s.Faces().size(), s.Lights().size(),
              s.Cameras().size(), s.Dummies().size());
  for (const Material& m : s.Materials()) {
    std::printf("material %d %s: diffuse %s", m.index, Str(m.name).c_str(), Plain(m.diffuse).c_str());
    if (!m.texture_map.empty()) std::printf(", texture %s", Str(m.texture_map).c_str());
    std::printf("\n");
  }
  for (const Mesh& mesh : s.Meshes()) {
    std::printf("mesh %d %s: %zu vertices, %zu faces%s%s", mesh.index, Str(mesh.name).c_str(), mesh.vertex_count,
                mesh.face_count, mesh.texcoords.empty() ? "" : ", texture coordinates",
                mesh.hidden() ? ", hidden" : "");
    const int parent = mesh.node >= 0 ? s.Nodes()[size_t(mesh.node)].parent : -1;
    if (parent >= 0) std::printf(", child of %s", Str(NodeObjectName(s, s.Nodes()[size_t(parent)])).c_str());
    const Tracks& t = mesh.tracks;
    if (t.position.keys.size() + t.rotation.keys.size() + t.scale.keys.size() + t.morph.keys.size() +
        t.hide.keys.size())
      std::printf(", keys: %zu position, %zu rotation, %zu scale, %zu morph, %zu hide", t.position.keys.size(),
                  t.rotation.keys.size(), t.scale.keys.size(), t.morph.keys.size(), t.hide.keys.size());
    std::printf("\n");
    if (o.frame_given) {
      const Pose& p = mesh.pose;
      std::printf("  at frame %s: position %s, rotation [%s, %s, %s, %s], scale %s%s\n",
                  NumberText(o.frame).c_str(), Plain(p.position).c_str(), NumberText(p.rotation.w).c_str(),
                  NumberText(p.rotation.x).c_str(), NumberText(p.rotation.y).c_str(),
                  NumberText(p.rotation.z).c_str(), Plain(p.scale).c_str(), p.hidden ? ", hidden" : "");
    }
    if (o.vertices) {
      for (size_t k = 0; k < mesh.vertex_count; ++k)
        std::printf("  v %zu %s\n", k, Plain(s.Vertices()[mesh.first_vertex + k].position).c_str());
      for (size_t k = 0; k < mesh.face_count; ++k) {
        const Face& f = s.Faces()[mesh.first_face + k];
        std::printf("  f %zu %u %u %u flags %u material %s\n", k, f.v[0], f.v[1], f.v[2], f.flags,
                    Str(s.Materials()[size_t(f.material)].name).c_str());
      }
    }
  }
  for (const Light& l : s.Lights())
    std::printf("light %d %s: position %s, colour %s%s\n", l.index, Str(l.name).c_str(), Plain(l.position).c_str(),
                Plain(l.color).c_str(), l.spot ? (", spot at " + Plain(l.target)).c_str() : "");
  for (const Camera& c : s.Cameras())
    std::printf("camera %d %s: position %s, target %s, bank %s rad, lens %s, range %s..%s\n", c.index,
                Str(c.name).c_str(), Plain(c.position).c_str(), Plain(c.target).c_str(), NumberText(c.bank).c_str(),
                NumberText(c.lens).c_str(), NumberText(c.near_range).c_str(), NumberText(c.far_range).c_str());
}

}  // namespace

int RunScene(const CommandLine& cl) {
  const SceneOptions& o = cl.scene;
  C3DSScene scene;
  if (!scene.Load(o.file)) {
    const int code = scene.GetError();
    if (cl.json) {
      std::printf("{\"ok\": false, \"code\": %d, \"message\": %s}\n", code,
                  JsonString(C3DSScene::GetErrorText(code)).c_str());
    } else if (code == kNoError) {
      std::fprintf(stderr, "nimbo: error: %s is empty\n", Quoted(o.file).c_str());
    } else {
      std::fprintf(stderr, "nimbo: error: %s: %s\n", Quoted(o.file).c_str(), C3DSScene::GetErrorText(code));
    }
    return 1;
  }
  if (o.frame_given) scene.SetFrame(o.frame);
  if (cl.json) PrintJson(scene, o);
  else PrintSummary(scene, o);
  return 0;
}

}  // namespace nimbo::host
