#include "runtime/keyframes.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

bool ParseNumber(const std::string& text, double* out) {
  if (text == "true" || text == "on") {
    *out = 1;
    return true;
  }
  if (text == "false" || text == "off") {
    *out = 0;
    return true;
  }
  const char* begin = text.c_str();
  const char* end = begin + text.size();
  if (begin != end && *begin == '+') ++begin;
  auto [ptr, ec] = std::from_chars(begin, end, *out);
  return ec == std::errc() && ptr == end && begin != end && std::isfinite(*out);
}

}  // namespace

double KeyframeTrack::ValueAt(double time) const {
  if (keys.empty()) return 0;
  if (time <= keys.front().time) return keys.front().value;
  if (time >= keys.back().time) return keys.back().value;
  auto next = std::upper_bound(keys.begin(), keys.end(), time, [](double t, const Keyframe& k) { return t < k.time; });
  auto prev = next - 1;
  const double f = (time - prev->time) / (next->time - prev->time);
  return prev->value + (next->value - prev->value) * f;
}

double KeyframeTrack::Minimum() const {
  double m = keys.empty() ? 0 : keys.front().value;
  for (const Keyframe& k : keys) m = std::min(m, k.value);
  return m;
}

double KeyframeTrack::Maximum() const {
  double m = keys.empty() ? 0 : keys.front().value;
  for (const Keyframe& k : keys) m = std::max(m, k.value);
  return m;
}

KeyframeTrack ParseKeyframeTrack(const std::string& assignment) {
  const std::string where = "--dyn " + assignment + ": ";
  const size_t eq = assignment.rfind('=');
  if (eq == std::string::npos || eq == 0) throw HostError(where + "expected NAME=VALUE or NAME=v0@t0,v1@t1,...");
  KeyframeTrack track;
  track.name = assignment.substr(0, eq);
  const std::string keys = assignment.substr(eq + 1);
  size_t start = 0;
  for (;;) {
    const size_t comma = keys.find(',', start);
    const std::string item = keys.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    const size_t at = item.find('@');
    Keyframe key{0, 0};
    if (!ParseNumber(item.substr(0, at), &key.value))
      throw HostError(where + Quoted(item) + " is not a value (a number, or VALUE@SECONDS)");
    if (at != std::string::npos) {
      if (!ParseNumber(item.substr(at + 1), &key.time) || key.time < 0)
        throw HostError(where + Quoted(item) + " has no valid time (seconds from the start)");
    } else if (comma != std::string::npos || start != 0) {
      throw HostError(where + Quoted(item) + " needs a time: VALUE@SECONDS");
    }
    if (!track.keys.empty() && key.time <= track.keys.back().time)
      throw HostError(where + "key times must increase");
    track.keys.push_back(key);
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return track;
}

}  // namespace nimbo::host
