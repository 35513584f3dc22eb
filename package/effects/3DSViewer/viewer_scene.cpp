#include "viewer_scene.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <map>

namespace nimbo::viewer3ds {

using scene3ds::C3DSScene;
using scene3ds::Mat4;
using scene3ds::Vec3;

namespace {

Mat4 Multiply(const Mat4& a, const Mat4& b) {
  Mat4 r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) {
      float s = 0;
      for (int k = 0; k < 4; ++k) s += a.m[i][k] * b.m[k][j];
      r.m[i][j] = s;
    }
  return r;
}

float Determinant3(const Mat4& a) {
  const auto& m = a.m;
  return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
         m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

void Transform(const Mat4& m, const Vec3& v, float out[3]) {
  for (int r = 0; r < 3; ++r) out[r] = m.m[r][0] * v.x + m.m[r][1] * v.y + m.m[r][2] * v.z + m.m[r][3];
}

bool Finite3(const float p[3]) { return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]); }

void Normalize(float v[3]) {
  const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (length > 0) v[0] /= length, v[1] /= length, v[2] /= length;
}

// The front projection of a mesh without texture coordinates: x and y of
// its own vertices over their bounds.
struct Planar {
  float x0 = 0, y0 = 0, sx = 1, sy = 1;
};
Planar PlanarFor(const C3DSScene& scene, const scene3ds::Mesh& mesh) {
  Bounds b;
  for (size_t i = 0; i < mesh.vertex_count; ++i) {
    const Vec3& p = scene.Vertices()[mesh.first_vertex + i].position;
    const float q[3] = {p.x, p.y, p.z};
    b.Add(q);
  }
  Planar planar;
  if (b.empty) return planar;
  planar.x0 = b.min[0], planar.y0 = b.min[1];
  planar.sx = b.max[0] > b.min[0] ? 1.0f / (b.max[0] - b.min[0]) : 1.0f;
  planar.sy = b.max[1] > b.min[1] ? 1.0f / (b.max[1] - b.min[1]) : 1.0f;
  return planar;
}

}  // namespace

float PlaybackFrame(int32_t start, int32_t end, double seconds, bool loop) {
  if (end < start) end = start;
  double f = std::isfinite(seconds) ? seconds * kFramesPerSecond : 0.0;
  const double count = double(int64_t(end) - start + 1);
  if (loop) {
    f = std::fmod(f, count);
    if (f < 0) f += count;
    if (f >= count) f = 0;  // fmod's rounding at the very end of a round
  } else {
    f = std::clamp(f, 0.0, double(int64_t(end) - start));
  }
  return float(double(start) + f);
}

void Bounds::Add(const float p[3]) {
  if (!Finite3(p)) return;
  for (int d = 0; d < 3; ++d) {
    min[d] = empty ? p[d] : std::min(min[d], p[d]);
    max[d] = empty ? p[d] : std::max(max[d], p[d]);
  }
  empty = false;
}

void Bounds::Centre(float out[3]) const {
  for (int d = 0; d < 3; ++d) out[d] = empty ? 0.0f : 0.5f * (min[d] + max[d]);
}

float Bounds::Radius() const {
  if (empty) return 0;
  const float dx = max[0] - min[0], dy = max[1] - min[1], dz = max[2] - min[2];
  return 0.5f * std::sqrt(dx * dx + dy * dy + dz * dz);
}

Vec3 PosedPosition(const scene3ds::Pose& pose, bool animated, Vec3 fallback) {
  if (!animated) return ToEngine(fallback);
  return ToEngine({pose.world.m[0][3], pose.world.m[1][3], pose.world.m[2][3]});
}

void NormalsTowards(const float eye[3], nb3D::Vertex* vertices, size_t count) {
  for (size_t i = 0; i + 2 < count; i += 3) {
    nb3D::Vertex* t = vertices + i;
    const float facing = t->nx * (eye[0] - t->x) + t->ny * (eye[1] - t->y) + t->nz * (eye[2] - t->z);
    if (facing >= 0) continue;
    for (int k = 0; k < 3; ++k) t[k].nx = -t[k].nx, t[k].ny = -t[k].ny, t[k].nz = -t[k].nz;
  }
}

