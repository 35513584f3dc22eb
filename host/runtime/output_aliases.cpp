#include "runtime/output_aliases.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "runtime/frame_pattern.h"
#include "runtime/host_error.h"

namespace nimbo::host {
namespace {

using FileId = std::pair<dev_t, ino_t>;

// Where a path lands: its folder with links and ".." resolved, its name (or
// frame pattern), and the existing files it names.
struct Place {
  std::string folder;
  std::string name;
  bool pattern = false;
  std::vector<FileId> files;
};

std::string RealFolder(const std::string& folder) {
  char* resolved = realpath(folder.empty() ? "." : folder.c_str(), nullptr);
  if (!resolved) return folder;  // a folder that does not exist: writing there fails later anyway
  std::string text = resolved;
  std::free(resolved);
  return text == "/" ? text : text + "/";
}

bool Identify(const std::string& path, std::vector<FileId>* files) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return false;
  files->push_back({info.st_dev, info.st_ino});
  return true;
}

Place Locate(const std::string& path) {
  Place place;
  if (HasFramePattern(NameOf(path))) {
    place.pattern = true;
    place.folder = RealFolder(FolderOf(path));
    place.name = NameOf(path);
    for (int64_t n : ExistingFrameNumbers(path)) Identify(FormatFramePattern(path, n), &place.files);
    return place;
  }
  // A symbolic link lands where it points (outputs follow links).
  std::string target = path;
  if (char* resolved = realpath(path.c_str(), nullptr)) {
    target = resolved;
    std::free(resolved);
  }
  place.folder = RealFolder(FolderOf(target));
  place.name = NameOf(target);
  Identify(target, &place.files);
  return place;
}

bool SameFile(const Place& a, const Place& b) {
  for (const FileId& id : a.files) {
    if (std::find(b.files.begin(), b.files.end(), id) != b.files.end()) return true;
  }
  if (a.folder != b.folder) return false;
  int64_t number = 0;
  if (a.pattern && b.pattern) return FramePatternsOverlap(a.name, b.name);
  if (a.pattern) return MatchFramePattern(a.name, b.name, &number);
  if (b.pattern) return MatchFramePattern(b.name, a.name, &number);
  return a.name == b.name;
}

bool Checked(const RolePath& p) {
  // Cameras are devices, never written; "-" is refused when it is opened.
  return !p.path.empty() && p.path != "-" && p.path.rfind("/dev/video", 0) != 0 && p.path.rfind("v4l2:", 0) != 0;
}

}  // namespace

void CheckOutputsDoNotAlias(const std::vector<RolePath>& inputs, const std::vector<RolePath>& outputs) {
  std::vector<Place> in_places, out_places;
  for (const RolePath& p : inputs) in_places.push_back(Checked(p) ? Locate(p.path) : Place{});
  for (const RolePath& p : outputs) out_places.push_back(Checked(p) ? Locate(p.path) : Place{});
  for (size_t o = 0; o < outputs.size(); ++o) {
    if (!Checked(outputs[o])) continue;
    for (size_t i = 0; i < inputs.size(); ++i) {
      if (!Checked(inputs[i]) || !SameFile(out_places[o], in_places[i])) continue;
      throw HostError(outputs[o].option + " " + Quoted(outputs[o].path) + " is the same file as the input " +
                      inputs[i].option + " " + Quoted(inputs[i].path) +
                      "; nimbo never writes over its inputs, so give the output another name");
    }
    for (size_t k = 0; k < o; ++k) {
      if (!Checked(outputs[k]) || !SameFile(out_places[o], out_places[k])) continue;
      throw HostError(outputs[o].option + " " + Quoted(outputs[o].path) + " is the same file as " + outputs[k].option +
                      " " + Quoted(outputs[k].path) + "; give each output its own name");
    }
  }
}

}  // namespace nimbo::host
