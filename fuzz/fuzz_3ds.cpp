// libFuzzer target for the .3ds reader: LoadFromMemory over arbitrary bytes,
// then SetFrame at a few times. Beyond "no crash, no hang, no read past the
// buffer, no huge allocation" it checks what every load must keep: a result
// that agrees with the error code, a code of the load steps' table, and a
// scene whose every face index, material index and pool range is inside
// what it refers to.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "fuzz_check.h"
#include "render3d/c3ds_scene.h"

namespace {

using namespace nimbo::scene3ds;

void CheckScene(const C3DSScene& s) {
  FUZZ_CHECK(!s.Materials().empty() && s.Materials()[0].name == "default");
  for (const Mesh& m : s.Meshes()) {
    FUZZ_CHECK(m.first_vertex + m.vertex_count <= s.Vertices().size());
    FUZZ_CHECK(m.first_face + m.face_count <= s.Faces().size());
    FUZZ_CHECK(m.texcoords.empty() || m.texcoords.size() == m.face_count * 6);
    for (size_t k = 0; k < m.face_count; ++k) {
      const Face& f = s.Faces()[m.first_face + k];
      for (uint16_t v : f.v) FUZZ_CHECK(v < m.vertex_count);
      FUZZ_CHECK(f.material >= 0 && size_t(f.material) < s.Materials().size());
    }
    FUZZ_CHECK(m.node < int(s.Nodes().size()));
  }
  for (const Node& n : s.Nodes()) FUZZ_CHECK(n.parent < int(s.Nodes().size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An exactly sized copy, so that a read past the end is a finding.
  std::unique_ptr<uint8_t[]> copy(new uint8_t[size ? size : 1]);
  if (size) std::memcpy(copy.get(), data, size);
  C3DSScene scene;
  scene.SetOptions(size % 2 ? kOptionFaceNormals : 0);
  const bool ok = scene.LoadFromMemory(copy.get(), size, "fuzz");
  const int code = scene.GetError();
  FUZZ_CHECK(ok == (code == kNoError));
  FUZZ_CHECK(code == kNoError || code == kWrongFormat || code == kWrongVersion || code == kMaterialError ||
             code == kMeshError || code == kKeyframeError || code == kOutOfMemory);
  if (!ok) {
    FUZZ_CHECK(scene.Meshes().empty() && scene.Nodes().empty());
    return 0;
  }
  CheckScene(scene);
  for (float frame : {0.0f, 0.5f, 7.25f, float(scene.EndFrame()), -1e9f, 1e9f, NAN}) scene.SetFrame(frame);
  return 0;
}
