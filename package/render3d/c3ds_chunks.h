// Walking the chunk tree of a .3ds file without trusting it.
//
// A chunk is a 16-bit id, a 32-bit length that counts its own 6-byte header,
// then its data and sub-chunks. ChunkList walks the sub-chunks of one range
// and refuses any chunk shorter than its header or longer than what is left
// of its parent; ByteReader reads little-endian values from one range and
// fails, sticky, instead of reading past it. Neither ever looks outside the
// range it was given, so a load that walks only ranges it got from them
// never reads past the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "render3d/c3ds_scene.h"

namespace nimbo::scene3ds {

namespace id {
inline constexpr uint16_t kColorF = 0x0010;
inline constexpr uint16_t kColor24 = 0x0011;
inline constexpr uint16_t kIntPercentage = 0x0030;
inline constexpr uint16_t kFloatPercentage = 0x0031;
inline constexpr uint16_t kAmbientLight = 0x2100;
inline constexpr uint16_t kMData = 0x3D3D;
inline constexpr uint16_t kNamedObject = 0x4000;
inline constexpr uint16_t kNTriObject = 0x4100;
inline constexpr uint16_t kPointArray = 0x4110;
inline constexpr uint16_t kFaceArray = 0x4120;
inline constexpr uint16_t kMshMatGroup = 0x4130;
inline constexpr uint16_t kTexVerts = 0x4140;
inline constexpr uint16_t kMeshMatrix = 0x4160;
inline constexpr uint16_t kNDirectLight = 0x4600;
inline constexpr uint16_t kDlSpotlight = 0x4610;
inline constexpr uint16_t kNCamera = 0x4700;
inline constexpr uint16_t kM3DMagic = 0x4D4D;
inline constexpr uint16_t kMatName = 0xA000;
inline constexpr uint16_t kMatAmbient = 0xA010;
inline constexpr uint16_t kMatDiffuse = 0xA020;
inline constexpr uint16_t kMatSpecular = 0xA030;
inline constexpr uint16_t kMatShininess = 0xA040;
inline constexpr uint16_t kMatShin2Pct = 0xA041;
inline constexpr uint16_t kMatTransparency = 0xA050;
inline constexpr uint16_t kMatXpFall = 0xA052;
inline constexpr uint16_t kMatRefBlur = 0xA053;
inline constexpr uint16_t kMatTwoSide = 0xA081;
inline constexpr uint16_t kMatAdditive = 0xA083;
inline constexpr uint16_t kMatWire = 0xA085;
inline constexpr uint16_t kMatPhongSoft = 0xA08C;
inline constexpr uint16_t kMatTexMap = 0xA200;
inline constexpr uint16_t kMatSpecMap = 0xA204;
inline constexpr uint16_t kMatOpacMap = 0xA210;
inline constexpr uint16_t kMatReflMap = 0xA220;
inline constexpr uint16_t kMatBumpMap = 0xA230;
inline constexpr uint16_t kMatMapName = 0xA300;
inline constexpr uint16_t kMatEntry = 0xAFFF;
inline constexpr uint16_t kKfData = 0xB000;
inline constexpr uint16_t kObjectNodeTag = 0xB002;
inline constexpr uint16_t kCameraNodeTag = 0xB003;
inline constexpr uint16_t kTargetNodeTag = 0xB004;
inline constexpr uint16_t kLightNodeTag = 0xB005;
inline constexpr uint16_t kLTargetNodeTag = 0xB006;
inline constexpr uint16_t kSpotlightNodeTag = 0xB007;
inline constexpr uint16_t kKfSeg = 0xB008;
inline constexpr uint16_t kNodeHdr = 0xB010;
inline constexpr uint16_t kInstanceName = 0xB011;
inline constexpr uint16_t kPivot = 0xB013;
inline constexpr uint16_t kPosTrackTag = 0xB020;
inline constexpr uint16_t kRotTrackTag = 0xB021;
inline constexpr uint16_t kSclTrackTag = 0xB022;
inline constexpr uint16_t kFovTrackTag = 0xB023;
inline constexpr uint16_t kRollTrackTag = 0xB024;
inline constexpr uint16_t kMorphTrackTag = 0xB026;
inline constexpr uint16_t kHideTrackTag = 0xB029;
inline constexpr uint16_t kNodeId = 0xB030;
}  // namespace id

inline constexpr size_t kChunkHeader = 6;

struct Chunk {
  uint16_t id = 0;
  const uint8_t* begin = nullptr;  // the header
  const uint8_t* data = nullptr;   // after the header
  const uint8_t* end = nullptr;    // one past the chunk
  size_t size() const { return size_t(end - begin); }
};

// Little-endian values from [pos, end). A read that does not fit fails and
// every later read fails too (the value read is then zero).
class ByteReader {
 public:
  ByteReader(const uint8_t* pos, const uint8_t* end) : pos_(pos), end_(end) {}
  explicit ByteReader(const Chunk& c) : pos_(c.data), end_(c.end) {}

