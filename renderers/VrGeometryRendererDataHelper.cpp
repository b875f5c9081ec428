#include "renderers/VrGeometryRendererDataHelper.h"

#include "io/VrArchiveMesh.h"
#include "io/output/VrCardMeshSpool.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double pi = 3.14159265358979323846;

void putPoint(VrMeshData& out, const SgVec3T<double>& p, double u, double v) {
  out.positions.insert(out.positions.end(), {float(p.x), float(p.y), float(p.z)});
  out.uvs.insert(out.uvs.end(), {float(u), float(v)});
}

void putFace(VrMeshData& out, std::initializer_list<int32_t> corners) {
  out.faceCounts.push_back(static_cast<int32_t>(corners.size()));
  out.faceIndices.insert(out.faceIndices.end(), corners);
}

// Unit tangent at each CV: the chord through its neighbours (one-sided at the ends).
std::vector<SgVec3T<double>> tangentsOf(const std::vector<SgVec3T<double>>& cvs) {
  const size_t n = cvs.size();
  std::vector<SgVec3T<double>> t(n);
  for (size_t i = 0; i < n; ++i) {
    t[i] = cvs[std::min(i + 1, n - 1)] - cvs[i > 0 ? i - 1 : 0];
    if (t[i].normalize() == 0.0 && i > 0) t[i] = t[i - 1];
  }
  return t;
}

// The part of `d` square to the unit `t`, unit length; zero when `d` runs along `t`.
SgVec3T<double> squareTo(const SgVec3T<double>& d, const SgVec3T<double>& t) {
  SgVec3T<double> s = d - t * d.dot(t);
  s.normalize();
  return s;
}

// Any unit vector square to the unit `t`.
SgVec3T<double> anySquareTo(const SgVec3T<double>& t) {
  const SgVec3T<double> axis = std::fabs(t.x) < 0.9 ? SgVec3T<double>(1, 0, 0) : SgVec3T<double>(0, 1, 0);
  SgVec3T<double> s = t.cross(axis);
  s.normalize();
  return s;
}

// v of each CV: its length along the spline over the whole length (index over count when the
// spline has no length).
std::vector<double> alongOf(const std::vector<SgVec3T<double>>& cvs) {
  const size_t n = cvs.size();
  std::vector<double> v(n, 0.0);
  for (size_t i = 1; i < n; ++i) v[i] = v[i - 1] + (cvs[i] - cvs[i - 1]).length();
  const double total = v.back();
  for (size_t i = 0; i < n; ++i) v[i] = total > 0.0 ? v[i] / total : double(i) / double(n - 1);
  return v;
}

}  // namespace

int VrGeometryRendererDataHelper::calculateSpan() const {
  if (settings.shape == VrMeshSettings::Tube) return tubeSides;
  return settings.insertWidthSpan ? std::max(settings.widthSpanNum, 1) : 1;
}

bool VrGeometryRendererDataHelper::addDataForSplinePrim(const std::vector<SgVec3T<double>>& cvs,
                                                        const std::vector<float>& widths, const SgVec3T<double>& side,
                                                        const SgVec3T<double>& normal, VrMeshData& out) const {
  if (cvs.size() < 2 || widths.size() < cvs.size()) return false;
  const std::vector<SgVec3T<double>> tangents = tangentsOf(cvs);
  std::vector<SgVec3T<double>> sides(cvs.size());
  for (size_t i = 0; i < cvs.size(); ++i) {
    const SgVec3T<double>& t = tangents[i];
    SgVec3T<double> s;
    if (settings.orientation == VrMeshSettings::AlignSurfaceNormal) {
      s = normal.cross(t);
      s.normalize();
    }
    if (s.lengthSquared() == 0.0) s = squareTo(side, t);
    if (s.lengthSquared() == 0.0) s = i > 0 ? squareTo(sides[i - 1], t) : SgVec3T<double>();
    if (s.lengthSquared() == 0.0) s = anySquareTo(t);
    sides[i] = s;
  }
  if (settings.shape == VrMeshSettings::Tube) {
    addTube(cvs, widths, sides, tangents, out);
    return true;
  }
  addStrip(cvs, widths, sides, tangents, out);
  if (settings.shape == VrMeshSettings::Cross) {
    // The second strip spreads along the first one's normal.
    std::vector<SgVec3T<double>> across(cvs.size());
    for (size_t i = 0; i < cvs.size(); ++i) across[i] = tangents[i].cross(sides[i]);
    addStrip(cvs, widths, across, tangents, out);
  }
  return true;
}

