// UTF-8 decoding, the glyph mesh cache, the line layout and the letters'
// animation.
#include "text_layout.h"

#include <algorithm>
#include <cmath>

namespace nimbo::text3d {

namespace {
constexpr float kPi = 3.14159265358979f;
}

// ---- decoding ----------------------------------------------------------------------
std::vector<uint32_t> DecodeUtf8(std::string_view text, size_t max_count) {
  std::vector<uint32_t> out;
  size_t i = 0;
  while (i < text.size() && out.size() < max_count) {
    const auto lead = uint8_t(text[i]);
    int extra = 0;
    uint32_t cp = 0, minimum = 0;
    if (lead < 0x80) {
      out.push_back(lead);
      ++i;
      continue;
    } else if ((lead & 0xE0) == 0xC0) {
      extra = 1, cp = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      extra = 2, cp = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      extra = 3, cp = lead & 0x07, minimum = 0x10000;
    } else {
      ++i;  // a continuation byte or an invalid lead
      continue;
    }
    bool ok = i + size_t(extra) < text.size();
    for (int k = 1; ok && k <= extra; ++k) {
      const auto b = uint8_t(text[i + size_t(k)]);
      if ((b & 0xC0) != 0x80) ok = false;
      cp = (cp << 6) | (b & 0x3F);
    }
    if (!ok || cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      ++i;
      continue;
    }
    out.push_back(cp);
    i += size_t(extra) + 1;
  }
  return out;
}

// ---- glyph meshes ------------------------------------------------------------------
const GlyphMesh* GlyphSet::Mesh(uint32_t glyph) {
  auto found = meshes_.find(glyph);
  if (found == meshes_.end()) {
    // Chords within about a third of a pixel at this size (a 64-pixel
    // letter's round parts take a few chords per quarter).
    const double tolerance = 0.35 / std::max(1.0f, size_);
    bool fills_right = true;
    const std::vector<Contour> outline = face_->Outline(glyph, tolerance, &fills_right);
    auto mesh = std::make_unique<GlyphMesh>(ExtrudeOutline(outline, fills_right, size_, depth_));
    memory_ += sizeof(GlyphMesh) + mesh->positions.capacity() * 2 * sizeof(float) +
               mesh->triangles.capacity() * sizeof(uint32_t);
    found = meshes_.emplace(glyph, std::move(mesh)).first;
  }
  return found->second->Empty() ? nullptr : found->second.get();
}

GlyphSet* GlyphCache::Select(const std::string& path, float size, float depth, std::string* error) {
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (it->path == path && it->size == size && it->depth == depth) {
      entries_.splice(entries_.begin(), entries_, it);
      return entries_.front().set.get();
    }
  }
  if (!failed_path_.empty() && path == failed_path_) {
    if (error) *error = failed_error_;
    return nullptr;
  }
  // A font already open at another size is shared.
  std::shared_ptr<FontFace> face;
  for (const Entry& e : entries_)
    if (e.path == path) face = e.set->SharedFace();
  if (!face) {
    face = std::make_shared<FontFace>(path);
    if (!face->Ok()) {
      failed_path_ = path, failed_error_ = face->Error();
      if (error) *error = failed_error_;
      return nullptr;
    }
  }
  failed_path_.clear();
  entries_.push_front({path, size, depth, std::make_unique<GlyphSet>(face, size, depth)});
  if (entries_.size() > kKeptSets) entries_.pop_back();
  return entries_.front().set.get();
}

size_t GlyphCache::MemoryBytes() const {
  size_t bytes = 0;
  for (const Entry& e : entries_) bytes += e.set->MemoryBytes();
  return bytes;
}

