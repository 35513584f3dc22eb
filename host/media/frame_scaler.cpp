#include "media/frame_scaler.h"

#include <new>

namespace nimbo::host {

void FrameScaler::Scale(const FrameBuffer& src, FrameBuffer& dst, int32_t width, int32_t height) {
  dst.EnsureSize(width, height);
  if (src.width == width && src.height == height) {
    dst.pixels = src.pixels;
    return;
  }
  (void)owner_.release();  // sws_getCachedContext frees or reuses it
  context_ = sws_getCachedContext(context_, src.width, src.height, kScreenPixelFormat, width, height,
                                  kScreenPixelFormat, SWS_BICUBIC, nullptr, nullptr, nullptr);
  owner_.reset(context_);
  if (!context_) throw std::bad_alloc();
  const uint8_t* src_planes[4] = {reinterpret_cast<const uint8_t*>(src.pixels.data()), nullptr, nullptr, nullptr};
  const int src_strides[4] = {src.width * 4, 0, 0, 0};
  uint8_t* dst_planes[4] = {reinterpret_cast<uint8_t*>(dst.pixels.data()), nullptr, nullptr, nullptr};
  const int dst_strides[4] = {width * 4, 0, 0, 0};
  sws_scale(context_, src_planes, src_strides, 0, src.height, dst_planes, dst_strides);
}

}  // namespace nimbo::host
