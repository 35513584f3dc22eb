// ReScaler: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\ReScaler", kAuthor,
                                      "Effect,XYZ,", 0x002438315E35C1B9ull, orrery::kEffectVersion};

class CReScaleDfx final : public CEffectBase {
 public:
  CReScaleDfx()
      : CEffectBase(kInfo, 12501, "helpfile/Effects/Misc/ReScaler/ReScaler.htm", sizeof(CReScaleDfx)) {}
};

}  // namespace

orrery::Effect* NewReScaler() { return CreateEffect<CReScaleDfx>(); }

}  // namespace nimbo
