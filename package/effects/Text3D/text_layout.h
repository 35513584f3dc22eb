// From a UTF-8 text to placed letters: decoding, the glyph meshes cached per
// font, size and depth, the line layout with kerning, and each letter's
// animated placement (wave, spin, fly-in).
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "glyph_mesh.h"

namespace nimbo::text3d {

// The most letters one frame lays out and draws; the rest of a longer text
// is left out (bounds the work of a frame whatever the text).
inline constexpr size_t kMaxLetters = 2000;

// The code points of `text`, at most `max_count`. A malformed sequence
// (a stray continuation byte, a truncated or overlong sequence, a surrogate,
// a value past U+10FFFF) is skipped byte by byte.
std::vector<uint32_t> DecodeUtf8(std::string_view text, size_t max_count);

// The glyph meshes of one font at one size and depth, built on first use.
class GlyphSet {
 public:
  GlyphSet(std::shared_ptr<FontFace> face, float size, float depth) : face_(std::move(face)), size_(size), depth_(depth) {}
  // Null when the glyph has no outline (a blank) or cannot be built.
  const GlyphMesh* Mesh(uint32_t glyph);
  const FontFace& Face() const { return *face_; }
  std::shared_ptr<FontFace> SharedFace() const { return face_; }
  float Size() const { return size_; }
  float Depth() const { return depth_; }
  size_t BuiltCount() const { return meshes_.size(); }
  size_t MemoryBytes() const { return memory_; }

 private:
  std::shared_ptr<FontFace> face_;
  float size_, depth_;
  std::map<uint32_t, std::unique_ptr<GlyphMesh>> meshes_;
  size_t memory_ = 0;
};

// The few glyph sets last used, so switching font or size back and forth
// does not tessellate again.
class GlyphCache {
 public:
  // The set for this font, size and depth; null with `error` set when the
  // font cannot be opened (tried again only once the path changes).
  GlyphSet* Select(const std::string& path, float size, float depth, std::string* error);
  size_t MemoryBytes() const;

 private:
  static constexpr size_t kKeptSets = 4;
  struct Entry {
    std::string path;
    float size, depth;
    std::unique_ptr<GlyphSet> set;
  };
  std::list<Entry> entries_;  // most recently used first
  std::string failed_path_, failed_error_;
};

// One drawn letter: its mesh and where its pen origin sits in the block.
struct Letter {
  const GlyphMesh* mesh;
  float x, y;
  int32_t line;
};

// The laid-out text, centred on the origin: lines stacked downwards by the
// font's line height, each centred horizontally; kerning between
// neighbours; a character the font has no glyph for is skipped (no advance).
// `letters` holds only letters with a mesh, in text order.
struct TextBlock {
  std::vector<Letter> letters;
  float width = 0, height = 0;  // of the whole block
};
TextBlock LayOut(GlyphSet& glyphs, const std::vector<uint32_t>& codepoints);

// ---- animation ---------------------------------------------------------------------
struct Animation {
  float time = 0;         // seconds
  float wave_height = 0;  // in ems
  float wave_speed = 1;   // waves per second
  float spin_speed = 0;   // turns per second
  float fly_in = 1;       // 0 = every letter away, 1 = every letter in place
};

// A rigid placement: p' = R p + t (R row-major).
struct Placement {
  float r[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  float t[3] = {0, 0, 0};
  bool visible = true;
};

// Where letter `index` of `count` stands at this moment. The wave lifts the
// letters one after another; the spin turns each about its own vertical
// axis, neighbours a little apart; during the fly-in the letters come one
// after another from above and in front of the text, tumbling.
Placement PlaceLetter(const Letter& letter, size_t index, size_t count, const Animation& a, float size);

// The placement as the row-vector 4x4 matrix the .3ds writer takes.
void PlacementMatrix(const Placement& p, float m[16]);

}  // namespace nimbo::text3d
