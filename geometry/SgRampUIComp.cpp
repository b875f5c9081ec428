#include "geometry/SgRampUIComp.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

const char* const SgRampUIComp::RampUIDefault = "rampUI(0,1,1:1,1,1)";

bool SgRampUIComp::init(const std::string& text) {
  const bool read = readKeys(text);
  settle();
  return read;
}

bool SgRampUIComp::readKeys(const std::string& text) {
  keys.clear();
  if (text.empty()) return false;
  const size_t open = text.find('(');
  const size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return false;
  const std::string body = text.substr(open + 1, close - open - 1);

  size_t start = 0;
  for (;;) {
    const size_t colon = body.find(':', start);
    const bool last = colon == std::string::npos;
    const std::string piece = body.substr(start, last ? std::string::npos : colon - start);
    float position = 0.0f, value = 0.0f;
    int kind = 0;
    if (last) {
      if (piece.empty()) return true;
      if (std::sscanf(piece.c_str(), "%f,%f,%d", &position, &value, &kind) != 3) return false;
      keys[position] = Key{value, kind};
      return true;
    }
    // Earlier pieces are taken as they read, the way the widget writes them.
    std::sscanf(piece.c_str(), "%f,%f,%d", &position, &value, &kind);
    keys[position] = Key{value, kind};
    start = colon + 1;
  }
}

float SgRampUIComp::getValue(float x) const {
  const auto right = keys.upper_bound(x);
  float result;
  if (right == keys.end()) {
    result = keys.empty() ? 0.0f : keys.rbegin()->second.value;
  } else if (right == keys.begin()) {
    result = right->second.value;
  } else {
    const auto left = std::prev(right);
    const float p0 = left->first, y0 = left->second.value;
    const float p1 = right->first, y1 = right->second.value;
    const float t = (x - p0) / (p1 - p0);
    const float u = t - 1.0f;
    const float hermite = u * u * y0 * (2.0f * t + 1.0f) + t * t * y1 * (3.0f - 2.0f * t);
    switch (left->second.kind) {
      case 0:
        result = y0;
        break;
      case 1:
        result = y0 + t * (y1 - y0);
        break;
      case 2:
        result = hermite;
        break;
      case 3: {
        // Catmull-Rom tangents through the neighbours, scaled to this span's width.
        const float d = p1 - p0;
        float m0 = (y1 - y0) / 2.0f;
        float m1 = (y1 - y0) / 2.0f;
        if (left != keys.begin()) {
          const auto before = std::prev(left);
          m0 = (y1 - before->second.value) / ((p1 - before->first) / d);
        }
        const auto after = std::next(right);
        if (after != keys.end()) m1 = (after->second.value - y0) / ((after->first - p0) / d);
        result = hermite + m0 * t * u * u + m1 * t * t * u;
        break;
      }
      default:
        result = 0.0f;
        break;
    }
  }
  return std::min(1.0f, std::max(0.0f, result));
}

void SgRampUIComp::sample(std::vector<double>& out, int count) const {
  out.clear();
  if (count <= 0) return;
  out.reserve(static_cast<size_t>(count));
  const float step = count > 1 ? 1.0f / static_cast<float>(count - 1) : 0.0f;
  float position = 0.0f;
  for (int i = 0; i < count; ++i) {
    out.push_back(getValue(position));
    position += step;
  }
}

bool SgRampUIComp::isFlat(float& value) const {
  if (flat) value = flatValue;
  return flat;
}

void SgRampUIComp::settle() {
  flat = !keys.empty() && isConstant();
  for (auto k = keys.begin(); flat && std::next(k) != keys.end(); ++k)
    if (k->second.kind != 0 && k->second.kind != 1) flat = false;
  flatValue = flat ? std::min(1.0f, std::max(0.0f, keys.begin()->second.value)) : 0.0f;
}

bool SgRampUIComp::isConstant() const {
  if (keys.empty()) return true;
  const float first = keys.begin()->second.value;
  for (const auto& k : keys)
    if (k.second.value != first) return false;
  return true;
}
