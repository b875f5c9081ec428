#pragma once
// VrPmtOutput: the `.pmt` instance list of a render, one record per primitive.

#include "base/VrAtomicFile.h"
#include "io/output/VrPrimitiveOutput.h"

#include <memory>

class VrPmtOutput : public VrPrimitiveOutput {
 public:
  VrPmtOutput(const std::string& path, const VrOutputSettings& settings) : VrPrimitiveOutput(path, settings) {}

  bool begin() override;
  bool write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) override;
  bool end() override;
  bool wantsInstanceChannels() const override { return true; }

 private:
  std::unique_ptr<VrAtomicFile> file;
};
