#include "media/image_sequence_input.h"

#include <vector>

#include "media/media_input.h"
#include "runtime/frame_pattern.h"
#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

constexpr double kSequenceFps = 25.0;  // a sequence has no clock of its own

class ImageSequenceInput final : public FrameSource {
 public:
  ImageSequenceInput(std::string pattern, std::vector<int64_t> numbers)
      : pattern_(std::move(pattern)), numbers_(std::move(numbers)) {
    current_ = OpenMedia(FormatFramePattern(pattern_, numbers_[0]));
    width_ = current_->Width();
    height_ = current_->Height();
  }
  const std::string& Name() const override { return pattern_; }
  int32_t Width() const override { return width_; }
  int32_t Height() const override { return height_; }
  double FrameRate() const override { return kSequenceFps; }
  int64_t FrameCountHint() const override { return int64_t(numbers_.size()); }
  bool IsStill() const override { return false; }
  bool ReadFrame(FrameBuffer& out, int32_t width, int32_t height) override {
    if (next_ >= numbers_.size()) return false;
    if (!current_) current_ = OpenMedia(FormatFramePattern(pattern_, numbers_[next_]));
    if (!current_->ReadFrame(out, width, height))
      throw HostError("cannot read " + Quoted(FormatFramePattern(pattern_, numbers_[next_])) + ": it holds no picture");
    const std::string warning = current_->Warning();
    if (!warning.empty()) warnings_ += (warnings_.empty() ? "" : "; ") + warning;
    current_.reset();  // one decoder at a time, however long the sequence
    ++next_;
    return true;
  }
  std::string Warning() const override {
    std::string text = warnings_;
    const int64_t missing = numbers_.back() - numbers_.front() + 1 - int64_t(numbers_.size());
    if (missing > 0) {
      text += std::string(text.empty() ? "" : "; ") + Quoted(pattern_) + " lacks " + std::to_string(missing) +
              " frame" + (missing == 1 ? "" : "s") + " between " + std::to_string(numbers_.front()) + " and " +
              std::to_string(numbers_.back()) + " (--allow-gaps: the " + std::to_string(numbers_.size()) +
              " that exist were read in order)";
    }
    return text;
  }

 private:
  std::string pattern_;
  std::vector<int64_t> numbers_;
  size_t next_ = 0;
  std::unique_ptr<FrameSource> current_;
  int32_t width_ = 0;
  int32_t height_ = 0;
  std::string warnings_;
};

}  // namespace

std::unique_ptr<FrameSource> OpenImageSequence(const std::string& pattern, bool allow_gaps) {
  if (HasFramePattern(FolderOf(pattern)))
    throw HostError("cannot read " + Quoted(pattern) + ": the frame number (%d, %04d, ...) must be in the file name");
  std::vector<int64_t> numbers = ExistingFrameNumbers(pattern);
  if (numbers.empty()) throw HostError("cannot read the image sequence " + Quoted(pattern) + ": no file matches it");
  if (!allow_gaps) {
    for (size_t i = 1; i < numbers.size(); ++i) {
      if (numbers[i] == numbers[i - 1] + 1) continue;
      const int64_t missing = numbers[i - 1] + 1;
      throw HostError("the image sequence " + Quoted(pattern) + " has a gap: frame " + std::to_string(missing) + " (" +
                      Quoted(FormatFramePattern(pattern, missing)) + ") is missing, and it goes on at " +
                      Quoted(FormatFramePattern(pattern, numbers[i])) + "; give --allow-gaps to read the " +
                      std::to_string(numbers.size()) + " frames that exist in order");
    }
  }
  return std::make_unique<ImageSequenceInput>(pattern, std::move(numbers));
}

}  // namespace nimbo::host
