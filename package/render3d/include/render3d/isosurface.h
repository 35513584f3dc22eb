// The isosurface of a scalar field sampled on a grid: the one extractor
// behind Blob 3D, ImplicitBeast and WAXViewer.
//
// Method: marching cubes with a case table built at start-up by tracing, in
// each of the 256 corner configurations, the closed loops the surface cuts
// across the cube's six faces, and cutting each loop into a fan of
// triangles. A sample is inside when its value is greater than the level.
//
// Ambiguity rule: on a face whose inside corners are diagonal (the only
// ambiguous face kind), the inside corners are kept apart: each is cut off
// by its own segment. The rule reads only that face's four corners, so the
// two cells that share a face always cut it the same way, which is what
// makes the surface crack-free. A cube of diagonal inside corners therefore
// gets separate sheets rather than a tunnel.
//
// Output: one vertex per grid edge the surface crosses, shared by every
// triangle that uses it (welded), placed by linear interpolation of the two
// samples; its normal is the field's gradient (central differences at the
// samples, interpolated the same way), pointing from inside to outside.
// Triangles are counter-clockwise seen from outside. With `close_border`
// the grid is taken to be surrounded by outside samples, so a surface that
// reaches the border is closed there: every edge of the result is then
// shared by exactly two triangles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace nimbo {

struct IsoGrid {
  const float* values = nullptr;  // nx * ny * nz samples, x fastest, then y, then z
  int32_t nx = 0, ny = 0, nz = 0;
  float origin[3] = {0, 0, 0};    // position of sample (0, 0, 0)
  float spacing[3] = {1, 1, 1};   // distance between neighbouring samples
};

struct IsoMesh {
  std::vector<float> positions;     // x, y, z per vertex
  std::vector<float> normals;       // unit normal per vertex (outward)
  std::vector<uint32_t> triangles;  // three vertex indices per triangle

  size_t VertexCount() const { return positions.size() / 3; }
  size_t TriangleCount() const { return triangles.size() / 3; }
};

// Replaces `out` with the surface of `grid` at `level`. A grid with a side
// below 2 (or 1 with `close_border`) or without values gives an empty mesh.
// Non-finite samples count as outside.
void ExtractIsosurface(const IsoGrid& grid, float level, bool close_border, IsoMesh* out);

// The case table, for tests: the triangles (as cube-edge indices 0..11,
// three per triangle) of corner configuration `cube_case` (bit c set when
// corner c is inside; corner c sits at (c & 1, c >> 1 & 1, c >> 2 & 1)).
// Edges 0-3 run along x, 4-7 along y, 8-11 along z.
const std::vector<uint8_t>& IsoCaseTriangles(int32_t cube_case);

}  // namespace nimbo
