// Fast h-Blur: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\Fast h-Blur", kAuthor,
                                      "Effect,Filter,Blur,", 0x0169ADE061BAF12Dull, orrery::kEffectVersion};

class CFastHBlurDfx final : public CEffectBase {
 public:
  CFastHBlurDfx()
      : CEffectBase(kInfo, 12504, "helpfile/Effects/Filter/FastHBlur/FastHBlur.htm", sizeof(CFastHBlurDfx)) {}
};

}  // namespace

orrery::Effect* NewFastHBlur() { return CreateEffect<CFastHBlurDfx>(); }

}  // namespace nimbo
