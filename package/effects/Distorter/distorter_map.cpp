#include "distorter_map.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <thread>

#include "distorter_field.h"

namespace nimbo::distorter {

// ---- morph set --------------------------------------------------------------------

void MorphSet::Reset() {
  morphs_.assign(1, Morph{});
  ++generation_;
}

Morph& MorphSet::Edit(int32_t i) {
  ++generation_;
  return morphs_[size_t(i)];
}

void MorphSet::Assign(std::vector<Morph> morphs) {
  morphs_ = std::move(morphs);
  ++generation_;
}

int32_t MorphSet::AddMorph() {
  if (Count() >= kMaxMorphs) return -1;
  Morph morph;
  char name[32];
  std::snprintf(name, sizeof name, "New %i", int(morphs_.size()));
  morph.name = name;
  morphs_.push_back(std::move(morph));
  ++generation_;
  return int32_t(morphs_.size()) - 1;
}

bool MorphSet::RemoveMorph(int32_t i) {
  if (i < 0 || i >= Count()) return false;
  morphs_.erase(morphs_.begin() + i);
  ++generation_;
  return true;
}

bool MorphSet::AddLinePair(int32_t morph, Line destination, Line source, int32_t grid_w, int32_t grid_h) {
  if (morph < 0 || morph >= Count()) return false;
  std::vector<LinePair>& lines = morphs_[size_t(morph)].lines;
  if (int32_t(lines.size()) >= kMaxLinePairs) return false;
  auto scale = [&](Line l) {
    return Line{{l.p1.x * float(grid_w), l.p1.y * float(grid_h)}, {l.p2.x * float(grid_w), l.p2.y * float(grid_h)}};
  };
  LinePair pair;
  pair.l1 = scale(destination);
  pair.l2 = scale(source);
  lines.push_back(pair);
  ++generation_;
  return true;
}

bool MorphSet::RemoveLinePair(int32_t morph, int32_t pair) {
  if (morph < 0 || morph >= Count()) return false;
  std::vector<LinePair>& lines = morphs_[size_t(morph)].lines;
  if (pair < 0 || pair >= int32_t(lines.size())) return false;
  lines.erase(lines.begin() + pair);
  ++generation_;
  return true;
}

// ---- field morphing -----------------------------------------------------------------

uint32_t PackMapEntry(double sx, double sy, int32_t in_w, int32_t in_h) {
  // Below 0 a position is held at 0; at or past the last pixel it moves to
  // 1/8 pixel before it, so the right and lower neighbours of a bilinear
  // sample are always inside the input and the sampler needs no padding.
  // An input 1 pixel long on an axis has no room for that (size - 1.125 < 0)
  // and keeps 0 there. NaN fails the first test and lands at 0.
  auto clamp = [](double s, int32_t size) {
    if (!(s >= 0.0)) return 0.0;
    const double last = double(size - 1);
    if (s < last) return s;
    return size >= 2 ? last - 0.125 : 0.0;
  };
  sx = clamp(sx, in_w);
  sy = clamp(sy, in_h);
  return (uint32_t(sx * 16.0) << 16) + uint32_t(sy * 16.0);
}

void FieldMorphPoint(std::span<const LinePair> lines, int32_t x, int32_t y, double* sx, double* sy) {
  const std::vector<FieldLine> prepared = PrepareFieldLines(lines);
  FieldRowScalar(prepared, x, y, 1, sx, sy);
}

namespace {

// Rows [y0, y1) of the map; `row` computes the source points of a row into
// `scratch` (2 * grid_w doubles).
void BuildRows(std::span<const FieldLine> lines, int32_t grid_w, int32_t grid_h, int32_t in_w, int32_t in_h, int32_t y0,
               int32_t y1, uint32_t* map, FieldRowFn row, double* scratch) {
  const double scale_x = double(in_w), scale_y = double(in_h);
  double* sx = scratch;
  double* sy = scratch + grid_w;
  for (int32_t y = y0; y < y1; ++y) {
    row(lines, 0, y, grid_w, sx, sy);
    uint32_t* out = map + size_t(y) * size_t(grid_w);
    for (int32_t x = 0; x < grid_w; ++x) {
      // source / W * Wi, computed as source * Wi / W: the same value with
      // one rounding less. With W = Wi the position comes back exactly
      // (x * W / W == x), where x / W * W can land a hair below x and
      // truncate to the sixteenth before.
      out[x] = PackMapEntry(sx[x] * scale_x / grid_w, sy[x] * scale_y / grid_h, in_w, in_h);
    }
  }
}

}  // namespace

bool BuildMorphMap(std::span<const LinePair> lines, int32_t grid_w, int32_t grid_h, int32_t in_w, int32_t in_h,
                   uint32_t* map, MapKernel kernel) {
  std::vector<FieldLine> prepared;
  std::vector<double> scratch;
  try {
    prepared = PrepareFieldLines(lines);
    scratch.resize(size_t(grid_w) * 4);  // two rows of (sx, sy), one per thread
  } catch (const std::bad_alloc&) {
    return false;
  }
  const FieldRowFn row = kernel == MapKernel::kScalar ? FieldRowScalar : FieldRowKernel();
  double* upper_scratch = scratch.data();
  double* lower_scratch = scratch.data() + size_t(grid_w) * 2;
  // A second thread pays for itself only when there is real field work;
  // the identity map of a morph without lines is a plain loop.
  const double work = double(grid_w) * grid_h * double(prepared.size());
  if (work < 2e6 || grid_h < 2) {
    BuildRows(prepared, grid_w, grid_h, in_w, in_h, 0, grid_h, map, row, upper_scratch);
    return true;
  }
  const int32_t half = grid_h / 2;
  try {
    std::thread lower([&] { BuildRows(prepared, grid_w, grid_h, in_w, in_h, half, grid_h, map, row, lower_scratch); });
    BuildRows(prepared, grid_w, grid_h, in_w, in_h, 0, half, map, row, upper_scratch);
    lower.join();
  } catch (const std::system_error&) {
    // No thread to be had: the same rows on this one.
    BuildRows(prepared, grid_w, grid_h, in_w, in_h, half, grid_h, map, row, lower_scratch);
    BuildRows(prepared, grid_w, grid_h, in_w, in_h, 0, half, map, row, upper_scratch);
  }
  return true;
}

// ---- ease and sequence ---------------------------------------------------------------

float Ease(float t, float ef, float et) {
  // Out-of-range or NaN settings are taken at the nearest end of 0..1.
  ef = ef > 0 ? std::min(ef, 1.0f) : 0.0f;
  et = et > 0 ? std::min(et, 1.0f) : 0.0f;
  if (ef + et == 0) return t;
  if (ef + et > 1) {
    const float sum = ef + et;
    ef /= sum;
    et /= sum;
  }
  const float k = 1.0f / (2.0f - ef - et);
  if (t < ef) return k / ef * t * t;
  if (t < 1.0f - et) return k * (2.0f * t - ef);
  // et == 0 reaches here only at t >= 1, where the curve has arrived.
  if (et == 0) return 1.0f;
  return 1.0f - (k / et) * (1.0f - t) * (1.0f - t);
}

float SequenceStep(SequenceState& s, float v, int32_t n) {
  float p = 0.0f;
  if (v > -0.9f && v < 0.9f) {
    p = (v * float(s.direction) + 0.9f) / 1.8f;
  } else if (v >= 0.9f) {
    if (s.previous < 0.9f) {
      s.direction = -1;
      if (n > 0) s.index = (s.index + 1) % n;
    }
  } else if (v <= -0.9f) {
    if (s.previous > -0.9f) {
      s.direction = 1;
      if (n > 0) s.index = (s.index + 1) % n;
    }
  }
  // A NaN host value leaves the progress at 0 and is not remembered, so the
  // next real value is compared with the last real one.
  if (!std::isnan(v)) s.previous = v;
  if (n > 0 && (s.index < 0 || s.index >= n)) s.index = 0;
  return p;
}

// ---- map cache --------------------------------------------------------------------------

int32_t MorphMapCache::Find(int32_t morph, uint64_t generation) const {
  for (int32_t i = 0; i < 2; ++i) {
    if (slots_[i].morph == morph && slots_[i].generation == generation) return i;
  }
  return -1;
}

bool MorphMapCache::Build(Slot& slot, const MorphSet& set, int32_t morph) {
  slot.morph = -1;
  try {
    slot.map.resize(size_t(grid_w_) * size_t(grid_h_));
  } catch (const std::bad_alloc&) {
    Release();
    return false;
  }
  if (!BuildMorphMap(set.At(morph).lines, grid_w_, grid_h_, in_w_, in_h_, slot.map.data())) {
    Release();
    return false;
  }
  slot.morph = morph;
  slot.generation = set.Generation();
  ++builds_;
  return true;
}

bool MorphMapCache::Prepare(const MorphSet& set, int32_t first, int32_t second, int32_t grid_w, int32_t grid_h,
                            int32_t in_w, int32_t in_h) {
  if (grid_w <= 0 || grid_h <= 0 || grid_w > kMaxGridSide || grid_h > kMaxGridSide || in_w <= 0 || in_h <= 0 ||
      in_w > kMaxInputSide || in_h > kMaxInputSide) {
    return false;
  }
  if (first < 0 || first >= set.Count() || second < 0 || second >= set.Count()) return false;
  if (grid_w != grid_w_ || grid_h != grid_h_ || in_w != in_w_ || in_h != in_h_) {
    slots_[0].morph = slots_[1].morph = -1;
    grid_w_ = grid_w;
    grid_h_ = grid_h;
    in_w_ = in_w;
    in_h_ = in_h;
  }
  const uint64_t generation = set.Generation();
  int32_t a = Find(first, generation);
  if (a < 0) {
    // Keep the slot holding `second` if there is one: after an advance the
    // old second map is the new first and only one map is built.
    a = Find(second, generation) == 0 ? 1 : 0;
    if (!Build(slots_[a], set, first)) return false;
  }
  int32_t b = second == first ? a : Find(second, generation);
  if (b < 0) {
    b = 1 - a;
    if (!Build(slots_[b], set, second)) return false;
  }
  first_ = a;
  second_ = b;
  return true;
}

void MorphMapCache::Release() {
  for (Slot& slot : slots_) {
    slot.morph = -1;
    std::vector<uint32_t>().swap(slot.map);
  }
  grid_w_ = grid_h_ = in_w_ = in_h_ = 0;
}

}  // namespace nimbo::distorter
