#include "renderers/VrGLLabels.h"

namespace {

// Segments a to g as (x0, y0, x1, y1) on a 4 x 8 cell, y up.
const int segmentLines[7][4] = {{0, 8, 4, 8}, {4, 8, 4, 4}, {4, 4, 4, 0}, {0, 0, 4, 0},
                                {0, 0, 0, 4}, {0, 4, 0, 8}, {0, 4, 4, 4}};
// Bit k lights segment k (a = bit 0).
const unsigned char digitSegments[10] = {0x3f, 0x06, 0x5b, 0x4f, 0x66, 0x6d, 0x7d, 0x07, 0x7f, 0x6f};

}  // namespace

void VrGLProject(const float m[16], const SgVec3T<double>& p, double clip[4]) {
  for (int row = 0; row < 4; ++row)
    clip[row] = m[row] * p.x + m[4 + row] * p.y + m[8 + row] * p.z + m[12 + row];
}

void VrGLAddLabel(VrGLCache::Mesh& mesh, const std::string& text, const double clip[4], unsigned width,
                  unsigned height, const SgVec3T<double>& color) {
  if (!(clip[3] > 0.0) || width == 0 || height == 0) return;
  const double x0 = clip[0] / clip[3], y0 = clip[1] / clip[3];
  // One cell unit in device coordinates: a pixel, as the picture is 2 units across.
  const double ux = 2.0 / width, uy = 2.0 / height;
  for (size_t c = 0; c < text.size(); ++c) {
    unsigned mask = 0;
    if (text[c] >= '0' && text[c] <= '9') mask = digitSegments[text[c] - '0'];
    if (text[c] == '-') mask = 0x40;
    const double left = x0 + (2.0 + 6.0 * double(c)) * ux;
    for (int k = 0; k < 7; ++k) {
      if (!(mask & (1u << k))) continue;
      const int* s = segmentLines[k];
      const SgVec3T<double> a(left + s[0] * ux, y0 + (2 + s[1]) * uy, -1.0), b(left + s[2] * ux, y0 + (2 + s[3]) * uy, -1.0);
      const uint32_t i = mesh.add(a, SgVec3T<double>(), color);
      mesh.add(b, SgVec3T<double>(), color);
      mesh.indices.push_back(i);
      mesh.indices.push_back(i + 1);
    }
  }
}

void VrGLAddRectangle(VrGLCache::Mesh& mesh, double x0, double y0, double x1, double y1, unsigned width,
                      unsigned height, const SgVec3T<double>& color) {
  if (width == 0 || height == 0) return;
  auto at = [&](double x, double y) { return SgVec3T<double>(2.0 * x / width - 1.0, 1.0 - 2.0 * y / height, -1.0); };
  const SgVec3T<double> corners[4] = {at(x0, y0), at(x1, y0), at(x1, y1), at(x0, y1)};
  for (int k = 0; k < 4; ++k) {
    const uint32_t i = mesh.add(corners[k], SgVec3T<double>(), color);
    mesh.add(corners[(k + 1) % 4], SgVec3T<double>(), color);
    mesh.indices.push_back(i);
    mesh.indices.push_back(i + 1);
  }
}
