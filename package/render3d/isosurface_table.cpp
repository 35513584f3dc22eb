// The marching-cubes case table, traced at start-up (see isosurface.h for
// the method and the ambiguity rule).
#include <array>
#include <cmath>

#include "render3d/isosurface.h"

namespace nimbo {
namespace {

// Cube edge e joins corners kEdgeCorners[e][0] (the lower one along the
// edge's axis) and kEdgeCorners[e][1]. Edge e runs along axis e / 4; the
// other two coordinates of its lower corner are the two bits of e % 4.
constexpr std::array<std::array<int, 2>, 12> MakeEdgeCorners() {
  std::array<std::array<int, 2>, 12> edges{};
  for (int e = 0; e < 12; ++e) {
    const int axis = e / 4, k = e % 4;
    const int other1 = (axis + 1) % 3, other2 = (axis + 2) % 3;
    // Bits of k go to the two other axes in increasing axis order.
    const int low_axis = other1 < other2 ? other1 : other2, high_axis = other1 < other2 ? other2 : other1;
    const int a = ((k & 1) << low_axis) | ((k >> 1 & 1) << high_axis);
    edges[e] = {a, a | (1 << axis)};
  }
  return edges;
}
constexpr auto kEdgeCorners = MakeEdgeCorners();

int EdgeBetween(int a, int b) {
  for (int e = 0; e < 12; ++e) {
    if ((kEdgeCorners[e][0] == a && kEdgeCorners[e][1] == b) || (kEdgeCorners[e][0] == b && kEdgeCorners[e][1] == a))
      return e;
  }
  return -1;
}

void CornerPosition(int c, float p[3]) {
  p[0] = float(c & 1), p[1] = float(c >> 1 & 1), p[2] = float(c >> 2 & 1);
}

std::vector<uint8_t> TraceCase(int cube_case) {
  auto inside = [cube_case](int c) { return (cube_case >> c & 1) != 0; };
  // Each crossed edge meets two faces; on each it is paired with one other
  // crossed edge. partner[e] holds those two.
  std::array<std::array<int, 2>, 12> partner;
  std::array<int, 12> partners{};
  for (auto& p : partner) p = {-1, -1};
  auto link = [&](int a, int b) {
    partner[a][partners[a]++] = b;
    partner[b][partners[b]++] = a;
  };
  for (int axis = 0; axis < 3; ++axis) {
    const int u = (axis + 1) % 3, v = (axis + 2) % 3;
    for (int side = 0; side < 2; ++side) {
      // The face's corners in cyclic order around it.
      const int base = side << axis;
      const int q[4] = {base, base | 1 << u, base | 1 << u | 1 << v, base | 1 << v};
      int f[4];
      bool in[4];
      for (int k = 0; k < 4; ++k) f[k] = EdgeBetween(q[k], q[(k + 1) % 4]), in[k] = inside(q[k]);
      int crossed[4], n = 0;
      for (int k = 0; k < 4; ++k) {
        if (in[k] != in[(k + 1) % 4]) crossed[n++] = k;
      }
      if (n == 2) {
        link(f[crossed[0]], f[crossed[1]]);
      } else if (n == 4) {
        // Diagonal inside corners: each is cut off on its own.
        for (int k = 0; k < 4; ++k) {
          if (in[k]) link(f[(k + 3) % 4], f[k]);
        }
      }
    }
  }

  std::vector<uint8_t> triangles;
  std::array<bool, 12> used{};
  for (int start = 0; start < 12; ++start) {
    if (partners[start] != 2 || used[start]) continue;
    std::vector<int> loop;
    int previous = -1, at = start;
    do {
      loop.push_back(at);
      used[at] = true;
      const int next = partner[at][0] != previous ? partner[at][0] : partner[at][1];
      previous = at;
      at = next;
    } while (at != start && loop.size() <= 12);

    // Orient the loop counter-clockwise seen from outside: its area vector
    // (Newell) must point the way the crossed edges run from inside to
    // outside.
    float area[3] = {0, 0, 0}, outward[3] = {0, 0, 0};
    for (size_t i = 0; i < loop.size(); ++i) {
      float a0[3], a1[3], b0[3], b1[3];
      CornerPosition(kEdgeCorners[loop[i]][0], a0), CornerPosition(kEdgeCorners[loop[i]][1], a1);
      const int j = loop[(i + 1) % loop.size()];
      CornerPosition(kEdgeCorners[j][0], b0), CornerPosition(kEdgeCorners[j][1], b1);
      float p[3], r[3];
      for (int d = 0; d < 3; ++d) p[d] = 0.5f * (a0[d] + a1[d]), r[d] = 0.5f * (b0[d] + b1[d]);
      area[0] += (p[1] - r[1]) * (p[2] + r[2]);
      area[1] += (p[2] - r[2]) * (p[0] + r[0]);
      area[2] += (p[0] - r[0]) * (p[1] + r[1]);
      const bool lower_inside = inside(kEdgeCorners[loop[i]][0]);
      for (int d = 0; d < 3; ++d) outward[d] += lower_inside ? a1[d] - a0[d] : a0[d] - a1[d];
    }
    if (area[0] * outward[0] + area[1] * outward[1] + area[2] * outward[2] < 0) {
      std::vector<int> reversed(loop.rbegin(), loop.rend());
      loop.swap(reversed);
    }
    for (size_t i = 1; i + 1 < loop.size(); ++i) {
      triangles.push_back(uint8_t(loop[0]));
      triangles.push_back(uint8_t(loop[i]));
      triangles.push_back(uint8_t(loop[i + 1]));
    }
  }
  return triangles;
}

struct CaseTable {
  std::array<std::vector<uint8_t>, 256> cases;
  CaseTable() {
    for (int c = 0; c < 256; ++c) cases[size_t(c)] = TraceCase(c);
  }
};

}  // namespace

const std::vector<uint8_t>& IsoCaseTriangles(int32_t cube_case) {
  static const CaseTable table;
  return table.cases[size_t(cube_case & 255)];
}

}  // namespace nimbo
