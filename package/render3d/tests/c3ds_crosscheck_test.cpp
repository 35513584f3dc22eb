// Our reading of every .3ds file on the machine against lib3ds's and
// assimp's: mesh, vertex, face, material, camera and light counts, points,
// and key counts. Where we read differently on purpose, the check is of our
// rule instead:
//   - materials have an extra entry 0, "default";
//   - material colours come only from COLOR_24 (lib3ds also takes COLOR_F
//     and the gamma-corrected colours), so ours are multiples of 1/255;
//   - the ambient colour is (10, 10, 10) when the file has one at all;
//   - a two-key rotation track has a third key, so it counts one more.
// lib3ds runs in a child process: it crashes on some damaged files.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "render3d/c3ds_scene.h"

#ifdef NIMBO_HAVE_LIB3DS
#include <lib3ds/file.h>
#include <lib3ds/light.h>
#include <lib3ds/material.h>
#include <lib3ds/mesh.h>
#include <lib3ds/node.h>
#include <lib3ds/camera.h>
#endif

namespace nimbo::scene3ds {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> FindSceneFiles() {
  std::vector<std::string> files;
  for (const char* root : {"/usr/share", NIMBO_SOURCE_DIR "/fuzz/corpus/3ds"}) {
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
      if (ec) break;
      std::string ext = it->path().extension().string();
      for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
      if (ext == ".3ds" && it->is_regular_file(ec) && it->file_size(ec) > 0) files.push_back(it->path().string());
    }
  }
  return files;
}

// What another reader counts in a file.
struct Counts {
  bool read = false;
  long meshes = 0, vertices = 0, faces = 0, materials = 0, cameras = 0, lights = 0;
  std::map<std::string, long> position_keys, rotation_keys;  // by node name (unique names only)
  float first_point[3] = {0, 0, 0};
  float camera_lens = 0;
};

#ifdef NIMBO_HAVE_LIB3DS
void CountNodes(Lib3dsNode* node, Counts* c, std::map<std::string, int>* seen) {
  for (; node; node = node->next) {
    if (node->type == LIB3DS_OBJECT_NODE && std::string(node->name) != "$$$DUMMY") {
      long pos = 0, rot = 0;
      for (Lib3dsLin3Key* k = node->data.object.pos_track.keyL; k; k = k->next) ++pos;
      for (Lib3dsQuatKey* k = node->data.object.rot_track.keyL; k; k = k->next) ++rot;
      c->position_keys[node->name] = pos;
      c->rotation_keys[node->name] = rot;
      ++(*seen)[node->name];
    }
    CountNodes(node->childs, c, seen);
  }
}

