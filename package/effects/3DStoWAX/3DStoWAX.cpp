// 3DStoWAX: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::EffectInfo kInfo = {nullptr, 0, {-1, -1}, "", "nimbo one\\3D Effect\\3DStoWAX", kAuthor,
                                      "Effect,Filter,3D,", 0x0003A73B213EE061ull, orrery::kEffectVersion};

class C3DStoWAXDfx final : public CEffectBase {
 public:
  C3DStoWAXDfx()
      : CEffectBase(kInfo, kLabelScene3DStoWAX, "helpfile/Effects/3D/3DStoWAX/3DStoWAX.htm", sizeof(C3DStoWAXDfx)) {}
};

}  // namespace

orrery::Effect* New3DStoWAX() { return CreateEffect<C3DStoWAXDfx>(); }

}  // namespace nimbo
