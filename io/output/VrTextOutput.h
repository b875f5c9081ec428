#pragma once
// VrTextOutput: what the text outputs share. The file is written under a temporary name in the C
// locale and put in place by `end`. A render encodes each run's text on the thread that made
// the run; `write` makes it in chunks of primitives on `settings.threads` workers. Either way the
// text is stored in order, so the bytes do not depend on the thread count. A text output says
// what opens the file and what one primitive's text is.

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
  bool encodesRuns() const override { return true; }
  void encode(const std::string& patch, const VrOutputPrimitive* primitives, size_t count,
              std::string& bytes) const override;
  bool writeEncoded(const std::string& patch, const VrOutputPrimitive* primitives, size_t count,
                    const std::string& bytes) override;

 protected:
  using VrPrimitiveOutput::VrPrimitiveOutput;
  /// What opens the file; nothing unless overridden.
  virtual std::string header() const { return std::string(); }
  /// What the primitives of a run of `patch` share, made once per run and handed to
  /// `appendText`; nothing unless overridden.
  virtual std::string runText(const std::string& /*patch*/) const { return std::string(); }
  /// Appends the text of one primitive of a run whose `runText` is `run`; called from several
  /// threads at once.
  virtual void appendText(const std::string& run, const VrOutputPrimitive& primitive, std::string& text) const = 0;

 private:
  std::unique_ptr<VrAtomicFile> file;
  std::unique_ptr<tbb::task_arena> arena;
  std::vector<std::string> chunkTexts;
};