// lib3ds's counts, read in a child process and sent back through a pipe.
Counts Lib3dsCounts(const std::string& path) {
  int fds[2];
  Counts c;
  if (pipe(fds) != 0) return c;
  const pid_t child = fork();
  if (child == 0) {
    close(fds[0]);
    Counts r;
    Lib3dsFile* f = lib3ds_file_load(path.c_str());
    if (f) {
      r.read = true;
      for (Lib3dsMesh* m = f->meshes; m; m = m->next) {
        if (r.meshes == 0 && m->points > 0)
          for (int k = 0; k < 3; ++k) r.first_point[k] = m->pointL[0].pos[k];
        ++r.meshes;
        r.vertices += long(m->points);
        r.faces += long(m->faces);
      }
      for (Lib3dsMaterial* m = f->materials; m; m = m->next) ++r.materials;
      for (Lib3dsCamera* m = f->cameras; m; m = m->next) {
        if (r.cameras == 0) r.camera_lens = m->fov > 0 ? 2400.0f / m->fov : 0;
        ++r.cameras;
      }
      for (Lib3dsLight* m = f->lights; m; m = m->next) ++r.lights;
      std::map<std::string, int> seen;
      CountNodes(f->nodes, &r, &seen);
      for (const auto& [name, times] : seen)
        if (times > 1) r.position_keys.erase(name), r.rotation_keys.erase(name);
      lib3ds_file_free(f);
    }
    std::string text = std::to_string(r.read) + " " + std::to_string(r.meshes) + " " + std::to_string(r.vertices) +
                       " " + std::to_string(r.faces) + " " + std::to_string(r.materials) + " " +
                       std::to_string(r.cameras) + " " + std::to_string(r.lights) + " " +
                       std::to_string(r.first_point[0]) + " " + std::to_string(r.first_point[1]) + " " +
                       std::to_string(r.first_point[2]) + " " + std::to_string(r.camera_lens) + "\n";
    for (const auto& [name, keys] : r.position_keys)
      text += std::to_string(keys) + " " + std::to_string(r.rotation_keys[name]) + " " + name + "\n";
    if (write(fds[1], text.data(), text.size()) < 0) _exit(1);
    _exit(0);
  }
  close(fds[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;) text.append(buffer, size_t(n));
  close(fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return c;  // lib3ds crashed
  FILE* in = fmemopen(text.data(), text.size(), "r");
  int read_flag = 0;
  if (std::fscanf(in, "%d %ld %ld %ld %ld %ld %ld %f %f %f %f", &read_flag, &c.meshes, &c.vertices, &c.faces,
                  &c.materials, &c.cameras, &c.lights, &c.first_point[0], &c.first_point[1], &c.first_point[2],
                  &c.camera_lens) == 11)
    c.read = read_flag != 0;
  long pos = 0, rot = 0;
  char name[128];
  while (std::fscanf(in, "%ld %ld %127[^\n]", &pos, &rot, name) == 3) {
    c.position_keys[name] = pos;
    c.rotation_keys[name] = rot;
  }
  std::fclose(in);
  return c;
}
#endif

#ifdef NIMBO_ASSIMP_PROGRAM
// assimp's counts from `assimp info -r` (without post-processing, which
// would merge meshes it finds alike); its meshes split by material and its
// vertices are per face corner, so faces, cameras, lights and materials are
// compared.
Counts AssimpCounts(const std::string& path) {
  Counts c;
  const std::string command = std::string(NIMBO_ASSIMP_PROGRAM) + " info '" + path + "' -r 2>/dev/null";
  FILE* p = popen(command.c_str(), "r");
  if (!p) return c;
  char line[512];
  while (std::fgets(line, sizeof line, p)) {
    long value = 0;
    if (std::sscanf(line, "Faces: %ld", &value) == 1) c.faces = value, c.read = true;
    else if (std::sscanf(line, "Cameras: %ld", &value) == 1) c.cameras = value;
    else if (std::sscanf(line, "Lights: %ld", &value) == 1) c.lights = value;
    else if (std::sscanf(line, "Materials: %ld", &value) == 1) c.materials = value;
  }
  if (pclose(p) != 0) c.read = false;
  return c;
}
#endif

bool IsColor24(float v) { return std::fabs(v * 255 - std::round(v * 255)) < 1e-3f; }

TEST(C3dsCrossCheck, EveryFileOnTheMachineReadsAsTheOtherReadersCountIt) {
  const std::vector<std::string> files = FindSceneFiles();
  if (files.empty()) GTEST_SKIP() << "no .3ds files under /usr/share or in the corpus (Debian's assimp-testmodels has some)";
#if !defined(NIMBO_HAVE_LIB3DS) && !defined(NIMBO_ASSIMP_PROGRAM)
  GTEST_SKIP() << "neither lib3ds (lib3ds-dev) nor assimp (assimp-utils) is installed";
#endif
  int compared = 0;
  for (const std::string& path : files) {
    SCOPED_TRACE(path);
    C3DSScene ours;
    const bool ok = ours.Load(path);
    if (!ok) {
      // A file we refuse must be one the others cannot make sense of either.
#ifdef NIMBO_HAVE_LIB3DS
      const Counts other = Lib3dsCounts(path);
      EXPECT_TRUE(!other.read || other.meshes + other.cameras + other.lights == 0)
          << "we refuse it with " << C3DSScene::GetErrorText(ours.GetError());
#endif
      continue;
    }
    size_t lights = ours.Lights().size(), cameras = ours.Cameras().size();
    // Our rules, whatever the others say.
    for (size_t m = 1; m < ours.Materials().size(); ++m) {
      const Material& mat = ours.Materials()[m];
      for (Vec3 c : {mat.ambient, mat.diffuse, mat.specular})
        EXPECT_TRUE(IsColor24(c.x) && IsColor24(c.y) && IsColor24(c.z)) << mat.name;
    }
    const Vec3 ambient = ours.Ambient();
    EXPECT_TRUE((ambient.x == 0 && ambient.y == 0 && ambient.z == 0) ||
                (ambient.x == 10 && ambient.y == 10 && ambient.z == 10));

#ifdef NIMBO_HAVE_LIB3DS
    const Counts lib = Lib3dsCounts(path);
    if (lib.read) {
      ++compared;
      EXPECT_EQ(long(ours.Meshes().size()), lib.meshes);
      EXPECT_EQ(long(ours.Vertices().size()), lib.vertices);
      EXPECT_EQ(long(ours.Faces().size()), lib.faces);
      EXPECT_EQ(long(ours.Materials().size()), lib.materials + 1);  // + "default"
      EXPECT_EQ(long(cameras), lib.cameras);
      EXPECT_EQ(long(lights), lib.lights);
      if (!ours.Vertices().empty()) {
        // lib3ds keeps the file's axes; we swap y and z.
        const Vec3 p = ours.Vertices()[0].position;
        EXPECT_NEAR(p.x, lib.first_point[0], 1e-3f * (1 + std::fabs(p.x)));
        EXPECT_NEAR(p.z, lib.first_point[1], 1e-3f * (1 + std::fabs(p.z)));
        EXPECT_NEAR(p.y, lib.first_point[2], 1e-3f * (1 + std::fabs(p.y)));
      }
      if (cameras > 0 && lib.camera_lens > 0) {
        EXPECT_NEAR(ours.Cameras()[0].lens, lib.camera_lens, 1e-2f * lib.camera_lens);
      }
      for (const Mesh& mesh : ours.Meshes()) {
        const auto pos = lib.position_keys.find(mesh.name);
        if (pos == lib.position_keys.end() || mesh.node < 0) continue;
        EXPECT_EQ(long(mesh.tracks.position.keys.size()), pos->second) << mesh.name;
        const long rot = lib.rotation_keys.at(mesh.name);
        EXPECT_EQ(long(mesh.tracks.rotation.keys.size()), rot == 2 ? 3 : rot) << mesh.name << ": two keys get a third";
      }
    }
#endif
#ifdef NIMBO_ASSIMP_PROGRAM
    const Counts ai = AssimpCounts(path);
    if (ai.read) {
      ++compared;
      EXPECT_EQ(long(ours.Faces().size()), ai.faces);
      EXPECT_EQ(long(cameras), ai.cameras);
      EXPECT_EQ(long(lights), ai.lights);
      // assimp adds a material of its own where faces have none.
      const long file_materials = long(ours.Materials().size()) - 1;
      EXPECT_TRUE(ai.materials == file_materials || ai.materials == file_materials + 1) << ai.materials;
    }
#endif
  }
  std::printf("compared %d readings of %zu files\n", compared, files.size());
  if (compared == 0) GTEST_SKIP() << "the other readers read none of the " << files.size() << " files";
}

}  // namespace
}  // namespace nimbo::scene3ds
