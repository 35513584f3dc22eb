// ImplicitBeast: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "background"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      3,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\ImplicitBeast",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x016C7EF26E114765ull,
                                      orrery::kEffectVersion};

class CImplicitBeastDfx final : public CEffectBase {
 public:
  CImplicitBeastDfx()
      : CEffectBase(kInfo, kLabelImplicitBeast, "helpfile/Effects/3D/ImplicitBeast/ImplicitBeast.htm",
                    sizeof(CImplicitBeastDfx)) {}
};

}  // namespace

orrery::Effect* NewImplicitBeast() { return CreateEffect<CImplicitBeastDfx>(); }

}  // namespace nimbo
