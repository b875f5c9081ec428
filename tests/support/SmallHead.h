#pragma once
// The bundled head example at a low density (150 instead of 50000), so that a render of it
// takes a moment; written into a test's temporary folder.

#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>

namespace vrtest {

inline std::string smallHeadCollection(const TempDir& dir) {
  std::string text = readText(examplePath("head/head.vorn"));
  const std::string from = "density\t\t\t50000.0";
  const size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos);
  if (at != std::string::npos) text.replace(at, from.size(), "density\t\t\t150.0");
  return dir.write("small.vorn", text);
}

}  // namespace vrtest
