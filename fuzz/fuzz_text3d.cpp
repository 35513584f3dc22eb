// libFuzzer target for Text3D's letters: arbitrary text (any bytes, read as
// UTF-8) laid out in DejaVu Sans, and arbitrary bytes read as a font file
// and laid out with a fixed text.
//
// Beyond "no crash, no hang" it checks what must hold for every input: at
// most kMaxLetters letters, each mesh naming only vertices it has, within a
// .3ds mesh's 16-bit counts, with unit normals and a box around its
// positions.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <unistd.h>

#include "fuzz_check.h"
#include "text_layout.h"

using namespace nimbo::text3d;

namespace {

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

void CheckLetters(const std::string& font, std::string_view text) {
  GlyphCache cache;
  GlyphSet* set = cache.Select(font, 48, 12, nullptr);
  if (!set) return;
  const TextBlock block = LayOut(*set, DecodeUtf8(text, kMaxLetters));
  FUZZ_CHECK(block.letters.size() <= kMaxLetters);
  for (const Letter& letter : block.letters) {
    const GlyphMesh& mesh = *letter.mesh;
    FUZZ_CHECK(!mesh.Empty() && mesh.VertexCount() < 65536 && mesh.normals.size() == mesh.positions.size());
    for (uint32_t index : mesh.triangles) FUZZ_CHECK(index < mesh.VertexCount());
    for (size_t v = 0; v < mesh.VertexCount(); ++v) {
      const float* n = &mesh.normals[3 * v];
      FUZZ_CHECK(std::fabs(n[0] * n[0] + n[1] * n[1] + n[2] * n[2] - 1) < 1e-3f);
      FUZZ_CHECK(mesh.positions[3 * v] >= mesh.min_x && mesh.positions[3 * v] <= mesh.max_x);
    }
  }
}

}  // namespace

// The first byte chooses: even, the rest is text; odd, the rest is a font file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data + 1), size - 1);
  if (data[0] % 2 == 0) {
    CheckLetters(kFont, rest);
    return 0;
  }
  static const std::string path = "/tmp/fuzz_text3d_font_" + std::to_string(::getpid());
  if (FILE* f = std::fopen(path.c_str(), "wb")) {
    std::fwrite(rest.data(), 1, rest.size(), f);
    std::fclose(f);
    CheckLetters(path, "Ag8@ Wé");
    std::remove(path.c_str());
  }
  return 0;
}