void VrGeometryRendererDataHelper::addStrip(const std::vector<SgVec3T<double>>& cvs, const std::vector<float>& widths,
                                            const std::vector<SgVec3T<double>>& sides,
                                            const std::vector<SgVec3T<double>>& tangents, VrMeshData& out) const {
  const int columns = calculateSpan();
  const auto first = static_cast<int32_t>(out.numPoints());
  const std::vector<double> along = alongOf(cvs);
  for (size_t i = 0; i < cvs.size(); ++i) {
    const SgVec3T<double> normal = tangents[i].cross(sides[i]);
    const double half = 0.5 * widths[i];
    for (int c = 0; c <= columns; ++c) {
      const double a = double(c) / columns, x = 2.0 * a - 1.0;
      putPoint(out, cvs[i] + sides[i] * (x * half) + normal * (settings.curvature * half * x * x), a, along[i]);
    }
  }
  const int32_t row = columns + 1;
  for (int32_t i = 0; i + 1 < static_cast<int32_t>(cvs.size()); ++i)
    for (int32_t c = 0; c < columns; ++c) {
      const int32_t a = first + i * row + c;
      putFace(out, {a, a + row, a + row + 1, a + 1});
    }
}

void VrGeometryRendererDataHelper::addTube(const std::vector<SgVec3T<double>>& cvs, const std::vector<float>& widths,
                                           const std::vector<SgVec3T<double>>& sides,
                                           const std::vector<SgVec3T<double>>& tangents, VrMeshData& out) const {
  const int around = tubeSides;
  const auto first = static_cast<int32_t>(out.numPoints());
  const std::vector<double> along = alongOf(cvs);
  for (size_t i = 0; i < cvs.size(); ++i) {
    const SgVec3T<double> normal = tangents[i].cross(sides[i]);
    const double radius = 0.5 * widths[i];
    // The seam's points come twice, so that u runs from 0 to 1 around.
    for (int k = 0; k <= around; ++k) {
      const double angle = 2.0 * pi * k / around;
      putPoint(out, cvs[i] + (sides[i] * std::cos(angle) + normal * std::sin(angle)) * radius, double(k) / around,
               along[i]);
    }
  }
  const int32_t row = around + 1;
  for (int32_t i = 0; i + 1 < static_cast<int32_t>(cvs.size()); ++i)
    for (int32_t k = 0; k < around; ++k) {
      const int32_t a = first + i * row + k;
      putFace(out, {a, a + 1, a + row + 1, a + row});
    }
}

bool VrGeometryRendererDataHelper::addDataForCardPrim(const std::vector<SgVec3T<double>>& cp, VrMeshData& out) const {
  constexpr int side = VrCardMeshSpool::side;
  if (cp.size() < 5) return false;
  float controlPoints[15], points[3 * side * side], uvs[2 * side * side];
  for (int i = 0; i < 5; ++i)
    for (int k = 0; k < 3; ++k) controlPoints[3 * i + k] = float(cp[static_cast<size_t>(i)][k]);
  VrCardMeshSpool::grid(controlPoints, points, uvs);
  const auto first = static_cast<int32_t>(out.numPoints());
  out.positions.insert(out.positions.end(), points, points + 3 * side * side);
  out.uvs.insert(out.uvs.end(), uvs, uvs + 2 * side * side);
  for (int32_t r = 0; r + 1 < side; ++r)
    for (int32_t c = 0; c + 1 < side; ++c) {
      const int32_t a = first + r * side + c;
      putFace(out, {a, a + side, a + side + 1, a + 1});
    }
  return true;
}

bool VrGeometryRendererDataHelper::addDataForSpherePrim(const std::vector<SgVec3T<double>>& cp, VrMeshData& out) const {
  if (cp.size() < 4) return false;
  const SgVec3T<double> mid = (cp[0] + cp[1]) * 0.5;
  const SgVec3T<double> axis = cp[1] - mid, width = cp[2] - mid, depth = cp[3] - mid;
  const int rings = sphereRings, sectors = sphereSectors;
  const auto first = static_cast<int32_t>(out.numPoints());
  // Rows from the root (0) to the tip (rings): the poles hold one point a sector, the rows
  // between one more for the seam.
  auto index = [&](int r, int s) -> int32_t {
    if (r == 0) return first + s;
    if (r == rings) return first + sectors + (rings - 1) * (sectors + 1) + s;
    return first + sectors + (r - 1) * (sectors + 1) + s;
  };
  for (int r = 0; r <= rings; ++r) {
    const double theta = pi * r / rings;
    const int count = (r == 0 || r == rings) ? sectors : sectors + 1;
    for (int s = 0; s < count; ++s) {
      const double u = (r == 0 || r == rings) ? (s + 0.5) / sectors : double(s) / sectors;
      const double phi = 2.0 * pi * u;
      putPoint(out, mid - axis * std::cos(theta) + (width * std::cos(phi) + depth * std::sin(phi)) * std::sin(theta), u,
               double(r) / rings);
    }
  }
  // Faces turn outwards when width, depth and axis make a right-handed frame; else the other way.
  const bool rightHanded = width.cross(depth).dot(axis) >= 0.0;
  auto face = [&](std::initializer_list<int32_t> corners) {
    if (rightHanded) return putFace(out, corners);
    std::vector<int32_t> reversed(corners.begin(), corners.end());
    out.faceCounts.push_back(static_cast<int32_t>(reversed.size()));
    out.faceIndices.insert(out.faceIndices.end(), reversed.rbegin(), reversed.rend());
  };
  for (int r = 0; r < rings; ++r)
    for (int s = 0; s < sectors; ++s) {
      if (r == 0)
        face({index(0, s), index(1, s + 1), index(1, s)});
      else if (r == rings - 1)
        face({index(r, s), index(r, s + 1), index(rings, s)});
      else
        face({index(r, s), index(r, s + 1), index(r + 1, s + 1), index(r + 1, s)});
    }
  return true;
}

