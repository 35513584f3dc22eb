// Donkey: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "Background"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      3,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\Donkey",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x0024E38DBAA4EAA7ull,
                                      orrery::kEffectVersion};

class CDonkeyDfx final : public CEffectBase {
 public:
  CDonkeyDfx() : CEffectBase(kInfo, kLabelDonkey, "helpfile/Effects/3D/Donkey/Donkey.htm", sizeof(CDonkeyDfx)) {}
};

}  // namespace

orrery::Effect* NewDonkey() { return CreateEffect<CDonkeyDfx>(); }

}  // namespace nimbo
