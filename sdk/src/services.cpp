// The host SDK's process-wide services and their defaults.
#include "orrery/services.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <vector>

namespace orrery {
namespace {

std::string EnvOr(const char* name, const char* fallback) {
  const char* value = std::getenv(name);
  return (value && *value) ? value : fallback;
}

class DefaultSettings final : public CSettingsManager {
 public:
  std::string GetPluginsPath() override { return EnvOr("ORRERY_PLUGINS_PATH", "."); }
  std::string GetBinPath() override { return EnvOr("ORRERY_BIN_PATH", "."); }
  std::string GetRecentPath() override {
    std::lock_guard lock(mutex_);
    return recent_;
  }
  void SetRecentPath(const std::string& path) override {
    std::lock_guard lock(mutex_);
    recent_ = path;
  }

 private:
  std::mutex mutex_;
  std::string recent_;
};

class DefaultMessages final : public MessageService {
 public:
  void ShowMessage(void*, const char* caption, const char* text, MessageIcon) override {
    std::fprintf(stderr, "%s: %s\n", caption ? caption : "", text ? text : "");
  }
};

class DefaultHelp final : public HelpService {
 public:
  void OpenHelp(const char*, const char*) override {}
};

class DefaultDesktop final : public DesktopService {
 public:
  int32_t ScreenWidth() override { return 1920; }
  int32_t ScreenHeight() override { return 1080; }
  void MoveCursor(int32_t, int32_t) override {}
};

class DefaultDialogs final : public DialogService {
 public:
  int32_t RunModal(const DialogModel&) override { return 0; }
};

DefaultSettings g_default_settings;
DefaultMessages g_default_messages;
DefaultHelp g_default_help;
DefaultDesktop g_default_desktop;
DefaultDialogs g_default_dialogs;

std::atomic<CSettingsManager*> g_settings{nullptr};
std::atomic<MessageService*> g_messages{nullptr};
std::atomic<HelpService*> g_help{nullptr};
std::atomic<DesktopService*> g_desktop{nullptr};
std::atomic<DialogService*> g_dialogs{nullptr};

template <class T>
T* OrDefault(const std::atomic<T*>& installed, T* fallback) {
  T* service = installed.load();
  return service ? service : fallback;
}

struct OutputValue {
  const Effect* owner;
  std::string name;
  std::string description;
  const float* value;
};
std::mutex g_outputs_mutex;
std::vector<OutputValue> g_outputs;

struct EffectAction {
  const Effect* owner;
  std::string name;
  std::string description;
  ActionRunner run;
  void* user;
};
std::mutex g_actions_mutex;
std::vector<EffectAction> g_actions;

std::mutex g_infos_mutex;
std::map<const Effect*, const EffectInfo*> g_infos;

}  // namespace

CSettingsManager* GetSettingsManager() { return OrDefault(g_settings, static_cast<CSettingsManager*>(&g_default_settings)); }
void SetSettingsManager(CSettingsManager* manager) { g_settings = manager; }
MessageService* GetMessageService() { return OrDefault(g_messages, static_cast<MessageService*>(&g_default_messages)); }
void SetMessageService(MessageService* service) { g_messages = service; }
HelpService* GetHelpService() { return OrDefault(g_help, static_cast<HelpService*>(&g_default_help)); }
void SetHelpService(HelpService* service) { g_help = service; }
DesktopService* GetDesktopService() { return OrDefault(g_desktop, static_cast<DesktopService*>(&g_default_desktop)); }
void SetDesktopService(DesktopService* service) { g_desktop = service; }
DialogService* GetDialogService() { return OrDefault(g_dialogs, static_cast<DialogService*>(&g_default_dialogs)); }
void SetDialogService(DialogService* service) { g_dialogs = service; }

void RegisterOutputValue(const Effect* owner, const char* name, const char* description, const float* value) {
  std::lock_guard lock(g_outputs_mutex);
  g_outputs.push_back({owner, name ? name : "", description ? description : "", value});
}

void UnregisterOutputValues(const Effect* owner) {
  std::lock_guard lock(g_outputs_mutex);
  std::erase_if(g_outputs, [owner](const OutputValue& v) { return v.owner == owner; });
}

void VisitOutputValues(const Effect* owner, OutputVisitor visit, void* user) {
  std::lock_guard lock(g_outputs_mutex);
  for (const OutputValue& v : g_outputs) {
    if (v.owner == owner) visit(user, v.name.c_str(), v.description.c_str(), v.value ? *v.value : 0.0f);
  }
}

void RegisterEffectAction(const Effect* owner, const char* name, const char* description, ActionRunner run,
                          void* user) {
  std::lock_guard lock(g_actions_mutex);
  g_actions.push_back({owner, name ? name : "", description ? description : "", run, user});
}

void UnregisterEffectActions(const Effect* owner) {
  std::lock_guard lock(g_actions_mutex);
  std::erase_if(g_actions, [owner](const EffectAction& a) { return a.owner == owner; });
}

void VisitEffectActions(const Effect* owner, ActionVisitor visit, void* user) {
  std::lock_guard lock(g_actions_mutex);
  for (const EffectAction& a : g_actions) {
    if (a.owner == owner) visit(user, a.name.c_str(), a.description.c_str());
  }
}

int32_t RunEffectAction(const Effect* owner, const char* name, const char* path, std::string* message) {
  ActionRunner run = nullptr;
  void* user = nullptr;
  {
    // Found under the registry's lock, run outside it: the runner takes the
    // effect's lock, and a render thread may be registering meanwhile.
    std::lock_guard lock(g_actions_mutex);
    for (const EffectAction& a : g_actions) {
      if (a.owner == owner && name && a.name == name) {
        run = a.run;
        user = a.user;
        break;
      }
    }
  }
  if (!run) {
    if (message) *message = "no such action";
    return 0;
  }
  std::string ignored;
  return run(user, path ? path : "", message ? message : &ignored);
}

void RegisterEffectInfo(const Effect* owner, const EffectInfo* info) {
  std::lock_guard lock(g_infos_mutex);
  g_infos[owner] = info;
}

void UnregisterEffectInfo(const Effect* owner) {
  std::lock_guard lock(g_infos_mutex);
  g_infos.erase(owner);
}

const EffectInfo* FindEffectInfo(const Effect* owner) {
  std::lock_guard lock(g_infos_mutex);
  auto it = g_infos.find(owner);
  return it == g_infos.end() ? nullptr : it->second;
}

}  // namespace orrery
