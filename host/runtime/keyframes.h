// Keyframe tracks for `--dyn NAME=v0@t0,v1@t1,...`: values at times in
// seconds, linear in between, held before the first and after the last key.
// "NAME=v" is a constant.
#pragma once

#include <string>
#include <vector>

namespace nimbo::host {

struct Keyframe {
  double time;  // seconds
  double value;
};

struct KeyframeTrack {
  std::string name;
  std::vector<Keyframe> keys;  // times strictly increasing

  double ValueAt(double time) const;
  double Minimum() const;
  double Maximum() const;
};

// Parses NAME=KEYS. Values may also be true/false/on/off (1/0) for bool
// variables. Throws HostError on a malformed keyframe list or times that do not
// increase.
KeyframeTrack ParseKeyframeTrack(const std::string& assignment);

}  // namespace nimbo::host
