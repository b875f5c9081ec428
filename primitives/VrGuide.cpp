#include "primitives/VrGuide.h"

#include "document/VrPalette.h"
#include "geometry/VrPatch.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

void VrGuide::setId(VrPalette* palette) {
  if (!palette) return;
  palette->setMaxGuideId(palette->maxGuideId() + 1);
  guideId = std::to_string(palette->maxGuideId());
}

double VrGuide::maxRadius() const {
  double r = 0.0;
  for (double value : radii) r = std::max(r, value);
  return r;
}

void VrGuide::setBlend(double blend) {
  blendValue = blend;
  if (!interp.empty()) setInterpolation(std::string(interp));
}

std::string VrGuide::interpolation() const {
  if (!interpIsMap) return interp;
  const double s = std::max(blendValue + 1.0, 1.0);
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.16e", (radii.empty() ? 0.001 * s : radii[0]) / s);
  std::string text = buffer;
  for (size_t k = 0; k < angles.size() && k + 1 < radii.size(); ++k) {
    std::snprintf(buffer, sizeof buffer, ":%.16e", angles[k]);
    text += buffer;
    std::snprintf(buffer, sizeof buffer, ":%.16e", radii[k + 1] / s);
    text += buffer;
  }
  return text;
}

void VrGuide::setInterpolation(const std::string& text) {
  interp = text;
  // A reach map starts with a number.
  char* end = nullptr;
  std::strtod(text.c_str(), &end);
  interpIsMap = end != text.c_str();
  const double s = std::max(blendValue + 1.0, 1.0);
  std::vector<double> numbers;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find_first_of(":,", start);
    if (end == std::string::npos) end = text.size();
    const std::string field = text.substr(start, end - start);
    if (!field.empty() || end < text.size()) numbers.push_back(std::atof(field.c_str()));
    start = end + 1;
  }
  radii.assign(1, 0.001 * s);
  angles.clear();
  if (!numbers.empty()) radii[0] = std::max(numbers[0] * s, 0.001 * s);
  for (size_t i = 1; i + 1 < numbers.size(); i += 2) {
    angles.push_back(numbers[i]);
    radii.push_back(numbers[i + 1] * s);
  }
  // Gaps: delta[0] wraps from the last angle round through 4 to the first.
  deltas.assign(angles.size(), 0.0);
  if (!angles.empty()) {
    const double wrap = angles.front() + 4.0 - angles.back();
    deltas[0] = wrap > 0.0 ? 1.0 / wrap : 0.0;
    for (size_t k = 1; k < angles.size(); ++k) {
      const double gap = angles[k] - angles[k - 1];
      deltas[k] = gap > 0.0 ? 1.0 / gap : 0.0;
    }
  }
}

void VrGuide::setRootFrame(bool ref, const SgVec3T<double>& P, const SgVec3T<double>& N,
                           const SgVec3T<double>& tangent, const SgVec3T<double>& binormal) {
  const int i = ref ? 0 : 1;
  rootP[i] = P;
  rootN[i] = N;
  rootT[i] = tangent;
  rootB[i] = binormal;
}

bool VrGuide::patchFrame(int faceNumber) {
  onSurface = false;
  if (!guidePatch || !guidePatch->isBound()) return false;
  for (int pass = 0; pass < 2; ++pass) {
    const bool ref = pass == 0;
    SgVec3T<double> P, N, dPdu, dPdv;
    if (!guidePatch->evalFrame(u, v, faceNumber, P, N, dPdu, dPdv, ref)) return false;
    setRootFrame(ref, P, N, dPdu, dPdv);
  }
  if (interpGeom.empty()) interpGeom = origGeom;
  // The file's CVs are offsets in the exported frame; they are placed in the reference root
  // frame, tangent, normal and binormal taking the places of the exported u tangent, normal and
  // v tangent.
  surfaceGeom.resize(interpGeom.size());
  for (size_t i = 0; i < interpGeom.size(); ++i) {
    const SgVec3T<double>& cv = interpGeom[i];
    const double a = cv.dot(expU), b = cv.dot(expN), c = cv.dot(expV);
    surfaceGeom[i] = rootP[0] + rootT[0] * a + rootN[0] * b + rootB[0] * c;
  }
  onSurface = true;
  return true;
}
