#include "gles_backend.h"

#include <algorithm>

#include <EGL/eglext.h>

#include <cstring>
#include <mutex>
#include <vector>

#include "heap_reuse.h"
#include "pixel_swizzle.h"

#ifndef GL_BGRA_EXT
#define GL_BGRA_EXT 0x80E1
#endif

namespace nb3d {
namespace {

// ---- the process-wide display ---------------------------------------------------
// One display serves every backend and stays initialised until the process
// ends: eglTerminate would end the contexts of all other engine objects, and
// Mesa does not give back everything across terminate / initialise cycles.
struct SharedDisplay {
  std::mutex mutex;
  EGLDisplay display = EGL_NO_DISPLAY;
};

SharedDisplay& Shared() {
  static SharedDisplay shared;
  return shared;
}

bool HasExtension(const char* list, const char* name) {
  if (!list) return false;
  size_t length = std::strlen(name);
  for (const char* p = list; (p = std::strstr(p, name)) != nullptr; p += length) {
    bool starts = p == list || p[-1] == ' ';
    bool ends = p[length] == ' ' || p[length] == '\0';
    if (starts && ends) return true;
  }
  return false;
}

EGLDisplay TryInitialize(EGLDisplay display) {
  if (display == EGL_NO_DISPLAY) return EGL_NO_DISPLAY;
  EGLint major = 0, minor = 0;
  return eglInitialize(display, &major, &minor) ? display : EGL_NO_DISPLAY;
}

EGLDisplay FindDisplay() {
  const char* client = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  auto get_platform_display =
      reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
  if (get_platform_display && HasExtension(client, "EGL_EXT_platform_device")) {
    auto query_devices = reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
    auto query_device_string =
        reinterpret_cast<PFNEGLQUERYDEVICESTRINGEXTPROC>(eglGetProcAddress("eglQueryDeviceStringEXT"));
    EGLDeviceEXT devices[16];
    EGLint count = 0;
    if (query_devices && query_device_string && query_devices(16, devices, &count)) {
      for (EGLint i = 0; i < count; ++i) {
        // Mesa lists its software rasteriser as a device too; that one is
        // reached below through the surfaceless platform.
        if (HasExtension(query_device_string(devices[i], EGL_EXTENSIONS), "EGL_MESA_device_software")) continue;
        EGLDisplay display = TryInitialize(get_platform_display(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr));
        if (display != EGL_NO_DISPLAY) return display;
      }
    }
  }
  if (get_platform_display && HasExtension(client, "EGL_MESA_platform_surfaceless")) {
    EGLDisplay display =
        TryInitialize(get_platform_display(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    if (display != EGL_NO_DISPLAY) return display;
  }
  return TryInitialize(eglGetDisplay(EGL_DEFAULT_DISPLAY));
}

// The display, found on first use (and searched again while none is found).
EGLDisplay AcquireDisplay() {
  SharedDisplay& shared = Shared();
  std::lock_guard lock(shared.mutex);
  if (shared.display == EGL_NO_DISPLAY) shared.display = FindDisplay();
  return shared.display;
}

// ---- shaders ------------------------------------------------------------------------
constexpr const char* kVertexShader = R"(#version 300 es
layout(location = 0) in vec3 a_position;
layout(location = 1) in vec3 a_normal;
layout(location = 2) in vec2 a_uv;
layout(location = 3) in vec2 a_uv2;
uniform mat4 u_mvp;
uniform mat4 u_model;
out vec2 v_uv;
out vec2 v_uv2;
out vec3 v_normal;
void main() {
  gl_Position = u_mvp * vec4(a_position, 1.0);
  v_uv = a_uv;
  v_uv2 = a_uv2;
  v_normal = mat3(u_model) * a_normal;
}
)";

// u_second: 0 none, 1 add, 2 subtract, 3 alpha from the second texture's
// blue (DrawCall::SecondTexture). The shader is built twice: with FULL 0 it
// only multiplies the texture by the colour. A software rasteriser pays for
// every branch on every pixel, and most draws (quads, pre-lit meshes) need
// nothing more.
constexpr const char* kFragmentShaderBody = R"(
precision highp float;
in vec2 v_uv;
in vec2 v_uv2;
in vec3 v_normal;
uniform sampler2D u_texture;
uniform sampler2D u_texture2;
uniform vec4 u_color;
uniform int u_second;
uniform int u_lit;
uniform vec3 u_light;
out vec4 o_color;
void main() {
  vec4 c = u_color * texture(u_texture, v_uv);
#if FULL
  if (u_second != 0) {
    vec4 s = texture(u_texture2, v_uv2);
    if (u_second == 1) c.rgb = min(c.rgb + s.rgb, vec3(1.0));
    else if (u_second == 2) c.rgb = max(c.rgb - s.rgb, vec3(0.0));
    else c.a = s.b;
  }
  if (u_lit != 0) {
    float l = length(v_normal);
    float d = l > 0.0 ? max(dot(v_normal / l, u_light), 0.0) : 0.0;
    c.rgb *= 0.2 + 0.8 * d;
  }
#endif
  o_color = c;
}
)";

GLuint Compile(GLenum type, const char* source, std::string* error) {
  GLuint shader = glCreateShader(type);
  glShaderSource(shader, 1, &source, nullptr);
  glCompileShader(shader);
  GLint ok = 0;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
  if (!ok) {
    char log[512] = {};
    glGetShaderInfoLog(shader, sizeof(log), nullptr, log);
    *error = std::string("shader: ") + log;
    glDeleteShader(shader);
    return 0;
  }
  return shader;
}

void ApplyFilter(bool nearest) {
  GLint filter = nearest ? GL_NEAREST : GL_LINEAR;
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
}

}  // namespace

GlesBackend::~GlesBackend() {
  if (display_ == EGL_NO_DISPLAY) return;
  if (context_ != EGL_NO_CONTEXT) {
    if (Bind()) {
      DestroyTarget();
      if (plain_.id) glDeleteProgram(plain_.id);
      if (full_.id) glDeleteProgram(full_.id);
      if (vao_) glDeleteVertexArrays(1, &vao_);
      GLuint buffers[2] = {vertex_buffer_, index_buffer_};
      glDeleteBuffers(2, buffers);
      if (white_) glDeleteTextures(1, &white_);
      Unbind();
    }
    eglDestroyContext(display_, context_);
  }
  if (surface_ != EGL_NO_SURFACE) eglDestroySurface(display_, surface_);
}

bool GlesBackend::Open(std::string* error) {
  if (!opened_) {
    opened_ = true;
    // Before the driver allocates anything: see heap_reuse.h.
    KeepFreedHeapForReuse();
    open_ok_ = CreateContext(&open_error_);
    if (open_ok_) {
      open_ok_ = Bind();
      if (!open_ok_) {
        open_error_ = "eglMakeCurrent failed";
      } else {
        open_ok_ = CreateGlObjects(&open_error_);
        Unbind();
      }
    }
  }
  if (!open_ok_ && error) *error = open_error_;
  return open_ok_;
}

bool GlesBackend::CreateContext(std::string* error) {
  display_ = AcquireDisplay();
  if (display_ == EGL_NO_DISPLAY) {
    *error = "no EGL display";
    return false;
  }
  if (!eglBindAPI(EGL_OPENGL_ES_API)) {
    *error = "EGL has no OpenGL ES";
    return false;
  }
  const char* extensions = eglQueryString(display_, EGL_EXTENSIONS);
  bool surfaceless = HasExtension(extensions, "EGL_KHR_surfaceless_context");
  bool configless = HasExtension(extensions, "EGL_KHR_no_config_context") ||
                    HasExtension(extensions, "EGL_MESA_configless_context");
  EGLConfig config = nullptr;  // EGL_NO_CONFIG_KHR
  if (!surfaceless || !configless) {
    const EGLint wanted[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT, EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
    EGLint count = 0;
    if (!eglChooseConfig(display_, wanted, &config, 1, &count) || count < 1) {
      *error = "no EGL configuration for OpenGL ES 3";
      return false;
    }
  }
  const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 0, EGL_NONE};
  context_ = eglCreateContext(display_, config, EGL_NO_CONTEXT, attributes);
  if (context_ == EGL_NO_CONTEXT) {
    *error = "cannot create an OpenGL ES 3 context (EGL error " + std::to_string(eglGetError()) + ")";
    return false;
  }
  if (!surfaceless) {
    const EGLint size[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
    surface_ = eglCreatePbufferSurface(display_, config, size);
    if (surface_ == EGL_NO_SURFACE) {
      *error = "cannot create a pbuffer";
      return false;
    }
  }
  return true;
}

bool GlesBackend::CreateGlObjects(std::string* error) {
  const char* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
  device_name_ = renderer ? renderer : "OpenGL ES";
  const char* gl_extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
  read_bgra_ = want_bgra_read_ && HasExtension(gl_extensions, "GL_EXT_read_format_bgra");

  if (!BuildProgram(false, &plain_, error) || !BuildProgram(true, &full_, error)) return false;

  glGenVertexArrays(1, &vao_);
  glBindVertexArray(vao_);
  glGenBuffers(1, &vertex_buffer_);
  glGenBuffers(1, &index_buffer_);
  vertex_capacity_ = index_capacity_ = 0;
  glBindBuffer(GL_ARRAY_BUFFER, vertex_buffer_);
  glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, index_buffer_);
  const GLsizei stride = 10 * sizeof(float);
  const GLint sizes[4] = {3, 3, 2, 2};
  size_t offset = 0;
  for (GLuint i = 0; i < 4; ++i) {
    glEnableVertexAttribArray(i);
    glVertexAttribPointer(i, sizes[i], GL_FLOAT, GL_FALSE, stride, reinterpret_cast<const void*>(offset));
    offset += size_t(sizes[i]) * sizeof(float);
  }

  const uint32_t white = 0xFFFFFFFFu;
  white_ = CreateTexture(1, 1, false, true, &white, 1);
  // Every frame is drawn upside down (see matrix.h FlipClipY), which turns
  // counter-clockwise front faces clockwise.
  glFrontFace(GL_CW);
  glDepthFunc(GL_LEQUAL);
  glPixelStorei(GL_PACK_ALIGNMENT, 4);
  glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
  if (glGetError() != GL_NO_ERROR) {
    *error = "OpenGL ES set-up failed";
    return false;
  }
  return true;
}

bool GlesBackend::BuildProgram(bool full, Program* program, std::string* error) {
  const std::string fragment_source =
      std::string("#version 300 es\n#define FULL ") + (full ? "1" : "0") + kFragmentShaderBody;
  GLuint vertex = Compile(GL_VERTEX_SHADER, kVertexShader, error);
  GLuint fragment = vertex ? Compile(GL_FRAGMENT_SHADER, fragment_source.c_str(), error) : 0;
  if (!fragment) {
    if (vertex) glDeleteShader(vertex);
    return false;
  }
  GLuint id = program->id = glCreateProgram();
  glAttachShader(id, vertex);
  glAttachShader(id, fragment);
  glLinkProgram(id);
  glDeleteShader(vertex);
  glDeleteShader(fragment);
  GLint linked = 0;
  glGetProgramiv(id, GL_LINK_STATUS, &linked);
  if (!linked) {
    *error = "shader program does not link";
    return false;
  }
  glUseProgram(id);
  // Uniforms the plain variant does not use answer -1; setting those is a
  // no-op.
  program->mvp = glGetUniformLocation(id, "u_mvp");
  program->model = glGetUniformLocation(id, "u_model");
  program->color = glGetUniformLocation(id, "u_color");
  program->second = glGetUniformLocation(id, "u_second");
  program->lit = glGetUniformLocation(id, "u_lit");
  program->light = glGetUniformLocation(id, "u_light");
  glUniform1i(glGetUniformLocation(id, "u_texture"), 0);
  glUniform1i(glGetUniformLocation(id, "u_texture2"), 1);
  return true;
}

bool GlesBackend::Bind() {
  if (context_ == EGL_NO_CONTEXT) return false;
  eglBindAPI(EGL_OPENGL_ES_API);  // the bound API is per thread
  return eglMakeCurrent(display_, surface_, surface_, context_) == EGL_TRUE;
}

void GlesBackend::Unbind() { eglMakeCurrent(display_, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT); }

void GlesBackend::DestroyTarget() {
  if (framebuffer_) glDeleteFramebuffers(1, &framebuffer_);
  GLuint renderbuffers[2] = {color_, depth_};
  glDeleteRenderbuffers(2, renderbuffers);
  framebuffer_ = color_ = depth_ = 0;
  width_ = height_ = 0;
}

bool GlesBackend::SetTarget(int32_t width, int32_t height, std::string* error) {
  DestroyTarget();
  glGenFramebuffers(1, &framebuffer_);
  glGenRenderbuffers(1, &color_);
  glGenRenderbuffers(1, &depth_);
  glBindRenderbuffer(GL_RENDERBUFFER, color_);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
  glBindRenderbuffer(GL_RENDERBUFFER, depth_);
  glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width, height);
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, color_);
  glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth_);
  if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE || glGetError() != GL_NO_ERROR) {
    DestroyTarget();
    *error = "framebuffer incomplete";
    return false;
  }
  glViewport(0, 0, width, height);
  width_ = width;
  height_ = height;
  return true;
}

