#pragma once
// 8-bit RGB pictures in PNG files, for the GL preview's shots and the tests that look at them.
// Writing goes through `VrAtomicFile`: the picture appears under its name only when it was
// written whole. Failures are reported with VR_ERROR and a false answer.

#include <cstdint>
#include <string>
#include <vector>

/// A picture: `width` x `height` pixels, three bytes (red, green, blue) each, the top row first.
struct VrRgbImage {
  unsigned width = 0;
  unsigned height = 0;
  std::vector<uint8_t> pixels;

  const uint8_t* at(unsigned x, unsigned y) const { return &pixels[(static_cast<size_t>(y) * width + x) * 3]; }
};

/// Writes `image` to `path` as an 8-bit RGB PNG without a time stamp, so that the same picture
/// always gives the same bytes.
bool VrWritePng(const std::string& path, const VrRgbImage& image);

/// Reads an 8-bit or 16-bit PNG of any colour type into RGB (alpha dropped, grey spread).
bool VrReadPng(const std::string& path, VrRgbImage& image);
