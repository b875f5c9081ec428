#pragma once
// VrJsonLinesOutput: one JSON object per line and primitive: patch, face, id, the CVs of sample
// 0, the CVs of the other motion samples and the widths. Primitives other than splines add
// their "kind" (the type name) before the CVs; cards (five control points) and spheres (four)
// add their "length" and "width", spheres their "depth" too. Archives give their "position" and
// "axes" (where their own x, y and z go; "samples" holds the four vectors of each further motion
// sample) in place of CVs and widths, then their "group", "frame" and "files" (the file of each
// slot: "low", "medium", "high", "proxy"). Numbers are the shortest texts
// that read back as the same floats, whatever the locale.

#include "io/output/VrTextOutput.h"

class VrJsonLinesOutput : public VrTextOutput {
 public:
  VrJsonLinesOutput(const std::string& path, const VrOutputSettings& settings) : VrTextOutput(path, settings) {}

 protected:
  /// The run's patch as a JSON string.
  std::string runText(const std::string& patch) const override;
  void appendText(const std::string& patchText, const VrOutputPrimitive& primitive, std::string& line) const override;
};
