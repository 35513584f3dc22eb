// XtractAlpha: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\XtractAlpha", kAuthor,
                                      "Effect,Filter,Alpha,", 0x00253F6426243C09ull, orrery::kEffectVersion};

class CXtractAlphaDfx final : public CEffectBase {
 public:
  CXtractAlphaDfx()
      : CEffectBase(kInfo, 12518, "helpfile/Effects/Keying/XtractAlpha/XtractAlpha.htm", sizeof(CXtractAlphaDfx)) {}
};

}  // namespace

orrery::Effect* NewXtractAlpha() { return CreateEffect<CXtractAlphaDfx>(); }

}  // namespace nimbo
