#include "cli/demo_media.h"

#include <algorithm>
#include <cmath>

#include "cli/bitmap_font.h"
#include "cli/demo_volume.h"

namespace nimbo::host {
namespace {

constexpr double kPi = 3.14159265358979323846;

uint32_t Rgb(double r, double g, double b) {
  auto c = [](double v) { return uint32_t(std::clamp(v, 0.0, 255.0)); };
  return 0xFF000000u | c(r) << 16 | c(g) << 8 | c(b);
}

void FillCircle(FrameBuffer& f, double cx, double cy, double radius, uint32_t color) {
  const int32_t y0 = std::max(0, int32_t(cy - radius)), y1 = std::min(f.height - 1, int32_t(cy + radius));
  const int32_t x0 = std::max(0, int32_t(cx - radius)), x1 = std::min(f.width - 1, int32_t(cx + radius));
  for (int32_t y = y0; y <= y1; ++y) {
    for (int32_t x = x0; x <= x1; ++x) {
      if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= radius * radius) f.At(x, y) = color;
    }
  }
}

void FillRect(FrameBuffer& f, double x0, double y0, double x1, double y1, uint32_t color) {
  for (int32_t y = std::max(0, int32_t(y0)); y < std::min(f.height, int32_t(y1)); ++y) {
    for (int32_t x = std::max(0, int32_t(x0)); x < std::min(f.width, int32_t(x1)); ++x) f.At(x, y) = color;
  }
}

// A square turned by `angle` around its centre.
void FillTurnedSquare(FrameBuffer& f, double cx, double cy, double half, double angle, uint32_t color) {
  const double c = std::cos(angle), s = std::sin(angle), reach = half * 1.5;
  for (int32_t y = std::max(0, int32_t(cy - reach)); y <= std::min(f.height - 1, int32_t(cy + reach)); ++y) {
    for (int32_t x = std::max(0, int32_t(cx - reach)); x <= std::min(f.width - 1, int32_t(cx + reach)); ++x) {
      const double u = (x - cx) * c + (y - cy) * s, v = -(x - cx) * s + (y - cy) * c;
      if (std::fabs(u) <= half && std::fabs(v) <= half) f.At(x, y) = color;
    }
  }
}

void DrawShapes(FrameBuffer& f, double t) {
  const double w = f.width, h = f.height, unit = std::min(w, h);
  for (int32_t y = 0; y < f.height; ++y) {
    for (int32_t x = 0; x < f.width; ++x) {
      const double u = x / w, v = y / h;
      f.At(x, y) = Rgb(40 + 120 * u, 50 + 90 * v, 150 - 80 * u + 60 * v);
    }
  }
  FillTurnedSquare(f, w * (0.3 + 0.1 * std::sin(t * 2 * kPi)), h * 0.35, unit * 0.12, t * 2 * kPi, Rgb(40, 200, 70));
  FillRect(f, 0, h * (0.75 + 0.05 * std::sin(t * 4 * kPi)), w * (0.2 + 0.6 * t), h * (0.82 + 0.05 * std::sin(t * 4 * kPi)),
           Rgb(240, 220, 40));
  FillCircle(f, w * (0.15 + 0.7 * t), h * (0.5 - 0.25 * std::sin(t * kPi)), unit * 0.1, Rgb(230, 30, 30));
}

void DrawBlueScreen(FrameBuffer& f, double t) {
  const double w = f.width, h = f.height, unit = std::min(w, h);
  for (int32_t y = 0; y < f.height; ++y) {
    for (int32_t x = 0; x < f.width; ++x) {
      // A backdrop is never perfectly even: a little falloff towards the edges.
      const double d = std::hypot(x / w - 0.5, y / h - 0.5);
      f.At(x, y) = Rgb(20, 40 + 20 * d, 210 - 60 * d);
    }
  }
  const double cx = w * (0.3 + 0.4 * t);
  FillRect(f, cx - unit * 0.12, h * 0.45, cx + unit * 0.12, h * 1.0, Rgb(200, 60, 40));      // body
  FillRect(f, cx - unit * 0.2, h * 0.5, cx - unit * 0.12, h * 0.8, Rgb(220, 170, 130));     // arms
  FillRect(f, cx + unit * 0.12, h * 0.5, cx + unit * 0.2, h * 0.8, Rgb(220, 170, 130));
  FillCircle(f, cx, h * 0.32, unit * 0.11, Rgb(230, 180, 140));                              // head
  FillRect(f, cx - unit * 0.11, h * 0.2, cx + unit * 0.11, h * 0.26, Rgb(60, 40, 20));      // hair
}

void DrawLandscape(FrameBuffer& f, double t) {
  const double w = f.width, h = f.height, unit = std::min(w, h);
  for (int32_t y = 0; y < f.height; ++y) {
    for (int32_t x = 0; x < f.width; ++x) {
      const double v = y / h;
      f.At(x, y) = Rgb(90 + 120 * v, 150 + 70 * v, 240 - 30 * v);
    }
  }
  FillCircle(f, w * 0.78, h * (0.25 + 0.05 * t), unit * 0.12, Rgb(255, 230, 120));
  for (int32_t x = 0; x < f.width; ++x) {
    const double u = x / w;
    const double far = h * (0.62 + 0.08 * std::sin(u * 7 + t));
    const double near = h * (0.78 + 0.06 * std::sin(u * 11 + 2 - t * 2));
    for (int32_t y = std::max(0, int32_t(far)); y < f.height; ++y) f.At(x, y) = Rgb(60, 130 + 40 * (y / h - 0.6), 70);
    for (int32_t y = std::max(0, int32_t(near)); y < f.height; ++y) f.At(x, y) = Rgb(40, 100, 45);
  }
}

void DrawTitle(FrameBuffer& f, double t) {
  for (int32_t y = 0; y < f.height; ++y) {
    for (int32_t x = 0; x < f.width; ++x) f.At(x, y) = Rgb(20 + 30.0 * y / f.height, 20, 50);
  }
  const std::string title = "NIMBO ONE";
  const int32_t scale = std::max(1, f.width / (TextWidth(title, 1) * 2));
  const int32_t tw = TextWidth(title, scale);
  const int32_t x = int32_t((f.width + tw) * (1.0 - t)) - tw;
  DrawText(f, x, f.height / 2 - kGlyphHeight * scale / 2, title, Rgb(250, 250, 250), scale);
  DrawText(f, 4, f.height - kGlyphHeight - 4, "live video effects", Rgb(250, 200, 60), 1);
}

class DemoSource final : public FrameSource {
 public:
  DemoSource(DemoMedia media, int32_t width, int32_t height, int64_t frames)
      : media_(media), width_(width), height_(height), frames_(frames) {
    static const char* const kNames[] = {"shapes", "blue screen", "landscape", "title", "WAX box", "WAX ball", "WAX torus"};
    name_ = kNames[int(media)];
  }
  const std::string& Name() const override { return name_; }
  int32_t Width() const override { return width_; }
  int32_t Height() const override { return height_; }
  double FrameRate() const override { return 25.0; }
  int64_t FrameCountHint() const override { return frames_; }
  bool IsStill() const override { return false; }
  bool ReadFrame(FrameBuffer& out, int32_t width, int32_t height) override {
    if (next_ >= frames_) return false;
    out.EnsureSize(width, height);
    DrawDemoFrame(media_, out, next_++, frames_);
    return true;
  }

