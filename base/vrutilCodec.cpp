#include "base/vrutilCodec.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/VrMessage.h"
#include "base/vrutilString.h"

namespace vrutil {

namespace {

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
// printf into a string; the formats come from callers in the code, never from documents.
template <class... Args>
std::string format(const char* fmt, Args... args) {
  char small[128];
  const int n = std::snprintf(small, sizeof(small), fmt, args...);
  if (n < 0) return std::string();
  if (static_cast<size_t>(n) < sizeof(small)) return std::string(small, static_cast<size_t>(n));
  std::string out(static_cast<size_t>(n) + 1, '\0');
  std::snprintf(&out[0], out.size(), fmt, args...);
  out.resize(static_cast<size_t>(n));
  return out;
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

const char* const kDefaultVecFormat = "[%7.5f,%7.5f,%7.5f]";

// Element readers for the array forms.
bool readElement(const std::string& text, double& value) {
  return std::sscanf(text.c_str(), "%lf", &value) == 1;
}
bool readElement(const std::string& text, SgVec3T<double>& value) {
  return std::sscanf(text.c_str(), "%lf,%lf,%lf", &value.x, &value.y, &value.z) == 3;
}
bool readElement(const std::string& text, std::vector<double>& value) {
  return stofs(text, value, false);
}
bool readElement(const std::string& text, std::vector<SgVec3T<double>>& value) {
  return stovs(text, value, false);
}

void reportBadElement(size_t index) {
  VR_ERROR("Array attribute format error: Failed to read #" + std::to_string(index) + " element.");
}

// Reads the count between the keyword and the first ':' behind it. On success `pos` is the first
// character of the first element.
bool readCount(const std::string& text, size_t keyword, size_t keywordLength, unsigned& count,
               size_t& pos) {
  const size_t start = keyword + keywordLength;
  const size_t colon = text.find(':', start);
  if (colon == std::string::npos) {
    VR_ERROR("Array attribute format error: Unable to find the number of elements in array.");
    return false;
  }
  const std::string number = text.substr(start, colon - start);
  if (std::sscanf(number.c_str(), "%u", &count) != 1) {
    VR_ERROR("Array attribute format error: Unable to read the number of elements in array.");
    return false;
  }
  pos = colon + 1;
  return true;
}

bool checkEnough(size_t found, unsigned needed) {
  if (found >= needed) return true;
  VR_ERROR("Array attribute format error: Didnt find enough elements. Found " +
           std::to_string(found) + " but needed " + std::to_string(needed) + ".");
  return false;
}

template <class T>
void commit(std::vector<T>& out, std::vector<T>& values, bool append) {
  if (append) out.insert(out.end(), values.begin(), values.end());
  else out.swap(values);
}

// "keyword n:e0:e1:...)" with elements that hold no ':' or ')'.
template <class T>
bool parseFlat(const std::string& text, const char* keyword, std::vector<T>& out, bool append) {
  const std::string key(keyword);
  const size_t at = text.find(key);
  if (at == std::string::npos) return false;
  unsigned count = 0;
  size_t pos = 0;
  if (!readCount(text, at, key.size(), count, pos)) return false;

  std::vector<T> values;
  values.reserve(std::min<size_t>(count, text.size()));
  bool ended = false;
  while (values.size() < count && !ended) {
    size_t end = text.find_first_of(":)", pos);
    if (end == std::string::npos) {
      end = text.size();
      ended = true;
    } else {
      ended = text[end] == ')';
    }
    T value{};
    if (!readElement(text.substr(pos, end - pos), value)) {
      reportBadElement(values.size());
      return false;
    }
    values.push_back(value);
    pos = end + 1;
  }
  if (!checkEnough(values.size(), count)) return false;
  commit(out, values, append);
  return true;
}

// "array(n:inner:inner...)" where each inner array runs to its own ')'.
template <class T>
bool parseNested(const std::string& text, std::vector<T>& out, bool append) {
  const std::string key("array(");
  const size_t at = text.find(key);
  if (at == std::string::npos) {
    VR_ERROR("Array attribute format error: No Array found in attribute.");
    return false;
  }
  unsigned count = 0;
  size_t pos = 0;
  if (!readCount(text, at, key.size(), count, pos)) return false;

  std::vector<T> values;
  values.reserve(std::min<size_t>(count, text.size()));
  bool ended = false;
  while (values.size() < count && !ended && pos < text.size()) {
    size_t close = text.find(')', pos);
    if (close == std::string::npos) close = text.size() - 1;
    T value;
    if (!readElement(text.substr(pos, close - pos + 1), value)) {
      reportBadElement(values.size());
      return false;
    }
    values.push_back(std::move(value));
    const size_t next = text.find_first_of(":)", close + 1);
    if (next == std::string::npos) {
      ended = true;
    } else {
      ended = text[next] == ')';
      pos = next + 1;
    }
  }
  if (!checkEnough(values.size(), count)) return false;
  commit(out, values, append);
  return true;
}

template <class T>
bool readMatrix(const std::string& text, SgXform3T<T>& x, int frame) {
  const std::string entry = checkFrameArray(text, frame);
  double v[16];
  const int n = std::sscanf(
      entry.c_str(),
      " matrix(%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf)", &v[0], &v[1],
      &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9], &v[10], &v[11], &v[12], &v[13],
      &v[14], &v[15]);
  if (n != 16) return false;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) x.m[r][c] = static_cast<T>(v[r * 4 + c]);
  return true;
}

// Truncates a colour channel to an integer without overflowing on wild values.
uint32_t channelBits(double value) {
  if (!std::isfinite(value)) return 0;
  const double t = std::trunc(value);
  if (t >= 2147483647.0) return 0x7FFFFFFFu;
  if (t <= -2147483648.0) return 0x80000000u;
  return static_cast<uint32_t>(static_cast<int32_t>(t));
}

}  // namespace

