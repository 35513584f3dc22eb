// Orrery host SDK: the plain data types that cross the plug-in boundary.
//
// Pixel layout: every screen is width x height 32-bit words 0xAARRGGBB, rows
// top to bottom with no row padding. On a little-endian machine the bytes of a
// pixel lie in memory as B, G, R, A. Filters treat A as a plain fourth byte
// unless an effect documents otherwise.
//
// Ownership: the host owns every Screen it passes; an effect never frees or
// keeps a Screen's pixel pointer beyond the call that received it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orrery {

// The interface version every effect of this SDK reports (high half 350).
inline constexpr uint32_t kEffectVersion = 0x015E0000u;

// A width and height pair, returned by value. -1 means "follow the host".
struct Size {
  int32_t width;
  int32_t height;
  friend bool operator==(const Size&, const Size&) = default;
};

// One host bitmap. `pixels` points at width * height words.
struct Screen {
  int32_t width = 0;
  int32_t height = 0;
  uint32_t* pixels = nullptr;

  size_t PixelCount() const { return size_t(width > 0 ? width : 0) * size_t(height > 0 ? height : 0); }
};

// The input screens of one Render call, in the effect's input order. An input
// the host cannot supply is a null entry; Get() also answers null past the end.
// Inputs are read-only for the effect.
struct InputList {
  const Screen* const* screens = nullptr;
  int32_t count = 0;

  const Screen* Get(int32_t index) const {
    return (index >= 0 && index < count) ? screens[index] : nullptr;
  }
};

// A small picture compiled into a plug-in (the label shown in the host's
// effect browser). Owned by the plug-in for the life of the process.
struct Bitmap {
  int32_t width;
  int32_t height;
  const uint32_t* pixels;  // 0xAARRGGBB, rows top to bottom
};

// One input an effect asks of the host.
struct InputDesc {
  int32_t default_width;   // -1 = follow the host
  int32_t default_height;  // -1 = follow the host
  const char* type_name;
};

// The static description of one effect type, constant for the life of the
// process. Field order is part of the contract.
struct EffectInfo {
  const InputDesc* inputs;
  int32_t count;
  Size output_size;         // -1 x -1 = host default
  const char* output_name;  // "" for most filters
  const char* name;         // as the host lists it, e.g. "nimbo one\\ReScaler"
  const char* author;
  const char* category;     // comma-separated path with a trailing comma
  uint64_t id;
  uint32_t version;
};

}  // namespace orrery
