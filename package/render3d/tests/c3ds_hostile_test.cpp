// Damaged and hostile files: each must end the load with the error code of
// the step that meets the damage, without reading past the buffer, looping
// or allocating what the file cannot hold. Run under the sanitizers (the
// asan preset) these also prove there is no over-read.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "c3ds_files.h"
#include "render3d/c3ds_scene.h"

namespace nimbo::scene3ds {
namespace {

using testing::ChunkBuilder;
using testing::MeshSpec;

// Loads `bytes` from an exactly sized heap copy, so a read past its end is
// a sanitizer finding.
int LoadCode(const std::vector<uint8_t>& bytes) {
  std::unique_ptr<uint8_t[]> copy(new uint8_t[bytes.size()]);
  if (!bytes.empty()) std::memcpy(copy.get(), bytes.data(), bytes.size());
  C3DSScene scene;
  const bool ok = scene.LoadFromMemory(copy.get(), bytes.size(), "hostile");
  EXPECT_EQ(ok, scene.GetError() == kNoError);
  scene.SetFrame(0);
  scene.SetFrame(1e9f);
  return scene.GetError();
}

MeshSpec Triangle(const std::string& name = "Tri") {
  MeshSpec m;
  m.name = name;
  m.points = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  m.faces = {0, 1, 2};
  return m;
}

std::vector<uint8_t> File(std::vector<ChunkBuilder> mdata, std::vector<ChunkBuilder> kf = {}) {
  return testing::SceneFile(std::move(mdata), std::move(kf)).Bytes();
}

// The offset of the first chunk with `id` whose header is found after `from`.
size_t FindChunkAt(const std::vector<uint8_t>& bytes, uint16_t id, size_t from = 0) {
  for (size_t k = from; k + 6 <= bytes.size(); ++k)
    if (bytes[k] == (id & 0xFF) && bytes[k + 1] == (id >> 8)) return k;
  ADD_FAILURE() << "no chunk " << std::hex << id;
  return 0;
}

void PutU32(std::vector<uint8_t>& bytes, size_t at, uint32_t v) {
  for (int k = 0; k < 4; ++k) bytes[at + size_t(k)] = uint8_t(v >> (8 * k));
}

struct Case {
  const char* what;
  std::function<std::vector<uint8_t>()> make;
  int code;
};

TEST(C3dsHostile, EachDamageGivesItsStepsCode) {
  const Case cases[] = {
      {"not a .3ds file", [] { return std::vector<uint8_t>(64, 'x'); }, kWrongFormat},
      {"too short for a version", [] { return std::vector<uint8_t>{'M', 'M', 6, 0, 0, 0}; }, kWrongFormat},
      {"root chunk longer than the file",
       [] {
         auto b = File({});
         PutU32(b, 2, uint32_t(b.size() + 1));
         return b;
       },
       kWrongFormat},
      {"material sub-chunk past its parent",
       [] {
         ChunkBuilder m(0xAFFF);
         m.Add(ChunkBuilder(0xA000).Str("m"));
         auto b = File({m});
         const size_t name = FindChunkAt(b, 0xA000);
         PutU32(b, name + 2, 200);
         return b;
       },
       kMaterialError},
      {"unterminated material name",
       [] {
         ChunkBuilder name(0xA000);
         name.data = {'a', 'b', 'c'};
         return File({ChunkBuilder(0xAFFF).Add(name)});
       },
       kMaterialError},
      {"zero-length chunk in MDATA",
       [] {
         auto b = File({ChunkBuilder(0x0100).F32(1)});
         const size_t at = FindChunkAt(b, 0x0100, 22 + 10);
         PutU32(b, at + 2, 0);
         return b;
       },
       kMaterialError},
      {"1025 material entries",
       [] {
         std::vector<ChunkBuilder> mats(1025, ChunkBuilder(0xAFFF));
         return File(std::move(mats));
       },
       kMaterialError},
      {"point count larger than its bytes",
       [] {
         auto b = File({testing::MeshObject(Triangle())});
         const size_t points = FindChunkAt(b, 0x4110);
         b[points + 6] = 0xFF;
         b[points + 7] = 0xFF;
         return b;
       },
       kMeshError},
      {"face index past the vertex count",
       [] {
         MeshSpec m = Triangle();
         m.faces = {0, 1, 3};
         return File({testing::MeshObject(m)});
       },
       kMeshError},
      {"material group naming a face that does not exist",
       [] {
         MeshSpec m = Triangle();
         m.groups = {{"default", {0, 1}}};
         return File({testing::MeshObject(m)});
       },
       kMeshError},
      {"unterminated object name",
       [] {
         ChunkBuilder named(0x4000);
         named.data = {'T', 'r', 'i'};
         return File({named});
       },
       kMeshError},
      {"camera chunk too short for its values",
       [] { return File({ChunkBuilder(0x4000).Str("Cam").Add(ChunkBuilder(0x4700).F32s({1, 2, 3}))}); },
       kMeshError},
      {"no MDATA",
       [] {
         // An unknown chunk where MDATA would be, its bytes making offset 28 non-zero.
         return ChunkBuilder(0x4D4D).Add(ChunkBuilder(0x0002).U32(3)).Add(ChunkBuilder(0x1234).F32s({1, 1, 1})).Bytes();
       },
       kMeshError},
      {"parent cycle",
       [] {
         return File({testing::MeshObject(Triangle("A")), testing::MeshObject(Triangle("B"))},
                     {testing::ObjectNode(0, "A", 1), testing::ObjectNode(1, "B", 0)});
       },
       kKeyframeError},
      {"node its own parent",
       [] { return File({testing::MeshObject(Triangle("A"))}, {testing::ObjectNode(0, "A", 0)}); }, kKeyframeError},
      {"key count of four billion",
       [] {
         auto b = File({testing::MeshObject(Triangle())},
                       {testing::ObjectNode(0, "Tri", 0xFFFF, {testing::Track(0xB020, {{0, {}, {1, 2, 3}}})})});
         const size_t track = FindChunkAt(b, 0xB020);
         PutU32(b, track + 6 + 10, 0xFFFFFFFFu);
         return b;
       },
       kKeyframeError},
      {"track shorter than its header",
       [] {
         return File({testing::MeshObject(Triangle())},
                     {testing::ObjectNode(0, "Tri", 0xFFFF, {ChunkBuilder(0xB021).U16(0)})});
       },
       kKeyframeError},
      {"zero-length chunk in KFDATA",
       [] {
         auto b = File({}, {ChunkBuilder(0xB008).U32(0).U32(10)});
         PutU32(b, FindChunkAt(b, 0xB008) + 2, 0);
         return b;
       },
       kKeyframeError},
  };
  for (const Case& c : cases) EXPECT_EQ(LoadCode(c.make()), c.code) << c.what;
}

// Every cut of a well-formed scene, with the root's length made to match the
// cut, so that the damage is met inside the tree: a clean code or a load.
TEST(C3dsHostile, EveryTruncationFailsCleanly) {
  const std::vector<uint8_t> whole = testing::SampleScene();
  size_t loaded = 0;
  for (size_t size = 0; size < whole.size(); ++size) {
    std::vector<uint8_t> cut(whole.begin(), whole.begin() + std::ptrdiff_t(size));
    if (size >= 6) PutU32(cut, 2, uint32_t(size));
    const int code = LoadCode(cut);
    if (code == kNoError) ++loaded;
    else EXPECT_TRUE(code == kWrongFormat || code == kMaterialError || code == kMeshError || code == kKeyframeError)
        << "cut at " << size << ": " << code;
  }
  // Cuts that fall between top-level chunks of KFDATA's tail may load; most
  // may not.
  EXPECT_LT(loaded, whole.size() / 10);
}

// Every single byte of the sample scene set to each of a few values: a code
// or a load, never a crash (the sanitizers watch the reads).
TEST(C3dsHostile, EveryByteFlippedLoadsOrFailsCleanly) {
  const std::vector<uint8_t> whole = testing::SampleScene();
  for (size_t at = 0; at < whole.size(); ++at) {
    for (uint8_t value : {uint8_t(0), uint8_t(0xFF), uint8_t(whole[at] ^ 0x80)}) {
      std::vector<uint8_t> bytes = whole;
      bytes[at] = value;
      const int code = LoadCode(bytes);
      EXPECT_TRUE(code >= kNoError && code <= kKeyframeError && code != kNullPointer) << at;
    }
  }
}

TEST(C3dsHostile, TheLimitsThemselvesLoad) {
  std::vector<ChunkBuilder> mats(1024, ChunkBuilder(0xAFFF));
  const std::vector<uint8_t> bytes = File(std::move(mats));
  C3DSScene scene;
  ASSERT_TRUE(scene.LoadFromMemory(bytes.data(), bytes.size(), "1024"));
  EXPECT_EQ(scene.Materials().size(), 1025u);

  // Bytes of padding after the last chunk inside a parent are not a chunk.
  ChunkBuilder entry(0xAFFF);
  entry.data = ChunkBuilder(0xA000).Str("m").Bytes();
  entry.data.push_back(0);
  const std::vector<uint8_t> padded = File({entry});
  ASSERT_TRUE(scene.LoadFromMemory(padded.data(), padded.size(), "padded"));
}

}  // namespace
}  // namespace nimbo::scene3ds
