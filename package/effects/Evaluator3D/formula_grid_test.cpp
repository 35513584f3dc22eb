// The formula set and one frame of evaluation: the default surface, the
// allowed-name chains, the evaluation order, the block path against the
// one-point order, closing loops, the height map, faces and normals.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>

#include "formula/code.h"
#include "formula/formula_dialect.h"
#include "formula_set.h"
#include "grid_eval.h"
#include "grid_mesh.h"

namespace nimbo::e3d {
namespace {

float TableValue(uint32_t code) { return formula::EngineOf(formula::Dialect::kFormula).variables[code]; }

// Compiles `set`, sets the frame variables and evaluates through the block path.
GridValues Evaluate(const FormulaSet& set, float t = 0, HeightMap map = {}) {
  const CompiledSet compiled = Recompile(set);
  EXPECT_EQ(compiled.first_error, -1) << compiled.error_name;
  SetFrameVariables(set, {t, 640, 480, {}});
  GridEvaluator evaluator;
  evaluator.Prepare(set, compiled);
  GridValues grid;
  evaluator.Evaluate(map, grid);
  return grid;
}

bool SameBits(const std::vector<float>& a, const std::vector<float>& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0);
}

TEST(Evaluator3DFormulas, DefaultsGiveAFlatTenByTenGridSeenFromACircle) {
  const FormulaSet set;
  const GridValues grid = Evaluate(set);
  ASSERT_EQ(grid.x.size(), 100u);
  for (int32_t j = 0; j < 10; ++j) {
    for (int32_t i = 0; i < 10; ++i) {
      const size_t k = size_t(j * 10 + i);
      EXPECT_FLOAT_EQ(grid.x[k], (float(i) / 9.0f - 0.5f) * 100.0f);
      EXPECT_EQ(grid.y[k], 0.0f);
      EXPECT_FLOAT_EQ(grid.z[k], (float(j) / 9.0f - 0.5f) * 100.0f);
      EXPECT_FLOAT_EQ(grid.u[k], float(i) / 9.0f);
      EXPECT_FLOAT_EQ(grid.v[k], float(j) / 9.0f);
    }
  }
  EXPECT_FLOAT_EQ(grid.x[9] - grid.x[0], 100.0f);
  EXPECT_FLOAT_EQ(grid.z[90] - grid.z[0], 100.0f);
  // The second set defaults to environment mapping: no formula values.
  EXPECT_TRUE(grid.u2.empty());

  const CompiledSet compiled = Recompile(set);
  for (float t : {0.0f, 0.7f, 2.5f}) {
    SetFrameVariables(set, {t, 640, 480, {}});
    const CameraValues camera = EvaluateCamera(compiled);
    EXPECT_NEAR(std::hypot(camera.position[0], camera.position[2]), 100.0f, 1e-3f);
    EXPECT_EQ(camera.position[1], 100.0f);
    EXPECT_EQ(camera.target[0], 0.0f);
    EXPECT_EQ(camera.zoom, 1.0f);
  }

  std::vector<uint32_t> triangles;
  BuildTriangles(set, true, triangles);
  EXPECT_EQ(triangles.size(), 9u * 9u * 2u * 3u);
  GridNormals normals;
  ComputeNormals(grid, false, false, normals);
  for (size_t k = 0; k < 100; ++k) EXPECT_FLOAT_EQ(normals.vertex[3 * k + 1], 1.0f) << k;  // facing the camera above
}

TEST(Evaluator3DFormulas, ANameAFieldMayNotUseIsReportedByItsIndex) {
  struct Case {
    int32_t field;
    const char* text;
    int32_t hmap;
    int32_t expected;  // first failing index, -1 for none
  };
  const Case cases[] = {
      {kA, "b", 0, kA},
      {kB, "a+i+j", 0, -1},
      {kC, "d", 0, kC},
      {kH, "a+b+c+d+e+f+g", 0, -1},
      {kCx, "i", 0, kCx},
      {kZoom, "a", 0, kZoom},
      {kCy, "t+imax+jmax+pi+screenw+screenh", 0, -1},
      {kA, "hmap", 0, kA},
      {kA, "hmap", 1, -1},
      {kCx, "hmap", 1, kCx},
      {kX, "h+hmap", 1, -1},
      {kNz2, "1e5", 0, kNz2},
      {kY, "2*-3", 0, kY},
      {kE, "   ", 0, -1},
  };
  for (const Case& c : cases) {
    FormulaSet set;
    set.hmap = c.hmap;
    set.text[size_t(c.field)] = c.text;
    EXPECT_EQ(Recompile(set).first_error, c.expected) << Info(c.field).name << " = " << c.text;
  }
  // The first failure in compile order wins: the auxiliaries before x.
  FormulaSet two;
  two.text[kX] = "bad_name";
  two.text[kD] = "oops";
  const CompiledSet compiled = Recompile(two);
  EXPECT_EQ(compiled.first_error, kD);
  EXPECT_EQ(compiled.error_name, "oops");

  // User variables: switched on they are common names, switched off unknown.
  FormulaSet users;
  ASSERT_EQ(AddUserVariable(users, "Speed"), AddVariable::kAdded);
  ASSERT_EQ(AddUserVariable(users, "pi"), AddVariable::kRefused);
  ASSERT_EQ(AddUserVariable(users, "speed"), AddVariable::kDuplicate);
  users.text[kCx] = "speed*100";
  EXPECT_EQ(Recompile(users).first_error, -1);
  users.vars[0].on = 0;
  EXPECT_EQ(Recompile(users).first_error, kCx);
}

TEST(Evaluator3DFormulas, EachAuxiliaryIsStoredBeforeTheNextAndUserVariablesTakeTheirCodes) {
  FormulaSet set;
  set.imax = 5;
  set.jmax = 3;
  set.text[kA] = "i";
  set.text[kB] = "a*2+j";
  set.text[kC] = "b+a";
  set.text[kD] = "";  // stays 0
  set.text[kE] = "c+d+k1";
  set.text[kX] = "e";
  set.text[kY] = "k2";
  ASSERT_EQ(AddUserVariable(set, "off"), AddVariable::kAdded);
  ASSERT_EQ(AddUserVariable(set, "k1"), AddVariable::kAdded);
  ASSERT_EQ(AddUserVariable(set, "k2"), AddVariable::kAdded);
  set.vars[0].on = 0;  // the later ones move down to 276 and 277
  const CompiledSet compiled = Recompile(set);
  ASSERT_EQ(compiled.first_error, -1);
  const float users[] = {1000.0f, -7.0f};
  SetFrameVariables(set, {0, 320, 240, users});
  EXPECT_EQ(TableValue(formula::kFirstUserVariable), 1000.0f);
  GridEvaluator evaluator;
  evaluator.Prepare(set, compiled);
  GridValues grid;
  evaluator.Evaluate({}, grid);
  for (int32_t j = 0; j < 3; ++j)
    for (int32_t i = 0; i < 5; ++i) {
      EXPECT_EQ(grid.x[size_t(j * 5 + i)], float(3 * i + j + 1000)) << i << "," << j;
      EXPECT_EQ(grid.y[size_t(j * 5 + i)], -7.0f);
    }
}

TEST(Evaluator3DFormulas, TheBlockPathGivesTheOnePointOrdersBits) {
  FormulaSet set;
  set.imax = 70;  // more points than one chunk, and not a multiple of a block
  set.jmax = 41;
  set.hmap = 1;
  set.loopi = 1;
  set.loopj = 1;
  set.uvmode1 = kUvEnvFormulas;
  set.uvmode2 = kUvFormulas;
  set.text[kA] = "i/(imax-1)*2*pi";
  set.text[kB] = "j/(jmax-1)*2*pi";
  set.text[kC] = "cos(b)*20+60+hmap*5";
  set.text[kD] = "rand()";
  set.text[kE] = "sin(a*3+t)^2/(1+c)";
  set.text[kX] = "cos(a)*c";
  set.text[kY] = "sin(b)*20+e";
  set.text[kZ] = "sin(a)*c+d";
  set.text[kU2] = "mod(a,1.3)";
  set.text[kV2] = "angle(b,a-3)";
  set.text[kNx] = "cos(a)*cos(b)";
  set.text[kNy] = "sin(b)";
  set.text[kNz] = "sin(a)*cos(b)";
  std::vector<uint32_t> map(size_t(set.imax * set.jmax));
  for (size_t k = 0; k < map.size(); ++k) map[k] = uint32_t(k * 2654435761u);
  const HeightMap height{map.data(), set.imax, set.jmax};

  const CompiledSet compiled = Recompile(set);
  ASSERT_EQ(compiled.first_error, -1);
  SetFrameVariables(set, {1.25f, 640, 480, {}});
  GridValues one;
  EvaluateGridOnePoint(set, compiled, height, one);
  const float hmap_after = TableValue(formula::kHmap);
  GridEvaluator evaluator;
  evaluator.Prepare(set, compiled);
  GridValues block;
  formula::EngineOf(formula::Dialect::kFormula).variables[formula::kHmap] = -1;
  evaluator.Evaluate(height, block);
  EXPECT_EQ(std::bit_cast<uint32_t>(TableValue(formula::kHmap)), std::bit_cast<uint32_t>(hmap_after));
  for (auto member : {&GridValues::x, &GridValues::y, &GridValues::z, &GridValues::u2, &GridValues::v2, &GridValues::nx,
                      &GridValues::ny, &GridValues::nz, &GridValues::sx, &GridValues::sy, &GridValues::sz}) {
    EXPECT_FALSE((one.*member).empty());
    EXPECT_TRUE(SameBits(one.*member, block.*member));
  }
}

TEST(Evaluator3DFormulas, LoopsCloseTheSurfaceExactly) {
  FormulaSet set;
  set.imax = 17;
  set.jmax = 9;
  // A torus whose formulas come back only approximately to their start.
  set.text[kA] = "i/(imax-1)*2*pi";
  set.text[kB] = "j/(jmax-1)*2*pi";
  set.text[kX] = "cos(a)*(40+cos(b)*15)";
  set.text[kY] = "sin(b)*15";
  set.text[kZ] = "sin(a)*(40+cos(b)*15)";
  auto seam_exact = [](const GridValues& g, bool along_i) {
    bool exact = true;
    const size_t imax = size_t(g.imax), jmax = size_t(g.jmax);
    for (size_t n = 0; n < (along_i ? jmax : imax); ++n) {
      const size_t first = along_i ? n * imax : n, last = along_i ? n * imax + imax - 1 : (jmax - 1) * imax + n;
      exact = exact && std::bit_cast<uint32_t>(g.x[first]) == std::bit_cast<uint32_t>(g.x[last]) &&
              std::bit_cast<uint32_t>(g.y[first]) == std::bit_cast<uint32_t>(g.y[last]) &&
              std::bit_cast<uint32_t>(g.z[first]) == std::bit_cast<uint32_t>(g.z[last]);
    }
    return exact;
  };
  const GridValues open = Evaluate(set);
  EXPECT_FALSE(seam_exact(open, true));  // sin(2*pi) in float is not 0
  set.loopi = 1;
  const GridValues closed_i = Evaluate(set);
  EXPECT_TRUE(seam_exact(closed_i, true));
  EXPECT_FALSE(seam_exact(closed_i, false));
  set.loopj = 1;
  const GridValues closed = Evaluate(set);
  EXPECT_TRUE(seam_exact(closed, true));
  EXPECT_TRUE(seam_exact(closed, false));

  // The seam's normals are shared, so the closed torus is smooth there.
  GridNormals normals;
  ComputeNormals(closed, true, true, normals);
  for (size_t j = 0; j < 9; ++j)
    for (int c = 0; c < 3; ++c)
      EXPECT_EQ(normals.vertex[3 * (j * 17) + size_t(c)], normals.vertex[3 * (j * 17 + 16) + size_t(c)]);
}

TEST(Evaluator3DFormulas, TheHeightMapIsTheBlueByteAndStaysWhenNoMapComes) {
  FormulaSet set;
  set.imax = 4;
  set.jmax = 3;
  set.hmap = 1;
  set.text[kY] = "hmap*255";
  std::vector<uint32_t> map(12);
  for (uint32_t k = 0; k < 12; ++k) map[k] = 0xFF123400u | (k * 20u);  // only the blue byte counts
  const GridValues grid = Evaluate(set, 0, {map.data(), 4, 3});
  for (size_t k = 0; k < 12; ++k) EXPECT_FLOAT_EQ(grid.y[k], float(k * 20)) << k;

  // A frame without a map: every point reads the last value the table got,
  // that of the last point evaluated (i = 3, j = 2).
  const CompiledSet compiled = Recompile(set);
  GridEvaluator evaluator;
  evaluator.Prepare(set, compiled);
  GridValues again;
  evaluator.Evaluate({map.data(), 4, 3}, again);
  evaluator.Evaluate({}, again);
  for (size_t k = 0; k < 12; ++k) EXPECT_FLOAT_EQ(again.y[k], 220.0f);
  // A map of another size is sampled at the nearest pixel.
  std::vector<uint32_t> big(8 * 6);
  for (size_t y = 0; y < 6; ++y)
    for (size_t x = 0; x < 8; ++x) big[y * 8 + x] = uint32_t(x + 10 * y);
  evaluator.Evaluate({big.data(), 8, 6}, again);
  EXPECT_FLOAT_EQ(again.y[size_t(2 * 4 + 3)], 46.0f);  // (3, 2) -> pixel (6, 4)
}

TEST(Evaluator3DFormulas, PatternsAndFaceSidesChooseTheTriangles) {
  EXPECT_TRUE(CellVisible("1", "1", 5, 7));
  EXPECT_TRUE(CellVisible("10", "1", 4, 3));
  EXPECT_FALSE(CellVisible("10", "1", 3, 3));
  EXPECT_TRUE(CellVisible("ab", "ba", 1, 2));   // 'b' against 'b'
  EXPECT_FALSE(CellVisible("ab", "ba", 0, 2));  // 'a' against 'b'

  FormulaSet set;  // 10 x 10: 9 x 9 cells
  set.ipattern = "10";
  std::vector<uint32_t> triangles;
  BuildTriangles(set, true, triangles);
  EXPECT_EQ(triangles.size(), 5u * 9u * 6u);  // i = 0, 2, 4, 6, 8
  for (size_t t = 0; t < triangles.size(); t += 3) EXPECT_EQ(triangles[t] % 10 % 2, 0u);
  BuildTriangles(set, false, triangles);  // "Disable visibility patterns"
  EXPECT_EQ(triangles.size(), 81u * 6u);

  // Front faces wind counter-clockwise seen from above; back faces reverse.
  const GridValues grid = Evaluate(set);
  auto facing_up = [&](const std::vector<uint32_t>& tri, size_t t) {
    auto p = [&](uint32_t k) { return std::array<float, 3>{grid.x[k], grid.y[k], grid.z[k]}; };
    const auto a = p(tri[t]), b = p(tri[t + 1]), c = p(tri[t + 2]);
    const float e1x = b[0] - a[0], e1z = b[2] - a[2], e2x = c[0] - a[0], e2z = c[2] - a[2];
    return e1z * e2x - e1x * e2z > 0;  // y of the cross product
  };
  set.ipattern = "1";
  BuildTriangles(set, true, triangles);
  for (size_t t = 0; t < triangles.size(); t += 3) EXPECT_TRUE(facing_up(triangles, t));
  set.front = 0;
  set.back = 1;
  BuildTriangles(set, true, triangles);
  ASSERT_EQ(triangles.size(), 81u * 6u);
  for (size_t t = 0; t < triangles.size(); t += 3) EXPECT_FALSE(facing_up(triangles, t));
  set.front = 1;
  BuildTriangles(set, true, triangles);
  EXPECT_EQ(triangles.size(), 2u * 81u * 6u);
  set.front = set.back = 0;
  BuildTriangles(set, true, triangles);
  EXPECT_TRUE(triangles.empty());
}

TEST(Evaluator3DFormulas, EnvironmentMappingFollowsTheNormals) {
  FormulaSet set;
  set.uvmode1 = kUvEnvVertices;
  set.uvmode2 = kUvEnvFormulas;
  set.text[kNx2] = "0";
  set.text[kNy2] = "1";
  set.text[kNz2] = "0";
  const GridValues grid = Evaluate(set);
  GridNormals normals;
  ComputeNormals(grid, false, false, normals);
  CameraValues camera;
  camera.position[1] = 200;  // straight above the centre
  camera.target[2] = -1e-3f;
  std::vector<nb3D::Vertex> vertices;
  AssembleVertices(set, grid, normals, camera, vertices);
  // A flat mirror seen from straight above reflects the view ray back: the
  // centre of the sphere map under the camera, moving outward with the
  // vertex. Both sets agree, as the formula normal is the surface's.
  const nb3D::Vertex& left = vertices[size_t(5 * 10 + 0)];
  const nb3D::Vertex& right = vertices[size_t(5 * 10 + 9)];
  EXPECT_LT(left.u, 0.5f);
  EXPECT_GT(right.u, 0.5f);
  EXPECT_NEAR(left.u + right.u, 1.0f, 1e-4f);
  for (const nb3D::Vertex& v : vertices) {
    EXPECT_NEAR(v.u, v.u2, 1e-5f);
    EXPECT_NEAR(v.v, v.v2, 1e-5f);
    EXPECT_FLOAT_EQ(v.ny, 1.0f);
  }
}

}  // namespace
}  // namespace nimbo::e3d
