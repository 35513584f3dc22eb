// From evaluated grid values to a drawable mesh: faces, normals and the
// texture coordinates of each coordinate set's mode.
//
// Faces: cell (i, j)-(i+1, j+1) is cut along its diagonal from vertex (i, j)
// to (i+1, j+1) into the triangles (i,j)(i,j+1)(i+1,j+1) and
// (i,j)(i+1,j+1)(i+1,j). Their front side is the one the vector
// dP/dj x dP/di points to (for the default flat grid: up, toward the default
// camera). "front" draws that winding, "back" the reversed one, both draws
// both. A cell is drawn only when the visibility patterns allow it (the
// symbol of ipattern at i equals the symbol of jpattern at j, both wrapped
// modulo their length) or the patterns are switched off.
//
// Normals: a cell's face normal is the sum of its two triangles' cross
// products (area weighted); a vertex normal is the normalised sum over the
// cells around it. With loopi or loopj on, the closing row or column shares
// its sums with the first, so the seam is smooth.
//
// Environment mapping (modes 1-3) is sphere mapping in the camera's view:
// the view ray from the camera to the vertex is reflected about the normal
// and the reflection picks the texel, so the texture shows as a mirror-like
// surrounding that slides over the surface as it turns.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "grid_eval.h"
#include "nb3d/nb3d.h"

namespace nimbo::e3d {

bool CellVisible(std::string_view ipattern, std::string_view jpattern, int32_t i, int32_t j);

// The triangles (three vertex indices each) of the visible cells.
void BuildTriangles(const FormulaSet& set, bool patterns_on, std::vector<uint32_t>& indices);

struct GridNormals {
  std::vector<float> face;    // 3 per cell, cell index j*(imax-1)+i, not normalised
  std::vector<float> vertex;  // 3 per vertex, unit length ((0, 1, 0) where degenerate)
};
void ComputeNormals(const GridValues& grid, bool loopi, bool loopj, GridNormals& out);

// Fills `vertices` (index j*imax+i): positions, vertex normals, and both
// coordinate sets by their modes, environment mapping seen from `camera`.
void AssembleVertices(const FormulaSet& set, const GridValues& grid, const GridNormals& normals,
                      const CameraValues& camera, std::vector<nb3D::Vertex>& vertices);

}  // namespace nimbo::e3d
