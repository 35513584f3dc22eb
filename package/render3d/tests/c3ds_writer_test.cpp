// The .3ds writer: the skeleton byte for byte, chunk lengths checked by an
// independent walk of the bytes, meshes split at the 16-bit limits, and
// files read back by two real readers (lib3ds, assimp).
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "render3d/c3ds_writer.h"

#if NIMBO_HAVE_LIB3DS
#include <lib3ds/camera.h>
#include <lib3ds/file.h>
#include <lib3ds/material.h>
#include <lib3ds/mesh.h>
#endif

namespace {

using nimbo::C3DSWriter;
using nimbo::ChunkNode;

std::string TempPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() / ("nimbo_c3ds_" + std::to_string(::getpid()) + "_" + name)).string();
}

uint16_t U16(const std::vector<uint8_t>& b, size_t at) { return uint16_t(b[at] | b[at + 1] << 8); }
uint32_t U32(const std::vector<uint8_t>& b, size_t at) {
  return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 | uint32_t(b[at + 3]) << 24;
}

// The bytes a chunk holds before its children, for the chunks that have
// children: reading them needs the format's knowledge, not the writer's.
long HeadOf(uint16_t id, const std::vector<uint8_t>& b, size_t data) {
  switch (id) {
    case 0x4D4D: case 0x3D3D: case 0xB000: case 0xAFFF: case 0x4100: case 0xB002: case 0xB003: case 0xB004:
    case 0xA010: case 0xA020: case 0xA030: case 0xA040: case 0xA041: case 0xA050: case 0xA052: case 0xA053:
    case 0xA084: case 0xA200:
      return 0;
    case 0x4000: return long(std::strlen(reinterpret_cast<const char*>(&b[data])) + 1);  // object name
    case 0x4120: return 2 + 8 * long(U16(b, data));  // count, then four words per face
    case 0x4700: return 32;                          // position, target, roll, lens
    default: return -1;                              // a leaf
  }
}

// Walks the chunk at `at` and checks that the children of every container
// fill it exactly; returns the ids met, in file order, depth-first.
void Walk(const std::vector<uint8_t>& b, size_t at, size_t end, std::vector<uint16_t>& ids, int depth = 0) {
  ASSERT_LE(at + 6, end);
  const uint16_t id = U16(b, at);
  const uint32_t len = U32(b, at + 2);
  ASSERT_GE(len, 6u) << std::hex << id;
  ASSERT_LE(at + len, end) << std::hex << id;
  ids.push_back(id);
  const long head = HeadOf(id, b, at + 6);
  if (head < 0) return;
  size_t child = at + 6 + size_t(head);
  while (child < at + len) {
    const uint32_t child_len = U32(b, child + 2);
    Walk(b, child, at + len, ids, depth + 1);
    if (::testing::Test::HasFatalFailure()) return;
    child += child_len;
  }
  EXPECT_EQ(child, at + len) << "children of " << std::hex << id << " overrun it";
}

// A grid of nx x nz vertices in the y = 0 plane, 10 units apart, with
// texture coordinates, two triangles per cell.
struct Grid {
  Grid(int nx, int nz) {
    for (int j = 0; j < nz; ++j)
      for (int i = 0; i < nx; ++i) {
        positions.insert(positions.end(), {10.0f * float(i), 0.0f, 10.0f * float(j)});
        uvs.insert(uvs.end(), {float(i) / float(nx - 1), float(j) / float(nz - 1)});
      }
    for (int j = 0; j + 1 < nz; ++j)
      for (int i = 0; i + 1 < nx; ++i) {
        const uint32_t a = uint32_t(j * nx + i), c = a + uint32_t(nx);
        triangles.insert(triangles.end(), {a, a + 1, c + 1, a, c + 1, c});
      }
  }
  int32_t VertexCount() const { return int32_t(positions.size() / 3); }
  int32_t FaceCount() const { return int32_t(triangles.size() / 3); }
  std::vector<float> positions, uvs;
  std::vector<uint32_t> triangles;
};

// Scale 2, then move by (5, 6, 7), as the row vector sees it.
const float kMatrix[16] = {2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 5, 6, 7, 1};

// `grid` through kMatrix with material "ev3dmat"; the number of objects.
int32_t AddGrid(C3DSWriter& writer, const Grid& grid, const char* name, bool uvs = true) {
  return writer.AddMesh(grid.positions.data(), grid.VertexCount(), uvs ? grid.uvs.data() : nullptr,
                        grid.triangles.data(), grid.FaceCount(), name, kMatrix, "ev3dmat");
}

