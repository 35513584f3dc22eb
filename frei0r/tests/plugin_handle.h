// A built frei0r plug-in opened the way a frei0r host opens it: dlopen and
// the f0r_* functions, nothing else.
#pragma once

#include <dlfcn.h>
// frei0r.h declares its functions without C linkage of its own.
extern "C" {
#include <frei0r.h>
}

#include <string>

struct PluginHandle {
  void* library = nullptr;
  int (*init)() = nullptr;
  void (*get_plugin_info)(f0r_plugin_info_t*) = nullptr;
  void (*get_param_info)(f0r_param_info_t*, int) = nullptr;
  f0r_instance_t (*construct)(unsigned, unsigned) = nullptr;
  void (*destruct)(f0r_instance_t) = nullptr;
  void (*set_param)(f0r_instance_t, f0r_param_t, int) = nullptr;
  void (*get_param)(f0r_instance_t, f0r_param_t, int) = nullptr;
  void (*update)(f0r_instance_t, double, const uint32_t*, uint32_t*) = nullptr;
  void (*update2)(f0r_instance_t, double, const uint32_t*, const uint32_t*, const uint32_t*, uint32_t*) = nullptr;
  f0r_plugin_info_t info{};

  // Opens NIMBO_FREI0R_DIR/<file>.so; false (with `error`) when it cannot.
  bool Open(const std::string& file, std::string* error) {
    const std::string path = std::string(NIMBO_FREI0R_DIR) + "/" + file + ".so";
    library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      *error = dlerror();
      return false;
    }
    Resolve(init, "f0r_init");
    Resolve(get_plugin_info, "f0r_get_plugin_info");
    Resolve(get_param_info, "f0r_get_param_info");
    Resolve(construct, "f0r_construct");
    Resolve(destruct, "f0r_destruct");
    Resolve(set_param, "f0r_set_param_value");
    Resolve(get_param, "f0r_get_param_value");
    Resolve(update, "f0r_update");
    Resolve(update2, "f0r_update2");
    if (!init || !get_plugin_info || !get_param_info || !construct || !destruct || !set_param || !get_param ||
        !update || !update2) {
      *error = path + " lacks an f0r_* function";
      return false;
    }
    if (!init()) {
      *error = path + ": f0r_init failed";
      return false;
    }
    get_plugin_info(&info);
    return true;
  }

  f0r_param_info_t Param(int index) const {
    f0r_param_info_t p{};
    get_param_info(&p, index);
    return p;
  }
  int FindParam(const std::string& name) const {
    for (int i = 0; i < info.num_params; ++i) {
      if (name == Param(i).name) return i;
    }
    return -1;
  }

 private:
  template <class F>
  void Resolve(F& function, const char* name) {
    function = reinterpret_cast<F>(dlsym(library, name));
  }
};
