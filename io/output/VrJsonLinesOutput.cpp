#include "io/output/VrJsonLinesOutput.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

// The shortest text that reads back as the same float, free of the locale.
void putNumber(std::string& out, float value) {
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);
  out.append(text, result.ptr);
}

// "[x,y,z]".
void putPoint(std::string& out, const float* xyz) {
  out += '[';
  for (size_t k = 0; k < 3; ++k) {
    if (k) out += ',';
    putNumber(out, xyz[k]);
  }
  out += ']';
}

// "[[x,y,z],...]" for `count` points.
void putPoints(std::string& out, const float* xyz, size_t count) {
  out += '[';
  for (size_t c = 0; c < count; ++c) {
    if (c) out += ',';
    putPoint(out, xyz + 3 * c);
  }
  out += ']';
}

void putJsonString(std::string& out, const std::string& text) {
  out += '"';
  for (char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
      out += escaped;
    } else {
      out += c;
    }
  }
  out += '"';
}

float distance(const float* a, const float* b) {
  const double dx = a[0] - b[0], dy = a[1] - b[1], dz = a[2] - b[2];
  return static_cast<float>(std::sqrt(dx * dx + dy * dy + dz * dz));
}

// The sizes a card or a sphere tells by its control points (sample 0): a card's length and width
// are twice its reach from the root along and across (bend centre, then edge); a sphere's length
// is root to tip, its width and depth twice the handles' reach from the midpoint.
void putSizes(std::string& out, const char* kind, const float* cvs, size_t n) {
  const bool card = std::strcmp(kind, "CardPrimitive") == 0 && n == 5;
  const bool sphere = std::strcmp(kind, "SpherePrimitive") == 0 && n == 4;
  if (!card && !sphere) return;
  const float* p[5] = {cvs, cvs + 3, cvs + 6, cvs + 9, card ? cvs + 12 : cvs};
  float length, width, depth = 0.0f;
  if (card) {
    length = 2.0f * (distance(p[2], p[0]) + distance(p[4], p[2]));
    width = 2.0f * (distance(p[1], p[0]) + distance(p[3], p[1]));
  } else {
    const float mid[3] = {(p[0][0] + p[1][0]) / 2, (p[0][1] + p[1][1]) / 2, (p[0][2] + p[1][2]) / 2};
    length = distance(p[1], p[0]);
    width = 2.0f * distance(p[2], mid);
    depth = 2.0f * distance(p[3], mid);
  }
  out += ",\"length\":";
  putNumber(out, length);
  out += ",\"width\":";
  putNumber(out, width);
  if (sphere) {
    out += ",\"depth\":";
    putNumber(out, depth);
  }
}

// The CVs of motion samples 1, 2, ... as ',"samples":[[...],...]'; nothing for one sample.
void putSamples(std::string& out, const VrOutputPrimitive& prim) {
  if (prim.numSamples < 2) return;
  out += ",\"samples\":[";
  for (size_t s = 1; s < prim.numSamples; ++s) {
    if (s > 1) out += ',';
    putPoints(out, prim.cvs + 3 * prim.numCVs * s, prim.numCVs);
  }
  out += ']';
}

// An archive's own fields: its placement (position, then the axes its own x, y and z map to),
// the placements of the other motion samples, its group, its frame and the file of each slot.
void putArchive(std::string& out, const VrOutputPrimitive& prim) {
  const size_t n = prim.numCVs;
  out += ",\"position\":";
  putPoint(out, prim.cvs);
  out += ",\"axes\":";
  putPoints(out, prim.cvs + 3, n > 1 ? n - 1 : 0);
  putSamples(out, prim);
  out += ",\"group\":" + std::to_string(prim.archiveGroup) + ",\"frame\":";
  putNumber(out, prim.archiveFrame);
  static const char* const slots[4] = {"low", "medium", "high", "proxy"};
  out += ",\"files\":{";
  for (int k = 0; k < 4; ++k) {
    out += k ? ",\"" : "\"";
    out += slots[k];
    out += "\":";
    putJsonString(out, prim.archiveFiles[k] ? prim.archiveFiles[k] : "");
  }
  out += "}}\n";
}

}  // namespace

std::string VrJsonLinesOutput::runText(const std::string& patch) const {
  std::string patchText;
  putJsonString(patchText, patch);
  return patchText;
}

void VrJsonLinesOutput::appendText(const std::string& patchText, const VrOutputPrimitive& prim,
                                   std::string& line) const {
  const size_t n = prim.numCVs;
  line += "{\"patch\":";
  line += patchText;
  line += ",\"face\":" + std::to_string(prim.face) + ",\"id\":" + std::to_string(prim.id);
  const bool spline = !prim.kind || std::strcmp(prim.kind, "SplinePrimitive") == 0;
  if (!spline) {
    line += ",\"kind\":";
    putJsonString(line, prim.kind);
  }
  if (VrIsArchive(prim) && n > 0) return putArchive(line, prim);
  line += ",\"cvs\":";
  putPoints(line, prim.cvs, n);
  putSamples(line, prim);
  line += ",\"widths\":[";
  for (size_t c = 0; c < n; ++c) {
    if (c) line += ',';
    putNumber(line, prim.widths[c]);
  }
  line += ']';
  if (!spline) putSizes(line, prim.kind, prim.cvs, n);
  line += "}\n";
}
