#pragma once
// VrPmtOutput: the `.pmt` instance list of a render, one record per primitive.

#include "io/output/VrTextOutput.h"

class VrPmtOutput : public VrTextOutput {
 public:
  VrPmtOutput(const std::string& path, const VrOutputSettings& settings) : VrTextOutput(path, settings) {}
  bool wantsInstanceChannels() const override { return true; }

 protected:
  std::string header() const override;
  void appendText(const std::string& run, const VrOutputPrimitive& primitive, std::string& text) const override;
};
