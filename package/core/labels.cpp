#include "core/labels.h"

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace nimbo {
namespace {

constexpr int32_t kLabelWidth = 64;
constexpr int32_t kLabelHeight = 16;

struct Label {
  std::vector<uint32_t> pixels;
  orrery::Bitmap bitmap;
};

// A horizontal two-colour gradient with a border; the colours come from the
// resource number so that neighbouring effects are told apart at a glance.
std::unique_ptr<Label> MakeLabel(int32_t resource) {
  auto label = std::make_unique<Label>();
  label->pixels.resize(size_t(kLabelWidth) * kLabelHeight);
  uint32_t hash = uint32_t(resource) * 2654435761u;
  uint32_t from[3] = {hash & 0xFF, (hash >> 8) & 0xFF, (hash >> 16) & 0xFF};
  uint32_t to[3] = {255 - from[1], 255 - from[2], 255 - from[0]};
  for (int32_t y = 0; y < kLabelHeight; ++y) {
    for (int32_t x = 0; x < kLabelWidth; ++x) {
      bool border = x == 0 || y == 0 || x == kLabelWidth - 1 || y == kLabelHeight - 1;
      uint32_t rgb = 0;
      for (int c = 0; c < 3; ++c) {
        uint32_t v = border ? 255 : (from[c] * (kLabelWidth - x) + to[c] * x) / kLabelWidth;
        rgb |= v << (16 - 8 * c);
      }
      label->pixels[size_t(y) * kLabelWidth + x] = 0xFF000000u | rgb;
    }
  }
  label->bitmap = {kLabelWidth, kLabelHeight, label->pixels.data()};
  return label;
}

}  // namespace

const orrery::Bitmap* LoadLabelBitmap(int32_t resource) {
  static std::mutex mutex;
  static std::map<int32_t, std::unique_ptr<Label>> labels;
  std::lock_guard lock(mutex);
  auto& label = labels[resource];
  if (!label) label = MakeLabel(resource);
  return &label->bitmap;
}

}  // namespace nimbo
