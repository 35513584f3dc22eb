#include "viewer_test_scenes.h"

#include "render3d/material.h"

namespace nimbo::viewer3ds::testing {

using namespace chunk3ds;

void AddColorMaterial(C3DSWriter& w, const char* name, int32_t rgb, const char* picture) {
  Material m = DefaultMaterial();
  m.tex[0].diff_clr = rgb;
  m.tex[0].texmode = picture[0] ? kTexModePicture : kTexModeInput;
  SetFixedText(m.tex[0].bitmapname, picture);
  w.AddMaterial(name, m);
}

void AddCube(C3DSWriter& w, const char* name, const float centre[3], float half, const char* material) {
  ChunkNode* tri = w.MData()->AddChild(kNamedObject);
  tri->AppendString(name);
  tri = tri->AddChild(kNTriObject);
  std::vector<float> points, uvs;
  std::vector<uint16_t> faces;
  for (int axis = 0; axis < 3; ++axis) {
    const int u = (axis + 1) % 3, v = (axis + 2) % 3;
    for (float sign : {-1.0f, 1.0f}) {
      const uint16_t first = uint16_t(points.size() / 3);
      for (int corner = 0; corner < 4; ++corner) {
        const int i = corner == 1 || corner == 2, j = corner >= 2;
        float p[3];
        p[axis] = centre[axis] + sign * half;
        p[u] = centre[u] + (i ? half : -half);
        p[v] = centre[v] + (j ? half : -half);
        points.insert(points.end(), {p[0], p[1], p[2]});
        uvs.insert(uvs.end(), {float(i), float(j)});
      }
      // Corners 0, 1, 2, 3 run counter-clockwise about +axis.
      if (sign > 0) faces.insert(faces.end(), {first, uint16_t(first + 1), uint16_t(first + 2), first,
                                               uint16_t(first + 2), uint16_t(first + 3)});
      else faces.insert(faces.end(), {first, uint16_t(first + 2), uint16_t(first + 1), first, uint16_t(first + 3),
                                      uint16_t(first + 2)});
    }
  }
  ChunkNode* pts = tri->AddChild(kPointArray);
  pts->AppendU16(uint16_t(points.size() / 3));
  for (float f : points) pts->AppendFloat(f);
  ChunkNode* tex = tri->AddChild(kTexVerts);
  tex->AppendU16(uint16_t(uvs.size() / 2));
  for (float f : uvs) tex->AppendFloat(f);
  ChunkNode* fa = tri->AddChild(kFaceArray);
  const uint16_t face_count = uint16_t(faces.size() / 3);
  fa->AppendU16(face_count);
  for (size_t f = 0; f < faces.size(); f += 3) {
    fa->AppendU16(faces[f]), fa->AppendU16(faces[f + 1]), fa->AppendU16(faces[f + 2]), fa->AppendU16(7);
  }
  ChunkNode* group = fa->AddChild(kMshMatGroup);
  group->AppendString(material);
  group->AppendU16(face_count);
  for (uint16_t f = 0; f < face_count; ++f) group->AppendU16(f);
}

void AddObjectNode(C3DSWriter& w, uint16_t id, const char* name, uint16_t parent, const std::vector<PositionKey>& keys,
                   uint16_t flags) {
  ChunkNode* node = w.KfData()->AddChild(kObjectNodeTag);
  node->AddChild(kNodeId)->AppendU16(id);
  ChunkNode* hdr = node->AddChild(kNodeHdr);
  hdr->AppendString(name);
  hdr->AppendU16(flags);
  hdr->AppendU16(0);
  hdr->AppendU16(parent);
  ChunkNode* pivot = node->AddChild(kPivot);
  for (int i = 0; i < 3; ++i) pivot->AppendFloat(0.0f);
  ChunkNode* pos = node->AddChild(kPosTrackTag);
  pos->AppendU16(0);
  pos->AppendU32(0), pos->AppendU32(0);
  pos->AppendU32(uint32_t(keys.size()));
  for (const PositionKey& k : keys) {
    pos->AppendI32(k.frame);
    pos->AppendU16(0);
    pos->AppendFloat(k.x), pos->AppendFloat(k.y), pos->AppendFloat(k.z);
  }
}

void SetSegment(C3DSWriter& w, int32_t start, int32_t end) {
  ChunkNode* seg = w.KfData()->AddChild(kKfSeg);
  seg->AppendI32(start);
  seg->AppendI32(end);
}

bool Save(const C3DSWriter& w, const std::string& path) { return w.Save(path.c_str()); }

}  // namespace nimbo::viewer3ds::testing
