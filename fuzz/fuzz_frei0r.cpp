// libFuzzer target for the frei0r plug-ins, driven only through the f0r_*
// functions, as ffmpeg, MLT and GStreamer drive them. The first byte picks a
// plug-in (every nimbo_*.so of the build's frei0r folder), the next two the
// frame size (0 included, which construct must refuse); the rest is a list
// of calls:
//   set a parameter: any double or colour bit pattern (NaN, infinities,
//     negative, above 1) or a text: empty, a path that does not exist, a
//     settings document made of the input's bytes, or plain bytes;
//   read a parameter back: numbers and colours must lie in 0..1;
//   render a frame at a time that steps on, repeats, goes back, leaps or is
//     not a number: every output pixel must be written;
//   a new instance at another size, as a host does when the size changes.
// Files the plug-ins read or write (presets, ColorTracker's values) stay in a
// temporary folder of this process.
#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

extern "C" {
#include <frei0r.h>
}

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "fuzz_check.h"

namespace {

constexpr uint32_t kCanary = 0xDEADBEEFu;
constexpr int kMaxSide = 40;
constexpr int kMaxCalls = 48;
constexpr int kMaxFrames = 12;
constexpr size_t kMaxText = 200;

struct Plugin {
  std::string file;
  f0r_plugin_info_t info{};
  std::vector<f0r_param_info_t> params;
  f0r_instance_t (*construct)(unsigned, unsigned) = nullptr;
  void (*destruct)(f0r_instance_t) = nullptr;
  void (*set_param)(f0r_instance_t, f0r_param_t, int) = nullptr;
  void (*get_param)(f0r_instance_t, f0r_param_t, int) = nullptr;
  void (*update)(f0r_instance_t, double, const uint32_t*, uint32_t*) = nullptr;
  void (*update2)(f0r_instance_t, double, const uint32_t*, const uint32_t*, const uint32_t*, uint32_t*) = nullptr;
};

template <class F>
void Resolve(void* library, F& function, const char* name) {
  function = reinterpret_cast<F>(dlsym(library, name));
}

std::vector<Plugin> OpenPlugins() {
  std::vector<std::string> files;
  if (DIR* dir = opendir(NIMBO_FREI0R_DIR)) {
    while (const dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name.rfind("nimbo_", 0) == 0 && name.size() > 3 && name.compare(name.size() - 3, 3, ".so") == 0)
        files.push_back(name);
    }
    closedir(dir);
  }
  std::sort(files.begin(), files.end());
  std::vector<Plugin> plugins;
  for (const std::string& file : files) {
    void* library = dlopen((std::string(NIMBO_FREI0R_DIR) + "/" + file).c_str(), RTLD_NOW | RTLD_LOCAL);
    FUZZ_CHECK(library != nullptr);
    Plugin p;
    p.file = file;
    int (*init)() = nullptr;
    void (*plugin_info)(f0r_plugin_info_t*) = nullptr;
    void (*param_info)(f0r_param_info_t*, int) = nullptr;
    Resolve(library, init, "f0r_init");
    Resolve(library, plugin_info, "f0r_get_plugin_info");
    Resolve(library, param_info, "f0r_get_param_info");
    Resolve(library, p.construct, "f0r_construct");
    Resolve(library, p.destruct, "f0r_destruct");
    Resolve(library, p.set_param, "f0r_set_param_value");
    Resolve(library, p.get_param, "f0r_get_param_value");
    Resolve(library, p.update, "f0r_update");
    Resolve(library, p.update2, "f0r_update2");
    FUZZ_CHECK(init && plugin_info && param_info && p.construct && p.destruct && p.set_param && p.get_param &&
               p.update && p.update2);
    FUZZ_CHECK(init() == 1);
    plugin_info(&p.info);
    for (int i = 0; i < p.info.num_params; ++i) {
      f0r_param_info_t param{};
      param_info(&param, i);
      p.params.push_back(param);
    }
    plugins.push_back(std::move(p));
  }
  FUZZ_CHECK(!plugins.empty());
  return plugins;
}

