// Orrery host SDK: the host's picture loader.
//
// COrrBmp decodes a picture file (PNG, JPEG, BMP, TIFF, ... whatever the
// host's decoder takes) into 32-bit pixels 0xAARRGGBB, rows top to bottom;
// pictures without alpha get A = 255. The decoding itself is the host's: it
// installs a PictureDecoder; without one LoadFromFile fails.
#pragma once

#include <cstdint>
#include <vector>

namespace orrery {

class PictureDecoder {
 public:
  // Fills width, height and pixels; false (pixels untouched) on failure.
  virtual bool Decode(const char* path, int32_t* width, int32_t* height, std::vector<uint32_t>* pixels) = 0;

 protected:
  ~PictureDecoder() = default;
};
PictureDecoder* GetPictureDecoder();
void SetPictureDecoder(PictureDecoder* decoder);

class COrrBmp {
 public:
  bool LoadFromFile(const char* path);
  int32_t GetXRes() const { return width_; }
  int32_t GetYRes() const { return height_; }
  // Resamples to width x height (bilinear); false for sizes below 1.
  bool Resize(int32_t width, int32_t height);
  uint32_t* GetRAWptr() { return pixels_.empty() ? nullptr : pixels_.data(); }

 private:
  int32_t width_ = 0;
  int32_t height_ = 0;
  std::vector<uint32_t> pixels_;
};

}  // namespace orrery
