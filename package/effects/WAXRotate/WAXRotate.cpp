// WAXRotate: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "WAX input"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "WAX output",
                                      "nimbo one\\3D Effect\\WAXRotate",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x016D24EA41001A10ull,
                                      orrery::kEffectVersion};

class CWAXRotateDfx final : public CEffectBase {
 public:
  CWAXRotateDfx()
      : CEffectBase(kInfo, kLabelWAXRotate, "helpfile/Effects/3D/WAXRotate/WAXRotate.htm", sizeof(CWAXRotateDfx)) {}
};

}  // namespace

orrery::Effect* NewWAXRotate() { return CreateEffect<CWAXRotateDfx>(); }

}  // namespace nimbo
