// WAXRotate's resampling (see wax_rotate_kernel.h).
#include "wax_rotate_kernel.h"

#include <algorithm>
#include <cmath>

namespace nimbo::wax {
namespace {

constexpr double kCentre = (kSide - 1) / 2.0;
constexpr double kSnap = 1e-9;

double Snapped(double v) {
  const double whole = std::round(v);
  return std::fabs(v - whole) < kSnap ? whole : v;
}

double Radians(float degrees) { return std::isfinite(degrees) ? double(degrees) * M_PI / 180.0 : 0.0; }

// 16.16 fixed point, nearest; the map's values are bounded (scale at least
// kMinScale), far inside the range.
int32_t Fixed16(double v) { return int32_t(std::lround(v * 65536.0)); }

}  // namespace

SourceMap RotationMap(float rx_degrees, float ry_degrees, float rz_degrees, float scale) {
  const double ax = Radians(rx_degrees), ay = Radians(ry_degrees), az = Radians(rz_degrees);
  const double cx = Snapped(std::cos(ax)), sx = Snapped(std::sin(ax));
  const double cy = Snapped(std::cos(ay)), sy = Snapped(std::sin(ay));
  const double cz = Snapped(std::cos(az)), sz = Snapped(std::sin(az));
  // R = Rz * Ry * Rx: the turn applied to the input.
  const double r[3][3] = {{cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx},
                          {sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx},
                          {-sy, cy * sx, cy * cx}};
  const double s = std::isnan(scale) ? 1.0 : std::clamp(double(scale), double(kMinScale), double(kMaxScale));
  // Source = centre + R^T (p - centre) / s: column j of R^T is row j of R.
  SourceMap m;
  for (int i = 0; i < 3; ++i) {
    const double step_x = Snapped(r[0][i]) / s, step_y = Snapped(r[1][i]) / s, step_z = Snapped(r[2][i]) / s;
    m.step_x[i] = float(step_x);
    m.step_y[i] = float(step_y);
    m.step_z[i] = float(step_z);
    m.origin[i] = float(kCentre - kCentre * (step_x + step_y + step_z));
  }
  return m;
}

void ResampleRow(const Volume& source, const SourceMap& map, int32_t y, int32_t z, uint32_t* out) {
  // The row walks the source in 16.16 fixed point: one addition per axis
  // and voxel, and whole-voxel steps (quarter turns) stay exact.
  int32_t p[3], step[3];
  for (int i = 0; i < 3; ++i) {
    p[i] = Fixed16(double(map.origin[i]) + double(y) * map.step_y[i] + double(z) * map.step_z[i]);
    step[i] = Fixed16(map.step_x[i]);
  }
  const uint32_t* v = source.Data();
  constexpr size_t kRow = kSide, kSlice = size_t(kSide) * kSide;
  constexpr int32_t kLow = -(1 << 16), kHigh = kSide << 16;  // beyond one voxel outside, every neighbour is empty
  for (int32_t x = 0; x < kSide; ++x, p[0] += step[0], p[1] += step[1], p[2] += step[2]) {
    out[x] = 0;
    if (p[0] <= kLow || p[1] <= kLow || p[2] <= kLow || p[0] >= kHigh || p[1] >= kHigh || p[2] >= kHigh) continue;
    // Nearest 1/256 of a voxel.
    const int32_t qx = (p[0] + 128) >> 8, qy = (p[1] + 128) >> 8, qz = (p[2] + 128) >> 8;
    const int32_t ix = qx >> 8, iy = qy >> 8, iz = qz >> 8;
    const uint32_t fx = uint32_t(qx & 255), fy = uint32_t(qy & 255), fz = uint32_t(qz & 255);
    uint32_t c[8];
    if (ix >= 0 && iy >= 0 && iz >= 0 && ix < kSide - 1 && iy < kSide - 1 && iz < kSide - 1) {
      const uint32_t* at = v + Volume::Index(ix, iy, iz);
      if ((fx | fy | fz) == 0) {  // on a voxel
        out[x] = Density(at[0]) ? at[0] : 0u;
        continue;
      }
      c[0] = at[0], c[1] = at[1], c[2] = at[kRow], c[3] = at[kRow + 1];
      c[4] = at[kSlice], c[5] = at[kSlice + 1], c[6] = at[kSlice + kRow], c[7] = at[kSlice + kRow + 1];
    } else {
      for (int i = 0; i < 8; ++i) c[i] = source.At(ix + (i & 1), iy + ((i >> 1) & 1), iz + (i >> 2));
    }
    // Most of a volume is empty space: skip the blend there.
    if (!((c[0] | c[1] | c[2] | c[3] | c[4] | c[5] | c[6] | c[7]) >> 24)) continue;
    out[x] = BlendCorners(c, fx, fy, fz);
  }
}

void Resample(const Volume& source, const SourceMap& map, Volume* out) {
  for (int32_t z = 0; z < kSide; ++z) {
    for (int32_t y = 0; y < kSide; ++y) ResampleRow(source, map, y, z, out->Data() + Volume::Index(0, y, z));
  }
}

}  // namespace nimbo::wax
