// Reading keyframe tracks. A track is a 16-bit flags word, eight reserved
// bytes and a 32-bit key count; each key is a 32-bit frame, a 16-bit word
// whose bits 0..4 say which spline values follow (tension, continuity, bias,
// ease to, ease from; one float each), then the key's value. The key count
// is checked against the bytes left before anything is allocated for it.
#include <cmath>

#include "c3ds_math.h"
#include "c3ds_tracks.h"

namespace nimbo::scene3ds {
namespace {

constexpr size_t kKeyHeader = 6;  // frame and spline flags

// The track header; false when the key count could not fit in the bytes
// left with at least `min_key` bytes per key.
bool ReadHeader(ByteReader& r, size_t min_key, uint16_t* flags, uint32_t* count) {
  *flags = r.U16();
  r.Skip(8);
  *count = r.U32();
  return r.ok() && r.remaining() / min_key >= *count;
}

KeySpline ReadSpline(ByteReader& r, int32_t* end_frame) {
  KeySpline s;
  s.frame = r.I32();
  const uint16_t bits = r.U16();
  if (bits & 1) s.tension = r.F32();
  if (bits & 2) s.continuity = r.F32();
  if (bits & 4) s.bias = r.F32();
  if (bits & 8) s.ease_to = r.F32();
  if (bits & 16) s.ease_from = r.F32();
  if (r.ok() && s.frame > *end_frame) *end_frame = s.frame;
  return s;
}

// The engine's quaternion of a file rotation: the y-z swap mirrors space,
// which turns a rotation's sense around; with the file's angles counting the
// other way round, the angle stays as it is and only the axis is swapped.
Vec3 LogStep(float angle, Vec3 axis) {
  const Vec3 engine_axis{axis.x, axis.z, axis.y};
  const float length = Length(engine_axis);
  if (!(length > 0) || !std::isfinite(angle)) return {};
  return engine_axis * (0.5f * angle / length);
}

}  // namespace

bool ReadVectorTrack(const Chunk& c, Track<VectorKey>* track, int32_t* end_frame) {
  ByteReader r(c);
  uint32_t count = 0;
  if (!ReadHeader(r, kKeyHeader + 12, &track->flags, &count)) return false;
  track->keys.clear();
  track->keys.reserve(count);
  for (uint32_t k = 0; k < count; ++k) {
    VectorKey key;
    key.spline = ReadSpline(r, end_frame);
    key.value = r.Point();
    if (!r.ok()) return false;
    track->keys.push_back(key);
  }
  PrepareTrack(track);
  return true;
}

bool ReadFloatTrack(const Chunk& c, Track<FloatKey>* track, int32_t* end_frame) {
  ByteReader r(c);
  uint32_t count = 0;
  if (!ReadHeader(r, kKeyHeader + 4, &track->flags, &count)) return false;
  track->keys.clear();
  track->keys.reserve(count);
  for (uint32_t k = 0; k < count; ++k) {
    FloatKey key;
    key.spline = ReadSpline(r, end_frame);
    key.value = r.F32();
    if (!r.ok()) return false;
    track->keys.push_back(key);
  }
  PrepareTrack(track);
  return true;
}

bool ReadRotationTrack(const Chunk& c, Track<RotationKey>* track, int32_t* end_frame) {
  ByteReader r(c);
  uint32_t count = 0;
  if (!ReadHeader(r, kKeyHeader + 16, &track->flags, &count)) return false;
  std::vector<RotationKey>& keys = track->keys;
  keys.clear();
  keys.reserve(count + 1);
  for (uint32_t k = 0; k < count; ++k) {
    RotationKey key;
    key.spline = ReadSpline(r, end_frame);
    key.angle = r.F32();
    key.axis = r.Vec();
    if (!r.ok()) return false;
    keys.push_back(key);
  }

  if (keys.size() == 2) {
    // Two keys get a third half way, carrying half of the second key's turn
    // (the second keeps the other half), so that a turn of more than half a
    // circle keeps its direction. Both halves turn about a slightly tilted
    // axis.
    RotationKey middle;
    const int64_t first = keys[0].spline.frame, second = keys[1].spline.frame;
    middle.spline.frame = int32_t(first + (second - first) / 2);
    const Vec3 axis{keys[1].axis.x, keys[1].axis.y - 0.00041f, keys[1].axis.z + 0.00041f};
    middle.angle = keys[1].angle / 2;
    middle.axis = axis;
    keys[1].angle -= middle.angle;
    keys[1].axis = axis;
    keys.insert(keys.begin() + 1, middle);
  }

  // Keys are relative: the running orientation takes each key's turn in
  // turn, and the running angle sums the turns.
  Quat running;
  float angle_sum = 0;
  for (size_t k = 0; k < keys.size(); ++k) {
    RotationKey& key = keys[k];
    key.log_step = LogStep(key.angle, key.axis);
    running = Normalized(Exp(key.log_step) * running);
    angle_sum = k == 0 ? key.angle : angle_sum + key.angle;
    key.rotation = running;
    key.angle_sum = angle_sum;
  }
  PrepareTrack(track);
  return true;
}

bool ReadMorphTrack(const Chunk& c, const std::vector<Mesh>& meshes, Track<MorphKey>* track, int32_t* end_frame) {
  ByteReader r(c);
  uint32_t count = 0;
  if (!ReadHeader(r, kKeyHeader + 1, &track->flags, &count)) return false;
  track->keys.clear();
  track->keys.reserve(count);
  for (uint32_t k = 0; k < count; ++k) {
    MorphKey key;
    key.spline = ReadSpline(r, end_frame);
    key.target = r.String();
    if (!r.ok()) return false;
    for (size_t m = 0; m < meshes.size() && key.mesh < 0; ++m)
      if (meshes[m].name == key.target) key.mesh = int(m);
    track->keys.push_back(std::move(key));
  }
  return true;
}

bool ReadHideTrack(const Chunk& c, Track<HideKey>* track, int32_t* end_frame) {
  ByteReader r(c);
  uint32_t count = 0;
  if (!ReadHeader(r, kKeyHeader, &track->flags, &count)) return false;
  track->keys.clear();
  track->keys.reserve(count);
  bool hidden = true;  // the first key hides, the next shows, and so on
  for (uint32_t k = 0; k < count; ++k) {
    HideKey key;
    key.spline = ReadSpline(r, end_frame);
    if (!r.ok()) return false;
    key.hidden = hidden;
    hidden = !hidden;
    track->keys.push_back(key);
  }
  return true;
}

}  // namespace nimbo::scene3ds
