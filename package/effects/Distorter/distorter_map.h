// Distorter's cold half: the morphs (line-pair sets), the field-morphing map
// build, the ease curve and the sequence-mixing state machine.
//
// A coordinate map has one 32-bit entry per output pixel: the source position
// in the input as two unsigned 16-bit numbers with 4 fractional bits, x in the
// high half and y in the low half. 16 bits with 4 fractional bits reach 4095.9,
// so inputs are limited to kMaxInputSide pixels a side.
//
// Edge rule: a position is held at 0 below, and one at or past the last
// column (row) becomes Wi - 1 - 0.125 (Hi - 1 - 0.125), so the right (lower)
// neighbour of a bilinear sample is always inside the input and the sampler
// reads the input as it is. An input 1 pixel wide (high) keeps 0 on that axis.
// Consequence: a morph without lines reproduces the input exactly except in
// the last column and the last row, which sample at Wi - 1.125 (Hi - 1.125):
// nearest shows the pixel before the last, bilinear 1/8 of the pixel before
// plus 7/8 of the last, in the sampler's fixed point (distorter_sample.h).
//
// The build is the expensive step (every pixel against every line pair; the
// arithmetic is in distorter_field.h), so MorphMapCache keeps the two maps
// of the pair being mixed and rebuilds one only when the morph set, the
// morph it was built from or a size changes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace nimbo::distorter {

inline constexpr int32_t kMaxLinePairs = 1000;  // per morph; further additions are ignored
inline constexpr int32_t kMaxMorphs = 1000;     // a set holds no more; a store claiming more is read up to this
inline constexpr int32_t kMaxInputSide = 4096;  // 16-bit positions with 4 fractional bits
inline constexpr int32_t kMaxGridSide = 16384;  // bounds the two maps' memory

struct Point {
  float x = 0;
  float y = 0;
};

struct Line {
  Point p1;
  Point p2;
};

// l1 is the destination line, l2 the source line, both in map-grid pixels.
// `a` offsets the distance in the weight; c1 and c2 are kept with every pair
// (1.0 and 0.5) but the weight does not use them.
struct LinePair {
  Line l1;
  Line l2;
  float a = 0.1f;
  float c1 = 1.0f;
  float c2 = 0.5f;
};

struct Morph {
  std::string name = "Default";
  float ease_from = 0.25f;
  float ease_to = 0.25f;
  std::vector<LinePair> lines;
};

// The morph sequence and its editing operations (what the setup dialog's line
// editor calls, under the effect's lock). Every change bumps Generation(), so
// maps built from an older state are known to be stale.
class MorphSet {
 public:
  MorphSet() { Reset(); }

  // One morph "Default" without lines: a fresh Distorter shows its input.
  void Reset();
  int32_t Count() const { return int32_t(morphs_.size()); }
  const Morph& At(int32_t i) const { return morphs_[size_t(i)]; }
  // For edits of names and ease values; counts as a change.
  Morph& Edit(int32_t i);
  const std::vector<Morph>& All() const { return morphs_; }
  void Assign(std::vector<Morph> morphs);

  // Appends a morph named "New %i" (i = its index) and answers its index;
  // -1 when the set already holds kMaxMorphs, which is all a store keeps.
  int32_t AddMorph();
  bool RemoveMorph(int32_t i);
  // Adds a pair given in 0..1 coordinates, scaled by the map grid's width (x)
  // and height (y). False when the morph already holds kMaxLinePairs pairs or
  // does not exist.
  bool AddLinePair(int32_t morph, Line destination, Line source, int32_t grid_w, int32_t grid_h);
  bool RemoveLinePair(int32_t morph, int32_t pair);

  uint64_t Generation() const { return generation_; }

 private:
  std::vector<Morph> morphs_;
  uint64_t generation_ = 0;
};

// Map entry of one source position already scaled to input pixels: the edge
// rule above, then truncated to 4 fractional bits.
uint32_t PackMapEntry(double sx, double sy, int32_t in_w, int32_t in_h);

// Source position in map-grid pixels of grid pixel (x, y) under `lines`
// (the field morph of distorter_field.h, scalar).
void FieldMorphPoint(std::span<const LinePair> lines, int32_t x, int32_t y, double* sx, double* sy);

// Which field-morph kernel builds a map: the scalar reference or the best
// the CPU offers (identical results; the choice is there for tests and
// benchmarks).
enum class MapKernel { kBest, kScalar };

// The map of `lines` on a grid_w x grid_h grid for an in_w x in_h input,
// split over two threads when the work is large enough to pay. False (map
// unfinished) when memory for the working rows is short.
bool BuildMorphMap(std::span<const LinePair> lines, int32_t grid_w, int32_t grid_h, int32_t in_w, int32_t in_h,
                   uint32_t* map, MapKernel kernel = MapKernel::kBest);

// Eased progress: constant speed in the middle, quadratic at both ends.
// ease_from and ease_to are taken within 0..1 and scaled down together when
// they sum past 1. The result lies in 0..1 for t in 0..1.
float Ease(float t, float ease_from, float ease_to);

// Where the sequence stands between frames.
struct SequenceState {
  int32_t index = 0;
  int32_t direction = 1;
  float previous = 0.0f;
};

// One frame's step with host value v (-1..1) over n morphs: updates the
// index and direction on the crossings of +-0.9 and answers the progress
// 0..1 from morph `index` toward the next.
float SequenceStep(SequenceState& state, float v, int32_t n);

// The two maps of the pair being mixed, rebuilt only when needed.
class MorphMapCache {
 public:
  // Maps of morphs `first` and `second` of `set` for the given sizes. Answers
  // false (and keeps nothing) when the sizes are out of range or memory is
  // short.
  bool Prepare(const MorphSet& set, int32_t first, int32_t second, int32_t grid_w, int32_t grid_h, int32_t in_w,
               int32_t in_h);
  const uint32_t* First() const { return slots_[first_].map.data(); }
  const uint32_t* Second() const { return slots_[second_].map.data(); }
  int32_t BuildCount() const { return builds_; }
  size_t Bytes() const { return slots_[0].map.capacity() * 4 + slots_[1].map.capacity() * 4; }
  void Release();

 private:
  struct Slot {
    int32_t morph = -1;
    uint64_t generation = 0;
    std::vector<uint32_t> map;
  };
  int32_t Find(int32_t morph, uint64_t generation) const;
  bool Build(Slot& slot, const MorphSet& set, int32_t morph);

  Slot slots_[2];
  int32_t first_ = 0;
  int32_t second_ = 0;
  int32_t grid_w_ = 0, grid_h_ = 0, in_w_ = 0, in_h_ = 0;
  int32_t builds_ = 0;
};

}  // namespace nimbo::distorter
