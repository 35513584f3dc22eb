// Insert FX with the camera moved: Blob 3D draws its Background input as a
// picture at the "Insert FX: ..." place in the scene, and wherever the
// camera variables move the camera, the picture is seen where that place
// projects (its centre) and as large as its size at that distance.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "nimbo_run.h"

namespace nimbo::host {
namespace {

constexpr int32_t kWidth = 160, kHeight = 120;
constexpr double kPi = 3.14159265358979323846;

struct Vec {
  double x, y, z;
};
Vec Sub(Vec a, Vec b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double Dot(Vec a, Vec b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Vec Cross(Vec a, Vec b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
Vec Unit(Vec a) {
  const double n = std::sqrt(Dot(a, a));
  return {a.x / n, a.y / n, a.z / n};
}

struct Seen {
  double x, y;   // centre, pixels
  double width;  // pixels
};

// Where a picture of `size` at `at` is seen from Blob 3D's camera (at
// (0, 60, 140) looking at the origin, 60 degrees high) moved as the help
// pages say: orbit about the vertical axis, distance scaled, height added,
// zoom multiplied.
Seen Expected(Vec at, double size, double orbit, double distance, double height, double zoom) {
  const double a = orbit * kPi / 180;
  const Vec offset{0, 60, 140};
  const Vec eye{(offset.x * std::cos(a) - offset.z * std::sin(a)) * distance, offset.y * distance + height,
                (offset.x * std::sin(a) + offset.z * std::cos(a)) * distance};
  const Vec forward = Unit(Sub({0, 0, 0}, eye));
  const Vec right = Unit(Cross(forward, {0, 1, 0}));
  const Vec up = Cross(right, forward);
  const Vec d = Sub(at, eye);
  const double depth = Dot(d, forward);
  const double focal = kHeight / 2.0 / std::tan(30 * kPi / 180) * zoom;
  return {kWidth / 2.0 + focal * Dot(d, right) / depth, kHeight / 2.0 - focal * Dot(d, up) / depth,
          focal * size / depth};
}

class NimboInsertFx : public NimboTest {};

TEST_F(NimboInsertFx, ThePictureStaysAtItsPlaceInTheSceneWhereverTheCameraMoves) {
  WritePicture("red.png", FrameBuffer(64, 48, 0xFFFF0000u));
  struct Camera {
    double orbit, distance, height, zoom;
  };
  const Camera cameras[] = {{0, 1, 0, 1}, {40, 1.5, 30, 1.2}, {-120, 0.8, -40, 0.9}, {170, 1.2, 80, 1.5}};
  const Vec at{35, 10, -20};
  const double size = 40;
  for (const Camera& c : cameras) {
    const auto number = [](double v) { return std::to_string(v); };
    const RunResult r = Run({"render", "Blob 3D", "-i", Path("red.png"), "--size", "160x120", "--set", "insertfx=1",
                             "--set", "count=1", "--set", "radius=0.05", "--dyn", "Insert FX: position x=35", "--dyn",
                             "Insert FX: position y=10", "--dyn", "Insert FX: position z=-20", "--dyn",
                             "Insert FX: size=40", "--dyn", "Camera: orbit angle=" + number(c.orbit), "--dyn",
                             "Camera: distance=" + number(c.distance), "--dyn", "Camera: height=" + number(c.height),
                             "--dyn", "Camera: zoom=" + number(c.zoom), "-o", Path("out.png")},
                            true);
    ASSERT_EQ(r.code, 0) << r.err;
    const FrameBuffer out = ReadAll("out.png").at(0);
    ASSERT_EQ(out.width, kWidth);
    double sx = 0, sy = 0, n = 0;
    int32_t left = kWidth, right = -1;
    for (int32_t y = 0; y < kHeight; ++y) {
      for (int32_t x = 0; x < kWidth; ++x) {
        const uint32_t p = out.pixels[size_t(y) * kWidth + x];
        if (((p >> 16) & 255) < 160 || ((p >> 8) & 255) > 80 || (p & 255) > 80) continue;  // red only
        sx += x + 0.5, sy += y + 0.5, n += 1;
        left = std::min(left, x), right = std::max(right, x);
      }
    }
    const Seen e = Expected(at, size, c.orbit, c.distance, c.height, c.zoom);
    ASSERT_GT(n, 20) << "orbit " << c.orbit;
    EXPECT_NEAR(sx / n, e.x, 2.0) << "orbit " << c.orbit;
    EXPECT_NEAR(sy / n, e.y, 2.0) << "orbit " << c.orbit;
    EXPECT_NEAR(right + 1 - left, e.width, 0.1 * e.width + 2) << "orbit " << c.orbit;
  }
}

}  // namespace
}  // namespace nimbo::host
