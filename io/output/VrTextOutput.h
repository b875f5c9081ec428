#pragma once
// VrTextOutput: what the text outputs share. The file is written under a temporary name in the C
// locale and put in place by `end`; each run's text is made in chunks of primitives on
// `settings.threads` workers and written in order, so the bytes do not depend on the thread
// count. A text output says what opens the file and what one primitive's text is.

#include "base/VrAtomicFile.h"
#include "io/output/VrPrimitiveOutput.h"

#include <tbb/task_arena.h>

#include <memory>
#include <string>
#include <vector>

class VrTextOutput : public VrPrimitiveOutput {
 public:
  bool begin() override;
  bool write(const std::string& patch, const VrOutputPrimitive* primitives, size_t count) override;
  bool end() override;

 protected:
  using VrPrimitiveOutput::VrPrimitiveOutput;
  /// What opens the file; nothing unless overridden.
  virtual std::string header() const { return std::string(); }
  /// Called before the primitives of a run of `patch` are formatted.
  virtual void beginRun(const std::string& /*patch*/) {}
  /// Appends the text of one primitive; called from several workers at once.
  virtual void appendText(const VrOutputPrimitive& primitive, std::string& text) const = 0;

 private:
  std::unique_ptr<VrAtomicFile> file;
  std::unique_ptr<tbb::task_arena> arena;
  std::vector<std::string> chunkTexts;
};
