#pragma once
// VrCurvesOutput: every primitive as one curve of an Alembic Curves object, with its widths and
// every motion sample, streamed through the spooling curves writer so that memory does not grow
// with the number of curves.

#include "io/alembic/VrAbcCurvesStreamWriter.h"
#include "io/output/VrPrimitiveOutput.h"

class VrCurvesOutput : public VrPrimitiveOutput {
 public:
  VrCurvesOutput(const std::string& path, const VrOutputSettings& settings) : VrPrimitiveOutput(path, settings) {}

  bool begin() override;
  bool write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) override;
  bool end() override;

 private:
  VrAbcCurvesStreamWriter writer;
  std::vector<std::vector<float>> points;  // one row per sample
  std::vector<const float*> rows;
  std::vector<float> widths;
  std::vector<int32_t> counts;
};