void VrGeometryRendererDataHelper::addDataForArchivePrim(const SgVec3T<double>& corner, const SgVec3T<double> edges[3],
                                                         VrMeshData& out) const {
  // Each side as its four corners (x, y, z in 0 or 1 along the edges), counter-clockwise seen
  // from outside in a right-handed frame.
  static const int sidesOfBox[6][4][3] = {
      {{0, 0, 0}, {0, 0, 1}, {0, 1, 1}, {0, 1, 0}}, {{1, 0, 0}, {1, 1, 0}, {1, 1, 1}, {1, 0, 1}},
      {{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {0, 0, 1}}, {{0, 1, 0}, {0, 1, 1}, {1, 1, 1}, {1, 1, 0}},
      {{0, 0, 0}, {0, 1, 0}, {1, 1, 0}, {1, 0, 0}}, {{0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}}};
  static const double cornerUV[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  const bool rightHanded = edges[0].cross(edges[1]).dot(edges[2]) >= 0.0;
  for (const auto& side : sidesOfBox) {
    const auto first = static_cast<int32_t>(out.numPoints());
    for (int k = 0; k < 4; ++k)
      putPoint(out, corner + edges[0] * side[k][0] + edges[1] * side[k][1] + edges[2] * side[k][2], cornerUV[k][0],
               cornerUV[k][1]);
    if (rightHanded)
      putFace(out, {first, first + 1, first + 2, first + 3});
    else
      putFace(out, {first + 3, first + 2, first + 1, first});
  }
}

void VrGeometryRendererDataHelper::addDataForArchiveMesh(const VrArchiveMesh& mesh, const SgVec3T<double>& origin,
                                                         const SgVec3T<double> axes[3], VrMeshData& out) const {
  const auto first = static_cast<int32_t>(out.numPoints());
  const SgBox3T<double>& box = mesh.box;
  auto across = [](double x, double low, double size) { return size > 0.0 ? (x - low) / size : 0.0; };
  for (size_t i = 0; i < mesh.numPoints(); ++i) {
    const double x = mesh.positions[3 * i], y = mesh.positions[3 * i + 1], z = mesh.positions[3 * i + 2];
    putPoint(out, origin + axes[0] * x + axes[1] * y + axes[2] * z, across(x, box.min.x, box.size.x),
             across(y, box.min.y, box.size.y));
  }
  const bool rightHanded = axes[0].cross(axes[1]).dot(axes[2]) >= 0.0;
  size_t at = 0;
  for (int32_t count : mesh.faceCounts) {
    const size_t n = count > 0 ? size_t(count) : 0;
    out.faceCounts.push_back(count);
    for (size_t k = 0; k < n; ++k) out.faceIndices.push_back(first + mesh.faceIndices[at + (rightHanded ? k : n - 1 - k)]);
    at += n;
  }
}

void VrGeometryRendererDataHelper::layoutUVs(VrMeshData& mesh, size_t firstPoint, size_t index, size_t count) const {
  double scaleU = 1.0, scaleV = 1.0, offsetU = 0.0, offsetV = 0.0;
  if (settings.uvInTiles) {
    const double margin = std::clamp(settings.uvTileSeparation, 0.0, 0.49);
    scaleU = scaleV = 1.0 - 2.0 * margin;
    offsetU = double(index % 10) + margin;
    offsetV = double(index / 10) + margin;
  } else if (settings.uvLayout == VrMeshSettings::SideBySide && count > 0) {
    const double gap = std::clamp(settings.uvTileSeparation, 0.0, 0.99);
    scaleU = (1.0 - gap) / double(count);
    offsetU = (double(index) + 0.5 * gap) / double(count);
  } else {
    return;
  }
  for (size_t p = firstPoint; p < mesh.numPoints(); ++p) {
    mesh.uvs[2 * p] = float(offsetU + scaleU * mesh.uvs[2 * p]);
    mesh.uvs[2 * p + 1] = float(offsetV + scaleV * mesh.uvs[2 * p + 1]);
  }
}
