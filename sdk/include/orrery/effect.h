// Orrery host SDK: the effect object interface.
//
// Every effect is an object of a class derived from Effect. The host calls
// the operations below through the virtual table, so their DECLARATION ORDER
// IS THE CONTRACT: slot 0 is GetInputCount, slot 10 the virtual destructor,
// slot 26 OnEnterIdleState. (On the Itanium C++ ABI the destructor occupies
// two table entries, so operations after it sit one entry further on; a
// host compiled with the same compiler family against this header agrees.)
// Never insert, remove or reorder a virtual function here.
//
// Calling order a host follows:
//   1. create through the package's orrpkgCreateNewDFXObject,
//   2. SetHostContext,
//   3. UpdateConfig,
//   4. GetInputScreenRes for each input, then Initialize,
//   5. Render once per frame (SendEffectMessage, ConfirmRenderSource and
//      GetInputState as needed),
//   6. SetupDialog at the user's request, from the UI thread,
//   7. OnEnterIdleState at the host's discretion,
//   8. delete through the virtual destructor.
// Results: nonzero for success, 0 for failure. No exception leaves an
// operation. Render and SetupDialog may run on different threads at once;
// the effect serialises them with its own lock.
#pragma once

#include <cstdint>

#include "orrery/host_context.h"
#include "orrery/types.h"

namespace orrery {

class Effect {
 public:
  /* 0 */ virtual int32_t GetInputCount() = 0;
  /* 1 */ virtual Size GetInputDefaultRes(int32_t index) = 0;
  /* 2 */ virtual const char* GetInputTypeName(int32_t index) = 0;
  /* 3 */ virtual int32_t GetCapability() = 0;
  /* 4 */ virtual Size GetOutputRes() = 0;
  /* 5 */ virtual const char* GetName() = 0;
  /* 6 */ virtual const char* GetAuthor() = 0;
  /* 7 */ virtual const char* GetCategory() = 0;
  /* 8 */ virtual uint32_t GetVersion() = 0;
  /* 9 */ virtual uint64_t GetID() = 0;
  /* 10 */ virtual ~Effect() = default;
  /* 11 */ virtual int32_t UpdateConfig() = 0;
  /* 12 */ virtual int32_t Initialize() = 0;
  /* 13 */ virtual int32_t Render(const InputList& inputs, Screen* output) = 0;
  /* 14 */ virtual int32_t SetupDialog() = 0;
  /* 15 */ virtual const char* GetDisplayName() = 0;
  /* 16 */ virtual Size GetInputScreenRes(int32_t index, int32_t width, int32_t height) = 0;
  /* 17 */ virtual const char* GetInputScreenName(int32_t index) = 0;
  /* 18 */ virtual const Bitmap* GetLabelBitmap() = 0;
  /* 19 */ virtual int32_t ConfirmRenderSource(int32_t source) = 0;
  /* 20 */ virtual int32_t GetInputState() = 0;
  /* 21 */ virtual int32_t GetMemoryUsage() = 0;
  /* 22 */ virtual int32_t SendEffectMessage(int32_t a, int32_t b) = 0;
  /* 23 */ virtual void OnHostNotify(int32_t a, int32_t b) = 0;
  /* 24 */ virtual int32_t QueryHostValue(int32_t a, int32_t b) = 0;
  /* 25 */ virtual int32_t QueryHostFlag(int32_t a) = 0;
  /* 26 */ virtual void OnEnterIdleState() = 0;

  // Filled in by the host after creation; null until then.
  void SetHostContext(HostContext* context) { host_context_ = context; }
  HostContext* GetHostContext() const { return host_context_; }

 protected:
  HostContext* host_context_ = nullptr;
};

}  // namespace orrery
