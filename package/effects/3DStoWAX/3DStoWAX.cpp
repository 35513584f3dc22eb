// 3DStoWAX: a .3ds scene as a solid WAX volume. The scene's meshes (posed at
// frame 0) are fitted into the 64^3 volume keeping their proportions, filled
// solid by ray parity and coloured with the diffuse colour of the nearest
// face's material (voxelize.h has the details). No inputs; the output is
// the WAX screen, for WAXViewer, WAXRotate and WAXCombine.
//
// Settings: "path", the .3ds file, stored as a path value so a preset finds
// the file on another machine. The action "load-3ds" (nimbo render --action
// load-3ds=FILE) sets it and reads the file at once. The volume is built
// once per path and kept until the path changes.
//
// A file that cannot be read shows "Couldn't read the .3ds-file '<path>':
// <the reader's error text>" (caption "Error") once, and the volume is
// empty; the action reports the same text and keeps the previous file.
//
// The output is a volume only when the host renders at 512 x 512 (nimbo
// render --size 512x512); at any other size nothing is drawn.
#include <memory>
#include <string>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "orrery/services.h"
#include "render3d/c3ds_scene.h"
#include "render3d/wax_volume.h"
#include "scene_triangles.h"
#include "voxelize.h"

namespace nimbo {
namespace {

constexpr orrery::EffectInfo kInfo = {nullptr, 0, {-1, -1}, "", "nimbo one\\3D Effect\\3DStoWAX", kAuthor,
                                      "Effect,Filter,3D,", 0x0003A73B213EE061ull, orrery::kEffectVersion};

// ---- settings -----------------------------------------------------------------------
struct ToWaxSettings {
  std::string path;
};
constexpr SettingRow<ToWaxSettings> kRows[] = {
    {"path", &ToWaxSettings::path, 0, "", 0, 0, ".3ds file", "the .3ds scene whose meshes are voxelised", true},
};

// The reader's verdict on `path`, as the user sees it.
std::string ReadError(const std::string& path, int code) {
  return "Couldn't read the .3ds-file '" + path + "': " + C3DSScene::GetErrorText(code);
}

// ---- the effect -------------------------------------------------------------------------
class C3DStoWAXDfx final : public CEffectBase {
 public:
  C3DStoWAXDfx()
      : CEffectBase(kInfo, kLabelScene3DStoWAX, "helpfile/Effects/3D/3DStoWAX/3DStoWAX.htm", sizeof(C3DStoWAXDfx)) {
    ApplyDefaults<ToWaxSettings>(kRows, settings_);
    orrery::RegisterEffectAction(this, "load-3ds", "Load 3DS...: voxelises the meshes of a .3ds file (sets path)",
                                 &Load3DS, this);
    mem_size_ = int32_t(sizeof(C3DStoWAXDfx) + wax::kVoxelCount * sizeof(uint32_t));
  }
  ~C3DStoWAXDfx() override { orrery::UnregisterEffectActions(this); }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    (void)inputs;
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown() || !output) return 0;
    if (output->width != wax::kScreenSide || output->height != wax::kScreenSide) return 0;
    if (!built_ || built_path_ != settings_.path) {
      std::string error;
      if (!Build(settings_.path, &error)) {
        volume_.Clear();
        platform::ShowError("Error", error.c_str());
      }
      built_ = true;
      built_path_ = settings_.path;
    }
    return volume_.WriteTo(output) ? 1 : 0;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override { ReadRows<ToWaxSettings>(store, kRows, settings_); }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<ToWaxSettings>(store, kRows, settings_); }
  void DeclareHostControls() override { DescribeRows<ToWaxSettings>(host_context_, kRows); }
  int32_t RunDialog() override {
    return RunSettingsDialog<ToWaxSettings>("3DStoWAX", HelpPage(), kRows, settings_, lock_, [] {});
  }

 private:
  // Reads `path` and voxelises it into volume_. An empty path is an empty
  // volume; a file the reader refuses leaves volume_ as it was and says why.
  bool Build(const std::string& path, std::string* error) {
    if (path.empty()) {
      volume_.Clear();
      return true;
    }
    auto scene = std::make_unique<C3DSScene>();
    if (!scene->Load(path)) {
      // An empty file fails without a code of its own.
      *error = ReadError(path, scene->GetError() ? scene->GetError() : scene3ds::kReadError);
      return false;
    }
    wax::VoxelizeTriangles(wax::SceneTriangles(*scene), &volume_);
    return true;
  }

  static int32_t Load3DS(void* user, const char* path, std::string* message) {
    auto* self = static_cast<C3DStoWAXDfx*>(user);
    std::lock_guard lock(self->lock_);
    const std::string file = path ? path : "";
    std::string error;
    if (file.empty()) error = "Couldn't open file";
    if (error.empty() && self->Build(file, &error)) {
      self->settings_.path = file;
      self->built_ = true;
      self->built_path_ = file;
      if (orrery::ConfigStore* store = self->host_context_ ? self->host_context_->GetConfigStore() : nullptr)
        self->WriteConfig(*store);
      return 1;
    }
    if (message) *message = error;
    return 0;
  }

  ToWaxSettings settings_;
  wax::Volume volume_;
  bool built_ = false;      // volume_ holds the volume of built_path_
  std::string built_path_;
};

}  // namespace

orrery::Effect* New3DStoWAX() { return CreateEffect<C3DStoWAXDfx>(); }

}  // namespace nimbo