std::string vtoa(const SgVec3T<double>& v, const char* fmt) {
  return format(fmt ? fmt : kDefaultVecFormat, v.x, v.y, v.z);
}

std::string vtoa(const SgVec3T<float>& v, const char* fmt) {
  return vtoa(SgVec3T<double>(v), fmt);
}

bool stov(const std::string& text, SgVec3T<double>& v) {
  double x, y, z;
  if (std::sscanf(text.c_str(), " [%lf,%lf,%lf]", &x, &y, &z) != 3) return false;
  v = SgVec3T<double>(x, y, z);
  return true;
}

bool stov(const std::string& text, SgVec3T<float>& v) {
  SgVec3T<double> d;
  if (!stov(text, d)) return false;
  v = SgVec3T<float>(d);
  return true;
}

bool stofs(const std::string& text, std::vector<double>& out, bool append) {
  return parseFlat(text, "array(", out, append);
}

bool stovs(const std::string& text, std::vector<SgVec3T<double>>& out, bool append) {
  return parseFlat(text, "ptArray(", out, append);
}

bool stovvs(const std::string& text, std::vector<std::vector<double>>& out, bool append) {
  return parseNested(text, out, append);
}

bool stovvs(const std::string& text, std::vector<std::vector<SgVec3T<double>>>& out,
            bool append) {
  return parseNested(text, out, append);
}