TEST(C3DSWriterTest, SkeletonIsByteExact) {
  const std::vector<uint8_t> want = {
      0x4D, 0x4D, 93, 0, 0, 0,                                      // M3DMAGIC
      0x02, 0x00, 10, 0, 0, 0, 3, 0, 0, 0,                          //   M3D_VERSION 3
      0x3D, 0x3D, 26, 0, 0, 0,                                      //   MDATA
      0x3E, 0x3D, 10, 0, 0, 0, 3, 0, 0, 0,                          //     MESH_VERSION 3
      0x00, 0x01, 10, 0, 0, 0, 0x00, 0x00, 0x80, 0x3F,              //     MASTER_SCALE 1.0
      0x00, 0xB0, 51, 0, 0, 0,                                      //   KFDATA
      0x0A, 0xB0, 21, 0, 0, 0, 5, 0, 'E', 'x', 'p', 'o', 'r', 't', 'e', 'd', 0, 100, 0, 0, 0,  // KFHDR
      0x08, 0xB0, 14, 0, 0, 0, 0, 0, 0, 0, 100, 0, 0, 0,            //     KFSEG 0..100
      0x09, 0xB0, 10, 0, 0, 0, 0, 0, 0, 0};                         //     KFCURTIME 0
  C3DSWriter writer;
  EXPECT_EQ(writer.Bytes(), want);

  const std::string path = TempPath("skeleton.3ds");
  ASSERT_TRUE(writer.Save(path.c_str()));
  std::ifstream in(path, std::ios::binary);
  EXPECT_EQ(std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {}), want);
  EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
  std::filesystem::remove(path);
  EXPECT_FALSE(writer.Save("/nonexistent-folder/x.3ds"));
}

TEST(C3DSWriterTest, DataBuffersDoubleAndAlwaysFitTheAppend) {
  ChunkNode node(0x1234);
  node.AppendU8(1);
  EXPECT_EQ(node.Capacity(), 16u);
  const std::vector<uint8_t> big(100, 7);
  node.AppendBytes(big.data(), big.size());  // 16 -> 32 is not enough
  EXPECT_EQ(node.DataSize(), 101u);
  EXPECT_EQ(node.Capacity(), 128u);
  node.AppendFloat(-2.5f);
  node.AppendU16(0xBEEF);
  node.AppendString("ab");
  const std::vector<uint8_t> tail(node.Data() + 101, node.Data() + node.DataSize());
  EXPECT_EQ(tail, (std::vector<uint8_t>{0x00, 0x00, 0x20, 0xC0, 0xEF, 0xBE, 'a', 'b', 0}));
}

TEST(C3DSWriterTest, EveryParentHoldsExactlyItsChildrenInTheExpectedOrder) {
  C3DSWriter writer;
  nimbo::Material m = nimbo::DefaultMaterial();
  m.twosided = 1;
  m.trans = nimbo::kTransAdditive;
  nimbo::SetFixedText(m.tex[0].bitmapname, "C:\\pictures\\wood.png");
  writer.AddMaterial("ev3dmat", m);
  Grid grid(3, 2);
  ASSERT_EQ(AddGrid(writer, grid, "grid"), 1);
  const float eye[3] = {0, 100, 100}, target[3] = {0, 0, 0};
  writer.AddCamera(eye, target, 0.0f, 60.0f);
  const std::vector<uint8_t> bytes = writer.Bytes();
  std::vector<uint16_t> ids;
  Walk(bytes, 0, bytes.size(), ids);
  ASSERT_FALSE(HasFatalFailure());
  EXPECT_EQ(U32(bytes, 2), bytes.size());
  const std::vector<uint16_t> want = {
      0x4D4D, 0x0002, 0x3D3D, 0x3D3E, 0x0100,
      // material: name, three colours, five percentages, shading, self-illumination,
      // two-sided and additive (its flags), wire size, the picture's map
      0xAFFF, 0xA000, 0xA010, 0x0011, 0xA020, 0x0011, 0xA030, 0x0011, 0xA040, 0x0030, 0xA041, 0x0030, 0xA050,
      0x0030, 0xA052, 0x0030, 0xA053, 0x0030, 0xA100, 0xA084, 0x0030, 0xA081, 0xA083, 0xA087, 0xA200, 0x0030,
      0xA300, 0xA351, 0xA353,
      // mesh
      0x4000, 0x4100, 0x4110, 0x4140, 0x4120, 0x4150, 0x4130, 0x4160,
      // camera
      0x4000, 0x4700, 0x4720,
      // keyframer: header, segment, time, the object's node, the camera's and its target's
      0xB000, 0xB00A, 0xB008, 0xB009, 0xB002, 0xB030, 0xB010, 0xB013, 0xB020, 0xB021, 0xB022, 0xB003, 0xB030,
      0xB010, 0xB020, 0xB023, 0xB024, 0xB004, 0xB030, 0xB010, 0xB020};
  EXPECT_EQ(ids, want);
}