uint32_t GlesBackend::CreateTexture(int32_t width, int32_t height, bool rgb_only, bool nearest,
                                    const uint32_t* pixels, int32_t stride) {
  while (glGetError() != GL_NO_ERROR) {
  }
  GLuint texture = 0;
  glGenTextures(1, &texture);
  glBindTexture(GL_TEXTURE_2D, texture);
  // The host's words 0xAARRGGBB are the bytes B, G, R, A: uploaded as they
  // are and put right by the sampler, so no pixel is touched on the CPU.
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_R, GL_BLUE);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_B, GL_RED);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_SWIZZLE_A, rgb_only ? GL_ONE : GL_ALPHA);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
  glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);
  ApplyFilter(nearest);
  std::vector<uint32_t> black;
  if (!pixels) {
    black.assign(size_t(width) * size_t(height), 0);
    pixels = black.data();
    stride = width;
  }
  glPixelStorei(GL_UNPACK_ROW_LENGTH, stride);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
  glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
  if (glGetError() != GL_NO_ERROR) {
    glDeleteTextures(1, &texture);
    return 0;
  }
  return texture;
}

void GlesBackend::UpdateTexture(uint32_t texture, int32_t x, int32_t y, int32_t width, int32_t height,
                                const uint32_t* pixels, int32_t stride) {
  glBindTexture(GL_TEXTURE_2D, texture);
  glPixelStorei(GL_UNPACK_ROW_LENGTH, stride);
  glTexSubImage2D(GL_TEXTURE_2D, 0, x, y, width, height, GL_RGBA, GL_UNSIGNED_BYTE, pixels);
  glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
}

