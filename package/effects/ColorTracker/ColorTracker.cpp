// ColorTracker: follows an object of one colour through the live image and
// publishes its position and orientation as the output values "track x",
// "track y" and "orientation" (each -1..1; y +1 at the top, angles
// counter-clockwise), optionally moving the mouse cursor with it. The
// picture passes through unchanged except for the optional debug overlay.
//
// Algorithm: a per-pixel match score from the chroma cone around the object
// colour (the keyer's cone test), searched by CTracker (iterative shrinking
// window with second-moment shape, prediction from the last positions,
// whole-screen re-scan when the match falls under the rescan limit); the
// position and orientation then pass through adaptive smoothing filters.
//
// Settings: "object_color" 0xRRGGBB; "tolerance" cone half-angle in degrees;
// "smooth" smoothing strength (0 = none); "pick_x"/"pick_y" where the colour
// was picked (0..1 of the frame); "debuginfo"; "rescanlimit" in percent of the
// full score; "attach_mouse".
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <memory>
#include <new>
#include <numbers>
#include <vector>

#include "color_tracker_search.h"
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "orrery/services.h"
#include "shared/smoothing_filter.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\ColorTracker",
                                      kAuthor,
                                      "Effect,Filter,Colour,",
                                      0x002540EBCB8A6441ull,
                                      orrery::kEffectVersion};

// ---- settings ----------------------------------------------------------------
struct TrackerSettings {
  int32_t object_color;
  float tolerance;
  int32_t smooth;
  float pick_x;
  float pick_y;
  int32_t debuginfo;
  int32_t rescanlimit;
  int32_t attach_mouse;
};

constexpr const char* kSmoothHint = "Increase 'smooth' to reduce jitter. Decrease for faster response (less delay).";
constexpr const char* kRescanHint = "Decrease to tolerate bad matching. Increase to re-scan more often (-> slower)";

// In the order the effect writes and reads them.
constexpr SettingRow<TrackerSettings> kRows[] = {
    {"object_color",
     &TrackerSettings::object_color,
     0x0000FF,
     nullptr,
     0,
     0xFFFFFF,
     "Object colour",
     "colour of the tracked object",
     false,
     {ShowAs::kColor}},
    {"tolerance", &TrackerSettings::tolerance, 30.0, nullptr, kMinTolerance, kMaxTolerance, "Tolerance",
     "cone half-angle in degrees"},
    {"smooth",
     &TrackerSettings::smooth,
     1,
     nullptr,
     0,
     100,
     "Smooth",
     "strength of the output smoothing filters",
     false,
     {.hint = kSmoothHint}},
    {"pick_x", &TrackerSettings::pick_x, 0.0, nullptr, 0, 1, "Pick x", "point where the colour was picked (x)"},
    {"pick_y", &TrackerSettings::pick_y, 0.0, nullptr, 0, 1, "Pick y", "point where the colour was picked (y)"},
    {"debuginfo", &TrackerSettings::debuginfo, 0, nullptr, 0, 1, "Debug info", "draw the debug overlay"},
    {"rescanlimit",
     &TrackerSettings::rescanlimit,
     20,
     nullptr,
     0,
     100,
     "Rescan limit",
     "minimum match score in percent before a full re-scan",
     false,
     {.hint = kRescanHint}},
    {"attach_mouse", &TrackerSettings::attach_mouse, 0, nullptr, 0, 1, "Attach mouse",
     "move the mouse cursor to the tracked point"},
};

std::atomic<int32_t> g_instances{0};

// Circular distance of two orientations in [0, 1).
double TurnDistance(double a, double b) {
  double d = std::fabs(a - b);
  return std::min(d, 1.0 - d);
}

// ---- the effect ------------------------------------------------------------------
class CColorTrackerDfx final : public CEffectBase {
 public:
  CColorTrackerDfx()
      : CEffectBase(kInfo, kLabelColorTracker, "helpfile/Effects/Misc/ColorTracker/ColorTracker.htm",
                    sizeof(CColorTrackerDfx)),
        instance_(++g_instances) {
    ApplyDefaults<TrackerSettings>(kRows, settings_);
    ResetFilters();
    orrery::RegisterOutputValue(this, "track x", "x coordinate of tracked point", &track_x_);
    orrery::RegisterOutputValue(this, "track y", "y coordinate of tracked point", &track_y_);
    orrery::RegisterOutputValue(this, "orientation", "orientation of tracked object", &orientation_);
  }
  ~CColorTrackerDfx() override { orrery::UnregisterOutputValues(this); }

  int32_t Initialize() override {
    std::lock_guard lock(lock_);
    FetchOutputSize();
    tracker_.reset();
    if (out_w_ > 4 && out_h_ > 4) CreateTracker(out_w_, out_h_);
    ResetFilters();
    params_changed_ = true;
    // The instance's name on the debug output, only while debugging.
    if (settings_.debuginfo) std::fprintf(stderr, "nimbo_one: CTracker (%i)\n", int(instance_));
    return 1;
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!CopyInputToOutput(inputs, output)) return 0;
    if (output->width <= 4 || output->height <= 4) return 0;
    if (!snapshot_.empty() && snapshot_w_ == output->width && snapshot_h_ == output->height) {
      snapshot_.assign(output->pixels, output->pixels + output->PixelCount());
    }
    // The tracker's buffers follow the frame size.
    if (!tracker_ || tracker_->Width() != output->width || tracker_->Height() != output->height) {
      if (!CreateTracker(output->width, output->height)) return 0;
    }
    if (params_changed_) {
      tracker_->SetObject(uint32_t(settings_.object_color) & 0xFFFFFF, settings_.tolerance,
                          std::clamp(settings_.rescanlimit, 0, 100));
      params_changed_ = false;
    }
    tracker_->SetDebug(settings_.debuginfo != 0);

