// ColorReducer: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\ColorReducer", kAuthor,
                                      "Effect,Filter,Colour,", 0x0168F81A1A7F521Eull, orrery::kEffectVersion};

class CColorReducerDfx final : public CEffectBase {
 public:
  CColorReducerDfx()
      : CEffectBase(kInfo, 12506, "helpfile/Effects/Filter/ColorReducer/ColorReducer.htm", sizeof(CColorReducerDfx)) {}
};

}  // namespace

orrery::Effect* NewColorReducer() { return CreateEffect<CColorReducerDfx>(); }

}  // namespace nimbo