void GlesBackend::SetTextureFilter(uint32_t texture, bool nearest) {
  glBindTexture(GL_TEXTURE_2D, texture);
  ApplyFilter(nearest);
}

void GlesBackend::DeleteTexture(uint32_t texture) {
  GLuint id = texture;
  glDeleteTextures(1, &id);
}

void GlesBackend::Clear(const float color[4]) {
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  glDepthMask(GL_TRUE);
  glClearColor(color[0], color[1], color[2], color[3]);
  glClearDepthf(1.0f);
  glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
}

void GlesBackend::Draw(const DrawCall& call) {
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  const Program& p = (call.second != DrawCall::kSecondNone || call.lit) ? full_ : plain_;
  glUseProgram(p.id);
  glBindVertexArray(vao_);
  glUniformMatrix4fv(p.mvp, 1, GL_FALSE, call.mvp);
  glUniformMatrix4fv(p.model, 1, GL_FALSE, call.model);
  glUniform4fv(p.color, 1, call.color);
  glUniform1i(p.second, call.second);
  glUniform1i(p.lit, call.lit);
  glUniform3fv(p.light, 1, call.light);
  glActiveTexture(GL_TEXTURE1);
  glBindTexture(GL_TEXTURE_2D, call.texture2 ? call.texture2 : white_);
  glActiveTexture(GL_TEXTURE0);
  glBindTexture(GL_TEXTURE_2D, call.texture ? call.texture : white_);

  switch (call.blend) {
    case DrawCall::kBlendOpaque:
      glDisable(GL_BLEND);
      break;
    case DrawCall::kBlendHalf:
      glEnable(GL_BLEND);
      glBlendColor(0.0f, 0.0f, 0.0f, 0.5f);
      glBlendFunc(GL_CONSTANT_ALPHA, GL_ONE_MINUS_CONSTANT_ALPHA);
      break;
    case DrawCall::kBlendAdditive:
      glEnable(GL_BLEND);
      glBlendFunc(GL_ONE, GL_ONE);
      break;
    case DrawCall::kBlendAlpha:
      glEnable(GL_BLEND);
      glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
      break;
  }
  // See-through surfaces must not hide what is drawn after them.
  glDepthMask(call.blend == DrawCall::kBlendOpaque ? GL_TRUE : GL_FALSE);
  if (call.depth_test) glEnable(GL_DEPTH_TEST);
  else glDisable(GL_DEPTH_TEST);
  if (call.cull_back) {
    glEnable(GL_CULL_FACE);
    glCullFace(GL_BACK);
  } else {
    glDisable(GL_CULL_FACE);
  }

  // The buffers keep their storage from draw to draw and grow only when a
  // draw needs more: giving them new storage every draw costs the software
  // renderer a fresh allocation (and its page faults) each time, far more
  // than the copy.
  glBindBuffer(GL_ARRAY_BUFFER, vertex_buffer_);
  Upload(GL_ARRAY_BUFFER, GLsizeiptr(call.vertex_count) * 10 * GLsizeiptr(sizeof(float)), call.vertices,
         &vertex_capacity_);
  Upload(GL_ELEMENT_ARRAY_BUFFER, GLsizeiptr(call.index_count) * GLsizeiptr(sizeof(uint32_t)), call.indices,
         &index_capacity_);
  glDrawElements(call.primitive == DrawCall::kLines ? GL_LINES : GL_TRIANGLES, call.index_count, GL_UNSIGNED_INT,
                 nullptr);
}

void GlesBackend::Upload(GLenum target, GLsizeiptr bytes, const void* data, GLsizeiptr* capacity) {
  if (bytes > *capacity) {
    *capacity = std::max(bytes, 2 * *capacity);
    glBufferData(target, *capacity, nullptr, GL_DYNAMIC_DRAW);
  }
  glBufferSubData(target, 0, bytes, data);
}

bool GlesBackend::ReadPixels(uint32_t* pixels, std::string* error) {
  while (glGetError() != GL_NO_ERROR) {
  }
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer_);
  // The frame is upside down in the framebuffer, so its first row is the
  // Screen's top row and the rows go straight into the Screen.
  glReadPixels(0, 0, width_, height_, read_bgra_ ? GL_BGRA_EXT : GL_RGBA, GL_UNSIGNED_BYTE, pixels);
  if (GLenum code = glGetError(); code != GL_NO_ERROR) {
    *error = "reading the picture failed (GL error " + std::to_string(code) + ")";
    return false;
  }
  if (!read_bgra_) SwapRedBlue(pixels, pixels, size_t(width_) * size_t(height_));
  return true;
}

}  // namespace nb3d
