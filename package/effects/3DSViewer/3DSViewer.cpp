// 3DSViewer: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "Background"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 9, {-1, -1}, "output", "nimbo one\\3D Effect\\3DSViewer", kAuthor,
                                      "Effect,3D,", 0x016691D868689F7Aull, orrery::kEffectVersion};

class C3DSViewerDfx final : public CEffectBase {
 public:
  C3DSViewerDfx()
      : CEffectBase(kInfo, kLabelScene3DSViewer, "helpfile/Effects/3D/3DSViewer/3DSViewer.htm", sizeof(C3DSViewerDfx)) {}
};

}  // namespace

orrery::Effect* New3DSViewer() { return CreateEffect<C3DSViewerDfx>(); }

}  // namespace nimbo
