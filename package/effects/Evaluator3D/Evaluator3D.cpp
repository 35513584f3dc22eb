// Evaluator3D: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {
    {-1, -1, "Background"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}, {-1, -1, "height map"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      4,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\Evaluator3D",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x002412455A043E27ull,
                                      orrery::kEffectVersion};

class CEvaluator3DDfx final : public CEffectBase {
 public:
  CEvaluator3DDfx()
      : CEffectBase(kInfo, kLabelEvaluator3D, "helpfile/Effects/3D/Evaluator3D/Evaluator3D.htm",
                    sizeof(CEvaluator3DDfx)) {}
};

}  // namespace

orrery::Effect* NewEvaluator3D() { return CreateEffect<CEvaluator3DDfx>(); }

}  // namespace nimbo