std::string checkFrameArray(const std::string& text, int frame) {
  const size_t keyword = text.find("frameArray");
  if (keyword == std::string::npos) return text;
  const size_t open = text.find('(', keyword);
  if (open == std::string::npos) return text;
  const size_t close = text.rfind(')');
  if (close == std::string::npos || close < open) return text;
  const std::string inside = text.substr(open + 1, close - open - 1);
  const size_t comma = inside.find(',');
  if (comma == std::string::npos) return text;
  const int start = std::atoi(inside.substr(0, comma).c_str());

  std::vector<std::string> entries;
  std::string current;
  int depth = 0;
  bool unbalanced = false;
  for (size_t i = comma + 1; i < inside.size(); ++i) {
    const char c = inside[i];
    if (c == '(') {
      ++depth;
    } else if (c == ')') {
      if (--depth < 0) unbalanced = true;
    } else if (c == ',' && depth == 0) {
      entries.push_back(current);
      current.clear();
      continue;
    }
    current += c;
  }
  entries.push_back(current);
  if (depth != 0 || unbalanced) {
    VR_ERROR("FrameArray attribute format error: Unbalanced parentheses.");
    return text;
  }
  const long long index = static_cast<long long>(frame) - start;
  size_t pick = 0;
  if (index >= static_cast<long long>(entries.size())) pick = entries.size() - 1;
  else if (index > 0) pick = static_cast<size_t>(index);
  return stripWhitespace(entries[pick]);
}

bool stox(const std::string& text, SgXform3T<double>& x, int frame) {
  return readMatrix(text, x, frame);
}

bool stox(const std::string& text, SgXform3T<float>& x, int frame) {
  return readMatrix(text, x, frame);
}

std::string ftoa(double value, const char* fmt) { return format(fmt ? fmt : "%f", value); }

std::string itoa(int value, const char* fmt) { return format(fmt ? fmt : "%d", value); }

std::string btoa(bool value, const char* fmt) {
  return format(fmt ? fmt : "%s", value ? "true" : "false");
}

unsigned hashString(const std::string& text) {
  uint32_t h = 0;
  for (char c : text) {
    h = h * 16u + static_cast<uint32_t>(static_cast<int>(static_cast<signed char>(c)));
    const uint32_t g = h & 0xF0000000u;
    if (g) h ^= (g >> 24) ^ g;
  }
  return h % 211u;
}

void encodeId2RGB(unsigned id, unsigned char rgb[3]) {
  // Bit i of the id, inverted, is bit 7 - i / 3 of channel i % 3. A table per id byte gives that
  // byte's bits at their places in the three channels (channel c in bits 8c to 8c + 7).
  struct Gather {
    constexpr Gather() : bits() {
      for (uint32_t byte = 0; byte < 3; ++byte)
        for (uint32_t value = 0; value < 256; ++value)
          for (uint32_t k = 0; k < 8; ++k)
            if ((value >> k) & 1u) {
              const uint32_t i = 8 * byte + k;
              bits[byte][value] |= 1u << (8 * (i % 3) + 7 - i / 3);
            }
    }
    uint32_t bits[3][256];
  };
  static constexpr Gather gather;
  const uint32_t packed = ~(gather.bits[0][id & 0xFFu] | gather.bits[1][(id >> 8) & 0xFFu] |
                            gather.bits[2][(id >> 16) & 0xFFu]);
  for (int c = 0; c < 3; ++c) rgb[c] = static_cast<unsigned char>(packed >> (8 * c));
}

unsigned decodeRGB2Id(double r, double g, double b) {
  const uint32_t channel[3] = {channelBits(r), channelBits(g), channelBits(b)};
  if (channel[0] == 0 && channel[1] == 0 && channel[2] == 0) return 0;
  // Bit k of channel c, inverted, is bit 21 + c - 3k of the id (encodeId2RGB's interleave read
  // back); a table spreads a channel's low byte onto its id bits, so a lookup reads per spline
  // without a loop.
  struct Spread {
    constexpr Spread() : bits() {
      for (uint32_t byte = 0; byte < 256; ++byte)
        for (uint32_t k = 0; k < 8; ++k) bits[byte] |= ((byte >> k) & 1u) << (21 - 3 * k);
    }
    uint32_t bits[256];
  };
  static constexpr Spread spread;
  return spread.bits[~channel[0] & 0xFFu] | (spread.bits[~channel[1] & 0xFFu] << 1) |
         (spread.bits[~channel[2] & 0xFFu] << 2);
}

unsigned decodeRGB2Id(const SgVec3T<double>& rgb) { return decodeRGB2Id(rgb.x, rgb.y, rgb.z); }

}  // namespace vrutil
