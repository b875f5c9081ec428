#include "io/output/VrJsonLinesOutput.h"

#include <charconv>
#include <cstdio>

namespace {

// The shortest text that reads back as the same float, free of the locale.
void putNumber(std::string& out, float value) {
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);
  out.append(text, result.ptr);
}

// "[[x,y,z],...]" for `count` points.
void putPoints(std::string& out, const float* xyz, size_t count) {
  out += '[';
  for (size_t c = 0; c < count; ++c) {
    out += c ? ",[" : "[";
    for (size_t k = 0; k < 3; ++k) {
      if (k) out += ',';
      putNumber(out, xyz[3 * c + k]);
    }
    out += ']';
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

}  // namespace

void VrJsonLinesOutput::beginRun(const std::string& patch) {
  patchText.clear();
  putJsonString(patchText, patch);
}

void VrJsonLinesOutput::appendText(const VrOutputPrimitive& prim, std::string& line) const {
  const size_t n = prim.numCVs;
  line += "{\"patch\":";
  line += patchText;
  line += ",\"face\":" + std::to_string(prim.face) + ",\"id\":" + std::to_string(prim.id) + ",\"cvs\":";
  putPoints(line, prim.cvs, n);
  if (prim.numSamples > 1) {
    line += ",\"samples\":[";
    for (size_t s = 1; s < prim.numSamples; ++s) {
      if (s > 1) line += ',';
      putPoints(line, prim.cvs + 3 * n * s, n);
    }
    line += ']';
  }
  line += ",\"widths\":[";
  for (size_t c = 0; c < n; ++c) {
    if (c) line += ',';
    putNumber(line, prim.widths[c]);
  }
  line += "]}\n";
}
