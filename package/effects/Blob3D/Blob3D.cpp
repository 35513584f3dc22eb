// Blob 3D: registered with its description and settings exchange; until
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
                                      "nimbo one\\3D Effect\\Blob 3D",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x00239E34697957E2ull,
                                      orrery::kEffectVersion};

class CBlob3DDfx final : public CEffectBase {
 public:
  CBlob3DDfx() : CEffectBase(kInfo, kLabelBlob3D, "helpfile/Effects/3D/Blob3D/Blob3D.htm", sizeof(CBlob3DDfx)) {}
};

}  // namespace

orrery::Effect* NewBlob3D() { return CreateEffect<CBlob3DDfx>(); }

}  // namespace nimbo