    const double now = host_context_ ? double(host_context_->GetTimeMs()) / 1000.0 : 0.0;
    TrackResult r = tracker_->Track(output->pixels, now);

    // The tracker works in screen rows, which run top to bottom here, as do
    // the desktop's: the cursor goes to the same place on the desktop as the
    // object in the picture, never to its mirror image.
    const double fx = x_filter_.Push(r.x);
    const double fy = y_filter_.Push(r.y);
    if (settings_.attach_mouse) {
      platform::MoveCursor(int32_t(platform::DesktopWidth() * fx), int32_t(fy * platform::DesktopHeight()));
    }

    // The published values keep the meaning they had where pictures are
    // stored bottom-up: y and angles grow upwards. So the axis is turned
    // upright (its y negated) before its angle is taken, and "track y" is +1
    // at the top. The axis has no head: of the two directions it allows,
    // take the one nearer the last orientation so the output does not flip
    // by half a turn.
    double o = (std::atan2(-double(r.axis1.y), double(r.axis1.x)) + std::numbers::pi) / (2.0 * std::numbers::pi);
    double flipped = std::fmod(o + 0.5, 1.0);
    if (TurnDistance(flipped, last_orientation_) < TurnDistance(o, last_orientation_)) o = flipped;
    last_orientation_ = o;
    const double fo = orientation_filter_.Push(o);

    track_x_ = float(2.0 * fx - 1.0);
    track_y_ = float(1.0 - 2.0 * fy);
    orientation_ = float(2.0 * fo - 1.0);
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<TrackerSettings>(store, kRows, settings_);
    params_changed_ = true;
  }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<TrackerSettings>(store, kRows, settings_); }
  void DeclareHostControls() override { DescribeRows<TrackerSettings>(host_context_, kRows); }

  int32_t RunDialog() override {
    TrackerSettings edit;
    int32_t retrack = 0;
    {
      std::lock_guard lock(lock_);
      edit = settings_;
      // A live snapshot for picking the colour; Render keeps it filled.
      snapshot_w_ = out_w_;
      snapshot_h_ = out_h_;
      try {
        snapshot_.assign(size_t(out_w_) * size_t(out_h_), 0u);
      } catch (const std::bad_alloc&) {
        snapshot_.clear();
      }
    }
    // The stored settings as the table shows them, then the one button that
    // is no setting.
    const orrery::DialogField retrack_button[] = {
        {"Re-track whole screen to find object", orrery::DialogFieldType::kButton, &retrack, 0, 1, nullptr, nullptr}};
    SettingsDialog<TrackerSettings> dialog(kRows, edit, {}, retrack_button);
    const int32_t ok = dialog.Run("ColorTracker", HelpPage()) ? 1 : 0;

    std::lock_guard lock(lock_);
    if (ok) {
      const bool moved_pick = edit.pick_x != settings_.pick_x || edit.pick_y != settings_.pick_y;
      if (moved_pick && !snapshot_.empty()) edit.object_color = int32_t(PickColor(edit.pick_x, edit.pick_y));
      settings_ = edit;
      params_changed_ = true;
      if (retrack && tracker_) tracker_->ResetHistory();
      if (orrery::ConfigStore* store = host_context_ ? host_context_->GetConfigStore() : nullptr) WriteConfig(*store);
    }
    snapshot_.clear();
    snapshot_.shrink_to_fit();
    return ok;
  }

 private:
  bool CreateTracker(int32_t width, int32_t height) {
    try {
      tracker_ = std::make_unique<CTracker>(width, height);
    } catch (const std::bad_alloc&) {
      tracker_.reset();
    }
    mem_size_ = int32_t(sizeof(CColorTrackerDfx)) + (tracker_ ? int32_t(size_t(width) * size_t(height) * 5) : 0);
    params_changed_ = true;
    return tracker_ != nullptr;
  }

  void ResetFilters() {
    x_filter_ = SmoothingFilter(std::clamp(settings_.smooth, 0, 100));
    y_filter_ = SmoothingFilter(std::clamp(settings_.smooth, 0, 100));
    orientation_filter_ = SmoothingFilter(1.0, 1.0);
    last_orientation_ = 0.0;
  }

  // The snapshot's colour at a pick point given in fractions of the frame.
  uint32_t PickColor(float px, float py) const {
    int32_t x = std::clamp(int32_t(snapshot_w_ * std::clamp(px, 0.0f, 1.0f)), 0, snapshot_w_ - 1);
    int32_t y = std::clamp(int32_t(snapshot_h_ * std::clamp(py, 0.0f, 1.0f)), 0, snapshot_h_ - 1);
    return snapshot_[size_t(y) * size_t(snapshot_w_) + size_t(x)] & 0xFFFFFF;
  }

  const int32_t instance_;
  TrackerSettings settings_{};
  bool params_changed_ = true;

  std::unique_ptr<CTracker> tracker_;
  SmoothingFilter x_filter_;
  SmoothingFilter y_filter_;
  SmoothingFilter orientation_filter_{1.0, 1.0};
  double last_orientation_ = 0.0;

  // Published outputs, read by the host after each Render.
  float track_x_ = 0.0f;
  float track_y_ = 0.0f;
  float orientation_ = 0.0f;

  std::vector<uint32_t> snapshot_;
  int32_t snapshot_w_ = 0;
  int32_t snapshot_h_ = 0;
};

}  // namespace

orrery::Effect* NewColorTracker() { return CreateEffect<CColorTrackerDfx>(); }

}  // namespace nimbo
