// Text3D: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      3,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\3D Effect\\Text3D",
                                      kAuthor,
                                      "Effect,3D,Text,",
                                      0x017178DD8AF030DBull,
                                      orrery::kEffectVersion};

class CText3DDfx final : public CEffectBase {
 public:
  CText3DDfx() : CEffectBase(kInfo, kLabelText3D, "helpfile/Effects/3D/Text3D/Text3D.htm", sizeof(CText3DDfx)) {}
};

}  // namespace

orrery::Effect* NewText3D() { return CreateEffect<CText3DDfx>(); }

}  // namespace nimbo
