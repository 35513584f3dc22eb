// An effect's file commands run by a host that has no dialog to click:
// `--action load-e3d=shape.e3d` reads a file into the effect before the
// first frame, `--action save-3ds=mesh.3ds` writes what the effect shows
// after the last one. The effect registers its commands (orrery services);
// this is the host's side: parsing the requests, checking the names, and
// turning a failure into the one-line error the user sees.
#pragma once

#include <string>
#include <vector>

#include "orrery/effect.h"

namespace nimbo::host {

struct ActionRequest {
  std::string name;  // "load-e3d"
  std::string path;  // the file it reads or writes
  bool Saves() const { return name.rfind("save-", 0) == 0; }
};

// "NAME=FILE" with NAME starting "load-" or "save-" and FILE not empty; the
// text of what is wrong otherwise.
bool ParseActionRequest(const std::string& text, ActionRequest* request, std::string* problem);

// The names `effect` registered, in order.
std::vector<std::string> EffectActionNames(const orrery::Effect& effect);

// Throws HostError naming the effect's commands when one of `requests` is
// not among them.
void CheckActionsExist(const orrery::Effect& effect, const std::string& effect_name,
                       const std::vector<ActionRequest>& requests);

// Runs `request` on `path` (the request's own file, or the temporary file a
// save writes before it is put in place). Throws HostError with the
// effect's own message ("Couldn't open file") on failure.
void RunAction(orrery::Effect& effect, const std::string& effect_name, const ActionRequest& request,
               const std::string& path);

}  // namespace nimbo::host
