// Retina Killer: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "output", "nimbo one\\Retina Killer", kAuthor,
                                      "Effect,Filter,", 0x0163498A3DB12937ull, orrery::kEffectVersion};

class CRetinaKillerDfx final : public CEffectBase {
 public:
  CRetinaKillerDfx()
      : CEffectBase(kInfo, 12510, "helpfile/Effects/Filter/RetinaKiller/RetinaKiller.htm", sizeof(CRetinaKillerDfx)) {}
};

}  // namespace

orrery::Effect* NewRetinaKiller() { return CreateEffect<CRetinaKillerDfx>(); }

}  // namespace nimbo
