// The smoothing filter ColorTracker puts on its published values: an
// adaptive low-pass in the manner of the "one euro" filter. Its cutoff rises
// with the signal's speed, so a still object does not jitter while a moving
// one is followed with little lag, and a jump (an object found again after a
// re-scan) is taken almost at once.
//
// Units are per sample (one sample per frame): cutoffs are in cycles per
// frame, speed in value units per frame. The weight scales the smoothing:
// weight 0 passes samples through, weight 1 is the tracker's default, and
// larger weights lower both the resting cutoff and the speed response.
//
// A filter made with a period (the orientation, period 1) treats its values
// as circular: each sample is taken along the shorter way round from the
// filtered value, and the output is wrapped into [0, period).
#pragma once

#include <cmath>
#include <numbers>

namespace nimbo {

class SmoothingFilter {
 public:
  // Resting cutoff and speed gain at weight 1, tuned on the tracker's quality
  // benchmark: at rest a 1-pixel quantisation step is spread over a few
  // frames; at 10 pixels per frame the lag stays well below a pixel.
  static constexpr double kMinCutoff = 0.05;
  static constexpr double kBeta = 2000.0;
  static constexpr double kDerivativeCutoff = 0.1;

  explicit SmoothingFilter(double weight = 1.0, double period = 0.0)
      : weight_(std::isfinite(weight) && weight > 0 ? weight : 0.0),
        period_(std::isfinite(period) && period > 0 ? period : 0.0) {}

  // Feeds one sample and answers the filtered value.
  double Push(double sample) {
    if (!std::isfinite(sample)) return Value();
    if (!primed_ || weight_ == 0.0) {
      value_ = sample;
      speed_ = 0.0;
      primed_ = true;
      return Value();
    }
    if (period_ > 0) sample = value_ + WrapDelta(sample - value_);
    double raw_speed = sample - value_;
    speed_ += Alpha(kDerivativeCutoff) * (raw_speed - speed_);
    double cutoff = (kMinCutoff + kBeta * std::abs(speed_)) / weight_;
    value_ += Alpha(cutoff) * (sample - value_);
    if (period_ > 0) value_ = Wrap(value_);
    return Value();
  }

  double Value() const { return value_; }
  void Reset() { primed_ = false; }

 private:
  // Smoothing factor of a one-pole low-pass with cutoff `fc` cycles per sample.
  static double Alpha(double fc) {
    double tau = 1.0 / (2.0 * std::numbers::pi * fc);
    return 1.0 / (1.0 + tau);
  }
  double Wrap(double v) const {
    double w = std::fmod(v, period_);
    return w < 0 ? w + period_ : w;
  }
  // The difference taken the shorter way round: in [-period/2, period/2).
  double WrapDelta(double d) const {
    double w = Wrap(d + period_ / 2);
    return w - period_ / 2;
  }

  double weight_;
  double period_;
  double value_ = 0.0;
  double speed_ = 0.0;
  bool primed_ = false;
};

}  // namespace nimbo
