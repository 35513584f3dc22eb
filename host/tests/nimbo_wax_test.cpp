// The WAX effects as a user drives them: meshes written as .3ds files (by
// lib3ds) voxelised by `nimbo render 3DStoWAX`, the volume PNGs fed back
// with -i into WAXRotate, WAXCombine and WAXViewer, and the surfaces of
// known fields exported with --action save-3ds and read back by lib3ds.
#include <gtest/gtest.h>
#include <lib3ds/file.h>
#include <lib3ds/material.h>
#include <lib3ds/matrix.h>
#include <lib3ds/mesh.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "nimbo_run.h"

namespace nimbo::host {
namespace {

constexpr int32_t kSide = 64;  // voxels along each axis of a WAX volume
constexpr double kFit = 62;    // voxels the longest side of a voxelised mesh spans

struct Mesh {
  std::vector<std::array<float, 3>> points;
  std::vector<std::array<uint16_t, 3>> faces;
  uint32_t colour = 0xC08040;
};

Mesh Box(std::array<float, 3> lo, std::array<float, 3> hi, uint32_t colour = 0xC08040) {
  Mesh m;
  m.colour = colour;
  for (int k = 0; k < 8; ++k) m.points.push_back({k & 1 ? hi[0] : lo[0], k & 2 ? hi[1] : lo[1], k & 4 ? hi[2] : lo[2]});
  // Outward faces: -z, +z, -y, +y, -x, +x.
  const uint16_t quads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
  for (const auto& q : quads) {
    m.faces.push_back({q[0], q[1], q[2]});
    m.faces.push_back({q[0], q[2], q[3]});
  }
  return m;
}

Mesh Sphere(float r, int rings, int segments) {
  Mesh m;
  m.points.push_back({0, r, 0});
  for (int i = 1; i < rings; ++i) {
    const double theta = M_PI * i / rings;
    for (int j = 0; j < segments; ++j) {
      const double phi = 2 * M_PI * j / segments;
      m.points.push_back({float(r * std::sin(theta) * std::cos(phi)), float(r * std::cos(theta)),
                          float(r * std::sin(theta) * std::sin(phi))});
    }
  }
  m.points.push_back({0, -r, 0});
  const uint16_t bottom = uint16_t(m.points.size() - 1);
  auto at = [segments](int ring, int j) { return uint16_t(1 + (ring - 1) * segments + (j % segments)); };
  for (int j = 0; j < segments; ++j) {
    m.faces.push_back({0, at(1, j + 1), at(1, j)});
    m.faces.push_back({bottom, at(rings - 1, j), at(rings - 1, j + 1)});
    for (int i = 1; i + 1 < rings; ++i) {
      m.faces.push_back({at(i, j), at(i, j + 1), at(i + 1, j + 1)});
      m.faces.push_back({at(i, j), at(i + 1, j + 1), at(i + 1, j)});
    }
  }
  return m;
}

// The volume of a closed polygon mesh (divergence theorem), for the
// polygonised sphere's own volume beside the round one's.
double MeshVolume(const Mesh& m) {
  double v = 0;
  for (const auto& f : m.faces) {
    const auto &a = m.points[f[0]], &b = m.points[f[1]], &c = m.points[f[2]];
    v += (a[0] * (b[1] * c[2] - b[2] * c[1]) - a[1] * (b[0] * c[2] - b[2] * c[0]) + a[2] * (b[0] * c[1] - b[1] * c[0])) / 6.0;
  }
  return std::abs(v);
}

// Writes the meshes with lib3ds, each with a material of its colour.
void Write3ds(const std::string& path, const std::vector<Mesh>& meshes) {
  Lib3dsFile* file = lib3ds_file_new();
  for (size_t i = 0; i < meshes.size(); ++i) {
    const std::string name = "m" + std::to_string(i);
    Lib3dsMaterial* material = lib3ds_material_new();
    std::strcpy(material->name, name.c_str());
    const uint32_t c = meshes[i].colour;
    material->diffuse[0] = float((c >> 16) & 255) / 255, material->diffuse[1] = float((c >> 8) & 255) / 255;
    material->diffuse[2] = float(c & 255) / 255;
    lib3ds_file_insert_material(file, material);
    Lib3dsMesh* mesh = lib3ds_mesh_new(("o" + std::to_string(i)).c_str());
    lib3ds_mesh_new_point_list(mesh, Lib3dsDword(meshes[i].points.size()));
    for (size_t p = 0; p < meshes[i].points.size(); ++p)
      for (int d = 0; d < 3; ++d) mesh->pointL[p].pos[d] = meshes[i].points[p][d];
    lib3ds_mesh_new_face_list(mesh, Lib3dsDword(meshes[i].faces.size()));
    for (size_t f = 0; f < meshes[i].faces.size(); ++f) {
      for (int k = 0; k < 3; ++k) mesh->faceL[f].points[k] = meshes[i].faces[f][k];
      std::strcpy(mesh->faceL[f].material, name.c_str());
    }
    lib3ds_matrix_identity(mesh->matrix);
    lib3ds_file_insert_mesh(file, mesh);
  }
  ASSERT_TRUE(lib3ds_file_save(file, path.c_str())) << path;
  lib3ds_file_free(file);
}

// A surface read back by lib3ds, its corners welded by position (an
// exported mesh may repeat a corner for each texture seam).
struct Topology {
  size_t vertices = 0, edges = 0, faces = 0;
  size_t bad_edges = 0;      // undirected edges not shared by exactly two faces
  size_t flipped_edges = 0;  // directed edges used twice (neighbours wound against each other)
  long Euler() const { return long(vertices) - long(edges) + long(faces); }
};

Topology ReadTopology(const std::string& path) {
  Topology t;
  Lib3dsFile* file = lib3ds_file_load(path.c_str());
  EXPECT_NE(file, nullptr) << path;
  if (!file) return t;
  std::map<std::array<float, 3>, size_t> ids;
  std::map<std::pair<size_t, size_t>, int> directed;
  for (Lib3dsMesh* mesh = file->meshes; mesh; mesh = mesh->next) {
    std::vector<size_t> weld(mesh->points);
    for (Lib3dsDword p = 0; p < mesh->points; ++p) {
      const std::array<float, 3> key{mesh->pointL[p].pos[0], mesh->pointL[p].pos[1], mesh->pointL[p].pos[2]};
      weld[p] = ids.emplace(key, ids.size()).first->second;
    }
    for (Lib3dsDword f = 0; f < mesh->faces; ++f) {
      size_t c[3];
      for (int k = 0; k < 3; ++k) c[k] = weld[mesh->faceL[f].points[k]];
      if (c[0] == c[1] || c[1] == c[2] || c[2] == c[0]) continue;  // welded away to nothing
      ++t.faces;
      for (int k = 0; k < 3; ++k) ++directed[{c[k], c[(k + 1) % 3]}];
    }
  }
  lib3ds_file_free(file);
  std::map<std::pair<size_t, size_t>, int> undirected;
  for (const auto& [edge, uses] : directed) {
    if (uses > 1) ++t.flipped_edges;
    undirected[{std::min(edge.first, edge.second), std::max(edge.first, edge.second)}] += uses;
  }
  std::set<size_t> used;
  for (const auto& [edge, uses] : undirected) {
    if (uses != 2) ++t.bad_edges;
    used.insert(edge.first), used.insert(edge.second);
  }
  t.vertices = used.size();
  t.edges = undirected.size();
  return t;
}

class NimboWax : public NimboTest {
 protected:
  // Runs nimbo on the real package; fails the test on an error.
  void Nimbo(const std::vector<std::string>& args) const {
    const RunResult r = Run(args, true);
    ASSERT_EQ(r.code, 0) << r.err;
  }
  // `meshes` as name.3ds, voxelised into name.png; answers the volume's voxels.
  std::vector<uint32_t> Voxelise(const std::string& name, const std::vector<Mesh>& meshes) const {
    Write3ds(Path(name + ".3ds"), meshes);
    Nimbo({"render", "3DStoWAX", "--set", "path=" + Path(name + ".3ds"), "-o", Path(name + ".png")});
    return Voxels(name + ".png");
  }
  std::vector<uint32_t> Voxels(const std::string& png) const {
    const std::vector<FrameBuffer> frames = ReadAll(png);
    if (frames.size() != 1 || frames[0].width != 512 || frames[0].height != 512) {
      ADD_FAILURE() << png << " is no WAX volume screen";
      return {};
    }
    return std::vector<uint32_t>(frames[0].pixels.begin(), frames[0].pixels.end());
  }
  static size_t Solid(const std::vector<uint32_t>& voxels) {
    size_t n = 0;
    for (uint32_t v : voxels) n += (v >> 24) >= 128;
    return n;
  }
  // Voxels whose density is neither 0 nor 255.
  static size_t Partial(const std::vector<uint32_t>& voxels) {
    size_t n = 0;
    for (uint32_t v : voxels) n += (v >> 24) != 0 && (v >> 24) != 255;
    return n;
  }
};

TEST_F(NimboWax, CubeAndSphereFillTheirVolumesAndTheDensitySurvivesPngBothWays) {
  const std::vector<uint32_t> cube = Voxelise("cube", {Box({-1, -1, -1}, {1, 1, 1})});
  EXPECT_NEAR(double(Solid(cube)), kFit * kFit * kFit, 0.02 * kFit * kFit * kFit);
  EXPECT_EQ(Partial(cube), 0u);  // densities are 0 or 255: any threshold measures the same
  // The file command and a chain make the same volume screen.
  Nimbo({"render", "3DStoWAX", "--action", "load-3ds=" + Path("cube.3ds"), "--then", "WAXRotate", "-o",
         Path("chain.png")});
  EXPECT_EQ(Voxels("chain.png"), cube);

  const Mesh ball = Sphere(1, 48, 96);
  const std::vector<uint32_t> sphere = Voxelise("sphere", {ball});
  const double round = 4.0 / 3.0 * M_PI * std::pow(kFit / 2, 3);
  EXPECT_NEAR(double(Solid(sphere)), round, 0.02 * round);
  // The polygonised sphere is a little smaller than the round one; the fill
  // follows the polygons.
  const double polygons = MeshVolume(ball) * std::pow(kFit / 2, 3);
  EXPECT_NEAR(double(Solid(sphere)), polygons, 0.01 * polygons);
  EXPECT_EQ(Partial(sphere), 0u);
  // Colour is the material's where dense.
  size_t coloured = 0;
  for (uint32_t v : sphere) coloured += (v >> 24) == 255 && (v & 0xFFFFFFu) == 0xC08040u;
  EXPECT_EQ(coloured, Solid(sphere));

  // Read back with -i, the volume reaches the WAX effects whole: a turn by
  // nothing gives it back, a union with itself too, and WAXViewer draws it.
  Nimbo({"render", "WAXRotate", "-i", Path("sphere.png"), "-o", Path("same.png")});
  EXPECT_EQ(Voxels("same.png"), sphere);
  Nimbo({"render", "WAXCombine", "-i", Path("sphere.png"), "-i", Path("sphere.png"), "--set", "mode=0", "-o",
         Path("union.png")});
  EXPECT_EQ(Voxels("union.png"), sphere);
  WritePicture("black.png", FrameBuffer(96, 64, 0xFF000000u));
  Nimbo({"render", "WAXViewer", "-i", Path("black.png"), "-i", Path("sphere.png"), "-o", Path("view.png")});
  const std::vector<FrameBuffer> view = ReadAll("view.png");
  ASSERT_EQ(view.size(), 1u);
  size_t lit = 0;
  for (uint32_t p : view[0].pixels) lit += (p & 0xFFFFFFu) != 0;
  EXPECT_GT(lit, 96u * 64 / 10);
}

// WAXViewer in the voxels' colours: where a red half meets a blue half the
// surface shows red, blue or their mix (lit, with white highlights), never
// an unrelated colour of the palette in between.
TEST_F(NimboWax, AColourBoundaryShowsOnlyItsTwoColoursAndTheirMix) {
  FrameBuffer volume(512, 512, 0u);
  for (int z = 0; z < 64; ++z)
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 64; ++x) {
        const double d = std::sqrt((x - 31.5) * (x - 31.5) + (y - 31.5) * (y - 31.5) + (z - 31.5) * (z - 31.5));
        const double a = std::clamp(22.5 - d, 0.0, 1.0);
        if (a <= 0) continue;
        const size_t at = size_t((z / 8) * 64 + y) * 512 + size_t((z % 8) * 64 + x);
        volume.pixels[at] = uint32_t(std::lround(a * 255)) << 24 | (x < 32 ? 0xFF0000u : 0x0000FFu);
      }
  WritePicture("halves.png", volume);
  WritePicture("black640.png", FrameBuffer(640, 480, 0xFF000000u));
  Nimbo({"render", "WAXViewer", "-i", Path("black640.png"), "-i", Path("halves.png"), "--dyn", "Spin speed=0", "-o",
         Path("halves_view.png")});
  const std::vector<FrameBuffer> view = ReadAll("halves_view.png");
  ASSERT_EQ(view.size(), 1u);
  size_t red = 0, blue = 0, stray = 0;
  for (uint32_t p : view[0].pixels) {
    const uint32_t r = (p >> 16) & 0xFF, g = (p >> 8) & 0xFF, b = p & 0xFF;
    stray += g > std::min(r, b) + 8;
    red += r > 60 && r > 2 * b;
    blue += b > 60 && b > 2 * r;
  }
  EXPECT_EQ(stray, 0u);
  EXPECT_GT(red, 2000u);
  EXPECT_GT(blue, 2000u);
}

TEST_F(NimboWax, MeshesThatAreNotClosedGiveAVolumeOrNoneAsTheHelpPageSays) {
  const size_t full = Solid(Voxelise("closed", {Box({-1, -1, -1}, {1, 1, 1})}));
  ASSERT_GT(full, 0u);

  Mesh face;
  face.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  face.faces = {{0, 1, 2}};
  EXPECT_EQ(Solid(Voxelise("face", {face})), 0u);

  // The rays run along the file's y axis (the .3ds file is z-up; its y is
  // the volume's depth): without a y face every ray crosses once and nothing
  // is filled; without an x face every ray still crosses twice.
  Mesh no_y = Box({-1, -1, -1}, {1, 1, 1});
  no_y.faces.erase(no_y.faces.begin() + 4, no_y.faces.begin() + 6);
  EXPECT_EQ(Solid(Voxelise("no_y", {no_y})), 0u);
  Mesh no_x = Box({-1, -1, -1}, {1, 1, 1});
  no_x.faces.erase(no_x.faces.begin() + 8, no_x.faces.begin() + 10);
  EXPECT_EQ(Solid(Voxelise("no_x", {no_x})), full);

  // Two overlapping cubes: the overlap is crossed four times and stays
  // empty, so the volume is the two cubes less twice their overlap.
  const std::vector<uint32_t> pair = Voxelise("pair", {Box({-1, -1, -1}, {1, 1, 1}), Box({0, -1, -1}, {2, 1, 1})});
  // (Their union would be 12 cubic units.)
  const double unit = kFit / 3;  // the pair spans 3 units along x
  const double expected = 8 * unit * unit * unit;
  EXPECT_NEAR(double(Solid(pair)), expected, 0.06 * expected);  // sides of 41.3 voxels fill whole voxels

  // Degenerate triangles (a repeated corner, three corners in a line)
  // change nothing.
  Mesh worn = Box({-1, -1, -1}, {1, 1, 1});
  worn.points.push_back({0, 0, 1});
  const uint16_t mid = uint16_t(worn.points.size() - 1);
  worn.faces.push_back({0, 0, 1});
  worn.faces.push_back({4, mid, 7});
  worn.faces.push_back({5, 5, 5});
  EXPECT_EQ(Solid(Voxelise("worn", {worn})), full);
}

TEST_F(NimboWax, FourQuarterTurnsGiveTheVolumeBackAndADifferenceWithItselfIsEmpty) {
  // Two boxes of different colours, so no quarter turn maps the volume on itself.
  const std::vector<uint32_t> start =
      Voxelise("v0", {Box({0, 0, 0}, {3, 1, 1}, 0xFF2010), Box({0, 1.5f, 0}, {1, 2.5f, 2}, 0x10FF20)});
  ASSERT_GT(Solid(start), 1000u);
  for (const char* axis : {"rot_x", "rot_y", "rot_z"}) {
    std::string last = "v0.png";
    for (int turn = 1; turn <= 4; ++turn) {
      const std::string next = std::string(axis) + std::to_string(turn) + ".png";
      Nimbo({"render", "WAXRotate", "-i", Path(last), "--set", std::string(axis) + "=90", "-o", Path(next)});
      if (turn == 1) {
        EXPECT_NE(Voxels(next), start) << axis;
      }
      last = next;
    }
    EXPECT_EQ(Voxels(last), start) << axis;
  }
  Nimbo({"render", "WAXCombine", "-i", Path("v0.png"), "-i", Path("v0.png"), "--set", "mode=2", "-o", Path("d.png")});
  const std::vector<uint32_t> difference = Voxels("d.png");
  ASSERT_EQ(difference.size(), start.size());
  size_t dense = 0;
  for (uint32_t v : difference) dense += (v >> 24) != 0;
  EXPECT_EQ(dense, 0u);
}

TEST_F(NimboWax, ExportedSurfacesOfKnownFieldsAreClosedWithTheirEulerCharacteristic) {
  const std::vector<std::string> frame = {"--size", "96x64", "--frames", "1"};
  auto run = [&](std::vector<std::string> args, const std::string& out) {
    args.insert(args.end(), frame.begin(), frame.end());
    args.insert(args.end(), {"--action", "save-3ds=" + Path(out + ".3ds"), "-o", Path(out + ".png")});
    Nimbo(args);
    return ReadTopology(Path(out + ".3ds"));
  };
  struct Expect {
    const char* name;
    Topology topology;
    long euler;
  };
  std::vector<Expect> cases;
  cases.push_back({"sphere", run({"render", "ImplicitBeast", "--set", "program=FUN=X*X+Y*Y+Z*Z-1"}, "sphere"), 2});
  cases.push_back({"torus",
                   run({"render", "ImplicitBeast", "--set", "program=A=SQRT(X*X+Y*Y)-0.8\nFUN=A*A+Z*Z-0.09"}, "torus"),
                   0});
  cases.push_back({"blob", run({"render", "Blob 3D", "--set", "count=1"}, "blob"), 2});
  Write3ds(Path("ball.3ds"), {Sphere(1, 32, 64)});
  Nimbo({"render", "3DStoWAX", "--set", "path=" + Path("ball.3ds"), "-o", Path("ball.png")});
  WritePicture("black.png", FrameBuffer(96, 64, 0xFF000000u));
  cases.push_back({"wax sphere", run({"render", "WAXViewer", "-i", Path("black.png"), "-i", Path("ball.png")}, "wax"), 2});
  for (const Expect& c : cases) {
    EXPECT_GT(c.topology.faces, 100u) << c.name;
    EXPECT_EQ(c.topology.bad_edges, 0u) << c.name;
    EXPECT_EQ(c.topology.flipped_edges, 0u) << c.name;
    EXPECT_EQ(c.topology.Euler(), c.euler) << c.name;
  }
}

TEST_F(NimboWax, HostileProgramsAndRandomScreensGiveAnErrorOrAPictureNeverACrash) {
  // Each program either renders (exit 0, a picture) or is refused with a
  // one-line error (exit 1); a signal or any other code is a crash.
  std::string deep = "FUN=";
  for (int i = 0; i < 400; ++i) deep += "SIN(";
  deep += "X";
  for (int i = 0; i < 400; ++i) deep += ")";
  std::string long_program;
  for (int i = 0; i < 2000; ++i) long_program += "A" + std::to_string(i % 50) + "=X*Y+" + std::to_string(i) + "\n";
  long_program += "FUN=A1";
  const std::vector<std::string> programs = {
      "FUN=1/0",         "FUN=LOG(-1)+SQRT(-X)", "FUN=0/0*X",        "FUN=1E38*1E38*X",  "FUN=(X",
      "FUN=",            "X=1",                  "FUN=FUN+1",        "FUN=Q(X)",         "FUN=X*X+Y*Y+Z*Z-1\nFUN",
      "\n\n\n",       "FUN=X\x01Y",          deep,               long_program,       "FUN=MAX(X,Y,Z,X,Y,Z,X,Y)",
  };
  for (const std::string& program : programs) {
    const RunResult r = Run({"render", "ImplicitBeast", "--size", "48x32", "--frames", "2", "--set", "program=" + program,
                             "--set", "grid=24", "-o", Path("p.png")},
                            true);
    EXPECT_TRUE(r.code == 0 || r.code == 1) << program.substr(0, 60) << ": " << r.code << " " << r.err;
    if (r.code == 1) {
      // The refusal is nimbo's own line; a library may have warned before
      // it (Mesa does on some machines), but no sanitizer may have spoken.
      const bool refused = r.err.rfind("nimbo: error: ", 0) == 0 || r.err.find("\nnimbo: error: ") != std::string::npos;
      EXPECT_TRUE(refused && r.err.find("Sanitizer") == std::string::npos && r.err.find("runtime error") == std::string::npos)
          << program.substr(0, 60) << ": " << r.err;
    }
  }
  // Random screens, of the volume's size and of others, into every WAX effect.
  WritePicture("noise.png", Noise(512, 512));
  WritePicture("odd.png", Noise(300, 200));
  for (const char* in : {"noise.png", "odd.png"}) {
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"render", "WAXRotate", "-i", Path(in), "--set", "rot_y=33", "--set", "scale=1.7"},
          std::vector<std::string>{"render", "WAXCombine", "-i", Path(in), "-i", Path("noise.png"), "--set", "mode=3"},
          std::vector<std::string>{"render", "WAXViewer", "-i", Path(in), "-i", Path(in), "--set", "display=1"},
          std::vector<std::string>{"render", "WAXViewer", "-i", Path(in), "-i", Path(in), "--set", "threshold=1"}}) {
      std::vector<std::string> run = args;
      run.insert(run.end(), {"-o", Path("r.png")});
      const RunResult r = Run(run, true);
      EXPECT_EQ(r.code, 0) << args[1] << " " << in << ": " << r.err;
    }
  }
}

}  // namespace
}  // namespace nimbo::host
