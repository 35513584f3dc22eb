// Orrery host SDK: one dynamic variable, the named parameter a host automates.
//
// An effect keeps its dynamic variables in a singly linked list of these nodes
// (in order of first declaration) and hands the host the head of that list
// through HostContext::PublishDynVars. The host walks the list, shows the
// declared nodes and writes `value` (floats) or `bool_value` (bools) between
// frames; the effect reads them in Render. The effect owns the nodes; they
// stay valid, at the same address, until the effect is destroyed.
#pragma once

#include <cstdint>

namespace orrery {

enum DynVarType : int32_t { kDynVarFloat = 0, kDynVarBool = 1 };

struct DynVar {
  char name[256];       // compared with strcmp: case matters
  float value;          // current value of a float variable (host writes it)
  float varmin;         // range of values
  float varmax;
  float varinit;        // value set on declaration
  int32_t host_handle;  // -1 when created; the host's own identifier
  int32_t declared;     // 1 when declared since the list was last cleared
  int32_t type;         // kDynVarFloat or kDynVarBool
  int32_t bool_value;   // current value of a bool variable (host writes it)
  int32_t initboolval;  // initial value of a bool variable
  DynVar* next;
  float min;            // range the host's controller maps onto varmin..varmax
  float max;
  int32_t loaded;       // set by the XML import: 1 when a value was found
  int32_t option;       // caller-given option, stored as given
};

}  // namespace orrery