bool HasNode(const C3DSScene& scene, scene3ds::NodeType type, int32_t index) {
  for (const scene3ds::Node& node : scene.Nodes())
    if (node.type == type && node.object == index) return true;
  return false;
}

int32_t ViewerScene::Load(const std::string& path) {
  Clear();
  // Only plain files: a folder opens for reading on this platform and has
  // no size to trust.
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return scene3ds::kFileNotFound;
  if (!scene_.Load(path)) {
    // An empty file leaves the reader's code as it was: report it as a file
    // that could not be read as a scene.
    const int32_t code = scene_.GetError();
    scene_.Free();
    return code != scene3ds::kNoError ? code : scene3ds::kFileNotFound;
  }
  path_ = path;
  loaded_ = true;
  Pose(float(scene_.StartFrame()));
  std::vector<DrawBatch> batches;
  BuildBatches(&batches);
  for (const DrawBatch& b : batches)
    for (const nb3D::Vertex& v : b.vertices) {
      const float p[3] = {v.x, v.y, v.z};
      start_bounds_.Add(p);
    }
  return 0;
}

void ViewerScene::Clear() {
  scene_.Free();
  path_.clear();
  loaded_ = false;
  start_bounds_ = Bounds{};
}

void ViewerScene::Pose(float frame) {
  if (loaded_) scene_.SetFrame(frame);
}

void ViewerScene::BuildBatches(std::vector<DrawBatch>* batches) const {
  // Batches are reused frame after frame: same materials, same sizes.
  std::map<int32_t, size_t> slot;
  for (size_t i = 0; i < batches->size(); ++i) {
    (*batches)[i].vertices.clear();
    (*batches)[i].indices.clear();
    slot[(*batches)[i].material] = i;
  }
  if (!loaded_) {
    batches->clear();
    return;
  }
  const auto& meshes = scene_.Meshes();
  const auto& vertices = scene_.Vertices();
  const auto& faces = scene_.Faces();
  int32_t last_material = -1;
  size_t last_batch = 0;
  for (const scene3ds::Mesh& mesh : meshes) {
    if (mesh.pose.hidden || mesh.face_count == 0) continue;
    // A morph key shows the named mesh's points on this mesh's faces, when
    // it has as many.
    const scene3ds::Mesh* shape = &mesh;
    if (mesh.pose.morph >= 0 && size_t(mesh.pose.morph) < meshes.size() &&
        meshes[size_t(mesh.pose.morph)].vertex_count == mesh.vertex_count)
      shape = &meshes[size_t(mesh.pose.morph)];
    const Mat4 drawn = Multiply(mesh.pose.world, shape->inverse);
    const bool mirrored = Determinant3(drawn) < 0;
    const bool has_uv = mesh.texcoords.size() == mesh.face_count * 6;
    const Planar planar = has_uv ? Planar{} : PlanarFor(scene_, *shape);
    for (size_t f = 0; f < mesh.face_count; ++f) {
      const scene3ds::Face& face = faces[mesh.first_face + f];
      // Runs of faces share a material: look it up only when it changes.
      if (face.material != last_material) {
        auto [it, added] = slot.try_emplace(face.material, batches->size());
        if (added) {
          batches->push_back(DrawBatch{});
          batches->back().material = face.material;
        }
        last_material = face.material;
        last_batch = it->second;
      }
      DrawBatch& batch = (*batches)[last_batch];
      // The file's order, reversed where the drawn matrix mirrors.
      const int order[3] = {0, mirrored ? 2 : 1, mirrored ? 1 : 2};
      nb3D::Vertex corner[3]{};
      bool finite = true;
      for (int k = 0; k < 3; ++k) {
        const int c = order[k];
        const Vec3& local = vertices[shape->first_vertex + face.v[c]].position;
        float p[3];
        Transform(drawn, local, p);
        p[2] = -p[2];  // ToEngine
        finite = finite && Finite3(p);
        nb3D::Vertex& v = corner[k];
        v.x = p[0], v.y = p[1], v.z = p[2];
        if (has_uv) {
          v.u = mesh.texcoords[f * 6 + size_t(c) * 2];
          v.v = mesh.texcoords[f * 6 + size_t(c) * 2 + 1];
        } else {
          v.u = (local.x - planar.x0) * planar.sx;
          v.v = 1.0f - (local.y - planar.y0) * planar.sy;
        }
        if (!std::isfinite(v.u) || !std::isfinite(v.v)) v.u = v.v = 0;
        v.u2 = v.u, v.v2 = v.v;
      }
      if (!finite) continue;
      const float e1[3] = {corner[1].x - corner[0].x, corner[1].y - corner[0].y, corner[1].z - corner[0].z};
      const float e2[3] = {corner[2].x - corner[0].x, corner[2].y - corner[0].y, corner[2].z - corner[0].z};
      float n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
      Normalize(n);
      for (nb3D::Vertex& v : corner) {
        v.nx = n[0], v.ny = n[1], v.nz = n[2];
        batch.indices.push_back(uint32_t(batch.vertices.size()));
        batch.vertices.push_back(v);
      }
    }
  }
}

