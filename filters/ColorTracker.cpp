// ColorTracker: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\ColorTracker", kAuthor,
                                      "Effect,Filter,Colour,", 0x002540EBCB8A6441ull, orrery::kEffectVersion};

class CColorTrackerDfx final : public CEffectBase {
 public:
  CColorTrackerDfx()
      : CEffectBase(kInfo, 12520, "helpfile/Effects/Misc/ColorTracker/ColorTracker.htm", sizeof(CColorTrackerDfx)) {}
};

}  // namespace

orrery::Effect* NewColorTracker() { return CreateEffect<CColorTrackerDfx>(); }

}  // namespace nimbo
