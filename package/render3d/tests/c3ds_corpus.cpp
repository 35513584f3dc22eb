// Writes the .3ds fuzzer's seed corpus: small files built chunk by chunk,
// between them every chunk kind the reader knows.
//   build/tests/c3ds_corpus fuzz/corpus/3ds
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "c3ds_files.h"

using namespace nimbo::scene3ds::testing;

namespace {

void Write(const std::string& dir, const std::string& name, const std::vector<uint8_t>& bytes) {
  std::ofstream(dir + "/" + name, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: c3ds_corpus DIR\n");
    return 2;
  }
  const std::string dir = argv[1];
  Write(dir, "sample.3ds", SampleScene());
  Write(dir, "animated.3ds", AnimatedScene(3, 4));
  Write(dir, "skeleton.3ds", SceneFile({}, {ChunkBuilder(0xB008).U32(0).U32(100), ChunkBuilder(0xB009).U32(0)}).Bytes());

  MeshSpec tri;
  tri.name = "Tri";
  tri.points = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  tri.faces = {0, 1, 2};
  tri.uv = {0, 0, 1, 0, 0, 1};
  tri.matrix = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
  tri.groups = {{"m", {0}}};
  ChunkBuilder mat(0xAFFF);
  mat.Add(ChunkBuilder(0xA000).Str("m")).Add(Color24(0xA020, 1, 2, 3)).Add(MapChunk(0xA200, "t.png"));
  Write(dir, "triangle.3ds", SceneFile({mat, MeshObject(tri)}, {}).Bytes());

  // Tracks of every kind on one node, two-key rotation included.
  Write(dir, "tracks.3ds",
        SceneFile({MeshObject(tri)},
                  {ChunkBuilder(0xB008).U32(0).U32(10),
                   ObjectNode(0, "Tri", 0xFFFF,
                              {ChunkBuilder(0xB013).F32s({0, 0, 0}),
                               Track(0xB020, {{0, {1, 1, 1, 1, 1}, {1, 2, 3}}, {5, {}, {3, 2, 1}}}),
                               Track(0xB021, {{0, {}, {0, 0, 0, 1}}, {8, {}, {4, 1, 0, 0}}}),
                               Track(0xB022, {{0, {}, {1, 1, 1}}}), Track(0xB026, {{0, {}, {}, "Tri"}}),
                               Track(0xB029, {{1, {}, {}}, {2, {}, {}}})})})
            .Bytes());
  std::printf("wrote 5 files into %s\n", dir.c_str());
  return 0;
}
