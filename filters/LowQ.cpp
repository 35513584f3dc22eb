// LowQ: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\LowQ", kAuthor,
                                      "Effect,Filter,", 0x002524C785F2E5E5ull, orrery::kEffectVersion};

class CLowQDfx final : public CEffectBase {
 public:
  CLowQDfx()
      : CEffectBase(kInfo, 12524, "helpfile/Effects/Filter/LowQ/LowQ.htm", sizeof(CLowQDfx)) {}
};

}  // namespace

orrery::Effect* NewLowQ() { return CreateEffect<CLowQDfx>(); }

}  // namespace nimbo
