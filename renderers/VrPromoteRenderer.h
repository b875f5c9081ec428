#pragma once
// VrPromoteRenderer: exports a description's archive primitives as instances into one ".pmt"
// text, temporary directory + description name + ".pmt": the header of `VrWriteInstanceHeader`
// at `initDescription`, then one `VrWriteInstanceRecord` per primitive. Every primitive counts;
// the dispatch, the marking as culled and the failure rules are those of `VrInstanceRenderer`.
// A failed write keeps what was written.

#include "renderers/VrInstanceRenderer.h"

#include <fstream>

class VrPromoteRenderer : public VrInstanceRenderer {
 public:
  explicit VrPromoteRenderer(VrDescription* description);
  ~VrPromoteRenderer() override;

  std::string typeName() const override { return "PromoteRenderer"; }

  /// Opens the file and writes the header; an unusable temporary directory or file sets failed.
  void initDescription() override;
  /// False once failed.
  bool beginPatchFace(const std::vector<VrPatch*>& patches, int face) override;
  /// Flushes and closes the file.
  void finishDescription() override;

  /// The file of the last `initDescription`.
  const std::string& outputPath() const { return path; }

 protected:
  bool writeInstance(const VrInstanceRecord& record) override;

 private:
  std::ofstream out;
  std::string path;
};
