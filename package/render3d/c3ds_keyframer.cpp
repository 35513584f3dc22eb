// The keyframer (KFDATA): a first pass builds the node hierarchy and the
// dummy objects, a second reads the segment and each node's pivot and
// tracks. A parent chain that loops fails the load.
#include <unordered_map>

#include "c3ds_builder.h"
#include "c3ds_tracks.h"

namespace nimbo::scene3ds {
namespace {

constexpr uint16_t kNoParent = 0xFFFF;
constexpr uint16_t kNodeHiddenFlag = 0x800;
constexpr const char* kDummyName = "$$$DUMMY";

bool IsNodeChunk(uint16_t chunk_id, NodeType* type) {
  switch (chunk_id) {
    case id::kObjectNodeTag: *type = NodeType::kMesh; return true;
    case id::kCameraNodeTag: *type = NodeType::kCamera; return true;
    case id::kTargetNodeTag: *type = NodeType::kCameraTarget; return true;
    case id::kLightNodeTag: *type = NodeType::kLight; return true;
    case id::kLTargetNodeTag: *type = NodeType::kLightTarget; return true;
    case id::kSpotlightNodeTag: *type = NodeType::kSpotlight; return true;
    default: return false;
  }
}

template <class Object>
int FindByName(const std::vector<Object>& objects, const std::string& name) {
  for (size_t k = 0; k < objects.size(); ++k)
    if (objects[k].name == name) return int(k);
  return -1;
}

// What one node chunk says about the hierarchy.
struct NodeHeader {
  std::string name, instance;
  uint16_t flags = 0;
  uint16_t parent = kNoParent;
  int id = -1;
};

bool ReadNodeHeader(const Chunk& node, NodeHeader* h) {
  ChunkList list(node, 0);
  Chunk c;
  while (list.Next(&c)) {
    ByteReader r(c);
    if (c.id == id::kNodeHdr) {
      h->name = r.String();
      h->flags = r.U16();
      r.U16();
      h->parent = r.U16();
    } else if (c.id == id::kNodeId) {
      h->id = r.U16();
    } else if (c.id == id::kInstanceName) {
      h->instance = r.String();
    }
    if (!r.ok()) return false;
  }
  return !list.bad();
}

}  // namespace

bool C3DSScene::Builder::ReadKeyframer() {
  C3DSScene& s = scene;
  ChunkList top(root, 0);
  Chunk kfdata;
  if (!FindChunk(top, id::kKfData, &kfdata)) return !top.bad();

  // First pass: the nodes, their objects, the dummies, and the links.
  std::vector<NodeHeader> headers;
  ChunkList list(kfdata, 0);
  Chunk c;
  while (list.Next(&c)) {
    NodeType type;
    if (!IsNodeChunk(c.id, &type)) continue;
    NodeHeader h;
    if (!ReadNodeHeader(c, &h)) return false;
    Node node;
    node.type = type;
    node.name = h.name;
    node.id = h.id >= 0 ? h.id : int(s.nodes_.size());
    const int index = int(s.nodes_.size());
    switch (type) {
      case NodeType::kMesh:
        if (h.name == kDummyName) {
          node.type = NodeType::kDummy;
          node.object = int(s.dummies_.size());
          Dummy& dummy = s.dummies_.emplace_back();
          dummy.name = h.instance;
          dummy.node = index;
        } else {
          node.object = FindByName(s.meshes_, h.name);
          if (node.object >= 0) {
            Mesh& mesh = s.meshes_[size_t(node.object)];
            if (h.flags & kNodeHiddenFlag) mesh.flags |= kMeshHidden;
            else mesh.flags &= ~kMeshHidden;
            mesh.node_id = node.id;
            mesh.node = index;
          }
        }
        break;
      case NodeType::kCamera:
      case NodeType::kCameraTarget: node.object = FindByName(s.cameras_, h.name); break;
      default: node.object = FindByName(s.lights_, h.name); break;
    }
    s.nodes_.push_back(std::move(node));
    headers.push_back(std::move(h));
  }
  if (list.bad()) return false;

  // Links: a parent is the first node with the id named; children are
  // appended in file order.
  std::unordered_map<int, int> by_id;
  for (size_t k = 0; k < s.nodes_.size(); ++k) by_id.emplace(s.nodes_[k].id, int(k));
  std::vector<int> last_child(s.nodes_.size(), -1);
  for (size_t k = 0; k < s.nodes_.size(); ++k) {
    if (headers[k].parent == kNoParent) continue;
    const auto parent = by_id.find(headers[k].parent);
    if (parent == by_id.end()) continue;
    Node& node = s.nodes_[k];
    node.parent = parent->second;
    Node& p = s.nodes_[size_t(node.parent)];
    if (last_child[size_t(node.parent)] < 0) p.first_child = int(k);
    else s.nodes_[size_t(last_child[size_t(node.parent)])].next_sibling = int(k);
    last_child[size_t(node.parent)] = int(k);
  }

  // The order SetFrame poses nodes in, parents first; a node reached again
  // on its own way up is in a loop.
  std::vector<uint8_t> state(s.nodes_.size(), 0);  // 0 new, 1 on the way, 2 placed
  std::vector<int> chain;
  for (size_t k = 0; k < s.nodes_.size(); ++k) {
    chain.clear();
    int at = int(k);
    while (at >= 0 && state[size_t(at)] == 0) {
      state[size_t(at)] = 1;
      chain.push_back(at);
      at = s.nodes_[size_t(at)].parent;
    }
    if (at >= 0 && state[size_t(at)] == 1) return false;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
      state[size_t(*it)] = 2;
      s.node_order_.push_back(*it);
    }
  }