// Reads the input front to back; past its end every read gives zeros.
class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool Empty() const { return at_ >= size_; }
  uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  template <class T>
  T Raw() {
    uint8_t bytes[sizeof(T)] = {};
    for (uint8_t& b : bytes) b = Byte();
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
  }
  std::string Text() {
    const size_t length = std::min<size_t>(Byte(), kMaxText);
    std::string text;
    while (text.size() < length && !Empty()) text.push_back(char(Byte()));
    return text;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

// Values hosts are known to send (NaN from an unset keyframe, -0, out of
// range), or any bit pattern.
template <class T>
T Number(Bytes& in) {
  const T special[] = {std::numeric_limits<T>::quiet_NaN(),
                       -std::numeric_limits<T>::infinity(),
                       std::numeric_limits<T>::infinity(),
                       T(-1),
                       T(-0.0),
                       T(0),
                       T(0.5),
                       T(1),
                       T(2),
                       T(1e30)};
  const uint8_t pick = in.Byte();
  return pick < std::size(special) ? special[pick] : in.Raw<T>();
}

std::string temp_folder;

// The folder and the files the plug-ins left in it go when the run ends.
void RemoveTempFolder() {
  if (DIR* dir = opendir(temp_folder.c_str())) {
    while (const dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") std::remove((temp_folder + "/" + name).c_str());
    }
    closedir(dir);
  }
  rmdir(temp_folder.c_str());
}

const std::string& TempFolder() {
  if (temp_folder.empty()) {
    char name[] = "/tmp/fuzz_frei0r_XXXXXX";
    FUZZ_CHECK(mkdtemp(name) != nullptr);
    temp_folder = name;
    std::atexit(RemoveTempFolder);
  }
  return temp_folder;
}

// A text parameter's value. Paths stay in the temporary folder or name
// nothing; plain bytes lose '/' and '.', so they cannot leave the current
// folder (a path setting only reads what it names).
std::string Text(Bytes& in, const std::string& param_name) {
  const uint8_t pick = in.Byte() % 5;
  if (pick == 0) return "";
  if (pick == 1) return "/nonexistent/folder/file.xml";
  if (pick == 2) return TempFolder();  // a folder, not a file
  if (param_name == "values file") return TempFolder() + "/values" + std::to_string(pick) + ".csv";
  std::string text = in.Text();
  if (pick == 3) {
    const std::string path = TempFolder() + "/settings.xml";
    if (FILE* file = std::fopen(path.c_str(), "wb")) {
      std::fwrite(text.data(), 1, text.size(), file);
      std::fclose(file);
    }
    return path;
  }
  std::replace(text.begin(), text.end(), '/', '_');
  std::replace(text.begin(), text.end(), '.', '_');
  return text;
}

void SetParam(const Plugin& p, f0r_instance_t instance, int index, Bytes& in) {
  const f0r_param_info_t& param = p.params[size_t(index)];
  switch (param.type) {
    case F0R_PARAM_BOOL:
    case F0R_PARAM_DOUBLE: {
      double value = Number<double>(in);
      p.set_param(instance, &value, index);
      break;
    }
    case F0R_PARAM_COLOR: {
      f0r_param_color_t color{Number<float>(in), Number<float>(in), Number<float>(in)};
      p.set_param(instance, &color, index);
      break;
    }
    case F0R_PARAM_POSITION: {
      f0r_param_position_t position{Number<double>(in), Number<double>(in)};
      p.set_param(instance, &position, index);
      break;
    }
    case F0R_PARAM_STRING: {
      const std::string text = Text(in, param.name);
      // Hosts also hand a null string pointer.
      const char* value = in.Byte() % 8 == 0 ? nullptr : text.c_str();
      p.set_param(instance, &value, index);
      break;
    }
    default:
      break;
  }
}

void CheckParam(const Plugin& p, f0r_instance_t instance, int index) {
  switch (p.params[size_t(index)].type) {
    case F0R_PARAM_BOOL:
    case F0R_PARAM_DOUBLE: {
      double value = -1;
      p.get_param(instance, &value, index);
      FUZZ_CHECK(value >= 0.0 && value <= 1.0);
      break;
    }
    case F0R_PARAM_COLOR: {
      f0r_param_color_t color{-1, -1, -1};
      p.get_param(instance, &color, index);
      FUZZ_CHECK(color.r >= 0 && color.r <= 1 && color.g >= 0 && color.g <= 1 && color.b >= 0 && color.b <= 1);
      break;
    }
    case F0R_PARAM_STRING: {
      const char* value = nullptr;
      p.get_param(instance, &value, index);
      FUZZ_CHECK(value != nullptr);
      break;
    }
    default:
      break;
  }
}

// The next frame's time in the unit the instance started with (seconds or,
// as ffmpeg passes them, milliseconds), or a seek, a repeat or no time.
double NextTime(Bytes& in, double last, double period) {
  switch (in.Byte() % 8) {
    case 0:
      return last;
    case 1:
      return last - period * (1 + in.Byte() % 4);
    case 2:
      return last + period * (3 + in.Byte());
    case 3:
      return std::numeric_limits<double>::quiet_NaN();
    case 4:
      return Number<double>(in);
    default:
      return last + period;
  }
}

// A frame filled from a seed and a few bytes: alpha varies, and no pixel is
// the canary, so a canary in the output is a pixel nobody wrote.
void FillFrame(Bytes& in, std::vector<uint32_t>& frame) {
  uint32_t x = in.Raw<uint32_t>() | 1u;
  const uint8_t step = in.Byte();
  for (size_t i = 0; i < frame.size(); ++i) {
    x ^= x << 13, x ^= x >> 17, x ^= x << 5;
    frame[i] = (step & 1) ? x : uint32_t(i * step) * 0x01010101u ^ (x & 0xFF000000u);
    if (frame[i] == kCanary) frame[i] = 0;
  }
}

struct Instance {
  f0r_instance_t handle = nullptr;
  int w = 0, h = 0;
};

Instance Construct(const Plugin& p, Bytes& in) {
  Instance made;
  made.w = in.Byte() % (kMaxSide + 1);
  made.h = in.Byte() % (kMaxSide + 1);
  made.handle = p.construct(unsigned(made.w), unsigned(made.h));
  if (made.w == 0 || made.h == 0)
    FUZZ_CHECK(made.handle == nullptr);
  else
    FUZZ_CHECK(made.handle != nullptr);
  return made;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::vector<Plugin> plugins = OpenPlugins();
  Bytes in(data, size);
  const Plugin& p = plugins[in.Byte() % plugins.size()];
  const bool mixer = p.info.plugin_type == F0R_PLUGIN_TYPE_MIXER2;
  Instance instance = Construct(p, in);
  const double period = in.Byte() & 1 ? 40.0 : 0.04;  // milliseconds (ffmpeg) or seconds
  double time = 0;
  int frames = 0;
  for (int call = 0; call < kMaxCalls && !in.Empty() && instance.handle; ++call) {
    const uint8_t op = in.Byte() % 4;
    if (op == 3) {
      p.destruct(instance.handle);
      instance = Construct(p, in);
      continue;
    }
    if (p.params.empty() && op < 2) continue;
    const int index = int(in.Byte() % std::max<size_t>(p.params.size(), 1));
    if (op == 0) {
      SetParam(p, instance.handle, index, in);
    } else if (op == 1) {
      CheckParam(p, instance.handle, index);
    } else if (frames++ < kMaxFrames) {
      const size_t pixels = size_t(instance.w) * size_t(instance.h);
      std::vector<uint32_t> first(pixels), second(pixels), out(pixels, kCanary);
      FillFrame(in, first);
      FillFrame(in, second);
      time = NextTime(in, time, period);
      if (mixer)
        p.update2(instance.handle, time, first.data(), second.data(), nullptr, out.data());
      else
        p.update(instance.handle, time, first.data(), out.data());
      FUZZ_CHECK(std::find(out.begin(), out.end(), kCanary) == out.end());
    }
  }
  if (instance.handle) p.destruct(instance.handle);
  return 0;
}
