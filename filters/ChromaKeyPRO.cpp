// ChromaKeyPRO: registered with its description and settings exchange; until
// its own implementation lands it passes input 0 through unchanged.
#include "package/effect_base.h"
#include "package/effect_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "Chroma"}, {-1, -1, "Background"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 2, {-1, -1}, "", "nimbo one\\ChromaKeyPRO", kAuthor,
                                      "Effect,Filter,Keying,", 0x01739FD3B7D85F4Dull, orrery::kEffectVersion};

class CChromaKeyPRODfx final : public CEffectBase {
 public:
  CChromaKeyPRODfx()
      : CEffectBase(kInfo, 12517, "helpfile/Effects/Keying/ChromaKeyPRO/ChromaKeyPRO.htm", sizeof(CChromaKeyPRODfx)) {}
};

}  // namespace

orrery::Effect* NewChromaKeyPRO() { return CreateEffect<CChromaKeyPRODfx>(); }

}  // namespace nimbo
