// RGB Displacer: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "output", "nimbo one\\RGB Displacer", kAuthor,
                                      "Effect,Filter,Colour,", 0x00239F3FD51CC1A0ull, orrery::kEffectVersion};

class CRGBDisplacerDfx final : public CEffectBase {
 public:
  CRGBDisplacerDfx()
      : CEffectBase(kInfo, 12505, "helpfile/Effects/Filter/RGBDisplacer/RGBDisplacer.htm", sizeof(CRGBDisplacerDfx)) {}
};

}  // namespace

orrery::Effect* NewRGBDisplacer() { return CreateEffect<CRGBDisplacerDfx>(); }

}  // namespace nimbo
