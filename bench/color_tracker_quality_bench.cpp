// ColorTracker's tracking quality on generated 1080p footage with known truth.
//
// A blue disc (radius 40) moves on a Lissajous path over a textured
// background with sensor noise. The path leaves the frame on the right and
// on the left (about 50 frames each), and crosses a grey panel that hides the
// disc completely for some frames. The effect runs as a host runs it (the
// real ColorTracker from the package registry, its published "track x" and
// "track y" read back each frame), with "smooth" 1 (the default) and 0.
//
// Reported, over the frames where the whole disc is visible: mean, median
// and worst centre error in pixels; and, after each stretch where it was
// hidden, the frames from its full reappearance until the error is under
// 2 pixels (0 = on the first frame). Errors of the frames before that are
// reported separately.
//
// With --pipe the frames go to stdout for a peer tracker (see
// color_tracker_quality.sh): a header "W H N\n", then per frame four
// doubles (true x, true y, 1 when fully visible, 1 when partly shown) and
// W*H BGRA pixels.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "bench_effects.h"
#include "color_tracker_scene.h"
#include "orrery/effect.h"
#include "orrery/services.h"
#include "runtime/effect_host.h"

namespace {

constexpr int32_t kW = 1920, kH = 1080, kFrames = 430;
constexpr double kRadius = 40;
constexpr uint32_t kObject = 0x2858D8;
// The panel that hides the disc: x, y, w, h.
constexpr int32_t kPanel[4] = {830, 190, 260, 260};

struct Truth {
  double x, y;
  bool visible;  // the whole disc is on screen and not behind the panel
  bool shown;    // some of it is
};

Truth TruthAt(int32_t frame) {
  double t = frame;
  Truth tr;
  tr.x = 960 + 1080 * std::sin(2 * std::numbers::pi * t / 400);
  tr.y = 540 + 300 * std::sin(2 * std::numbers::pi * t / 230);
  bool inside = tr.x - kRadius >= 0 && tr.x + kRadius <= kW - 1 && tr.y - kRadius >= 0 && tr.y + kRadius <= kH - 1;
  auto overlaps = [&](double margin) {
    return tr.x + margin > kPanel[0] && tr.x - margin < kPanel[0] + kPanel[2] && tr.y + margin > kPanel[1] &&
           tr.y - margin < kPanel[1] + kPanel[3];
  };
  tr.visible = inside && !overlaps(kRadius + 1);
  bool off_screen = tr.x + kRadius < 0 || tr.x - kRadius > kW - 1;
  bool behind = tr.x - kRadius >= kPanel[0] && tr.x + kRadius <= kPanel[0] + kPanel[2] && tr.y - kRadius >= kPanel[1] &&
                tr.y + kRadius <= kPanel[1] + kPanel[3];
  tr.shown = !off_screen && !behind;
  return tr;
}

struct Run {
  explicit Run(int32_t smooth) {
    std::string doc = "<Settings><ConfigData><data name=\"object_color\" type=\"int\">" + std::to_string(kObject) +
                      "</data><data name=\"smooth\" type=\"int\">" + std::to_string(smooth) +
                      "</data></ConfigData></Settings>";
    host.Store().Load(doc);
    effect = nimbo::bench::CreateEffectNamed("ColorTracker");
    if (!effect) {
      std::fprintf(stderr, "bench_color_tracker_quality: the package has no ColorTracker\n");
      std::exit(1);
    }
    effect->SetHostContext(&host);
    effect->UpdateConfig();
    effect->Initialize();
  }
  // Renders one frame and answers the published point in pixels.
  void Render(int32_t frame, const orrery::Screen& in, orrery::Screen* out, double& px, double& py) {
    host.SetFrame(frame);  // 40 ms a frame at 25 fps
    const orrery::Screen* inputs[] = {&in};
    effect->Render({inputs, 1}, out);
    struct Xy {
      double x = 0, y = 0;
    } xy;
    orrery::VisitOutputValues(
        effect.get(),
        [](void* user, const char* name, const char*, float v) {
          if (std::strcmp(name, "track x") == 0) static_cast<Xy*>(user)->x = (v + 1.0) / 2.0 * kW;
          if (std::strcmp(name, "track y") == 0) static_cast<Xy*>(user)->y = (v + 1.0) / 2.0 * kH;
        },
        &xy);
    px = xy.x;
    py = xy.y;
  }
  nimbo::host::EffectHost host{kW, kH, 25.0};
  std::unique_ptr<orrery::Effect> effect;
  std::vector<double> errors;      // fully visible frames, settled
  std::vector<double> settling;    // fully visible frames before re-acquisition
  std::vector<int32_t> reacquire;  // frames to re-acquire, per hidden stretch
  int32_t waiting = -1;            // frames since full reappearance, -1 when not waiting
};

void Score(Run& run, const Truth& tr, bool was_hidden, double px, double py) {
  if (was_hidden) run.waiting = 0;
  if (!tr.visible) return;
  double err = std::hypot(px - tr.x, py - tr.y);
  if (run.waiting >= 0) {
    if (err < 2.0) {
      run.reacquire.push_back(run.waiting);
      run.waiting = -1;
    } else {
      run.settling.push_back(err);
      ++run.waiting;
      return;
    }
  }
  run.errors.push_back(err);
}

void Report(const char* label, Run& run) {
  std::vector<double> e = run.errors;
  std::sort(e.begin(), e.end());
  double mean = 0;
  for (double v : e) mean += v;
  mean /= std::max<size_t>(e.size(), 1);
  std::fprintf(stderr, "%-22s frames %zu  mean %.2f px  median %.2f px  worst %.2f px\n", label, e.size(), mean,
               e.empty() ? 0.0 : e[e.size() / 2], e.empty() ? 0.0 : e.back());
  std::fprintf(stderr, "%-22s re-acquired after:", "");
  for (int32_t n : run.reacquire) std::fprintf(stderr, " %d", n);
  std::fprintf(stderr, " frames%s; errors before re-acquiring:", run.waiting >= 0 ? " (one never)" : "");
  for (double v : run.settling) std::fprintf(stderr, " %.1f", v);
  std::fprintf(stderr, "\n");
}

}  // namespace

