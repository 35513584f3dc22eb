// Glitter: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "output", "nimbo one\\Glitter", kAuthor,
                                      "Effect,Filter,", 0x016425FDE5C6C140ull, orrery::kEffectVersion};

class CGlitterDfx final : public CEffectBase {
 public:
  CGlitterDfx()
      : CEffectBase(kInfo, 12509, "helpfile/Effects/Filter/Glitter/Glitter.htm", sizeof(CGlitterDfx)) {}
};

}  // namespace

orrery::Effect* NewGlitter() { return CreateEffect<CGlitterDfx>(); }

}  // namespace nimbo
