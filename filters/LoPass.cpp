// LoPass: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\LoPass", kAuthor,
                                      "Effect,Filter,", 0x0169E4AAD24247DCull, orrery::kEffectVersion};

class CLoPassDfx final : public CEffectBase {
 public:
  CLoPassDfx()
      : CEffectBase(kInfo, 12502, "helpfile/Effects/Filter/LoPass/LoPass.htm", sizeof(CLoPassDfx)) {}
};

}  // namespace

orrery::Effect* NewLoPass() { return CreateEffect<CLoPassDfx>(); }

}  // namespace nimbo
