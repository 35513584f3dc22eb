// FreeType outlines flattened into polygons, and their extrusion into a
// closed solid: GLU-tessellated caps, sides with creased or smooth normals.
#include "glyph_mesh.h"

#include <GL/glu.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include FT_ADVANCES_H

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>

namespace nimbo::text3d {

namespace {

FT_Face Face(void* face) { return static_cast<FT_Face>(face); }

// ---- flattening ----------------------------------------------------------------
struct Flattener {
  std::vector<Contour> contours;
  double last_x = 0, last_y = 0;
  double units_per_em = 1;
  double tolerance = 1;  // font units
  size_t points = 0;

  void Add(double x, double y) {
    Contour& c = contours.back();
    if (!c.empty() && c[c.size() - 2] == x && c.back() == y) return;
    c.push_back(x);
    c.push_back(y);
    ++points;
  }
  // Chords enough that a parabola-like curve of this control polygon stays
  // within the tolerance: the error of n chords falls as 1/n^2.
  int Steps(double polygon_length) const {
    const double n = std::ceil(std::sqrt(polygon_length / (8.0 * tolerance)));
    return int(std::clamp(n, 1.0, double(kMaxCurveSteps)));
  }
};

double Dist(double ax, double ay, double bx, double by) { return std::hypot(bx - ax, by - ay); }

int MoveTo(const FT_Vector* to, void* user) {
  auto* f = static_cast<Flattener*>(user);
  f->contours.emplace_back();
  f->last_x = double(to->x), f->last_y = double(to->y);
  f->Add(f->last_x, f->last_y);
  return 0;
}

int LineTo(const FT_Vector* to, void* user) {
  auto* f = static_cast<Flattener*>(user);
  if (f->contours.empty()) return 1;
  f->last_x = double(to->x), f->last_y = double(to->y);
  f->Add(f->last_x, f->last_y);
  return 0;
}

int ConicTo(const FT_Vector* control, const FT_Vector* to, void* user) {
  auto* f = static_cast<Flattener*>(user);
  if (f->contours.empty()) return 1;
  const double x0 = f->last_x, y0 = f->last_y, x1 = double(control->x), y1 = double(control->y);
  const double x2 = double(to->x), y2 = double(to->y);
  const int n = f->Steps(Dist(x0, y0, x1, y1) + Dist(x1, y1, x2, y2));
  for (int i = 1; i <= n; ++i) {
    const double t = double(i) / n, s = 1 - t;
    f->Add(s * s * x0 + 2 * s * t * x1 + t * t * x2, s * s * y0 + 2 * s * t * y1 + t * t * y2);
  }
  f->last_x = x2, f->last_y = y2;
  return 0;
}

int CubicTo(const FT_Vector* c1, const FT_Vector* c2, const FT_Vector* to, void* user) {
  auto* f = static_cast<Flattener*>(user);
  if (f->contours.empty()) return 1;
  const double x0 = f->last_x, y0 = f->last_y, x1 = double(c1->x), y1 = double(c1->y);
  const double x2 = double(c2->x), y2 = double(c2->y), x3 = double(to->x), y3 = double(to->y);
  const int n = f->Steps(Dist(x0, y0, x1, y1) + Dist(x1, y1, x2, y2) + Dist(x2, y2, x3, y3));
  for (int i = 1; i <= n; ++i) {
    const double t = double(i) / n, s = 1 - t;
    const double a = s * s * s, b = 3 * s * s * t, c = 3 * s * t * t, d = t * t * t;
    f->Add(a * x0 + b * x1 + c * x2 + d * x3, a * y0 + b * y1 + c * y2 + d * y3);
  }
  f->last_x = x3, f->last_y = y3;
  return 0;
}

// ---- tessellation --------------------------------------------------------------
// The tessellator hands vertices back as the opaque pointers it was given;
// ours carry the vertex's index into `xy`.
struct Tess {
  std::vector<double> xy;  // every contour point, then the points the tessellator made
  std::vector<uint32_t> triangles;
  bool failed = false;
};

void* AsData(size_t index) { return reinterpret_cast<void*>(static_cast<uintptr_t>(index)); }
uint32_t AsIndex(void* data) { return uint32_t(reinterpret_cast<uintptr_t>(data)); }

void GLAPIENTRY OnBegin(GLenum, void*) {}
void GLAPIENTRY OnEdgeFlag(GLboolean, void*) {}  // its presence makes GLU emit plain triangles
void GLAPIENTRY OnVertex(void* vertex, void* user) { static_cast<Tess*>(user)->triangles.push_back(AsIndex(vertex)); }
void GLAPIENTRY OnCombine(GLdouble coords[3], void*[4], GLfloat[4], void** out, void* user) {
  auto* t = static_cast<Tess*>(user);
  *out = AsData(t->xy.size() / 2);
  t->xy.push_back(coords[0]);
  t->xy.push_back(coords[1]);
}
void GLAPIENTRY OnError(GLenum, void* user) { static_cast<Tess*>(user)->failed = true; }

using Callback = void(GLAPIENTRY*)();

// Triangulates the region the contours enclose under non-zero winding.
bool TessellateCaps(const std::vector<Contour>& contours, Tess& t) {
  std::vector<GLdouble> coords;  // the tessellator keeps pointers into this until the end
  size_t points = 0;
  for (const Contour& c : contours) points += c.size() / 2;
  coords.reserve(points * 3);
  GLUtesselator* tess = gluNewTess();
  if (!tess) return false;
  gluTessCallback(tess, GLU_TESS_BEGIN_DATA, reinterpret_cast<Callback>(&OnBegin));
  gluTessCallback(tess, GLU_TESS_EDGE_FLAG_DATA, reinterpret_cast<Callback>(&OnEdgeFlag));
  gluTessCallback(tess, GLU_TESS_VERTEX_DATA, reinterpret_cast<Callback>(&OnVertex));
  gluTessCallback(tess, GLU_TESS_COMBINE_DATA, reinterpret_cast<Callback>(&OnCombine));
  gluTessCallback(tess, GLU_TESS_ERROR_DATA, reinterpret_cast<Callback>(&OnError));
  gluTessProperty(tess, GLU_TESS_WINDING_RULE, GLU_TESS_WINDING_NONZERO);
  gluTessNormal(tess, 0, 0, 1);
  gluTessBeginPolygon(tess, &t);
  size_t index = 0;
  for (const Contour& c : contours) {
    gluTessBeginContour(tess);
    for (size_t i = 0; i < c.size(); i += 2, ++index) {
      coords.insert(coords.end(), {c[i], c[i + 1], 0.0});
      gluTessVertex(tess, &coords[index * 3], AsData(index));
    }
    gluTessEndContour(tess);
  }
  gluTessEndPolygon(tess);
  gluDeleteTess(tess);
  if (t.triangles.size() % 3) t.failed = true;
  return !t.failed;
}

// ---- the solid -----------------------------------------------------------------
struct MeshWriter {
  GlyphMesh& mesh;
  float size;
  uint32_t Add(double x, double y, float z, float nx, float ny, float nz) {
    mesh.positions.insert(mesh.positions.end(), {float(x * size), float(y * size), z});
    mesh.normals.insert(mesh.normals.end(), {nx, ny, nz});
    return uint32_t(mesh.positions.size() / 3 - 1);
  }
};

void Normalize2(double& x, double& y) {
  const double length = std::hypot(x, y);
  if (length > 0) x /= length, y /= length;
}

// Adjacent side facets whose normals differ by less than this angle share
// a smooth normal (a flattened curve looks round); sharper corners crease.
const double kSmoothCos = std::cos(35.0 * 3.14159265358979 / 180.0);

void AddSides(const Contour& c, bool fills_right, float half_depth, MeshWriter& w) {
  const size_t n = c.size() / 2;
  // The outward normal of edge i (point i to point i + 1).
  std::vector<double> edge_normal(2 * n);
  for (size_t i = 0; i < n; ++i) {
    const size_t j = (i + 1) % n;
    double dx = c[2 * j] - c[2 * i], dy = c[2 * j + 1] - c[2 * i + 1];
    Normalize2(dx, dy);
    edge_normal[2 * i] = fills_right ? -dy : dy;
    edge_normal[2 * i + 1] = fills_right ? dx : -dx;
  }
  auto normal_at = [&](size_t point, size_t edge, double out[2]) {
    const size_t other = point == edge ? (edge + n - 1) % n : (edge + 1) % n;  // the edge's neighbour at this point
    const double* a = &edge_normal[2 * edge];
    const double* b = &edge_normal[2 * other];
    out[0] = a[0], out[1] = a[1];
    if (a[0] * b[0] + a[1] * b[1] >= kSmoothCos) {
      out[0] += b[0], out[1] += b[1];
      Normalize2(out[0], out[1]);
    }
  };
  for (size_t i = 0; i < n; ++i) {
    const size_t j = (i + 1) % n;
    double ni[2], nj[2];
    normal_at(i, i, ni);
    normal_at(j, i, nj);
    const uint32_t fi = w.Add(c[2 * i], c[2 * i + 1], half_depth, float(ni[0]), float(ni[1]), 0);
    const uint32_t fj = w.Add(c[2 * j], c[2 * j + 1], half_depth, float(nj[0]), float(nj[1]), 0);
    const uint32_t bi = w.Add(c[2 * i], c[2 * i + 1], -half_depth, float(ni[0]), float(ni[1]), 0);
    const uint32_t bj = w.Add(c[2 * j], c[2 * j + 1], -half_depth, float(nj[0]), float(nj[1]), 0);
    // (fi, bi, bj) faces right of the edge's direction.
    std::vector<uint32_t>& t = w.mesh.triangles;
    if (fills_right)
      t.insert(t.end(), {fi, bj, bi, fi, fj, bj});
    else
      t.insert(t.end(), {fi, bi, bj, fi, bj, fj});
  }
}

}  // namespace

// ---- FontFace ------------------------------------------------------------------
struct FontFace::Library {
  FT_Library ft = nullptr;
  ~Library() {
    if (ft) FT_Done_FreeType(ft);
  }
};

FontFace::FontFace(const std::string& path) : path_(path), library_(std::make_shared<Library>()) {
  if (path.empty()) {
    error_ = "no font file is set";
    return;
  }
  if (!std::ifstream(path, std::ios::binary)) {
    error_ = "cannot open the font file \"" + path + "\"";
    return;
  }
  if (FT_Init_FreeType(&library_->ft) != 0) {
    library_->ft = nullptr;
    error_ = "the font library could not start";
    return;
  }
  FT_Face face = nullptr;
  if (FT_New_Face(library_->ft, path.c_str(), 0, &face) != 0 || !face) {
    error_ = "\"" + path + "\" is not a font file FreeType can read";
    return;
  }
  if (!FT_IS_SCALABLE(face) || face->units_per_EM == 0) {
    FT_Done_Face(face);
    error_ = "\"" + path + "\" has no outlines (a bitmap font)";
    return;
  }
  FT_Select_Charmap(face, FT_ENCODING_UNICODE);
  face_ = face;
}

FontFace::~FontFace() {
  if (face_) FT_Done_Face(Face(face_));
}

uint32_t FontFace::GlyphIndex(uint32_t codepoint) const {
  return face_ ? uint32_t(FT_Get_Char_Index(Face(face_), codepoint)) : 0;
}

double FontFace::Advance(uint32_t glyph) const {
  // From the metrics table alone: loading the glyph for it read and parsed
  // its outline once more for every character of the text.
  FT_Fixed advance = 0;
  if (!face_ || FT_Get_Advance(Face(face_), glyph, FT_LOAD_NO_SCALE, &advance) != 0) return 0;
  return double(advance) / Face(face_)->units_per_EM;
}

double FontFace::Kerning(uint32_t left, uint32_t right) const {
  FT_Vector delta{0, 0};
  if (!face_ || !FT_HAS_KERNING(Face(face_)) ||
      FT_Get_Kerning(Face(face_), left, right, FT_KERNING_UNSCALED, &delta) != 0)
    return 0;
  return double(delta.x) / Face(face_)->units_per_EM;
}

double FontFace::Ascender() const { return face_ ? double(Face(face_)->ascender) / Face(face_)->units_per_EM : 0; }
double FontFace::Descender() const { return face_ ? double(Face(face_)->descender) / Face(face_)->units_per_EM : 0; }
double FontFace::LineHeight() const { return face_ ? double(Face(face_)->height) / Face(face_)->units_per_EM : 0; }

std::vector<Contour> FontFace::Outline(uint32_t glyph, double tolerance_em, bool* fills_right) const {
  if (fills_right) *fills_right = true;
  if (!face_) return {};
  FT_Face face = Face(face_);
  if (FT_Load_Glyph(face, glyph, FT_LOAD_NO_SCALE) != 0 || face->glyph->format != FT_GLYPH_FORMAT_OUTLINE) return {};
  if (fills_right) *fills_right = FT_Outline_Get_Orientation(&face->glyph->outline) == FT_ORIENTATION_TRUETYPE;
  Flattener f;
  f.units_per_em = face->units_per_EM;
  f.tolerance = std::max(1e-6, tolerance_em) * f.units_per_em;
  FT_Outline_Funcs funcs{};
  funcs.move_to = &MoveTo;
  funcs.line_to = &LineTo;
  funcs.conic_to = &ConicTo;
  funcs.cubic_to = &CubicTo;
  if (FT_Outline_Decompose(&face->glyph->outline, &funcs, &f) != 0) return {};
  std::vector<Contour> out;
  size_t points = 0;
  for (Contour& c : f.contours) {
    // The closing point repeats the first.
    if (c.size() >= 4 && c[0] == c[c.size() - 2] && c[1] == c.back()) c.resize(c.size() - 2);
    if (c.size() < 6) continue;
    for (double& v : c) v /= f.units_per_em;
    points += c.size() / 2;
    out.push_back(std::move(c));
  }
  if (points > kMaxOutlinePoints) return {};
  return out;
}

bool FontFace::FillsRight(uint32_t glyph) const {
  if (!face_ || FT_Load_Glyph(Face(face_), glyph, FT_LOAD_NO_SCALE) != 0) return true;
  return FT_Outline_Get_Orientation(&Face(face_)->glyph->outline) == FT_ORIENTATION_TRUETYPE;
}

// ---- extrusion -----------------------------------------------------------------
GlyphMesh ExtrudeOutline(const std::vector<Contour>& contours, bool fills_right, float size, float depth) {
  GlyphMesh mesh;
  if (contours.empty()) return mesh;
  Tess t;
  size_t coordinates = 0;
  for (const Contour& c : contours) coordinates += c.size();
  t.xy.reserve(coordinates);
  // Non-zero winding over n points makes about n triangles.
  t.triangles.reserve(3 * coordinates / 2);
  for (const Contour& c : contours) t.xy.insert(t.xy.end(), c.begin(), c.end());
  if (!TessellateCaps(contours, t) || t.triangles.empty()) return mesh;

  // The tessellator keeps one winding for all its triangles; make it
  // counter-clockwise seen from +z (the front) whichever it chose.
  double area = 0;
  for (size_t i = 0; i < t.triangles.size(); i += 3) {
    const double* a = &t.xy[2 * t.triangles[i]];
    const double* b = &t.xy[2 * t.triangles[i + 1]];
    const double* c = &t.xy[2 * t.triangles[i + 2]];
    area += (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
  }
  if (area < 0)
    for (size_t i = 0; i < t.triangles.size(); i += 3) std::swap(t.triangles[i + 1], t.triangles[i + 2]);

  const float half = std::max(0.0f, depth) * 0.5f;
  MeshWriter w{mesh, size};
  const size_t cap_points = t.xy.size() / 2;
  // Two caps, then four vertices and two triangles per outline edge.
  size_t outline_points = 0;
  for (const Contour& c : contours) outline_points += c.size() / 2;
  const size_t vertices = 2 * cap_points + 4 * outline_points;
  mesh.positions.reserve(3 * vertices);
  mesh.normals.reserve(3 * vertices);
  mesh.triangles.reserve(2 * t.triangles.size() + 6 * outline_points);
  for (size_t i = 0; i < cap_points; ++i) w.Add(t.xy[2 * i], t.xy[2 * i + 1], half, 0, 0, 1);
  for (size_t i = 0; i < cap_points; ++i) w.Add(t.xy[2 * i], t.xy[2 * i + 1], -half, 0, 0, -1);
  const uint32_t back = uint32_t(cap_points);
  for (size_t i = 0; i < t.triangles.size(); i += 3) {
    const uint32_t a = t.triangles[i], b = t.triangles[i + 1], c = t.triangles[i + 2];
    mesh.triangles.insert(mesh.triangles.end(), {a, b, c});
    mesh.triangles.insert(mesh.triangles.end(), {back + a, back + c, back + b});
  }
  for (const Contour& c : contours) AddSides(c, fills_right, half, w);

  mesh.min_x = mesh.min_y = INFINITY;
  mesh.max_x = mesh.max_y = -INFINITY;
  for (size_t i = 0; i < mesh.positions.size(); i += 3) {
    mesh.min_x = std::min(mesh.min_x, mesh.positions[i]), mesh.max_x = std::max(mesh.max_x, mesh.positions[i]);
    mesh.min_y = std::min(mesh.min_y, mesh.positions[i + 1]), mesh.max_y = std::max(mesh.max_y, mesh.positions[i + 1]);
  }
  return mesh;
}

}  // namespace nimbo::text3d
