// The metaball field of Blob 3D: blobs on looping paths, and their summed
// field sampled on a grid.
//
// Each blob b adds strength * r^2 / (d^2 + kBlobSoftening) at distance d
// from its centre, so a blob alone shows a sphere of radius
// r * sqrt(strength / threshold) and nearby blobs flow into one another.
// The row kernel exists twice, a plain reference and an SSE2 version that
// performs the same float operations in the same order (equal to the bit).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace nimbo::blob {

inline constexpr float kBlobSoftening = 1e-4f;
inline constexpr int32_t kMaxBlobs = 16;

struct Blob {
  float x, y, z;  // centre, in the field's cube [-1, 1]^3
  float weight;   // strength * radius^2
};

// Where the `count` blobs are at time `t` (seconds of path time): each runs
// its own loop (a Lissajous figure with frequencies of its own) inside a
// cube of half-side `spread`; all of size `radius` and `strength`.
std::vector<Blob> BlobsAt(int32_t count, float t, float spread, float radius, float strength);

// Row kernels: out[i] = sum over blobs of weight / ((x_i - bx)^2 + yz[b])
// with x_i = x0 + dx * i and yz[b] = (y - by)^2 + (z - bz)^2 + softening.
void BlobRowScalar(float* out, int32_t n, float x0, float dx, std::span<const Blob> blobs, const float* yz);
void BlobRowSse2(float* out, int32_t n, float x0, float dx, std::span<const Blob> blobs, const float* yz);

// The field on a side^3 grid over [-1, 1]^3 (x fastest), into `field`.
void FillBlobField(std::span<const Blob> blobs, int32_t side, std::vector<float>& field);

}  // namespace nimbo::blob