// ---- layout ------------------------------------------------------------------------
TextBlock LayOut(GlyphSet& glyphs, const std::vector<uint32_t>& codepoints) {
  const FontFace& face = glyphs.Face();
  const float size = glyphs.Size();
  TextBlock block;
  std::vector<float> line_widths{0};
  std::vector<size_t> line_starts{0};
  double pen = 0;
  uint32_t previous = 0;
  const double line_height = face.LineHeight() > 0 ? face.LineHeight() : 1.2;
  for (uint32_t cp : codepoints) {
    if (cp == '\n') {
      line_widths.back() = float(pen * size);
      line_widths.push_back(0);
      line_starts.push_back(block.letters.size());
      pen = 0, previous = 0;
      continue;
    }
    if (cp < 0x20 || cp == 0x7F) continue;  // other control characters draw nothing
    const uint32_t glyph = face.GlyphIndex(cp);
    if (glyph == 0) continue;  // the font lacks it: skipped
    if (previous) pen += face.Kerning(previous, glyph);
    if (const GlyphMesh* mesh = glyphs.Mesh(glyph))
      block.letters.push_back({mesh, float(pen * size), 0.0f, int32_t(line_widths.size() - 1)});
    pen += face.Advance(glyph);
    previous = glyph;
  }
  line_widths.back() = float(pen * size);
  line_starts.push_back(block.letters.size());

  // Centre: each line on x = 0, the block's middle (from the first line's
  // ascender to the last line's descender) on y = 0.
  const size_t lines = line_widths.size();
  const float ascender = float(face.Ascender() * size), descender = float(face.Descender() * size);
  block.height = float((lines - 1) * line_height * size) + ascender - descender;
  const float top = block.height * 0.5f;
  for (size_t l = 0; l < lines; ++l) {
    block.width = std::max(block.width, line_widths[l]);
    const float baseline = top - ascender - float(l * line_height * size);
    for (size_t i = line_starts[l]; i < line_starts[l + 1]; ++i) {
      block.letters[i].x -= line_widths[l] * 0.5f;
      block.letters[i].y = baseline;
    }
  }
  return block;
}

// ---- animation ---------------------------------------------------------------------
namespace {

void RotateY(float angle, float r[9]) {
  const float c = std::cos(angle), s = std::sin(angle);
  const float m[9] = {c, 0, s, 0, 1, 0, -s, 0, c};
  std::copy(m, m + 9, r);
}

void Multiply(const float a[9], const float b[9], float out[9]) {
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) out[i * 3 + j] = a[i * 3] * b[j] + a[i * 3 + 1] * b[3 + j] + a[i * 3 + 2] * b[6 + j];
}

}  // namespace

Placement PlaceLetter(const Letter& letter, size_t index, size_t count, const Animation& a, float size) {
  Placement p;
  const float cx = 0.5f * (letter.mesh->min_x + letter.mesh->max_x);
  const float cy = 0.5f * (letter.mesh->min_y + letter.mesh->max_y);
  const float i = float(index);

  // Spin about the letter's own vertical axis through its middle.
  RotateY(2 * kPi * (a.spin_speed * a.time) + (a.spin_speed != 0 ? 0.4f * i : 0.0f), p.r);
  float lift = a.wave_height * size * std::sin(2 * kPi * (a.wave_speed * a.time) - 0.5f * i);
  float forward = 0;

  // Fly-in: letter i arrives over its own part of the fly-in range, the
  // first letters first; before that it falls from above and in front,
  // tumbling forwards.
  const float fly = std::clamp(std::isfinite(a.fly_in) ? a.fly_in : 1.0f, 0.0f, 1.0f);
  if (fly < 1) {
    constexpr float kStagger = 0.6f;
    const float start = count > 1 ? kStagger * i / float(count - 1) : 0.0f;
    const float progress = std::clamp((fly - start) / (1 - kStagger), 0.0f, 1.0f);
    if (progress <= 0) p.visible = false;
    const float away = (1 - progress) * (1 - progress);
    lift += away * 3 * size;
    forward = away * 6 * size;
    const float tumble = -away * kPi;
    const float c = std::cos(tumble), s = std::sin(tumble);
    const float rx[9] = {1, 0, 0, 0, c, -s, 0, s, c};
    float spun[9];
    Multiply(rx, p.r, spun);
    std::copy(spun, spun + 9, p.r);
  }

  // p' = R (p - centre) + centre + pen + offsets
  const float centre[3] = {cx, cy, 0};
  for (int row = 0; row < 3; ++row)
    p.t[row] = centre[row] - (p.r[row * 3] * cx + p.r[row * 3 + 1] * cy);
  p.t[0] += letter.x;
  p.t[1] += letter.y + lift;
  p.t[2] += forward;
  return p;
}

void PlacementMatrix(const Placement& p, float m[16]) {
  for (int row = 0; row < 3; ++row) {  // row = input component
    for (int col = 0; col < 3; ++col) m[row * 4 + col] = p.r[col * 3 + row];
    m[row * 4 + 3] = 0;
  }
  m[12] = p.t[0], m[13] = p.t[1], m[14] = p.t[2], m[15] = 1;
}

}  // namespace nimbo::text3d
