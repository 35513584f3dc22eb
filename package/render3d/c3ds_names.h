// Finding objects by name in constant time: a file may hold hundreds of
// thousands of objects and nodes, and a walk of the list per lookup would
// make loading it quadratic.
#pragma once

#include <string>
#include <unordered_map>

namespace nimbo::scene3ds {

// The first of each name among `objects` (anything with a `name`).
class NameIndex {
 public:
  template <class Objects>
  explicit NameIndex(const Objects& objects) {
    for (size_t k = 0; k < objects.size(); ++k) index_.emplace(objects[k].name, int(k));
  }
  // The index, or -1 when no object has the name.
  int Find(const std::string& name) const {
    const auto it = index_.find(name);
    return it == index_.end() ? -1 : it->second;
  }

 private:
  std::unordered_map<std::string, int> index_;
};

}  // namespace nimbo::scene3ds