bool ViewerScene::SceneCameraAt(float aspect, ViewCamera* view) const {
  if (!loaded_ || scene_.Cameras().empty()) return false;
  const scene3ds::Camera& cam = scene_.Cameras()[0];
  const Vec3 position = PosedPosition(cam.pose, HasNode(scene_, scene3ds::NodeType::kCamera, 0), cam.position);
  const Vec3 target = PosedPosition(cam.target_pose, HasNode(scene_, scene3ds::NodeType::kCameraTarget, 0), cam.target);
  view->camera = SceneCamera{};
  view->camera.position[0] = position.x, view->camera.position[1] = position.y, view->camera.position[2] = position.z;
  view->camera.target[0] = target.x, view->camera.target[1] = target.y, view->camera.target[2] = target.z;
  view->camera.roll = cam.tracks.roll.keys.empty() ? cam.bank : cam.pose.roll * float(M_PI / 180.0);
  // The file's field of view is horizontal; the lens relation is the one
  // 3D Studio's camera uses (fov = 2400 / lens in degrees).
  float fov_x = !cam.tracks.fov.keys.empty() ? cam.pose.fov : (cam.lens > 0 ? 2400.0f / cam.lens : 45.0f);
  if (!std::isfinite(fov_x)) fov_x = 45.0f;
  fov_x = std::clamp(fov_x, 1.0f, 170.0f);
  const float a = aspect > 0 && std::isfinite(aspect) ? aspect : 1.0f;
  const float fov_y = 2.0f * std::atan(std::tan(fov_x * 0.5f * float(M_PI / 180.0)) / a) * float(180.0 / M_PI);
  view->fov_y_degrees = std::clamp(fov_y, 1.0f, 170.0f);
  return true;
}

ViewCamera ViewerScene::FramingCamera() const {
  ViewCamera view;
  float centre[3];
  start_bounds_.Centre(centre);
  const float radius = std::max(start_bounds_.Radius(), 1e-3f);
  // Far enough that the bounding sphere fits the default field of view.
  const float distance = radius / std::sin(0.5f * kSceneFovDegrees * float(M_PI / 180.0)) * 1.1f;
  const float dir[3] = {0.0f, 0.3f, 1.0f};
  const float length = std::sqrt(dir[1] * dir[1] + dir[2] * dir[2]);
  for (int d = 0; d < 3; ++d) {
    view.camera.target[d] = centre[d];
    view.camera.position[d] = centre[d] + dir[d] / length * distance;
  }
  return view;
}

}  // namespace nimbo::viewer3ds
