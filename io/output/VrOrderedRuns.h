#pragma once
// VrOrderedRuns: hands the runs of a render (one face of one patch, ids ascending) to a writer in
// (patch, face, first id) order while the render is still going, from whatever threads render.
// A run waits in memory only until its face and every face before it are done, so the window
// holds the few faces that finish early and memory does not grow with the render; writing
// happens on the thread that completes the head of the window, beside the other workers.
//
// Threads: `add` and `faceDone` may be called from several threads at once; runs are delivered
// one at a time, in order. `startJob` and `finishJob` are for the thread that runs the jobs.

#include "base/vrutilUninitialised.h"
#include "io/output/VrPrimitiveOutput.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

/// One run of primitives: one face of one patch, ids ascending, with the values it holds. The
/// primitives point into `floats`; the deliverer points `kind`, `description` and an archive's
/// files at their strings, which may move with the run.
struct VrOutputRun {
  size_t job = 0;
  std::string kind;  ///< the primitives' `typeName`
  int face = 0;
  int firstId = 0;
  std::vector<VrOutputPrimitive> prims;
  vrutil::UninitialisedFloats floats;  ///< the CVs of each primitive (sample after sample), then the
                                      ///< widths of each; sized and then written in full
  std::vector<std::string> files;  ///< archives: the four slot files of each primitive
  bool isEncoded = false;          ///< `encoded` holds the output's bytes of the run
  std::string encoded;
  size_t bytes() const {
    return floats.size() * sizeof(float) + prims.size() * sizeof(VrOutputPrimitive) + encoded.size();
  }
};

/// Hands `run` to `output` as primitives of `description` on `patch`, pointing each primitive's
/// kind, description and archive files at the strings that hold them; the output's answer.
bool VrWriteRun(VrPrimitiveOutput& output, const std::string& patch, const std::string& description,
                VrOutputRun& run);
/// Has `output` encode `run` ahead of writing, when it encodes runs; for any thread, each with a
/// run of its own.
void VrEncodeRun(const VrPrimitiveOutput& output, const std::string& patch, const std::string& description,
                 VrOutputRun& run);

class VrOrderedRuns {
 public:
  /// Writes one run; false when writing failed (it has said why), after which nothing more is
  /// delivered.
  using Deliver = std::function<bool(VrOutputRun&)>;
  /// Readies a run on the thread that adds it, before it waits for its turn.
  using Prepare = std::function<void(VrOutputRun&)>;
  explicit VrOrderedRuns(Deliver deliver, Prepare prepare = Prepare())
      : deliver(std::move(deliver)), prepare(std::move(prepare)) {}

  /// Starts job `job`, whose faces are rendered from `faces`; they are delivered by ascending
  /// face number.
  void startJob(size_t job, const std::vector<unsigned>& faces);
  /// Adds a run of the current job, readied first outside the lock.
  void add(VrOutputRun run);
  /// Face `face` of the current job is complete.
  void faceDone(int face);
  /// Delivers what the job still holds, in order (faces never reported done included).
  void finishJob();
  bool failed() const;
  /// The most bytes of runs held at once.
  size_t peakBytes() const;

 private:
  struct Slot {
    std::vector<VrOutputRun> runs;
    bool done = false;
  };
  // Delivers the done slots at the head; the caller holds `lock` through `hold`, which is
  // released while writing.
  void drain(std::unique_lock<std::mutex>& hold, bool everything);

  Deliver deliver;
  Prepare prepare;
  mutable std::mutex lock;
  size_t job = 0;
  std::unordered_map<int, size_t> ordinal;  // face -> slot
  std::vector<Slot> slots;
  std::vector<VrOutputRun> strays;  // runs of faces outside the job's list, delivered at the end
  std::vector<VrOutputRun> ready;   // the runs being delivered; only the delivering thread uses it
  size_t head = 0;
  bool delivering = false;
  bool broken = false;
  size_t heldBytes = 0, mostBytes = 0;
};

