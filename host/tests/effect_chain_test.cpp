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

// Over three and more stages: a stage set up again at the size its follower
// asks for may itself ask its input at another size, and the stage before it
// must then be rendered at that size too, not scaled to it (a scaled data
// screen, such as a WAX volume, is destroyed).
// Pair asks for its second input at half its own size and writes that
// input's size into pixel (0,0) (R = width, G = height) and its top-left
// pixel into (1,0). Gen: grey = frame number.
uint32_t SizePixel(int32_t w, int32_t h) { return 0xFF000000u | uint32_t(w) << 16 | uint32_t(h) << 8; }

TEST(EffectChainStages, EachLinkAtTheAskedSizeRendersItsStageAtThatSizeAlongTheWholeChain) {
  const Package package(NIMBO_FIXTURE_DIR);
  for (const int32_t pairs : {2, 3}) {
    SCOPED_TRACE(::testing::Message() << "Gen and " << pairs << " Pairs");
    EffectChain chain(package, kWidth, kHeight, 25.0);
    chain.Add(package.Find("Gen"), Options("Gen"), {});
    for (int32_t k = 0; k < pairs; ++k) chain.Add(package.Find("Pair"), Options("Pair"), Shapes(8), ChainLink{1, true});
    for (int frame = 0; frame < 3; ++frame) ASSERT_TRUE(chain.RenderNext());

    // Stage k (from the last, k = pairs, at the chain's size) is set up at
    // the size its follower asks: half of the follower's own, each time.
    const auto& stages = chain.Stages();
    ASSERT_EQ(stages.size(), size_t(pairs + 1));
    for (int32_t k = pairs; k >= 0; --k) {
      const int32_t shift = pairs - k;
      SCOPED_TRACE(::testing::Message() << "stage " << k);
      EXPECT_EQ(stages[size_t(k)]->Output().width, kWidth >> shift);
      EXPECT_EQ(stages[size_t(k)]->Output().height, kHeight >> shift);
      if (k == 0) continue;
      // The picture each Pair got came at the size it asked for, unscaled:
      // its (0,0) names that size, and its (1,0) is the stage before's
      // (0,0) as that stage drew it.
      const FrameBuffer& out = stages[size_t(k)]->Output();
      EXPECT_EQ(out.At(0, 0), SizePixel(kWidth >> (shift + 1), kHeight >> (shift + 1)));
      const uint32_t before = k == 1 ? 0xFF020202u : SizePixel(kWidth >> (shift + 2), kHeight >> (shift + 2));
      EXPECT_EQ(out.At(1, 0), before);
    }
  }
}

TEST(EffectChainStages, AMiddleStageAtAnotherSizeIsScaledForAFollowerThatDoesNotAskOtherwise) {
  // Gen -> Pair (Gen at Pair's half) -> Copy scaled: Pair keeps the chain's
  // size, so Copy sees Pair's picture as drawn.
  const Package package(NIMBO_FIXTURE_DIR);
  EffectChain chain(package, kWidth, kHeight, 25.0);
  chain.Add(package.Find("Gen"), Options("Gen"), {});
  chain.Add(package.Find("Pair"), Options("Pair"), Shapes(8), ChainLink{1, true});
  chain.Add(package.Find("Copy"), Options("Copy"), {}, ChainLink{0, true});
  for (int frame = 0; frame < 2; ++frame) ASSERT_TRUE(chain.RenderNext());
  EXPECT_EQ(chain.Stages()[0]->Output().width, kWidth / 2);
  EXPECT_EQ(chain.Stages()[1]->Output().width, kWidth);
  EXPECT_EQ(chain.Output().At(0, 0), SizePixel(kWidth / 2, kHeight / 2));
  EXPECT_EQ(chain.Output().At(1, 0), 0xFF010101u) << "Gen's second frame";
}

TEST(EffectChainStages, ALinkThatCannotBeMadeIsRefusedAndLeavesTheChainAsItWas) {
  const Package package(NIMBO_FIXTURE_DIR);
  EffectChain chain(package, kWidth, kHeight, 25.0);
  chain.Add(package.Find("Gen"), Options("Gen"), {});
  chain.Add(package.Find("Pair"), Options("Pair"), Shapes(8), ChainLink{1, true});
  const int32_t gen_width = chain.Stages()[0]->Output().width;
  for (const ChainLink link : {ChainLink{2, true}, ChainLink{-1, true}, ChainLink{7, false}}) {
    SCOPED_TRACE(::testing::Message() << "input " << link.input);
    try {
      chain.Add(package.Find("Pair"), Options("Pair"), Shapes(8), link);
      ADD_FAILURE() << "accepted";
    } catch (const HostError& e) {
      const std::string message = e.what();
      EXPECT_NE(message.find("input " + std::to_string(link.input)), std::string::npos) << message;
      EXPECT_NE(message.find("Pair"), std::string::npos) << message;
    }
    EXPECT_EQ(chain.Stages().size(), 2u);
    EXPECT_EQ(chain.Stages()[1]->Output().width, kWidth) << "the last stage was set up again for a refused link";
    EXPECT_EQ(chain.Stages()[0]->Output().width, gen_width);
  }
  // A Pair linked with too few sources of its own: one input is missing.
  EXPECT_THROW(chain.Add(package.Find("Pair"), Options("Pair"), {}, ChainLink{1, true}), HostError);
  EXPECT_EQ(chain.Stages().size(), 2u);
  ASSERT_TRUE(chain.RenderNext());
  EXPECT_EQ(chain.Output().At(1, 0), 0xFF000000u) << "Gen's first frame, through the chain as it was";
}

}  // namespace
}  // namespace nimbo::host
