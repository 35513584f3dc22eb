// Glyph meshes: one letter of a font as a closed solid. The outline comes
// from FreeType in font units (no hinting, so every size has the same
// shape), its curves are flattened here into polygons, the front and back
// caps are triangulated by the GLU tessellator (non-zero winding, as
// TrueType fills), and the sides join the caps edge to edge, so a letter is
// watertight: every edge belongs to exactly two triangles.
//
// Axes: x to the right, y up, z towards the viewer; the front cap lies at
// z = +depth/2 facing +z, the back cap at -depth/2. Positions are in the
// units of `size` (one em = size), with the glyph's origin (the pen position
// on the baseline) at x = y = 0.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace nimbo::text3d {

// A letter's solid. Vertices repeat where a crease needs two normals (cap
// rim, side corners); the positions of such copies are equal to the bit.
struct GlyphMesh {
  std::vector<float> positions;     // x, y, z per vertex
  std::vector<float> normals;       // unit, pointing out of the solid
  std::vector<uint32_t> triangles;  // three indices per face, counter-clockwise seen from outside
  float min_x = 0, min_y = 0, max_x = 0, max_y = 0;  // the outline's box
  size_t VertexCount() const { return positions.size() / 3; }
  bool Empty() const { return triangles.empty(); }
};

// A closed polygon of the flattened outline, x, y pairs in font units.
using Contour = std::vector<double>;

// One opened font file. Not thread-safe (neither is a FreeType face).
class FontFace {
 public:
  // Opens `path` (face 0). On failure Ok() is false and Error() says why in
  // a sentence a user can act on.
  explicit FontFace(const std::string& path);
  ~FontFace();
  FontFace(const FontFace&) = delete;
  FontFace& operator=(const FontFace&) = delete;

  bool Ok() const { return face_ != nullptr; }
  const std::string& Error() const { return error_; }
  const std::string& Path() const { return path_; }

  // 0 when the font has no glyph for the character.
  uint32_t GlyphIndex(uint32_t codepoint) const;
  // In ems (font units over units per em).
  double Advance(uint32_t glyph) const;
  double Kerning(uint32_t left, uint32_t right) const;
  double Ascender() const;
  double Descender() const;  // negative below the baseline
  double LineHeight() const;

  // The glyph's outline flattened: curves become chords no farther than
  // about `tolerance_em` from the curve (each curve at most kMaxCurveSteps
  // chords). Consecutive repeated points are dropped; contours with fewer
  // than three points are left out. Coordinates in ems. `fills_right`, when
  // given, receives FillsRight(glyph) from the same load of the glyph.
  std::vector<Contour> Outline(uint32_t glyph, double tolerance_em, bool* fills_right = nullptr) const;
  // True when the font draws filled areas on the right of a contour's
  // direction (TrueType's clockwise outer contours).
  bool FillsRight(uint32_t glyph) const;

 private:
  struct Library;
  std::string path_;
  std::string error_;
  std::shared_ptr<Library> library_;
  void* face_ = nullptr;  // FT_Face
};

inline constexpr int kMaxCurveSteps = 16;
// A glyph whose flattened outline has more points than this is not built
// (bounds the work and keeps each mesh within a .3ds mesh's 16-bit counts).
inline constexpr size_t kMaxOutlinePoints = 8000;

// Builds the solid of `contours` (ems) scaled by `size`, `depth` deep (in
// the same units as size). `fills_right`: see FontFace::FillsRight. Returns
// an empty mesh for an empty outline (a blank) or when the tessellator
// fails.
GlyphMesh ExtrudeOutline(const std::vector<Contour>& contours, bool fills_right, float size, float depth);

}  // namespace nimbo::text3d