 private:
  DemoMedia media_;
  int32_t width_;
  int32_t height_;
  int64_t frames_;
  int64_t next_ = 0;
  std::string name_;
};

}  // namespace

void DrawDemoFrame(DemoMedia media, FrameBuffer& out, int64_t frame, int64_t frames) {
  const double t = frames > 1 ? double(frame) / double(frames - 1) : 0.0;
  switch (media) {
    case DemoMedia::kShapes: DrawShapes(out, t); break;
    case DemoMedia::kBlueScreen: DrawBlueScreen(out, t); break;
    case DemoMedia::kLandscape: DrawLandscape(out, t); break;
    case DemoMedia::kTitle: DrawTitle(out, t); break;
    case DemoMedia::kWaxBox: DrawDemoVolume(DemoVolume::kBox, out, t); break;
    case DemoMedia::kWaxBall: DrawDemoVolume(DemoVolume::kBall, out, t); break;
    case DemoMedia::kWaxTorus: DrawDemoVolume(DemoVolume::kTorus, out, t); break;
  }
}

std::unique_ptr<FrameSource> MakeDemoSource(DemoMedia media, int32_t width, int32_t height, int64_t frames) {
  return std::make_unique<DemoSource>(media, width, height, frames);
}

}  // namespace nimbo::host
