// The bridge's clock over the timestamps hosts really send and the ones they
// send by mistake: streams that start at 0 or elsewhere (negative, a second
// in, 5 s in), seeks back and forward by hours, repeated and dropped frames, and
// times no clock holds (NaN, infinities, 1e300). Each run is checked for
// when the effect starts over and for the clock the effect sees, which
// between two restarts must never go back.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "bridge_clock.h"

namespace nimbo::frei0r {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr int64_t kAny = std::numeric_limits<int64_t>::min();  // an effect clock the case does not pin

struct ClockCase {
  std::string name;
  std::vector<double> times;   // what the host passes, frame by frame
  std::vector<int64_t> ms;     // the effect's clock per frame (kAny: not pinned)
  std::vector<size_t> jumps;   // the frames at which the effect starts over
};

// The ticks of one fresh clock over `times`.
std::vector<HostClock::Tick> Ticks(const std::vector<double>& times) {
  HostClock clock;
  std::vector<HostClock::Tick> ticks;
  for (double t : times) ticks.push_back(clock.Advance(t));
  return ticks;
}

TEST(BridgeClock, StartsOverExactlyAtSeeksAndNeverRunsBackBetweenThem) {
  constexpr double kHour = 3600.0;
  const std::vector<ClockCase> cases = {
      {"ffmpeg from 0 (milliseconds)", {0, 40, 80, 120}, {0, 40, 80, 120}, {}},
      {"MLT from 0 (seconds)", {0, 0.04, 0.08, 0.12}, {0, 40, 80, 120}, {}},
      // The unit is only known at the second frame; the first is taken for
      // milliseconds. ffmpeg's streams that start elsewhere than 0 keep
      // their exact clock and their history; a seconds host's first clock
      // is too small, so its clock leaps forward, or, from before 0, would
      // run back: there the effect starts over.
      {"milliseconds from a second in", {1000, 1040, 1080, 1120}, {1000, 1040, 1080, 1120}, {}},
      {"milliseconds, negative start", {-80, -40, 0, 40}, {-80, -40, 0, 40}, {}},
      {"seconds from 5 s", {5.0, 5.04, 5.08}, {kAny, 5040, 5080}, {}},
      {"seconds, negative start", {-0.08, -0.04, 0, 0.04}, {kAny, -40, 0, 40}, {1}},
      {"seek back", {0, 40, 80, 120, 40, 80}, {0, 40, 80, 120, 40, 80}, {4}},
      {"the same frame again", {0, 40, 80, 80, 120}, {0, 40, 80, 80, 120}, {3}},
      {"the first frame again", {0, 0, 40, 80}, {0, 0, 40, 80}, {1}},
      // Up to 2.5 periods is a dropped frame or two, beyond it a seek.
      {"dropped frames", {0, 40, 80, 160, 200, 320}, {0, 40, 80, 160, 200, 320}, {5}},
      {"an hour ahead (milliseconds)", {0, 40, 80, 80 + kHour * 1000, 120 + kHour * 1000},
       {0, 40, 80, 3600080, 3600120}, {3}},
      {"ten hours ahead (seconds)", {0, 0.04, 0.08, 10 * kHour, 10 * kHour + 0.04},
       {0, 40, 80, 36000000, 36000040}, {3}},
      // A time no clock holds counts on by one period, and is no seek.
      {"unusable times mid-run", {0, 40, kNaN, kInf, -kInf, 1e300, -1e300, 280},
       {0, 40, 80, 120, 160, 200, 240, 280}, {}},
      // Before the period is known an unusable time teaches nothing: the
      // unit and the period still come from the real times around it.
      {"NaN on the second frame (milliseconds)", {0, kNaN, 80, 120, 160}, {0, 0, 80, 120, 160}, {}},
      {"NaN on the second frame (seconds)", {0, kNaN, 0.08, 0.12, 0.16}, {0, 0, 80, 120, 160}, {}},
      {"NaN first (seconds from 5 s)", {kNaN, 5.0, 5.04, 5.08}, {0, kAny, 5040, 5080}, {}},
      {"1e300 first (milliseconds)", {1e300, 0, 40, 80}, {0, 0, 40, 80}, {}},
  };
  for (const ClockCase& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(c.times.size(), c.ms.size());
    const std::vector<HostClock::Tick> ticks = Ticks(c.times);
    std::vector<size_t> jumps;
    for (size_t i = 0; i < ticks.size(); ++i) {
      if (ticks[i].jumped) jumps.push_back(i);
      if (c.ms[i] != kAny) {
        EXPECT_EQ(ticks[i].ms, c.ms[i]) << "frame " << i;
      }
      if (i > 0 && !ticks[i].jumped) {
        EXPECT_GE(ticks[i].ms, ticks[i - 1].ms) << "the clock ran back at frame " << i;
      }
    }
    EXPECT_EQ(jumps, c.jumps);
  }
}

// Whatever the host sends, the effect's clock and the frame number stay far
// inside their integers, and every tick after the first comes out finite.
TEST(BridgeClock, NoTimeOverflowsTheEffectsClockOrTheFrameNumber) {
  const std::vector<std::vector<double>> runs = {
      {0, 40, 1e12, 1e12 + 40},           // the largest usable time, in milliseconds
      {0, 0.04, 1e12, 1e12 + 0.04},       // and in seconds: 1e15 ms
      {0, 1e-300, 1e12},                  // a period of almost nothing: huge frame numbers
      {-1e12, -1e12 + 0.04, 0},           // the most negative
      {0, 40, 1.7e101, -1.7e101, kNaN, 1e308, -kInf},
  };
  constexpr int64_t kBound = int64_t(1) << 62;
  for (const std::vector<double>& times : runs) {
    SCOPED_TRACE(::testing::Message() << "run starting " << times[0] << ", " << times[1]);
    for (const HostClock::Tick& tick : Ticks(times)) {
      EXPECT_TRUE(std::isfinite(tick.seconds));
      EXPECT_LT(std::llabs(tick.ms), kBound);
      EXPECT_LT(std::llabs(tick.frame), kBound);
    }
  }
  // Frame numbers count periods from time 0.
  const std::vector<HostClock::Tick> ticks = Ticks({0, 40, 80, 4000});
  EXPECT_EQ(ticks[2].frame, 2);
  EXPECT_EQ(ticks[3].frame, 100);
}

}  // namespace
}  // namespace nimbo::frei0r
