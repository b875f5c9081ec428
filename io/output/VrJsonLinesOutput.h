#pragma once
// VrJsonLinesOutput: one JSON object per line and primitive: patch, face, id, the CVs of sample
// 0, the CVs of the other motion samples and the widths. Numbers are the shortest texts that
// read back as the same floats, whatever the locale.

#include "base/VrAtomicFile.h"
#include "io/output/VrPrimitiveOutput.h"

#include <memory>

class VrJsonLinesOutput : public VrPrimitiveOutput {
 public:
  VrJsonLinesOutput(const std::string& path, const VrOutputSettings& settings) : VrPrimitiveOutput(path, settings) {}

  bool begin() override;
  bool write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) override;
  bool end() override;

 private:
  std::unique_ptr<VrAtomicFile> file;
};
