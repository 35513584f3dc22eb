// The vertices ImplicitBeast draws from a surface: the texture and normal
// programs run over the surface's points (a block of points at a time, at
// the points' own X, Y, Z), then the points move into the world.
//
// Normals: the normal program's NX, NY, NZ, normalised; where it gives no
// usable direction (zero or not finite) the field's gradient stays.
// Texture coordinates: the texture program's U and V (non-finite ones read
// 0), or without a texture program an environment map: the normal's x and
// y laid over the picture, so it wraps the surface like a reflection fixed
// to it. World: the box centred on the origin, its longest side
// `world_side` long.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "formula/block_evaluator.h"
#include "implicit_field.h"
#include "implicit_programs.h"
#include "nb3d/nb3d.h"
#include "render3d/isosurface.h"

namespace nimbo::implicit {

class PointPrograms {
 public:
  // Surface points per run of the texture and normal programs.
  static constexpr size_t kBlock = 4096;

  // Prepares the texture and normal programs of a compile that succeeded;
  // a program without lines is left out.
  explicit PointPrograms(const CompiledPrograms& compiled);

  // Replaces the normals of `surface` where the normal program gives one and
  // fills `uvs` (u, v per point) from the texture program. Uses the program
  // dialect's table: call under the effect's lock.
  void Apply(float t, IsoMesh& surface, std::vector<float>& uvs);
  bool HasTexture() const { return texture_ != nullptr; }

 private:
  std::unique_ptr<formula::ProgramBlockEvaluator> texture_, normal_;
  std::vector<float> x_, y_, z_, result_;
};

// `uvs` null: the environment map.
void AssembleVertices(const IsoMesh& surface, const std::vector<float>* uvs, const Box& box, float world_side,
                      std::vector<nb3D::Vertex>& vertices);

}  // namespace nimbo::implicit
