// The .3ds scene `nimbo demo` shows 3DSViewer with, generated here so no
// outside file is shipped: a box wearing the first texture input turns on a
// floor while a small gold box circles it (a child node, so it turns with
// it), under two lights, seen by a camera that sweeps from side to side.
// Three seconds of keyframes (frames 0..89) that loop without a seam.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace nimbo::host {

// The whole file, chunk by chunk.
std::vector<uint8_t> DemoScene3DS();

// The scene written to the temporary folder for the length of one demo.
class DemoSceneFile {
 public:
  DemoSceneFile();  // throws HostError when it cannot be written
  ~DemoSceneFile();
  DemoSceneFile(const DemoSceneFile&) = delete;
  DemoSceneFile& operator=(const DemoSceneFile&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace nimbo::host
