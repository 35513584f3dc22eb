#include "cli/demo_volume.h"

#include <algorithm>
#include <cmath>

namespace nimbo::host {
namespace {

constexpr int32_t kSide = 64;     // voxels along each axis
constexpr int32_t kTiles = 8;     // slices per tile row
constexpr double kSoftness = 1.5; // voxels over which the density falls from solid to empty
constexpr double kPi = 3.14159265358979323846;

// The density of a point `inside` voxels inside the surface (negative
// outside): 255 well inside, 0 well outside, half-way at the surface.
uint32_t Density(double inside) {
  return uint32_t(std::clamp(127.5 + 127.5 * inside / kSoftness, 0.0, 255.0));
}

// Empty voxels keep the colour too: a surface vertex between a solid and an
// empty voxel may take either's colour, and black there would show as seams.
uint32_t Voxel(double inside, double r, double g, double b) {
  const uint32_t a = Density(inside);
  auto c = [](double v) { return uint32_t(std::clamp(v, 0.0, 255.0)); };
  return a << 24 | c(r) << 16 | c(g) << 8 | c(b);
}

// Distance inside a box of half-size `half` whose edges are rounded by
// `round` voxels, centred at the volume's centre.
double InsideBox(double x, double y, double z, double half, double round) {
  const double qx = std::fabs(x) - (half - round), qy = std::fabs(y) - (half - round), qz = std::fabs(z) - (half - round);
  const double outside = std::hypot(std::max(qx, 0.0), std::max(qy, 0.0), std::max(qz, 0.0));
  const double in = std::min(std::max({qx, qy, qz}), 0.0);
  return round - (outside + in);
}

uint32_t VoxelAt(DemoVolume volume, double x, double y, double z, double t) {
  switch (volume) {
    case DemoVolume::kBox:
      return Voxel(InsideBox(x, y, z, 20, 3), 90, 110, 220);
    case DemoVolume::kBall: {
      // Enters the box's corner that faces WAXViewer's camera (right, top,
      // front: volume x, -y and -z) and leaves again.
      const double travel = 0.6 * (34 - 22 * std::sin(t * kPi));
      const double d = std::hypot(x - travel, y + travel, z + travel);
      return Voxel(16 - d, 230, 70, 50);
    }
    case DemoVolume::kTorus: {
      // Tilted 30 degrees about x so its hole shows.
      const double c = std::cos(kPi / 6), s = std::sin(kPi / 6);
      const double ty = y * c - z * s, tz = y * s + z * c;
      const double ring = std::hypot(x, tz) - 18;
      return Voxel(8 - std::hypot(ring, ty), 240, 150, 40);
    }
  }
  return 0;
}

}  // namespace

void DrawDemoVolume(DemoVolume volume, FrameBuffer& out, double t) {
  const int32_t screen = kSide * kTiles;
  for (int32_t py = 0; py < out.height; ++py) {
    const int32_t sy = int32_t(int64_t(py) * screen / out.height);
    for (int32_t px = 0; px < out.width; ++px) {
      const int32_t sx = int32_t(int64_t(px) * screen / out.width);
      const int32_t z = (sy / kSide) * kTiles + sx / kSide;
      // Voxel centres about the volume's centre.
      const double c = (kSide - 1) * 0.5;
      out.At(px, py) = VoxelAt(volume, sx % kSide - c, sy % kSide - c, z - c, t);
    }
  }
}

}  // namespace nimbo::host
