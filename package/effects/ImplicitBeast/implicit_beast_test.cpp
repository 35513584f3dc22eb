// ImplicitBeast: the sampled field against one-point evaluation, a sphere
// program's surface, failing programs reported by program and line (in the
// compile and in the editor, which refuses OK until mended), program files
// (round trip, hostile bytes, all-or-nothing), and the effect as a host runs
// it through the real engine: user variables as dynamic variables, a frame
// that moves, the file actions and "Save as 3DS..." with impmat.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "bin_path.h"
#include "implicit_field.h"
#include "implicit_mesh.h"
#include "implicit_programs.h"
#include "orrery/services.h"
#include "program_editor.h"
#include "program_file.h"
#include "render3d/engine_loader.h"
#include "test_host.h"

namespace {

namespace fs = std::filesystem;
using namespace nimbo::implicit;
using nimbo::testing::BinPathOverride;
using nimbo::testing::TestHost;

ProgramSet Programs(const std::string& fun, std::vector<UserVariable> vars = {}) {
  ProgramSet set;
  set.text[kFunProgram] = fun;
  set.vars = std::move(vars);
  return set;
}

// Every edge of a closed surface is shared by exactly two triangles, once
// in each direction (consistent winding).
void ExpectWatertight(const nimbo::IsoMesh& mesh) {
  std::map<std::pair<uint32_t, uint32_t>, int> directed;
  for (size_t t = 0; t < mesh.triangles.size(); t += 3)
    for (int e = 0; e < 3; ++e) ++directed[{mesh.triangles[t + e], mesh.triangles[t + (e + 1) % 3]}];
  for (const auto& [edge, count] : directed) {
    ASSERT_EQ(count, 1) << "edge " << edge.first << "-" << edge.second << " used twice the same way";
    ASSERT_EQ(directed.count({edge.second, edge.first}), 1u) << "edge " << edge.first << "-" << edge.second << " open";
  }
}

TEST(ImplicitField, SamplesEqualOnePointEvaluation) {
  const ProgramSet set = Programs("A=SIN(X*3+T)*COS(Y*2)\n\nB=A*A-Z/(X+0.3)\nC=MAX(B,WOB)^2\nFUN=C-ANGLE(Y,X)+SQRT(Z)",
                                  {{"WOB", -1.0f, 3.0f, 0.25f}});
  CompiledPrograms compiled = CompilePrograms(set, {0.8f});
  ASSERT_TRUE(compiled.Ok()) << compiled.ErrorText();
  Box box;
  box.minimum[0] = -2, box.maximum[0] = 1;  // a box of three different sides
  box.minimum[1] = 0, box.maximum[1] = 0.5f;
  box.minimum[2] = -1, box.maximum[2] = 4;
  const int32_t n = 11;
  FieldSampler sampler(compiled.program[kFunProgram], n);
  std::vector<float> field;
  sampler.Sample(1.75f, box, field);
  ASSERT_EQ(field.size(), size_t(n * n * n));
  int nan = 0;
  for (int32_t k = 0; k < n; ++k)
    for (int32_t j = 0; j < n; ++j)
      for (int32_t i = 0; i < n; ++i) {
        const float direct = compiled.program[kFunProgram].Evaluate(
            1.75f, SampleCoordinate(box, 0, i, n), SampleCoordinate(box, 1, j, n), SampleCoordinate(box, 2, k, n));
        const float sampled = field[size_t((k * n + j) * n + i)];
        if (std::isnan(direct)) {
          ++nan;
          ASSERT_TRUE(std::isnan(sampled)) << i << "," << j << "," << k;
        } else {
          ASSERT_EQ(sampled, direct) << i << "," << j << "," << k;
        }
      }
  EXPECT_GT(nan, 0) << "SQRT of negative Z gives NaN samples, which must agree too";
  // The user variable reads minimum + (maximum - minimum) * position: 2.2.
  const ProgramSet wob = Programs("FUN=WOB", {{"WOB", -1.0f, 3.0f, 0.25f}});
  CompiledPrograms w = CompilePrograms(wob, {0.8f});
  ASSERT_TRUE(w.Ok());
  EXPECT_FLOAT_EQ(w.program[kFunProgram].Evaluate(0, 0, 0, 0), 2.2f);
  CompiledPrograms initial = CompilePrograms(wob, {});
  EXPECT_FLOAT_EQ(initial.program[kFunProgram].Evaluate(0, 0, 0, 0), 0.0f) << "its own position 0.25";
}

TEST(ImplicitField, ASphereProgramGivesAClosedSphereOfItsRadius) {
  const ProgramSet set = Programs("R2=X*X+Y*Y+Z*Z\nFUN=R2-0.81");
  CompiledPrograms compiled = CompilePrograms(set, {});
  ASSERT_TRUE(compiled.Ok());
  for (bool close : {true, false}) {
    FieldSampler sampler(compiled.program[kFunProgram], 41);
    std::vector<float> field;
    sampler.Sample(0, Box{}, field);
    nimbo::IsoMesh mesh;
    ExtractSurface(field, sampler.Side(), Box{}, close, &mesh);
    ASSERT_GT(mesh.VertexCount(), 200u);
    for (size_t v = 0; v < mesh.VertexCount(); ++v) {
      const float* p = &mesh.positions[3 * v];
      const float r = std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
      ASSERT_NEAR(r, 0.9f, 0.01f);
      const float* nrm = &mesh.normals[3 * v];
      ASSERT_GT((nrm[0] * p[0] + nrm[1] * p[1] + nrm[2] * p[2]) / r, 0.95f) << "normals point outward";
    }
    ExpectWatertight(mesh);
    // Euler characteristic 2: V - E + F with E = 3F / 2.
    EXPECT_EQ(int64_t(mesh.VertexCount()) - int64_t(mesh.TriangleCount()) * 3 / 2 + int64_t(mesh.TriangleCount()), 2);
  }
  // A ball larger than the box is capped at its sides and stays closed.
  CompiledPrograms big = CompilePrograms(Programs("FUN=X*X+Y*Y+Z*Z-4"), {});
  FieldSampler sampler(big.program[kFunProgram], 17);
  std::vector<float> field;
  sampler.Sample(0, Box{}, field);
  nimbo::IsoMesh mesh;
  ExtractSurface(field, sampler.Side(), Box{}, true, &mesh);
  ASSERT_GT(mesh.TriangleCount(), 0u);
  ExpectWatertight(mesh);
}

TEST(ImplicitMesh, TextureAndNormalProgramsRunAtEachSurfacePoint) {
  ProgramSet set = Programs("FUN=(X-1)^2+(Y-1)^2+(Z-1)^2-0.5");
  set.text[kTextureProgram] = "U=X\nV=Z*2+T";
  set.text[kNormalProgram] = "NX=RANGE(Y,0,1)-RANGE(Y,1,2)\nNY=0\nNZ=0";  // zero where Y is 1: gradient
  CompiledPrograms compiled = CompilePrograms(set, {});
  ASSERT_TRUE(compiled.Ok()) << compiled.ErrorText();
  Box box;
  for (int a = 0; a < 3; ++a) box.minimum[a] = 0, box.maximum[a] = 2;
  FieldSampler sampler(compiled.program[kFunProgram], 16);
  std::vector<float> field;
  sampler.Sample(0.5f, box, field);
  nimbo::IsoMesh surface;
  ExtractSurface(field, sampler.Side(), box, true, &surface);
  const nimbo::IsoMesh gradient = surface;
  ASSERT_GT(surface.VertexCount(), 100u);
  PointPrograms points(compiled);
  ASSERT_TRUE(points.HasTexture());
  std::vector<float> uvs;
  points.Apply(0.5f, surface, uvs);
  std::vector<nb3D::Vertex> vertices;
  AssembleVertices(surface, &uvs, box, 100.0f, vertices);
  ASSERT_EQ(vertices.size(), surface.VertexCount());
  for (size_t i = 0; i < vertices.size(); ++i) {
    const float* p = &surface.positions[3 * i];
    const nb3D::Vertex& v = vertices[i];
    ASSERT_EQ(v.u, p[0]);
    ASSERT_EQ(v.v, p[2] * 2 + 0.5f);
    ASSERT_FLOAT_EQ(v.x, (p[0] - 1) * 50);  // centred, the 2-wide box drawn 100 wide
    ASSERT_FLOAT_EQ(v.z, (p[2] - 1) * 50);
    const float expected = p[1] < 1 ? 1.0f : p[1] > 1 ? -1.0f : 0.0f;
    if (expected != 0) {
      ASSERT_EQ(v.nx, expected);
      ASSERT_EQ(v.ny, 0.0f);
    } else {
      ASSERT_EQ(v.nx, gradient.normals[3 * i]) << "a zero normal keeps the gradient's";
    }
  }
  // Without a texture program: the environment map from the normals.
  AssembleVertices(gradient, nullptr, box, 100.0f, vertices);
  EXPECT_FLOAT_EQ(vertices[0].u, 0.5f + 0.5f * gradient.normals[0]);
  EXPECT_FLOAT_EQ(vertices[0].v, 0.5f - 0.5f * gradient.normals[1]);
}

TEST(ImplicitPrograms, FailuresNameTheProgramAndLine) {
  CompiledPrograms c = CompilePrograms(Programs("A=X\n\nB=(Y+\nFUN=A+B"), {});
  EXPECT_EQ(c.failed, kFunProgram);
  ASSERT_TRUE(c.line.has_value());
  EXPECT_EQ(*c.line, 2) << "the editor's line, blank lines counted";
  EXPECT_EQ(c.ErrorText(), "The FUN program does not compile: error in line 2 (counted from 0).");

  c = CompilePrograms(Programs("FUN=X\nA=Y"), {});
  EXPECT_EQ(c.failed, kFunProgram);
  EXPECT_FALSE(c.line.has_value());
  EXPECT_EQ(c.ErrorText(), "The FUN program's last line must assign FUN.");

  c = CompilePrograms(Programs("FUN=X*UNKNOWN"), {});
  EXPECT_EQ(c.failed, kFunProgram) << "a name no line or variable defines";

  ProgramSet set = Programs("FUN=X");
  set.text[kTextureProgram] = "U=X\nV=Y\nW=2*-3";
  c = CompilePrograms(set, {});
  EXPECT_EQ(c.failed, kTextureProgram);
  EXPECT_EQ(c.line, 2);
  set.text[kTextureProgram] = "U=X";
  set.text[kNormalProgram] = "NX=FUN";  // the FUN program's names are not the normal program's
  c = CompilePrograms(set, {});
  EXPECT_EQ(c.failed, kNormalProgram);
  EXPECT_EQ(c.line, 0);

  set.text[kNormalProgram] = "NX=X*2\nNZ=Z";
  c = CompilePrograms(set, {});
  ASSERT_TRUE(c.Ok());
  EXPECT_TRUE(c.has_lines[kTextureProgram] && c.has_lines[kNormalProgram]);
  c.program[kNormalProgram].Evaluate(0, 3, 5, 7);
  EXPECT_EQ(c.program[kNormalProgram].Output(0), 6.0f);
  EXPECT_EQ(c.program[kNormalProgram].Output(1), 6.0f) << "NY is assigned by no line: it reads line 0";
  EXPECT_EQ(c.program[kNormalProgram].Output(2), 7.0f);
}

TEST(ImplicitPrograms, TheEditorRefusesOkUntilTheProgramIsMended) {
  ImplicitSettings settings;
  int32_t compiles = 0;
  ProgramEditor editor(settings, {}, [&](const ProgramSet& s) {
    ++compiles;
    return CompilePrograms(s, {});
  });
  auto field = [&](const std::string& label) -> void* {
    for (const orrery::DialogField& f : editor.Fields())
      if (label == f.label) return f.value;
    ADD_FAILURE() << "no field " << label;
    return nullptr;
  };
  *static_cast<std::string*>(field("FUN program")) = "A=X*X\nB=A+\nFUN=B";
  EXPECT_FALSE(editor.AfterOk());
  EXPECT_EQ(editor.ErrorProgram(), kFunProgram);
  EXPECT_EQ(editor.ErrorLine(), 1);
  EXPECT_EQ(std::string(editor.Fields()[0].label),
            "The FUN program does not compile: error in line 1 (counted from 0).");
  EXPECT_FALSE(editor.AfterOk()) << "OK again without a mend is refused again";

  *static_cast<std::string*>(field("FUN program")) = "A=X*X\nB=A+SIZE\nFUN=B";
  *static_cast<std::string*>(field("new variable")) = "Size";
  *static_cast<int32_t*>(field("Add variable")) = 1;
  EXPECT_FALSE(editor.AfterOk()) << "a pressed button opens the dialog again";
  EXPECT_EQ(editor.ErrorProgram(), -1) << "the new variable mends the program";
  *static_cast<float*>(field("maximum")) = 4.0f;
  EXPECT_TRUE(editor.AfterOk());
  EXPECT_EQ(std::string(editor.StatusText()), "All programs compile.");
  ASSERT_EQ(editor.Result().programs.vars.size(), 1u);
  EXPECT_EQ(editor.Result().programs.vars[0].name, "size");
  EXPECT_EQ(editor.Result().programs.vars[0].maximum, 4.0f);
  EXPECT_EQ(compiles, 4);
}

TEST(ProgramFile, RoundTripsAndRefusesHostileFiles) {
  ProgramSet set = Programs("A=X*X\r\nFUN=A-WOBBLE\n");
  set.text[kTextureProgram] = "U=X\nV=Y*0.5";
  set.text[kNormalProgram] = "NX=X\nNY=Y\nNZ=Z";
  set.vars = {{"wobble", -0.5f, 2.25f, 0.125f}, {"h_2", 0.0f, 1e-7f, 1.0f}};
  const std::string bytes = FormatProgramFile(set);
  ProgramSet back;
  ASSERT_EQ(ParseProgramFile(bytes, back), "");
  EXPECT_EQ(back.text[kFunProgram], set.text[kFunProgram]);
  EXPECT_EQ(back.text[kTextureProgram], set.text[kTextureProgram] + "\n");
  EXPECT_EQ(back.text[kNormalProgram], set.text[kNormalProgram] + "\n");
  ASSERT_EQ(back.vars.size(), 2u);
  for (size_t k = 0; k < 2; ++k) {
    EXPECT_EQ(back.vars[k].name, set.vars[k].name);
    EXPECT_EQ(back.vars[k].minimum, set.vars[k].minimum);
    EXPECT_EQ(back.vars[k].maximum, set.vars[k].maximum);
    EXPECT_EQ(back.vars[k].position, set.vars[k].position);
  }
  EXPECT_EQ(FormatProgramFile(back), bytes);

  // A plain program alone is a program file.
  ASSERT_EQ(ParseProgramFile("FUN=X*X+Y*Y+Z*Z-1", back), "");
  EXPECT_EQ(back.text[kFunProgram], "FUN=X*X+Y*Y+Z*Z-1");
  EXPECT_TRUE(back.text[kTextureProgram].empty() && back.vars.empty());

  const ProgramSet before = back;
  const std::string hostile[] = {
      std::string("FUN=X\0\x01\x02", 8), std::string(kMaxProgramFileBytes + 1, 'A'),
      "FUN=X\n[variables]\nwobble 1\n",  "FUN=X\n[variables]\nwobble 0 1 nan\n",
      "FUN=X\n[variables]\npi 0 1\n",    "FUN=X\n[variables]\nab 0 1\nAB 0 1\n",
      "FUN=X\n[variables]\nq 0 1\n",     std::string(kMaxProgramText + 10, '1'),
  };
  for (const std::string& bad : hostile) {
    EXPECT_NE(ParseProgramFile(bad, back), "") << bad.substr(0, 40);
    EXPECT_EQ(back.text, before.text);
  }

  const fs::path dir = fs::temp_directory_path() / ("implicit_file_test_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  EXPECT_EQ(WriteProgramFile((dir / "p.txt").string(), set), "");
  ASSERT_EQ(ReadProgramFile((dir / "p.txt").string(), back), "");
  EXPECT_EQ(FormatProgramFile(back), bytes);
  EXPECT_EQ(WriteProgramFile((dir / "none" / "p.txt").string(), set), kMessageCannotCreate);
  EXPECT_EQ(WriteProgramFile((dir).string(), set), kMessageCannotCreate) << "a folder is not overwritten";
  EXPECT_EQ(ReadProgramFile((dir / "missing.txt").string(), back), kMessageCannotOpen);
  size_t left = 0;
  for (const auto& entry : fs::directory_iterator(dir)) left += entry.path().filename() == "p.txt" ? 0 : 1;
  EXPECT_EQ(left, 0u) << "no half-written file is left";
  fs::remove_all(dir);
}

class ImplicitBeastTest : public ::testing::Test {
 protected:
  ImplicitBeastTest() : bin(NIMBO_BIN_DIR) {
    nimbo::ForgetReportedEngineFailure();
    dir = fs::temp_directory_path() / ("implicit_beast_test_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  ~ImplicitBeastTest() override { fs::remove_all(dir); }
  std::vector<uint32_t> Frame(orrery::Effect& effect, int64_t ms) {
    host.time_ms = ms;
    std::vector<uint32_t> pixels(size_t(kW) * kH), blue(pixels.size(), kBlue);
    orrery::Screen out{kW, kH, pixels.data()}, background{kW, kH, blue.data()};
    EXPECT_EQ(nimbo::testing::RenderOnce(effect, {&background}, &out), 1);
    return pixels;
  }
  // Pixels other than the background's colour (the top left corner's).
  static size_t Covered(const std::vector<uint32_t>& pixels) {
    return size_t(std::count_if(pixels.begin(), pixels.end(), [&](uint32_t p) { return p != pixels[0]; }));
  }
  std::string Run(orrery::Effect& effect, const char* action, const fs::path& path, int32_t* ok = nullptr) {
    std::string message;
    const int32_t result = orrery::RunEffectAction(&effect, action, path.c_str(), &message);
    if (ok) *ok = result;
    return message;
  }
  static constexpr uint32_t kBlue = 0xFF0000FFu;
  static constexpr int32_t kW = 96, kH = 72;
  BinPathOverride bin;
  TestHost host{kW, kH};
  fs::path dir;
};

TEST_F(ImplicitBeastTest, DrawsTheMovingDefaultAndExportsIt) {
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("bgtype", 1);
  auto effect = nimbo::testing::MakeEffect("ImplicitBeast", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  EXPECT_EQ(Run(*effect, "save-3ds", dir / "early.3ds"), "Rendering must be enabled");
  ASSERT_EQ(effect->Initialize(), 1);
  const std::vector<uint32_t> first = Frame(*effect, 0);
  EXPECT_GT(Covered(first), first.size() / 20);
  EXPECT_LT(Covered(first), first.size());
  EXPECT_NE(Frame(*effect, 1500), first) << "the default program moves with T";
  int32_t ok = 0;
  EXPECT_EQ(Run(*effect, "save-3ds", dir / "imp.3ds", &ok), "");
  EXPECT_EQ(ok, 1);
  std::ifstream in(dir / "imp.3ds", std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(bytes.substr(0, 2), "MM");
  EXPECT_NE(bytes.find("impmat"), std::string::npos);
}

TEST_F(ImplicitBeastTest, UserVariablesAreDynamicVariablesAndFilesLoadWhole) {
  auto effect = nimbo::testing::MakeEffect("ImplicitBeast", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  for (const char* key : {"program", "uvprogram", "normalprogram", "grid", "xmin", "zmax", "closed", "n_vars", "bgtype",
                          "mat0nbMatManagerVERSION"})
    EXPECT_NE(host.store.GetString(key, nullptr), nullptr) << key;
  ASSERT_EQ(effect->Initialize(), 1);
  {
    std::ofstream file(dir / "ball.txt");
    file << "FUN=X*X+Y*Y+Z*Z-SIZE*SIZE\n[variables]\nSize 0.2 1.4 0.25\n";
  }
  int32_t ok = 0;
  EXPECT_EQ(Run(*effect, "load-program", dir / "ball.txt", &ok), "");
  EXPECT_EQ(ok, 1);
  orrery::DynVar* size = host.FindDynVar("size");
  ASSERT_NE(size, nullptr);
  EXPECT_EQ(size->varmin, 0.0f);
  EXPECT_EQ(size->varmax, 1.0f);
  EXPECT_EQ(size->varinit, 0.25f);
  EXPECT_EQ(size->min, 0.2f);
  EXPECT_EQ(size->max, 1.4f);
  EXPECT_NE(host.FindDynVar("ImplicitBeast time (1.0 = realtime)"), nullptr);
  EXPECT_STREQ(host.store.GetString("var0", ""), "size");

  const size_t small = Covered(Frame(*effect, 0));  // radius 0.5 of a box 3 wide
  size->value = 1.0f;                               // radius 1.4
  const size_t large = Covered(Frame(*effect, 40));
  EXPECT_GT(small, 0u);
  EXPECT_GT(large, small * 4) << "the variable's value follows its dynamic variable";

  // A file that does not compile, or is not a program file, changes nothing.
  const std::string saved_before = (dir / "before.txt").string();
  EXPECT_EQ(Run(*effect, "save-program", saved_before), "");
  {
    std::ofstream bad(dir / "bad.txt");
    bad << "A=X\nFUN=A*(B\n";
    std::ofstream binary(dir / "binary.txt", std::ios::binary);
    binary << std::string("FUN=\0\0\x7f", 7);
  }
  EXPECT_EQ(Run(*effect, "load-program", dir / "bad.txt", &ok),
            "The FUN program does not compile: error in line 1 (counted from 0).");
  EXPECT_EQ(ok, 0);
  EXPECT_NE(Run(*effect, "load-program", dir / "binary.txt", &ok), "");
  EXPECT_EQ(Run(*effect, "load-program", dir / "missing.txt", &ok), kMessageCannotOpen);
  EXPECT_EQ(Run(*effect, "save-program", dir / "after.txt"), "");
  auto read = [](const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), {});
  };
  EXPECT_EQ(read(dir / "after.txt"), read(saved_before));
  EXPECT_EQ(read(saved_before), "FUN=X*X+Y*Y+Z*Z-SIZE*SIZE\n[variables]\nsize 0.200000003 1.39999998 0.25\n");
  EXPECT_EQ(Run(*effect, "save-program", dir / "none" / "p.txt"), kMessageCannotCreate);
}

}  // namespace

// Programs stored in the settings that do not compile are told once (the
// editor, which shows the failing line itself, is not open); mending them
// tells nothing more.
TEST_F(ImplicitBeastTest, AFailingStoredProgramIsToldOnce) {
  nimbo::testing::MessageCapture capture;
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetString("program", "FUN=Q+1");
  auto effect = nimbo::testing::MakeEffect("ImplicitBeast", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  ASSERT_EQ(capture.messages.size(), 1u);
  EXPECT_EQ(capture.messages[0].caption, "ImplicitBeast");
  EXPECT_EQ(capture.messages[0].text.rfind("The FUN program does not compile", 0), 0u) << capture.messages[0].text;
  EXPECT_NE(capture.messages[0].text.find("The surface is not rebuilt until it is mended."), std::string::npos);
  effect->UpdateConfig();  // the same fault again: not told twice
  EXPECT_EQ(capture.messages.size(), 1u);

  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetString("program", "FUN=X*X+Y*Y+Z*Z-1");
  effect->UpdateConfig();
  EXPECT_EQ(capture.messages.size(), 1u);
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetString("program", "FUN=Q+1");
  effect->UpdateConfig();  // failing again after a good one is a new fault
  EXPECT_EQ(capture.messages.size(), 2u);
}
