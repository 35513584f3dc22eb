#include "render3d/export_3ds.h"

#include <cmath>

#include "render3d/c3ds_writer.h"
#include "render3d/material.h"

namespace nimbo {

std::string ExportScene3DS(const char* path, bool rendering, const char* material_name, const Material& material,
                           std::span<const ExportMesh> meshes, const SceneCamera& camera, float fov_degrees) {
  if (!rendering) return kMessageRenderingDisabled;
  C3DSWriter writer;
  writer.AddMaterial(material_name, material);
  for (const ExportMesh& mesh : meshes) {
    const int32_t vertex_count = int32_t(mesh.positions.size() / 3);
    const int32_t face_count = int32_t(mesh.triangles.size() / 3);
    if (vertex_count == 0 || face_count == 0) continue;  // a letter without outline, an empty surface
    const float* uvs = mesh.uvs.size() >= mesh.positions.size() / 3 * 2 ? mesh.uvs.data() : nullptr;
    writer.AddMesh(mesh.positions.data(), vertex_count, uvs, mesh.triangles.data(), face_count, mesh.name.c_str(),
                   mesh.matrix, material_name);
  }
  // The camera as the effect drew with it: its zoom narrows the field of view.
  float fov = fov_degrees;
  if (camera.zoom > 0 && camera.zoom != 1) {
    const double half = double(fov_degrees) * 0.5 * 3.14159265358979 / 180.0;
    fov = float(2.0 * std::atan(std::tan(half) / double(camera.zoom)) * 180.0 / 3.14159265358979);
  }
  writer.AddCamera(camera.position, camera.target, camera.roll, fov);
  if (!path || !*path || !writer.Save(path)) return kMessageCannotCreate;
  return "";
}

}  // namespace nimbo
