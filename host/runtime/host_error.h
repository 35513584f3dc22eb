// HostError: a problem the user must fix (a bad file, an unknown effect, a
// wrong value). main() prints its text as one "nimbo: error: ..." line and
// exits non-zero; everything on the way unwinds and removes its temporary
// files.
#pragma once

#include <stdexcept>
#include <string>

namespace nimbo::host {

class HostError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// `text` in double quotes, the way error lines name files, keys and effects.
inline std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

}  // namespace nimbo::host
