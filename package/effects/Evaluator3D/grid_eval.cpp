#include "grid_eval.h"

#include <algorithm>

#include "formula/formula_dialect.h"

namespace nimbo::e3d {
namespace {

using formula::Dialect;
using formula::EngineOf;

// Points evaluated together: a few blocks, so a chunk's columns stay in cache.
constexpr size_t kChunk = 4 * formula::BlockEvaluator::kBlock;
// The offset along j of the second surface sample of mode 3.
constexpr float kTangentStep = 0.1f;

float* Table() { return EngineOf(Dialect::kFormula).variables; }

// The height map at grid point (i, j): the pixel imax*j+i of a picture of the
// grid's size; a picture of another size is sampled at the nearest pixel.
float HeightAt(const HeightMap& map, int32_t imax, int32_t jmax, int32_t i, int32_t j) {
  uint32_t pixel;
  if (map.width == imax && map.height == jmax) {
    pixel = map.pixels[size_t(imax) * size_t(j) + size_t(i)];
  } else {
    const int64_t x = int64_t(i) * map.width / imax, y = int64_t(j) * map.height / jmax;
    pixel = map.pixels[size_t(y) * size_t(map.width) + size_t(x)];
  }
  return float(double(pixel & 0xFFu) / 255.0);
}

bool HasHeightMap(const FormulaSet& set, const HeightMap& map) {
  return set.hmap && map.pixels && map.width > 0 && map.height > 0;
}

void Resize(GridValues& out, const FormulaSet& set, const GridNeeds& needs) {
  const size_t n = size_t(set.imax) * size_t(set.jmax);
  out.imax = set.imax;
  out.jmax = set.jmax;
  for (std::vector<float>* v : {&out.x, &out.y, &out.z}) v->resize(n);
  auto fit = [n](bool used, std::initializer_list<std::vector<float>*> vs) {
    for (std::vector<float>* v : vs) v->resize(used ? n : 0);
  };
  fit(needs.uv1, {&out.u, &out.v});
  fit(needs.uv2, {&out.u2, &out.v2});
  fit(needs.normals1, {&out.nx, &out.ny, &out.nz});
  fit(needs.normals2, {&out.nx2, &out.ny2, &out.nz2});
  fit(needs.tangent, {&out.sx, &out.sy, &out.sz});
}

// The output vector of vertex field `f` (kVertexFields order), or null when
// the frame does not need it.
std::vector<float>* OutputOf(GridValues& out, int32_t k) {
  std::vector<float>* outs[13] = {&out.x,  &out.y,  &out.z,  &out.u,   &out.v,   &out.nx, &out.ny,
                                  &out.nz, &out.u2, &out.v2, &out.nx2, &out.ny2, &out.nz2};
  return outs[k]->empty() ? nullptr : outs[k];
}

// Positions of the closing row and column: copies of the first ones.
void CloseLoops(const FormulaSet& set, GridValues& out) {
  const size_t imax = size_t(set.imax), jmax = size_t(set.jmax);
  auto copy = [&](size_t to, size_t from) {
    out.x[to] = out.x[from];
    out.y[to] = out.y[from];
    out.z[to] = out.z[from];
  };
  if (set.loopj && jmax > 1)
    for (size_t i = 0; i < imax; ++i) copy((jmax - 1) * imax + i, i);
  if (set.loopi && imax > 1)
    for (size_t j = 0; j < jmax; ++j) copy(j * imax + imax - 1, j * imax);
}

}  // namespace

GridNeeds NeedsOf(const FormulaSet& set) {
  GridNeeds needs;
  needs.uv1 = set.uvmode1 == kUvFormulas;
  needs.uv2 = set.uvmode2 == kUvFormulas;
  needs.normals1 = set.uvmode1 == kUvEnvFormulas;
  needs.normals2 = set.uvmode2 == kUvEnvFormulas;
  needs.tangent = needs.normals1 || needs.normals2;
  return needs;
}

void SetFrameVariables(const FormulaSet& set, const FrameVariables& frame) {
  float* table = Table();
  table[formula::kImax] = float(set.imax);
  table[formula::kJmax] = float(set.jmax);
  table[formula::kT] = frame.t;
  table[formula::kPi] = formula::kPiValue;
  table[formula::kScreenW] = float(frame.screen_w);
  table[formula::kScreenH] = float(frame.screen_h);
  const size_t users =
      std::min(frame.user_values.size(), size_t(formula::kVariableCount - formula::kFirstUserVariable));
  for (size_t k = 0; k < users; ++k) table[formula::kFirstUserVariable + k] = frame.user_values[k];
}

CameraValues EvaluateCamera(const CompiledSet& compiled) {
  auto eval = [&](Field f) { return formula::Evaluate(Dialect::kFormula, compiled.code[size_t(f)].data()); };
  CameraValues c;
  c.position[0] = eval(kCx);
  c.position[1] = eval(kCy);
  c.position[2] = eval(kCz);
  c.target[0] = eval(kTx);
  c.target[1] = eval(kTy);
  c.target[2] = eval(kTz);
  c.roll = eval(kRoll);
  c.zoom = eval(kZoom);
  return c;
}

void EvaluateGridOnePoint(const FormulaSet& set, const CompiledSet& compiled, const HeightMap& hmap, GridValues& out) {
  const GridNeeds needs = NeedsOf(set);
  Resize(out, set, needs);
  float* table = Table();
  auto eval = [&](int32_t f) { return formula::Evaluate(Dialect::kFormula, compiled.code[size_t(f)].data()); };
  auto run_aux = [&]() {
    for (int32_t k = 0; k < 8; ++k)
      if (!compiled.empty[size_t(kAuxFields[k])]) table[formula::kA + uint32_t(k)] = eval(kAuxFields[k]);
  };
  const bool use_map = HasHeightMap(set, hmap);
  const int32_t imax = set.imax, jmax = set.jmax;
  for (int32_t i = 0; i < imax; ++i) {
    for (int32_t j = 0; j < jmax; ++j) {
      table[formula::kI] = float(i);
      table[formula::kJ] = float(j);
      if (use_map) table[formula::kHmap] = HeightAt(hmap, imax, jmax, i, j);
      run_aux();
      const size_t at = size_t(j) * size_t(imax) + size_t(i);
      const bool copy_j = set.loopj && jmax > 1 && j == jmax - 1;
      const bool copy_i = set.loopi && imax > 1 && i == imax - 1;
      if (copy_j || copy_i) {
        const size_t from = copy_i ? size_t(j) * size_t(imax) : size_t(i);
        out.x[at] = out.x[from];
        out.y[at] = out.y[from];
        out.z[at] = out.z[from];
      } else {
        out.x[at] = eval(kX);
        out.y[at] = eval(kY);
        out.z[at] = eval(kZ);
      }
      if (needs.uv1) out.u[at] = eval(kU), out.v[at] = eval(kV);
      if (needs.normals1) out.nx[at] = eval(kNx), out.ny[at] = eval(kNy), out.nz[at] = eval(kNz);
      if (needs.uv2) out.u2[at] = eval(kU2), out.v2[at] = eval(kV2);
      if (needs.normals2) out.nx2[at] = eval(kNx2), out.ny2[at] = eval(kNy2), out.nz2[at] = eval(kNz2);
      if (needs.tangent) {
        // The second sample keeps this point's hmap: the tangent follows the
        // formulas' surface, not the height map's slope.
        table[formula::kJ] = float(j) + kTangentStep;
        run_aux();
        out.sx[at] = eval(kX);
        out.sy[at] = eval(kY);
        out.sz[at] = eval(kZ);
      }
    }
  }
}

void GridEvaluator::Prepare(const FormulaSet& set, const CompiledSet& compiled) {
  set_ = set;
  needs_ = NeedsOf(set);
  empty_ = compiled.empty;
  block_.clear();
  for (int32_t f = 0; f < kFieldCount; ++f)
    block_.push_back(std::make_unique<formula::BlockEvaluator>(compiled.code[size_t(f)]));
  i_.resize(kChunk);
  j_.resize(kChunk);
  hmap_.resize(kChunk);
  for (std::vector<float>& a : aux_) a.resize(kChunk);
  for (std::vector<float>& v : values_) v.resize(kChunk);
}

void GridEvaluator::RunChunk(size_t first, size_t count, const HeightMap& hmap, bool shifted, GridValues& out) {
  const size_t jmax = size_t(set_.jmax), imax = size_t(set_.imax);
  const bool use_map = HasHeightMap(set_, hmap);
  for (size_t k = 0; k < count; ++k) {
    const size_t p = first + k;
    const int32_t i = int32_t(p / jmax), j = int32_t(p % jmax);
    i_[k] = float(i);
    j_[k] = shifted ? float(j) + kTangentStep : float(j);
    if (use_map) hmap_[k] = HeightAt(hmap, set_.imax, set_.jmax, i, j);
  }
  const float* table = Table();
  columns_.clear();
  columns_.push_back({formula::kI, i_.data()});
  columns_.push_back({formula::kJ, j_.data()});
  if (use_map) columns_.push_back({formula::kHmap, hmap_.data()});
  for (int32_t a = 0; a < 8; ++a) {
    const Field f = kAuxFields[a];
    if (empty_[size_t(f)]) continue;  // reads the table's 0
    block_[size_t(f)]->Run(table, columns_, count, aux_[size_t(a)].data());
    columns_.push_back({formula::kA + uint32_t(a), aux_[size_t(a)].data()});
  }
  auto scatter = [&](const std::vector<float>& values, std::vector<float>& to) {
    for (size_t k = 0; k < count; ++k) {
      const size_t p = first + k;
      to[(p % jmax) * imax + p / jmax] = values[k];
    }
  };
  if (shifted) {
    std::vector<float>* to[3] = {&out.sx, &out.sy, &out.sz};
    for (int32_t k = 0; k < 3; ++k) {
      block_[size_t(kVertexFields[k])]->Run(table, columns_, count, values_[size_t(k)].data());
      scatter(values_[size_t(k)], *to[k]);
    }
    return;
  }
  for (int32_t k = 0; k < 13; ++k) {
    std::vector<float>* to = OutputOf(out, k);
    if (!to) continue;
    block_[size_t(kVertexFields[k])]->Run(table, columns_, count, values_[size_t(k)].data());
    scatter(values_[size_t(k)], *to);
  }
}

void GridEvaluator::Evaluate(const HeightMap& hmap, GridValues& out) {
  Resize(out, set_, needs_);
  const size_t total = size_t(set_.imax) * size_t(set_.jmax);
  for (size_t first = 0; first < total; first += kChunk)
    RunChunk(first, std::min(kChunk, total - first), hmap, false, out);
  CloseLoops(set_, out);
  if (needs_.tangent)
    for (size_t first = 0; first < total; first += kChunk)
      RunChunk(first, std::min(kChunk, total - first), hmap, true, out);

  // Leave the table as the one-point order leaves it: a later frame without
  // a height map reads the last point's hmap.
  if (total == 0) return;
  float* table = Table();
  const int32_t i = set_.imax - 1, j = set_.jmax - 1;
  table[formula::kI] = float(i);
  table[formula::kJ] = needs_.tangent ? float(j) + kTangentStep : float(j);
  if (HasHeightMap(set_, hmap)) table[formula::kHmap] = HeightAt(hmap, set_.imax, set_.jmax, i, j);
  const size_t last = (total - 1) % kChunk;
  for (int32_t a = 0; a < 8; ++a)
    if (!empty_[size_t(kAuxFields[a])]) table[formula::kA + uint32_t(a)] = aux_[size_t(a)][last];
}

}  // namespace nimbo::e3d
