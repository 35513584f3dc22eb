#include "media/frame_scaler.h"

#include <algorithm>
#include <new>

namespace nimbo::host {

void FrameScaler::Scale(const FrameBuffer& src, FrameBuffer& dst, int32_t width, int32_t height) {
  if (src.width == width && src.height == height) {
    dst.EnsureSize(width, height);
    dst.pixels = src.pixels;
    return;
  }
  Scale(src.pixels.data(), src.width, src.height, dst, width, height);
}

void FrameScaler::Scale(const uint32_t* src, int32_t src_width, int32_t src_height, FrameBuffer& dst, int32_t width,
                        int32_t height) {
  dst.EnsureSize(width, height);
  if (src_width == width && src_height == height) {
    std::copy(src, src + dst.pixels.size(), dst.pixels.begin());
    return;
  }
  (void)owner_.release();  // sws_getCachedContext frees or reuses it
  context_ = sws_getCachedContext(context_, src_width, src_height, kScreenPixelFormat, width, height,
                                  kScreenPixelFormat, SWS_BICUBIC, nullptr, nullptr, nullptr);
  owner_.reset(context_);
  if (!context_) throw std::bad_alloc();
  // swscale reads the source wherever it lies (its alignment changes only its speed).
  const uint8_t* src_planes[4] = {reinterpret_cast<const uint8_t*>(src), nullptr, nullptr, nullptr};
  const int src_strides[4] = {src_width * 4, 0, 0, 0};
  uint8_t* dst_planes[4] = {reinterpret_cast<uint8_t*>(dst.pixels.data()), nullptr, nullptr, nullptr};
  const int dst_strides[4] = {width * 4, 0, 0, 0};
  sws_scale(context_, src_planes, src_strides, 0, src_height, dst_planes, dst_strides);
}

}  // namespace nimbo::host
