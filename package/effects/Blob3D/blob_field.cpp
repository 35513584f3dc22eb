#include "blob_field.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>

namespace nimbo::blob {

std::vector<Blob> BlobsAt(int32_t count, float t, float spread, float radius, float strength) {
  std::vector<Blob> blobs;
  count = std::clamp(count, 0, kMaxBlobs);
  const float weight = strength * radius * radius;
  for (int32_t b = 0; b < count; ++b) {
    // Frequencies and phases spread by the golden ratio, so no two blobs
    // share a path and the figure repeats only after a long while.
    const float k = float(b) * 0.618034f;
    const float fx = 0.53f + 0.31f * std::fmod(k, 1.0f), fy = 0.71f + 0.23f * std::fmod(k * 2.0f, 1.0f);
    const float fz = 0.47f + 0.37f * std::fmod(k * 3.0f, 1.0f);
    const float phase = 6.2831853f * std::fmod(k, 1.0f);
    blobs.push_back({spread * std::sin(fx * t + phase), spread * 0.8f * std::sin(fy * t + 2.0f * phase),
                     spread * std::cos(fz * t + 3.0f * phase), weight});
  }
  return blobs;
}

namespace {

// Samples first..n-1 of a row, one at a time.
void BlobRowTail(float* out, int32_t first, int32_t n, float x0, float dx, std::span<const Blob> blobs,
                 const float* yz) {
  for (int32_t i = first; i < n; ++i) {
    const float x = x0 + dx * float(i);
    float sum = 0.0f;
    for (size_t b = 0; b < blobs.size(); ++b) {
      const float d = x - blobs[b].x;
      sum += blobs[b].weight / (d * d + yz[b]);
    }
    out[i] = sum;
  }
}

}  // namespace

void BlobRowScalar(float* out, int32_t n, float x0, float dx, std::span<const Blob> blobs, const float* yz) {
  BlobRowTail(out, 0, n, x0, dx, blobs, yz);
}

void BlobRowSse2(float* out, int32_t n, float x0, float dx, std::span<const Blob> blobs, const float* yz) {
  int32_t i = 0;
  const __m128 step = _mm_set1_ps(dx), start = _mm_set1_ps(x0);
  for (; i + 4 <= n; i += 4) {
    const __m128 index = _mm_cvtepi32_ps(_mm_setr_epi32(i, i + 1, i + 2, i + 3));
    const __m128 x = _mm_add_ps(start, _mm_mul_ps(step, index));
    __m128 sum = _mm_setzero_ps();
    for (size_t b = 0; b < blobs.size(); ++b) {
      const __m128 d = _mm_sub_ps(x, _mm_set1_ps(blobs[b].x));
      const __m128 denominator = _mm_add_ps(_mm_mul_ps(d, d), _mm_set1_ps(yz[b]));
      sum = _mm_add_ps(sum, _mm_div_ps(_mm_set1_ps(blobs[b].weight), denominator));
    }
    _mm_storeu_ps(out + i, sum);
  }
  BlobRowTail(out, i, n, x0, dx, blobs, yz);
}

void FillBlobField(std::span<const Blob> blobs, int32_t side, std::vector<float>& field) {
  field.resize(size_t(side) * size_t(side) * size_t(side));
  const float step = side > 1 ? 2.0f / float(side - 1) : 0.0f;
  std::vector<float> yz(blobs.size());
  for (int32_t z = 0; z < side; ++z) {
    const float pz = -1.0f + step * float(z);
    for (int32_t y = 0; y < side; ++y) {
      const float py = -1.0f + step * float(y);
      for (size_t b = 0; b < blobs.size(); ++b) {
        const float ey = py - blobs[b].y, ez = pz - blobs[b].z;
        yz[b] = ey * ey + ez * ez + kBlobSoftening;
      }
      BlobRowSse2(&field[(size_t(z) * size_t(side) + size_t(y)) * size_t(side)], side, -1.0f, step, blobs, yz.data());
    }
  }
}

}  // namespace nimbo::blob
