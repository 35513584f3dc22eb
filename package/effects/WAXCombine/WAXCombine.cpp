// WAXCombine: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "WAX input 1"}, {-1, -1, "WAX input 2"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      2,
                                      {-1, -1},
                                      "WAX output",
                                      "nimbo one\\3D Effect\\WAXCombine",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x00257041DE3B1333ull,
                                      orrery::kEffectVersion};

class CWAXCombineDfx final : public CEffectBase {
 public:
  CWAXCombineDfx()
      : CEffectBase(kInfo, kLabelWAXCombine, "helpfile/Effects/3D/WAXCombine/WAXCombine.htm", sizeof(CWAXCombineDfx)) {}
};

}  // namespace

orrery::Effect* NewWAXCombine() { return CreateEffect<CWAXCombineDfx>(); }

}  // namespace nimbo