  bool ok() const { return ok_; }
  size_t remaining() const { return ok_ ? size_t(end_ - pos_) : 0; }
  const uint8_t* pos() const { return pos_; }
  const uint8_t* end() const { return end_; }

  uint16_t U16() {
    uint8_t b[2] = {0, 0};
    Take(b, 2);
    return uint16_t(b[0] | b[1] << 8);
  }
  uint32_t U32() {
    uint8_t b[4] = {0, 0, 0, 0};
    Take(b, 4);
    return uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
  }
  int32_t I32() { return int32_t(U32()); }
  int16_t I16() { return int16_t(U16()); }
  float F32() {
    const uint32_t bits = U32();
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  // Three floats as the file has them.
  Vec3 Vec() {
    Vec3 v;
    v.x = F32();
    v.y = F32();
    v.z = F32();
    return v;
  }
  // Three floats of a point, its y and z swapped into the engine's axes.
  Vec3 Point() {
    Vec3 v;
    v.x = F32();
    v.z = F32();
    v.y = F32();
    return v;
  }
  // A zero-terminated string; fails when no zero ends it inside the range.
  std::string String() {
    if (!ok_) return {};
    const void* zero = std::memchr(pos_, 0, size_t(end_ - pos_));
    if (!zero) {
      ok_ = false;
      return {};
    }
    std::string text(reinterpret_cast<const char*>(pos_), static_cast<const uint8_t*>(zero) - pos_);
    pos_ = static_cast<const uint8_t*>(zero) + 1;
    return text;
  }
  bool Skip(size_t bytes) {
    if (!ok_ || size_t(end_ - pos_) < bytes) return ok_ = false;
    pos_ += bytes;
    return true;
  }
  void Fail() { ok_ = false; }

 private:
  void Take(uint8_t* out, size_t n) {
    if (!ok_ || size_t(end_ - pos_) < n) {
      ok_ = false;
      return;
    }
    std::memcpy(out, pos_, n);
    pos_ += n;
  }

  const uint8_t* pos_;
  const uint8_t* end_;
  bool ok_ = true;
};

// The chunks that follow each other in [pos, end). Fewer than six bytes left
// at the end are padding, not a chunk, and end the walk quietly.
class ChunkList {
 public:
  ChunkList(const uint8_t* pos, const uint8_t* end) : pos_(pos), end_(end) {}
  // The sub-chunks of `parent` after its first `skip` data bytes (its own
  // values); a parent whose values do not fit is malformed.
  ChunkList(const Chunk& parent, size_t skip) : pos_(parent.data), end_(parent.end) {
    if (size_t(end_ - pos_) < skip) {
      bad_ = true;
      pos_ = end_;
    } else {
      pos_ += skip;
    }
  }
  static ChunkList After(const ByteReader& r) { return ChunkList(r.pos(), r.end()); }

  // The next chunk, or false at the end or on a malformed chunk (bad()).
  bool Next(Chunk* chunk) {
    if (bad_ || size_t(end_ - pos_) < kChunkHeader) return false;
    const uint16_t chunk_id = uint16_t(pos_[0] | pos_[1] << 8);
    const uint32_t length =
        uint32_t(pos_[2]) | uint32_t(pos_[3]) << 8 | uint32_t(pos_[4]) << 16 | uint32_t(pos_[5]) << 24;
    if (length < kChunkHeader || length > size_t(end_ - pos_)) {
      bad_ = true;
      return false;
    }
    chunk->id = chunk_id;
    chunk->begin = pos_;
    chunk->data = pos_ + kChunkHeader;
    chunk->end = pos_ + length;
    pos_ = chunk->end;
    return true;
  }
  bool bad() const { return bad_; }

 private:
  const uint8_t* pos_;
  const uint8_t* end_;
  bool bad_ = false;
};

// The first chunk with `chunk_id` in `list`; false when there is none or the
// list is malformed before it (then list.bad()).
inline bool FindChunk(ChunkList& list, uint16_t chunk_id, Chunk* found) {
  Chunk c;
  while (list.Next(&c)) {
    if (c.id == chunk_id) {
      *found = c;
      return true;
    }
  }
  return false;
}

}  // namespace nimbo::scene3ds
