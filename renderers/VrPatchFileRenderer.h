#pragma once
// VrPatchFileRenderer: what the two back ends that write point/primitive files share
// (`VrFileRenderer`, baked primitives in ".vpd" files; `VrPointRenderer`, locations in ".vuv"
// files). Each patch gets one file, `outputDir` + patch name + suffix, opened when the first face
// of the patch begins and closed when a face of another patch begins or the description is
// finished. A patch whose faces come in two runs with another patch between them is therefore
// written twice, the second file replacing the first.
//
// Serial path: a `VpdWriter` streams the faces in the order they come. Parallel path: a
// `VpdFileCachedWriter`, every worker writing through the `VpdFileCachedWriterContext` of its
// `VrFileRendererContext`, the file-level calls (open, commit) under `reduceMutex`. The cached
// writer commits faces in ascending order, so any number of threads gives the same bytes, and
// so does the serial path when it is given the faces in ascending order.
//
// Failure: the first failure is reported and sets the failed flag; from then on every begin and
// emit returns at once, and finishing the description deletes the file being written, so a
// failed bake never leaves a partial file. Only sample 0 is emitted (`okToEmit`).

#include "io/vpd/VpdFileCachedWriter.h"
#include "io/vpd/VpdWriter.h"
#include "renderers/VrRenderer.h"

#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

/// A worker's record: the renderer's counts plus its writing position in the cached writer.
class VrFileRendererContext : public VrRendererContext {
 public:
  VpdFileCachedWriterContext writer;
};

class VrPatchFileRenderer : public VrRenderer {
 public:
  bool setAttr(const std::string& name, const std::string& value, const std::string& type = "float",
               const std::string& enumStrings = "") override;

  /// True for sample 0 only: a primitive is written once however many motion samples exist.
  bool okToEmit(int sample, double u, double v) override;
  bool firstSampleOnly() const override { return true; }
  bool canRunInParallel() const override { return true; }
  std::unique_ptr<VrRendererContext> newRendererContext() const override;

  /// Clears the failed flag and the open patch and discards a writer left open.
  void initDescription() override;
  /// Closes the file (committing it) unless the bake failed; a failed bake's file is deleted.
  void finishDescription() override;
  /// Opens the patch's file when the patch changed, then starts the face and its block. False
  /// once failed.
  bool beginPatchFace(const std::vector<VrPatch*>& patches, int face) override;
  bool beginPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches,
                                int face) override;
  /// The face is complete: the cached writer may write it while the render goes on.
  void endPatchFaceInParallel(VrPrimitiveContext& context, const std::vector<VrPatch*>& patches, int face) override;
  /// Writes one record of sample 0.
  void emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) override;
  void emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                               const std::vector<VrPatch*>& patches) override;

  const std::string& outputDir() const { return outDir; }
  /// The expanded path of the file being (or last) written; empty before the first.
  const std::string& outputPath() const { return path; }
  bool failed() const { return failedFlag.load(); }

 protected:
  VrPatchFileRenderer(VrDescription* description, const std::string& defaultOutputDir);

  /// ".vpd" or ".vuv".
  virtual std::string fileSuffix() const = 0;
  /// The header of the file of `patch`; the face ids are filled in by the caller.
  virtual Vpd::Header fileHeader(const VrPatch& patch) const = 0;
  /// The values of one record (replacing `values`); `box` grows by the points the record holds.
  /// False when the record cannot be made: the subclass has reported why.
  virtual bool recordValues(VrPrimitiveContext& context, double u, double v, std::vector<float>& values,
                            SgBox3T<double>& box) = 0;
  /// Key names to ids of the open file, for packing attributes.
  const std::unordered_map<std::string, int>& keyToId() const;
  void setFailed() { failedFlag.store(true); }

  /// @name The file of the parallel path
  /// @{
  /// Closes the open file and opens the cached writer of `patch`; false (and failed) when either
  /// goes wrong. Called under `reduceMutex`.
  virtual bool openCachedWriter(const VrPatch& patch);
  /// Commits and closes whichever writer is open; false (and failed) when the commit fails.
  virtual bool commitAndCloseWriter();
  /// @}

 private:
  bool openWriter(const VrPatch& patch, bool cached);
  void discardWriter();
  bool startFace(VpdFileCachedWriterContext& position, int face);
  void writeRecord(VrPrimitiveContext& context, double u, double v, VrRendererContext* record,
                   VpdFileCachedWriterContext& position);

  std::string outDir;
  std::string path;
  std::string openPatch;
  std::atomic<bool> failedFlag{false};
  std::unique_ptr<VpdWriter> writer;
  std::unique_ptr<VpdFileCachedWriter> cachedWriter;
  // The serial path's position when it writes into a cached writer.
  VpdFileCachedWriterContext serialPosition;
};