TEST(C3DSWriterTest, BadMeshesAddNothing) {
  C3DSWriter writer;
  const std::vector<uint8_t> before = writer.Bytes();
  const float p[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  const uint32_t outside[3] = {0, 1, 3};
  EXPECT_EQ(writer.AddMesh(p, 3, nullptr, outside, 1, "bad", nullptr, "m"), 0);
  EXPECT_EQ(writer.AddMesh(p, -1, nullptr, nullptr, 0, "bad", nullptr, "m"), 0);
  EXPECT_EQ(writer.AddMesh(nullptr, 3, nullptr, nullptr, 0, "bad", nullptr, "m"), 0);
  EXPECT_EQ(writer.Bytes(), before);
}

// ---- real readers ------------------------------------------------------------------

// The engine point (x, y, z) through kMatrix, in the file's axes.
void Expected(const Grid& g, int v, float out[3]) {
  const float* p = &g.positions[size_t(v) * 3];
  const float x = 2 * p[0] + 5, y = 2 * p[1] + 6, z = 2 * p[2] + 7;
  out[0] = x, out[1] = z, out[2] = y;
}

#if NIMBO_HAVE_LIB3DS
struct Lib3dsFileDeleter {
  void operator()(Lib3dsFile* f) const { lib3ds_file_free(f); }
};
using Lib3dsPtr = std::unique_ptr<Lib3dsFile, Lib3dsFileDeleter>;
#endif

TEST(C3DSWriterTest, Lib3dsReadsMeshMaterialAndCamera) {
#if !NIMBO_HAVE_LIB3DS
  GTEST_SKIP() << "lib3ds (lib3ds-dev) was not found when building";
#else
  C3DSWriter writer;
  nimbo::Material m = nimbo::DefaultMaterial();
  m.trans = nimbo::kTransHalf;
  writer.AddMaterial("ev3dmat", m);
  Grid grid(10, 10);
  ASSERT_EQ(AddGrid(writer, grid, "Surface"), 1);
  const float eye[3] = {0, 100, 100}, target[3] = {1, 2, 3};
  writer.AddCamera(eye, target, 0.5f, 45.0f);
  const std::string path = TempPath("lib3ds.3ds");
  ASSERT_TRUE(writer.Save(path.c_str()));
  Lib3dsPtr file(lib3ds_file_load(path.c_str()));
  std::filesystem::remove(path);
  ASSERT_NE(file, nullptr);

  Lib3dsMesh* mesh = lib3ds_file_mesh_by_name(file.get(), "Surface");
  ASSERT_NE(mesh, nullptr);
  ASSERT_EQ(mesh->points, 100u);
  ASSERT_EQ(mesh->faces, 162u);
  ASSERT_EQ(mesh->texels, 100u);
  for (int v = 0; v < 100; ++v) {
    float want[3];
    Expected(grid, v, want);
    for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(mesh->pointL[v].pos[c], want[c]) << v;
    EXPECT_FLOAT_EQ(mesh->texelL[v][0], grid.uvs[size_t(v) * 2]);
    EXPECT_FLOAT_EQ(mesh->texelL[v][1], grid.uvs[size_t(v) * 2 + 1]);
  }
  for (int f = 0; f < 162; ++f) {
    for (int c = 0; c < 3; ++c) EXPECT_EQ(mesh->faceL[f].points[c], grid.triangles[size_t(f) * 3 + size_t(c)]);
    EXPECT_STREQ(mesh->faceL[f].material, "ev3dmat");
  }
  Lib3dsMaterial* mat = lib3ds_file_material_by_name(file.get(), "ev3dmat");
  ASSERT_NE(mat, nullptr);
  EXPECT_NEAR(mat->transparency, 0.5f, 1e-6);
  EXPECT_NEAR(mat->ambient[0], 0xB0 / 255.0f, 1e-6);

  Lib3dsCamera* camera = lib3ds_file_camera_by_name(file.get(), "Camera1");
  ASSERT_NE(camera, nullptr);
  EXPECT_FLOAT_EQ(camera->position[0], 0);
  EXPECT_FLOAT_EQ(camera->position[1], 100);  // engine z
  EXPECT_FLOAT_EQ(camera->position[2], 100);  // engine y
  EXPECT_FLOAT_EQ(camera->target[1], 3);
  EXPECT_FLOAT_EQ(camera->target[2], 2);
  EXPECT_NEAR(camera->fov, 45.0f, 1e-4);
  EXPECT_NEAR(camera->roll, 0.5f * 180.0f / 3.14159265f, 1e-3);
#endif
}

TEST(C3DSWriterTest, MeshesOverTheLimitsAreSplitIntoObjectsReadersAccept) {
#if !NIMBO_HAVE_LIB3DS
  GTEST_SKIP() << "lib3ds (lib3ds-dev) was not found when building";
#else
  Grid grid(300, 250);  // 75000 vertices, 148902 faces
  C3DSWriter writer;
  writer.AddMaterial("ev3dmat", nimbo::DefaultMaterial());
  const int32_t objects = AddGrid(writer, grid, "big", false);
  ASSERT_EQ(objects, 3);
  const std::string path = TempPath("split.3ds");
  ASSERT_TRUE(writer.Save(path.c_str()));
  Lib3dsPtr file(lib3ds_file_load(path.c_str()));
  std::filesystem::remove(path);
  ASSERT_NE(file, nullptr);
  size_t faces = 0;
  const char* names[3] = {"big", "big1", "big2"};
  for (const char* name : names) {
    Lib3dsMesh* mesh = lib3ds_file_mesh_by_name(file.get(), name);
    ASSERT_NE(mesh, nullptr) << name;
    EXPECT_LE(mesh->points, 65535u);
    EXPECT_LE(mesh->faces, 65535u);
    faces += mesh->faces;
    // Every face still joins three grid points that are neighbours: the
    // local indices were remapped consistently.
    for (uint32_t f = 0; f < mesh->faces; f += 997) {
      const float* a = mesh->pointL[mesh->faceL[f].points[0]].pos;
      const float* c = mesh->pointL[mesh->faceL[f].points[2]].pos;
      EXPECT_LE(std::fabs(a[0] - c[0]) + std::fabs(a[1] - c[1]), 40.0f) << name << " face " << f;
    }
  }
  EXPECT_EQ(faces, size_t(grid.FaceCount()));
#endif
}

// `assimp info` and `assimp export` (to OBJ) on a file: the counts, the
// material name and every vertex position as assimp sees them.
std::string RunCommand(const std::string& command) {
  std::string out;
  FILE* p = popen(command.c_str(), "r");
  if (!p) return out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  pclose(p);
  return out;
}

TEST(C3DSWriterTest, AssimpReadsCountsMaterialAndPositions) {
  if (std::system("command -v assimp >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "assimp (assimp-utils) is not installed";
  C3DSWriter writer;
  writer.AddMaterial("ev3dmat", nimbo::DefaultMaterial());
  Grid grid(10, 10);
  ASSERT_EQ(AddGrid(writer, grid, "Surface"), 1);
  const float eye[3] = {0, 100, 100}, target[3] = {0, 0, 0};
  writer.AddCamera(eye, target, 0.0f, 60.0f);
  const std::string path = TempPath("assimp.3ds"), obj = TempPath("assimp.obj");
  ASSERT_TRUE(writer.Save(path.c_str()));

  const std::string info = RunCommand("assimp info '" + path + "' 2>&1");
  EXPECT_NE(info.find("Vertices:           100\n"), std::string::npos) << info;
  EXPECT_NE(info.find("Faces:              162\n"), std::string::npos) << info;
  EXPECT_NE(info.find("Cameras:            1\n"), std::string::npos) << info;
  EXPECT_NE(info.find("'ev3dmat'"), std::string::npos) << info;

  RunCommand("assimp export '" + path + "' '" + obj + "' 2>&1");
  std::ifstream in(obj);
  ASSERT_TRUE(in) << "assimp wrote no OBJ";
  std::vector<std::array<float, 3>> points;
  std::string line;
  bool uses_material = false;
  while (std::getline(in, line)) {
    std::istringstream s(line);
    std::string tag;
    s >> tag;
    if (tag == "v") {
      std::array<float, 3> p{};
      s >> p[0] >> p[1] >> p[2];
      points.push_back(p);
    }
    if (tag == "usemtl") uses_material = line.find("ev3dmat") != std::string::npos;
  }
  std::filesystem::remove(path);
  std::filesystem::remove(obj);
  std::filesystem::remove(TempPath("assimp.mtl"));
  EXPECT_TRUE(uses_material);
  ASSERT_EQ(points.size(), 100u);
  // assimp turns the file's z-up axes into y-up ones as (x, z, -y), and
  // orders vertices its own way: compare the sets.
  std::vector<std::array<float, 3>> want(100);
  for (int v = 0; v < 100; ++v) {
    float p[3];
    Expected(grid, v, p);
    want[size_t(v)] = {p[0], p[2], -p[1]};
  }
  std::sort(points.begin(), points.end());
  std::sort(want.begin(), want.end());
  for (size_t v = 0; v < 100; ++v)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(points[v][size_t(c)], want[v][size_t(c)], 1e-4) << v;
}

}  // namespace