  // Second pass: the segment, pivots and tracks, in file order.
  Tracks unused;
  size_t node_index = 0;
  list = ChunkList(kfdata, 0);
  while (list.Next(&c)) {
    if (c.id == id::kKfSeg) {
      ByteReader r(c);
      const int32_t start = r.I32();
      const int32_t end = r.I32();
      if (!r.ok()) return false;
      s.start_frame_ = start;
      s.end_frame_ = end;
      continue;
    }
    NodeType type;
    if (!IsNodeChunk(c.id, &type)) continue;
    const Node& node = s.nodes_[node_index++];
    Tracks* tracks = &unused;
    Vec3* pivot = nullptr;
    if (node.object >= 0) {
      const size_t o = size_t(node.object);
      switch (node.type) {
        case NodeType::kMesh: tracks = &s.meshes_[o].tracks; pivot = &s.meshes_[o].pivot; break;
        case NodeType::kDummy: tracks = &s.dummies_[o].tracks; pivot = &s.dummies_[o].pivot; break;
        case NodeType::kCamera: tracks = &s.cameras_[o].tracks; break;
        case NodeType::kCameraTarget: tracks = &s.cameras_[o].target_tracks; break;
        case NodeType::kLightTarget: tracks = &s.lights_[o].target_tracks; break;
        default: tracks = &s.lights_[o].tracks; break;
      }
    }
    unused = Tracks();
    ChunkList subs(c, 0);
    Chunk t;
    bool ok = true;
    while (ok && subs.Next(&t)) {
      int32_t* end = &s.end_frame_;
      switch (t.id) {
        case id::kPivot: {
          ByteReader r(t);
          const Vec3 p = r.Point();
          ok = r.ok();
          if (pivot) *pivot = p;
          break;
        }
        case id::kPosTrackTag: ok = ReadVectorTrack(t, &tracks->position, end); break;
        case id::kSclTrackTag: ok = ReadVectorTrack(t, &tracks->scale, end); break;
        case id::kRotTrackTag: ok = ReadRotationTrack(t, &tracks->rotation, end); break;
        case id::kFovTrackTag: ok = ReadFloatTrack(t, &tracks->fov, end); break;
        case id::kRollTrackTag: ok = ReadFloatTrack(t, &tracks->roll, end); break;
        case id::kMorphTrackTag: ok = ReadMorphTrack(t, s.meshes_, &tracks->morph, end); break;
        case id::kHideTrackTag: ok = ReadHideTrack(t, &tracks->hide, end); break;
        default: break;
      }
    }
    if (!ok || subs.bad()) return false;
  }
  return !list.bad();
}

}  // namespace nimbo::scene3ds
