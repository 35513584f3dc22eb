#include "effect_actions.h"

#include <algorithm>

#include "host_error.h"
#include "orrery/services.h"

namespace nimbo::host {

bool ParseActionRequest(const std::string& text, ActionRequest* request, std::string* problem) {
  const size_t eq = text.find('=');
  if (eq == std::string::npos) {
    *problem = "expected NAME=FILE (such as load-e3d=shape.e3d)";
    return false;
  }
  request->name = text.substr(0, eq);
  request->path = text.substr(eq + 1);
  if (request->name.rfind("load-", 0) != 0 && request->name.rfind("save-", 0) != 0) {
    *problem = "the command's name starts with load- or save- (`nimbo info EFFECT` lists them)";
    return false;
  }
  if (request->path.empty()) {
    *problem = "names no file";
    return false;
  }
  return true;
}

std::vector<std::string> EffectActionNames(const orrery::Effect& effect) {
  std::vector<std::string> names;
  orrery::VisitEffectActions(
      &effect, [](void* user, const char* name, const char*) { static_cast<std::vector<std::string>*>(user)->push_back(name); },
      &names);
  return names;
}

void CheckActionsExist(const orrery::Effect& effect, const std::string& effect_name,
                       const std::vector<ActionRequest>& requests) {
  const std::vector<std::string> names = EffectActionNames(effect);
  for (const ActionRequest& request : requests) {
    if (std::find(names.begin(), names.end(), request.name) != names.end()) continue;
    std::string known;
    for (const std::string& name : names) known += (known.empty() ? "" : ", ") + name;
    throw HostError(effect_name + " has no file command " + Quoted(request.name) +
                    (known.empty() ? " (it has none)" : " (its commands: " + known + ")"));
  }
}

void RunAction(orrery::Effect& effect, const std::string& effect_name, const ActionRequest& request,
               const std::string& path) {
  std::string message;
  if (orrery::RunEffectAction(&effect, request.name.c_str(), path.c_str(), &message)) return;
  throw HostError(effect_name + " --action " + request.name + "=" + request.path + ": " +
                  (message.empty() ? "failed" : message));
}

}  // namespace nimbo::host
