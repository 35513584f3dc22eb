// Kochanek-Bartels (TCB) splines with ease: Hermite segments for position,
// scale and the camera's field of view and roll; for rotations the same
// curve in the logarithm space of each segment's first orientation, whose
// end is the next key's own turn, so that turns of half a circle or more
// keep their way.
#include <algorithm>
#include <cmath>

#include "c3ds_math.h"
#include "c3ds_tracks.h"

namespace nimbo::scene3ds {
namespace {

// The incoming and outgoing tangent weights of a key for the differences
// before (g1) and after (g2) it, with the spacing of its neighbours.
struct TcbWeights {
  float in1, in2, out1, out2;
};

TcbWeights Weights(const KeySpline& s, float before_frames, float after_frames) {
  const float t = 1 - s.tension, c = s.continuity, b = s.bias;
  TcbWeights w;
  w.in1 = t * (1 - c) * (1 + b) / 2;
  w.in2 = t * (1 + c) * (1 - b) / 2;
  w.out1 = t * (1 + c) * (1 + b) / 2;
  w.out2 = t * (1 - c) * (1 - b) / 2;
  const float span = before_frames + after_frames;
  if (span > 0) {
    const float in_scale = 2 * before_frames / span, out_scale = 2 * after_frames / span;
    w.in1 *= in_scale;
    w.in2 *= in_scale;
    w.out1 *= out_scale;
    w.out2 *= out_scale;
  }
  return w;
}

float Frames(const KeySpline& from, const KeySpline& to) { return float(int64_t(to.frame) - from.frame); }

template <class Key>
void PrepareHermite(std::vector<Key>& keys) {
  const size_t n = keys.size();
  if (n < 2) return;
  for (size_t i = 0; i < n; ++i) {
    // At the ends the missing difference repeats the one there is.
    const auto g2 = i + 1 < n ? keys[i + 1].value - keys[i].value : keys[i].value - keys[i - 1].value;
    const auto g1 = i > 0 ? keys[i].value - keys[i - 1].value : g2;
    const float before = i > 0 ? Frames(keys[i - 1].spline, keys[i].spline) : Frames(keys[i].spline, keys[i + 1].spline);
    const float after = i + 1 < n ? Frames(keys[i].spline, keys[i + 1].spline) : before;
    const TcbWeights w = Weights(keys[i].spline, before, after);
    keys[i].in_tangent = g1 * w.in1 + g2 * w.in2;
    keys[i].out_tangent = g1 * w.out1 + g2 * w.out2;
  }
}

// The segment [i, i + 1] holding `frame` and the eased parameter in it;
// false when `frame` is before the first key or at/after the last (then *i
// is that key).
template <class Key>
bool Segment(const std::vector<Key>& keys, float frame, size_t* i, float* u) {
  if (keys.size() < 2 || !(frame > float(keys.front().spline.frame))) {
    *i = 0;
    return false;
  }
  if (!(frame < float(keys.back().spline.frame))) {
    *i = keys.size() - 1;
    return false;
  }
  const auto after = std::upper_bound(keys.begin(), keys.end(), frame,
                                      [](float f, const Key& k) { return f < float(k.spline.frame); });
  *i = size_t(std::max<std::ptrdiff_t>(after - keys.begin() - 1, 0));
  if (*i + 1 >= keys.size()) {
    *i = keys.size() - 1;
    return false;
  }
  const Key& a = keys[*i];
  const Key& b = keys[*i + 1];
  const float span = Frames(a.spline, b.spline);
  const float raw = span > 0 ? std::clamp((frame - float(a.spline.frame)) / span, 0.0f, 1.0f) : 0.0f;
  *u = Ease(raw, a.spline.ease_from, b.spline.ease_to);
  return true;
}

template <class Key, class Value>
Value Hermite(const Key& a, const Key& b, float u) {
  const float u2 = u * u, u3 = u2 * u;
  const float h1 = 2 * u3 - 3 * u2 + 1, h2 = -2 * u3 + 3 * u2, h3 = u3 - 2 * u2 + u, h4 = u3 - u2;
  return a.value * h1 + b.value * h2 + a.out_tangent * h3 + b.in_tangent * h4;
}

// The step key at `frame`: the last key at or before it; -1 before the first.
template <class Key>
std::ptrdiff_t StepKey(const std::vector<Key>& keys, float frame) {
  const auto after = std::upper_bound(keys.begin(), keys.end(), frame,
                                      [](float f, const Key& k) { return f < float(k.spline.frame); });
  return (after - keys.begin()) - 1;
}

Vec3 Rotate(Quat q, Vec3 v) {
  const Quat r = q * Quat{0, v.x, v.y, v.z} * Conjugate(q);
  return {r.x, r.y, r.z};
}

}  // namespace

float Ease(float u, float ease_from, float ease_to) {
  // Values outside 0..1 (or not numbers) are taken as their nearest sense.
  float a = ease_from > 0 ? std::min(ease_from, 1.0f) : 0.0f;
  float b = ease_to > 0 ? std::min(ease_to, 1.0f) : 0.0f;
  const float sum = a + b;
  if (!(sum > 0)) return u;
  if (sum > 1) {
    a /= sum;
    b /= sum;
  }
  const float k = 1 / (2 - a - b);
  if (a > 0 && u < a) return k / a * u * u;
  if (!(b > 0) || u < 1 - b) return k * (2 * u - a);
  const float rest = 1 - u;
  return 1 - k / b * rest * rest;
}

void PrepareTrack(Track<VectorKey>* track) { PrepareHermite(track->keys); }
void PrepareTrack(Track<FloatKey>* track) { PrepareHermite(track->keys); }

void PrepareTrack(Track<RotationKey>* track) {
  std::vector<RotationKey>& keys = track->keys;
  const size_t n = keys.size();
  if (n < 2) return;
  for (size_t i = 0; i < n; ++i) {
    // The turns into and out of key i, seen from its own orientation (a
    // key's turn is the same seen from before or after it).
    const Quat local = Conjugate(keys[i].rotation);
    const Vec3 g2 = Rotate(local, i + 1 < n ? keys[i + 1].log_step : keys[i].log_step);
    const Vec3 g1 = i > 0 ? Rotate(local, keys[i].log_step) : g2;
    const float before = i > 0 ? Frames(keys[i - 1].spline, keys[i].spline) : Frames(keys[i].spline, keys[i + 1].spline);
    const float after = i + 1 < n ? Frames(keys[i].spline, keys[i + 1].spline) : before;
    const TcbWeights w = Weights(keys[i].spline, before, after);
    keys[i].in_tangent = g1 * w.in1 + g2 * w.in2;
    keys[i].out_tangent = g1 * w.out1 + g2 * w.out2;
  }
}

void Evaluate(const Track<VectorKey>& track, float frame, Vec3* value) {
  if (track.keys.empty()) return;
  size_t i = 0;
  float u = 0;
  if (!Segment(track.keys, frame, &i, &u)) {
    *value = track.keys[i].value;
    return;
  }
  *value = Hermite<VectorKey, Vec3>(track.keys[i], track.keys[i + 1], u);
}

void Evaluate(const Track<FloatKey>& track, float frame, float* value) {
  if (track.keys.empty()) return;
  size_t i = 0;
  float u = 0;
  if (!Segment(track.keys, frame, &i, &u)) {
    *value = track.keys[i].value;
    return;
  }
  *value = Hermite<FloatKey, float>(track.keys[i], track.keys[i + 1], u);
}

void Evaluate(const Track<RotationKey>& track, float frame, Quat* value) {
  if (track.keys.empty()) return;
  size_t i = 0;
  float u = 0;
  if (!Segment(track.keys, frame, &i, &u)) {
    *value = track.keys[i].rotation;
    return;
  }
  const RotationKey& a = track.keys[i];
  const RotationKey& b = track.keys[i + 1];
  // A Hermite curve in the logarithm space of a's orientation, from no turn
  // to b's whole turn (of any size, so turns of half a circle or more keep
  // their way): it meets both keys exactly.
  const Vec3 turn = Rotate(Conjugate(a.rotation), b.log_step);
  const float u2 = u * u, u3 = u2 * u;
  const float h2 = -2 * u3 + 3 * u2, h3 = u3 - 2 * u2 + u, h4 = u3 - u2;
  const Vec3 v = turn * h2 + a.out_tangent * h3 + b.in_tangent * h4;
  *value = Normalized(a.rotation * Exp(v));
}

void Evaluate(const Track<MorphKey>& track, float frame, int* mesh) {
  if (track.keys.empty()) return;
  const std::ptrdiff_t k = StepKey(track.keys, frame);
  *mesh = track.keys[size_t(std::max<std::ptrdiff_t>(k, 0))].mesh;
}

void Evaluate(const Track<HideKey>& track, float frame, bool* hidden) {
  const std::ptrdiff_t k = StepKey(track.keys, frame);
  if (k >= 0) *hidden = track.keys[size_t(k)].hidden;
}

}  // namespace nimbo::scene3ds
