// Orrery host SDK: the process-wide services a host offers its plug-ins.
//
// They live in the host's SDK library (liborrery.so), which both the host and
// every package link against. Each service has a default that works with no
// host set-up at all (a host that only loads and runs effects needs none):
//   settings   plug-ins path = ORRERY_PLUGINS_PATH or "."; bin path =
//              ORRERY_BIN_PATH or "."; recent path kept in memory
//   messages   printed to stderr as "caption: text"
//   help       recorded, nothing opened
//   desktop    a 1920x1080 desktop; cursor moves are recorded only
//   dialogs    every modal dialog answers Cancel
//   outputs    a registry of published output values, per effect
// A host installs its own implementation with the Set... functions before it
// loads packages; the installed object must outlive every package.
#pragma once

#include <cstdint>
#include <string>

namespace orrery {

class Effect;
struct EffectInfo;

// ---- settings manager ------------------------------------------------------
class CSettingsManager {
 public:
  virtual std::string GetPluginsPath() = 0;  // folder the package was loaded from
  virtual std::string GetBinPath() = 0;      // folder holding the engine library
  virtual std::string GetRecentPath() = 0;   // last folder used in a file dialog
  virtual void SetRecentPath(const std::string& path) = 0;

 protected:
  ~CSettingsManager() = default;
};
CSettingsManager* GetSettingsManager();
void SetSettingsManager(CSettingsManager* manager);  // null restores the default

// ---- messages, help, desktop ---------------------------------------------------
enum MessageIcon : int32_t { kIconInformation = 0, kIconWarning = 1, kIconError = 2 };

class MessageService {
 public:
  // A message box the user must see; `owner` is a main-window handle or null.
  virtual void ShowMessage(void* owner, const char* caption, const char* text, MessageIcon icon) = 0;

 protected:
  ~MessageService() = default;
};
MessageService* GetMessageService();
void SetMessageService(MessageService* service);

class HelpService {
 public:
  // Opens `page` (e.g. "helpfile/Effects/Misc/ReScaler/ReScaler.htm") inside
  // the help file or folder `help_path`.
  virtual void OpenHelp(const char* help_path, const char* page) = 0;

 protected:
  ~HelpService() = default;
};
HelpService* GetHelpService();
void SetHelpService(HelpService* service);

class DesktopService {
 public:
  virtual int32_t ScreenWidth() = 0;
  virtual int32_t ScreenHeight() = 0;
  virtual void MoveCursor(int32_t x, int32_t y) = 0;

 protected:
  ~DesktopService() = default;
};
DesktopService* GetDesktopService();
void SetDesktopService(DesktopService* service);

// ---- modal setup dialogs -----------------------------------------------------
// An effect describes its dialog as a list of fields bound to its own
// variables; the host draws it modally and writes the edited values back
// only when the user presses OK.
enum class DialogFieldType : int32_t { kInt, kFloat, kBool, kColor, kChoice, kText, kPath, kButton, kLabel };

struct DialogField {
  const char* label;
  DialogFieldType type;
  void* value;          // int32_t* (kInt, kBool, kColor 0xRRGGBB, kChoice), float*, std::string*
  double minimum;
  double maximum;
  const char* choices;  // kChoice: "a|b|c"
  const char* hint;
  // A field that only applies in one state of another: enabled only while
  // the field at index `enabled_by` (a kChoice or kBool) holds
  // `enabled_value`; the host re-evaluates it on every change. -1 = always.
  int32_t enabled_by = -1;
  int32_t enabled_value = 0;
};

struct DialogModel {
  const char* title;
  const DialogField* fields;
  int32_t count;
  const char* help_page;
  void* owner;          // the host's main window
};

class DialogService {
 public:
  // 1 when the user pressed OK (values written back), 0 on Cancel.
  virtual int32_t RunModal(const DialogModel& model) = 0;

 protected:
  ~DialogService() = default;
};
DialogService* GetDialogService();
void SetDialogService(DialogService* service);

// ---- published output values ---------------------------------------------------
// Effects that measure something (a tracker's position) publish named float
// outputs. Registration may happen in the constructor, before the host
// context exists, so the registry is keyed by the effect object.
void RegisterOutputValue(const Effect* owner, const char* name, const char* description, const float* value);
void UnregisterOutputValues(const Effect* owner);
// Calls `visit` for each output of `owner` in registration order.
using OutputVisitor = void (*)(void* user, const char* name, const char* description, float value);
void VisitOutputValues(const Effect* owner, OutputVisitor visit, void* user);

// ---- effect file commands ------------------------------------------------------
// What an effect's dialog offers as file commands ("Load E3D...", "Save as
// 3DS..."), registered so a host without the dialog can run them. A name
// starting with "load-" reads a file before the first frame; one starting
// with "save-" writes the effect's current state (after the last frame a
// host rendered). The runner takes the effect's lock itself.
// It answers 1 on success; on failure 0 with the message the effect's dialog
// would show in *message ("Couldn't open file", ...).
using ActionRunner = int32_t (*)(void* user, const char* path, std::string* message);
void RegisterEffectAction(const Effect* owner, const char* name, const char* description, ActionRunner run,
                          void* user);
void UnregisterEffectActions(const Effect* owner);
using ActionVisitor = void (*)(void* user, const char* name, const char* description);
void VisitEffectActions(const Effect* owner, ActionVisitor visit, void* user);
// Runs `owner`'s action `name`: 0 with "no such action" in *message when it
// has none of that name.
int32_t RunEffectAction(const Effect* owner, const char* name, const char* path, std::string* message);

// ---- effect descriptions -------------------------------------------------------
// The interface's operations report most of an effect's EffectInfo but not
// its output name; an effect registers its whole description for the life
// of the object so a host can show everything (e.g. "WAX output").
void RegisterEffectInfo(const Effect* owner, const EffectInfo* info);
void UnregisterEffectInfo(const Effect* owner);
const EffectInfo* FindEffectInfo(const Effect* owner);  // null when none

}  // namespace orrery
