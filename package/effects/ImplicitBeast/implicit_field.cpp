#include "implicit_field.h"

#include <algorithm>
#include <cmath>

namespace nimbo::implicit {

Box SaneBox(const Box& box) {
  Box out;
  for (int a = 0; a < 3; ++a) {
    float lo = std::isfinite(box.minimum[a]) ? std::clamp(box.minimum[a], -1e6f, 1e6f) : -1.5f;
    float hi = std::isfinite(box.maximum[a]) ? std::clamp(box.maximum[a], -1e6f, 1e6f) : 1.5f;
    if (lo > hi) std::swap(lo, hi);
    // An axis of no width gives no cells: widen it around its middle.
    if (hi - lo < 1e-3f) {
      const float mid = 0.5f * (lo + hi);
      lo = mid - 0.5e-3f, hi = mid + 0.5e-3f;
    }
    out.minimum[a] = lo, out.maximum[a] = hi;
  }
  return out;
}

float SampleCoordinate(const Box& box, int32_t axis, int32_t i, int32_t n) {
  const float lo = box.minimum[axis], hi = box.maximum[axis];
  return n > 1 ? lo + (hi - lo) * float(i) / float(n - 1) : lo;
}

FieldSampler::FieldSampler(const formula::Program& program, int32_t n)
    : n_(std::clamp(n, kMinGrid, kMaxGrid)),
      evaluator_(program, size_t(n_) * size_t(n_)),
      x_(size_t(n_) * size_t(n_)),
      y_(x_.size()),
      z_(x_.size()) {}

void FieldSampler::Sample(float t, const Box& box, std::vector<float>& field) {
  const size_t slice = size_t(n_) * size_t(n_);
  field.resize(slice * size_t(n_));
  for (int32_t j = 0; j < n_; ++j) {
    const float y = SampleCoordinate(box, 1, j, n_);
    for (int32_t i = 0; i < n_; ++i) {
      x_[size_t(j) * size_t(n_) + size_t(i)] = SampleCoordinate(box, 0, i, n_);
      y_[size_t(j) * size_t(n_) + size_t(i)] = y;
    }
  }
  for (int32_t k = 0; k < n_; ++k) {
    std::fill(z_.begin(), z_.end(), SampleCoordinate(box, 2, k, n_));
    evaluator_.Run(t, x_.data(), y_.data(), z_.data(), slice, field.data() + size_t(k) * slice);
  }
}

void ExtractSurface(std::vector<float>& field, int32_t n, const Box& box, bool close_border, IsoMesh* out) {
  for (float& v : field) v = -v;
  IsoGrid grid;
  grid.values = field.data();
  grid.nx = grid.ny = grid.nz = n;
  for (int a = 0; a < 3; ++a) {
    grid.origin[a] = box.minimum[a];
    grid.spacing[a] = n > 1 ? (box.maximum[a] - box.minimum[a]) / float(n - 1) : 1.0f;
  }
  ExtractIsosurface(grid, 0.0f, close_border, out);
}

}  // namespace nimbo::implicit