int main(int argc, char** argv) {
  const bool pipe = argc > 1 && std::strcmp(argv[1], "--pipe") == 0;
  if (pipe) std::printf("%d %d %d\n", kW, kH, kFrames);

  std::vector<uint32_t> background = nimbo::bench::MakeBackground(kW, kH, 17);
  std::vector<uint32_t> frame(background.size()), out(background.size());
  orrery::Screen in_screen{kW, kH, frame.data()}, out_screen{kW, kH, out.data()};
  Run smooth1(1), smooth0(0);
  bool was_hidden = false;
  int32_t hidden_stretches = 0;
  for (int32_t f = 0; f < kFrames; ++f) {
    Truth tr = TruthAt(f);
    frame = background;
    if (tr.shown) nimbo::bench::PaintDisc(frame, kW, kH, tr.x, tr.y, kRadius, kObject);
    // The grey panel in front of the disc.
    for (int32_t y = kPanel[1]; y < kPanel[1] + kPanel[3]; ++y)
      std::fill_n(frame.begin() + size_t(y) * kW + kPanel[0], kPanel[2], 0xFF8A8A8Au);
    nimbo::bench::AddNoise(frame, uint32_t(f), 4);

    bool reappeared = false;
    if (!tr.shown) {
      if (!was_hidden) ++hidden_stretches;
      was_hidden = true;
    } else if (was_hidden && tr.visible) {
      reappeared = true;
      was_hidden = false;
    }
    double px, py;
    smooth1.Render(f, in_screen, &out_screen, px, py);
    Score(smooth1, tr, reappeared, px, py);
    smooth0.Render(f, in_screen, &out_screen, px, py);
    Score(smooth0, tr, reappeared, px, py);

    if (pipe) {
      double head[4] = {tr.x, tr.y, tr.visible ? 1.0 : 0.0, tr.shown ? 1.0 : 0.0};
      std::fwrite(head, sizeof head, 1, stdout);
      std::fwrite(frame.data(), 4, frame.size(), stdout);
    }
  }
  std::fprintf(stderr, "ColorTracker on %d frames of %dx%d, %d stretches hidden\n", kFrames, kW, kH, hidden_stretches);
  Report("smooth 1 (default)", smooth1);
  Report("smooth 0 (unfiltered)", smooth0);
  return 0;
}
