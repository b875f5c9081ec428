#include "io/alembic/VrAbcStrings.h"

#include <cstring>

namespace {

void appendUtf8(std::string& s, uint32_t c) {
  if (c < 0x80) {
    s += static_cast<char>(c);
  } else if (c < 0x800) {
    s += static_cast<char>(0xc0 | (c >> 6));
    s += static_cast<char>(0x80 | (c & 0x3f));
  } else if (c < 0x10000) {
    s += static_cast<char>(0xe0 | (c >> 12));
    s += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
    s += static_cast<char>(0x80 | (c & 0x3f));
  } else if (c < 0x110000) {
    s += static_cast<char>(0xf0 | (c >> 18));
    s += static_cast<char>(0x80 | ((c >> 12) & 0x3f));
    s += static_cast<char>(0x80 | ((c >> 6) & 0x3f));
    s += static_cast<char>(0x80 | (c & 0x3f));
  } else {
    s += "\xef\xbf\xbd";  // not a code point: the replacement character
  }
}

}  // namespace

namespace vrabc {

void splitStrings(const uint8_t* data, uint64_t size, bool wide, std::vector<std::string>& out) {
  size_t slot = 0;
  if (!wide) {
    uint64_t start = 0;
    for (uint64_t i = 0; i < size && slot < out.size(); ++i) {
      if (data[i] == 0) {
        out[slot++].assign(reinterpret_cast<const char*>(data + start), static_cast<size_t>(i - start));
        start = i + 1;
      }
    }
    return;
  }
  std::string current;
  for (uint64_t i = 0; i + 4 <= size && slot < out.size(); i += 4) {
    uint32_t c;
    std::memcpy(&c, data + i, 4);
    if (c == 0) {
      out[slot++] = current;
      current.clear();
    } else {
      appendUtf8(current, c);
    }
  }
}

uint64_t countStrings(const uint8_t* data, uint64_t size, bool wide) {
  uint64_t count = 0;
  if (!wide) {
    for (uint64_t i = 0; i < size; ++i) count += data[i] == 0;
    return count;
  }
  for (uint64_t i = 0; i + 4 <= size; i += 4) {
    uint32_t c;
    std::memcpy(&c, data + i, 4);
    count += c == 0;
  }
  return count;
}

}  // namespace vrabc
