// EffectChain's links between stages, over the fixture package (whose
// effects' output is known exactly): which input the previous output feeds,
// and the previous stage rendered at the size that input asks for rather
// than scaled to it.
#include <gtest/gtest.h>

#include "cli/demo_media.h"
#include "runtime/effect_chain.h"
#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

constexpr int32_t kWidth = 64;
constexpr int32_t kHeight = 48;

StageOptions Options(const char* effect) {
  StageOptions options;
  options.effect = effect;
  return options;
}

std::vector<std::unique_ptr<FrameSource>> Shapes(int64_t frames) {
  std::vector<std::unique_ptr<FrameSource>> sources;
  sources.push_back(MakeDemoSource(DemoMedia::kShapes, kWidth, kHeight, frames));
  return sources;
}

// Pair writes its second input's size into pixel (0,0) (R = width, G =
// height) and that input's top-left pixel into (1,0); the rest is input 0.
// Gen fills the frame with grey = frame number (at 25 fps).
TEST(EffectChain, FeedsThePreviousOutputIntoTheLinkedInputAtTheSizeItAsksFor) {
  const Package package(NIMBO_FIXTURE_DIR);
  for (const bool at_asked_size : {false, true}) {
    SCOPED_TRACE(at_asked_size ? "rendered at the asked size" : "scaled");
    EffectChain chain(package, kWidth, kHeight, 25.0);
    chain.Add(package.Find("Gen"), Options("Gen"), {});
    chain.Add(package.Find("Pair"), Options("Pair"), Shapes(4), ChainLink{1, at_asked_size});
    for (int frame = 0; frame < 3; ++frame) ASSERT_TRUE(chain.RenderNext());

    const FrameBuffer& out = chain.Output();
    ASSERT_EQ(out.width, kWidth);
    EXPECT_EQ(out.At(0, 0), 0xFF000000u | uint32_t(kWidth / 2) << 16 | uint32_t(kHeight / 2) << 8);
    EXPECT_EQ(out.At(1, 0), 0xFF020202u) << "Gen's third frame on input 1";
    FrameBuffer shapes(kWidth, kHeight);
    DrawDemoFrame(DemoMedia::kShapes, shapes, 2, 4);
    EXPECT_EQ(out.At(5, 5), shapes.At(5, 5)) << "the source on input 0";
    // Scaled, Gen keeps the chain's size; otherwise it renders at Pair's half.
    const FrameBuffer& gen = chain.Stages()[0]->Output();
    EXPECT_EQ(gen.width, at_asked_size ? kWidth / 2 : kWidth);
    EXPECT_EQ(gen.height, at_asked_size ? kHeight / 2 : kHeight);
  }
}

TEST(EffectChain, RefusesALinkPastTheInputsTheSourcesLeave) {
  const Package package(NIMBO_FIXTURE_DIR);
  EffectChain chain(package, kWidth, kHeight, 25.0);
  chain.Add(package.Find("Gen"), Options("Gen"), {});
  EXPECT_THROW(chain.Add(package.Find("Pair"), Options("Pair"), {}, ChainLink{1, false}), HostError);
  EXPECT_THROW(chain.Add(package.Find("Pair"), Options("Pair"), Shapes(4), ChainLink{-1, false}), HostError);
  EXPECT_THROW(chain.Add(package.Find("Pair"), Options("Pair"), Shapes(4), ChainLink{2, false}), HostError);
  EXPECT_EQ(chain.Stages().size(), 1u);
}

}  // namespace
}  // namespace nimbo::host
