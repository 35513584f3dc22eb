// The frei0r host's timestamps as the effect's clock.
//
// frei0r passes a time with every frame, but not in one unit: MLT and
// GStreamer pass seconds, ffmpeg passes milliseconds. The period between the
// first two frames tells which (a frame period of a second or more in seconds
// would be a slide show; less than a millisecond would be over 1000 frames a
// second), and the period also tells a seek from the next frame: a time that
// goes back, repeats, or leaps forward by more than 2.5 periods is a jump,
// after which the effect's history starts over. The effect's clock never
// runs back without such a start: the first frame's time, before the unit
// is known, is taken for milliseconds, and a seconds host whose times begin
// before 0 starts over at its second frame.
#pragma once

#include <cstdint>

namespace nimbo::frei0r {

class HostClock {
 public:
  struct Tick {
    double seconds = 0;    // the frame's time
    int64_t ms = 0;        // the effect's clock (rounded down, like nimbo's frame time)
    int64_t frame = 0;     // the frame's number, counted in periods from time 0
    bool jumped = false;   // a seek: the effect starts over
  };

  Tick Advance(double time);
  // Milliseconds once the period is known to be in them.
  bool InMilliseconds() const { return milliseconds_; }

 private:
  bool started_ = false;
  double last_ = 0;
  double period_ = 0;  // in the host's unit; 0 until two frames were seen
  bool milliseconds_ = false;
  Tick last_tick_;  // what a time that teaches nothing repeats
};

}  // namespace nimbo::frei0r
