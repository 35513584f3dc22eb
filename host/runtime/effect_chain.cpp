#include "runtime/effect_chain.h"

#include "runtime/host_error.h"

namespace nimbo::host {

void CheckInputCount(const EffectEntry& entry, size_t given) {
  const size_t count = entry.inputs.size();
  if (given == count || (entry.is_3d && given < count)) return;
  std::string names;
  for (const std::string& name : entry.inputs) names += (names.empty() ? "" : ", ") + name;
  std::string takes = count == 0   ? "takes no inputs"
                      : count == 1 ? "takes 1 input (" + names + ")"
                                   : "takes " + std::to_string(count) + " inputs (" + names + ")";
  if (entry.is_3d && count > 0) takes = "takes at most " + takes.substr(6);
  throw HostError(entry.short_name + " " + takes + "; " + std::to_string(given) + " given");
}

EffectChain::EffectChain(const Package& package, int32_t width, int32_t height, double fps)
    : package_(package), width_(width), height_(height), fps_(fps) {}

EffectChain::~EffectChain() {
  // Effects go before their inputs' sources, last effect first.
  while (!stages_.empty()) stages_.pop_back();
}

EffectStage& EffectChain::Add(const EffectEntry& entry, const StageOptions& options,
                              std::vector<std::unique_ptr<FrameSource>> sources) {
  return Add(entry, options, std::move(sources), ChainLink{});
}

EffectStage& EffectChain::Add(const EffectEntry& entry, const StageOptions& options,
                              std::vector<std::unique_ptr<FrameSource>> sources, const ChainLink& link) {
  const bool chained = !stages_.empty();
  CheckInputCount(entry, sources.size() + (chained ? 1 : 0));
  if (chained && (link.input < 0 || size_t(link.input) > sources.size())) {
    throw HostError(entry.short_name + " cannot take the previous output on input " + std::to_string(link.input) +
                    " with " + std::to_string(sources.size()) + " other input(s) given");
  }
  auto stage = std::make_unique<EffectStage>(package_, entry, width_, height_, fps_);
  stage->Configure(options);
  std::vector<std::unique_ptr<Input>> inputs;
  for (auto& source : sources) {
    inputs.push_back(std::make_unique<Input>());
    inputs.back()->source = std::move(source);
  }
  if (chained) {
    inputs.insert(inputs.begin() + link.input, std::make_unique<Input>());
    if (link.previous_at_asked_size) SetUpAtAskedSize(stages_.size() - 1, stage->InputSize(link.input));
  }
  stages_.push_back(std::move(stage));
  inputs_.push_back(std::move(inputs));
  options_.push_back(options);
  links_.push_back(chained ? link : ChainLink{});
  return *stages_.back();
}

void EffectChain::SetUpAtAskedSize(size_t k, orrery::Size asked) {
  for (;;) {
    const EffectStage& stage = *stages_[k];
    if (asked.width == stage.Output().width && asked.height == stage.Output().height) return;
    auto again = std::make_unique<EffectStage>(package_, stage.Entry(), asked.width, asked.height, fps_);
    again->Configure(options_[k]);
    stages_[k] = std::move(again);
    // At its new size the stage may ask its own input at another size too.
    if (k == 0 || !links_[k].previous_at_asked_size) return;
    asked = stages_[k]->InputSize(links_[k].input);
    --k;
  }
}

bool EffectChain::HasPacingInput() const {
  return !inputs_.empty() && !inputs_[0].empty() && inputs_[0][0]->source && !inputs_[0][0]->source->IsStill();
}

bool EffectChain::Fetch(size_t k, size_t i, const FrameBuffer** out) {
  Input& in = *inputs_[k][i];
  const orrery::Size size = stages_[k]->InputSize(int32_t(i));
  if (!in.source) {  // the previous effect's output
    const FrameBuffer& previous = stages_[k - 1]->Output();
    if (previous.width == size.width && previous.height == size.height) {
      *out = &previous;
    } else {
      in.scaler.Scale(previous, in.scaled, size.width, size.height);
      *out = &in.scaled;
    }
    return true;
  }
  if (!in.ended) {
    if (in.source->ReadFrame(in.picture, size.width, size.height)) {
      in.have = true;
      if (in.source->IsStill()) in.ended = true;  // read once, then held
    } else {
      in.ended = true;
      if (k == 0 && i == 0) return false;  // the pacing input is over
    }
  }
  *out = in.have ? &in.picture : nullptr;
  return true;
}

bool EffectChain::RenderNext() {
  std::vector<const FrameBuffer*> pictures;
  for (size_t k = 0; k < stages_.size(); ++k) {
    pictures.assign(size_t(stages_[k]->InputCount()), nullptr);
    for (size_t i = 0; i < inputs_[k].size() && i < pictures.size(); ++i) {
      if (!Fetch(k, i, &pictures[i])) return false;
    }
    stages_[k]->RenderFrame(frame_, pictures);
  }
  ++frame_;
  return true;
}

std::vector<std::string> EffectChain::InputWarnings() const {
  std::vector<std::string> lines;
  for (const auto& stage : inputs_) {
    for (const auto& input : stage) {
      if (!input->source) continue;
      const std::string line = input->source->Warning();
      if (!line.empty()) lines.push_back(line);
    }
  }
  return lines;
}

const FrameBuffer& EffectChain::Output() const { return stages_.back()->Output(); }

}  // namespace nimbo::host
