// libFuzzer target for ImplicitBeast's programs: the bytes as a program
// file (or, when the file reader refuses them, as the FUN program itself),
// compiled, sampled on a small grid, polygonised, and the texture and
// normal programs run over the surface.
//
// Beyond "no crash, no hang, no read past the input" it checks what must
// hold for every program: a refused file changes nothing, an accepted one
// writes back to a file that reads to the same thing, a failure names a
// program (and a line inside the text when it has one), the block-sampled
// field equals one-point evaluation (NaN where it is NaN), and the surface
// only names vertices it has, and the texture program's coordinates are
// finite.
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_check.h"
#include "implicit_field.h"
#include "implicit_mesh.h"
#include "implicit_programs.h"
#include "program_file.h"

using namespace nimbo::implicit;

namespace {

int CountLines(const std::string& text) {
  int lines = 0;
  for (char c : text) lines += c == '\n';
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  ProgramSet set;
  const ProgramSet untouched = set;
  if (ParseProgramFile(bytes, set).empty()) {
    for (const std::string& text : set.text) FUZZ_CHECK(text.size() <= kMaxProgramText);
    FUZZ_CHECK(set.vars.size() <= kMaxUserVariables);
    ProgramSet again;
    const std::string written = FormatProgramFile(set);
    FUZZ_CHECK(ParseProgramFile(written, again).empty());
    FUZZ_CHECK(FormatProgramFile(again) == written);
  } else {
    FUZZ_CHECK(set.text == untouched.text && set.vars.size() == untouched.vars.size());
    set.text[kFunProgram] = std::string(bytes.substr(0, kMaxProgramText));
  }

  CompiledPrograms compiled = CompilePrograms(set, {});
  if (!compiled.Ok()) {
    FUZZ_CHECK(compiled.failed >= 0 && compiled.failed < kProgramCount);
    if (compiled.line)
      FUZZ_CHECK(*compiled.line >= 0 && *compiled.line <= CountLines(set.text[size_t(compiled.failed)]));
    FUZZ_CHECK(!compiled.ErrorText().empty());
    return 0;
  }

  constexpr int32_t n = 5;
  Box box;
  box.minimum[1] = -0.5f;  // a box of unequal sides
  FieldSampler sampler(compiled.program[kFunProgram], n);
  std::vector<float> field;
  sampler.Sample(0.7f, box, field);
  FUZZ_CHECK(field.size() == size_t(n * n * n));
  for (int32_t k = 0; k < n; ++k)
    for (int32_t j = 0; j < n; ++j)
      for (int32_t i = 0; i < n; ++i) {
        const float direct = compiled.program[kFunProgram].Evaluate(
            0.7f, SampleCoordinate(box, 0, i, n), SampleCoordinate(box, 1, j, n), SampleCoordinate(box, 2, k, n));
        const float sampled = field[size_t((k * n + j) * n + i)];
        FUZZ_CHECK(std::isnan(direct) ? std::isnan(sampled) : sampled == direct);
      }

  nimbo::IsoMesh mesh;
  ExtractSurface(field, n, box, true, &mesh);
  FUZZ_CHECK(mesh.triangles.size() % 3 == 0);
  for (uint32_t index : mesh.triangles) FUZZ_CHECK(index < mesh.VertexCount());
  PointPrograms points(compiled);
  std::vector<float> uvs;
  points.Apply(0.7f, mesh, uvs);
  FUZZ_CHECK(uvs.size() == 2 * mesh.VertexCount());
  for (float c : uvs) FUZZ_CHECK(std::isfinite(c));
  std::vector<nb3D::Vertex> vertices;
  AssembleVertices(mesh, points.HasTexture() ? &uvs : nullptr, box, 100.0f, vertices);
  FUZZ_CHECK(vertices.size() == mesh.VertexCount());
  return 0;
}
