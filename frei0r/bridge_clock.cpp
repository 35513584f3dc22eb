#include "bridge_clock.h"

#include <cmath>

namespace nimbo::frei0r {
namespace {

constexpr double kJumpPeriods = 2.5;
// Host times carry the rounding of pts * time base (k * 0.04 * 1000 may be
// 119.99999999); nimbo's frame time is exact, so round within this much.
constexpr double kMsSlack = 1e-6;

}  // namespace

HostClock::Tick HostClock::Advance(double time) {
  Tick tick;
  if (!std::isfinite(time)) {
    // No usable time: count frames at an assumed 25 a second.
    time = started_ ? last_ + (period_ > 0 ? period_ : (milliseconds_ ? 40.0 : 0.04)) : 0.0;
  }
  if (started_) {
    const double step = time - last_;
    if (step <= 0) {
      tick.jumped = true;
    } else if (period_ == 0) {
      period_ = step;
      milliseconds_ = step >= 1.0;
    } else if (step > kJumpPeriods * period_) {
      tick.jumped = true;
    }
  }
  started_ = true;
  last_ = time;
  tick.seconds = milliseconds_ ? time / 1000.0 : time;
  tick.ms = int64_t(std::floor(tick.seconds * 1000.0 + kMsSlack));
  const double period_seconds = milliseconds_ ? period_ / 1000.0 : period_;
  tick.frame = period_seconds > 0 ? int64_t(std::llround(tick.seconds / period_seconds)) : 0;
  return tick;
}

}  // namespace nimbo::frei0r
