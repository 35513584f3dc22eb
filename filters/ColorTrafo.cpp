// ColorTrafo: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\ColorTrafo", kAuthor,
                                      "Effect,Filter,Colour,", 0x00253F553F10113Cull, orrery::kEffectVersion};

class CColorTrafoDfx final : public CEffectBase {
 public:
  CColorTrafoDfx()
      : CEffectBase(kInfo, 12519, "helpfile/Effects/Filter/ColorTrafo/ColorTrafo.htm", sizeof(CColorTrafoDfx)) {}
};

}  // namespace

orrery::Effect* NewColorTrafo() { return CreateEffect<CColorTrafoDfx>(); }

}  // namespace nimbo
