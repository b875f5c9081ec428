#pragma once
// VrAbcCurvesStreamWriter: writes one Curves object of one or more samples from batches of
// curves that arrive one after another, for outputs (a render of millions of hairs) too large to
// hold in memory. Each array (the points of every sample, vertex counts, widths) is spooled to an
// unlinked temporary file as the batches come, its digest taken on the way; `close` assembles
// the archive from the spools, under a temporary name that is renamed into place only when
// everything succeeded. Memory use does not grow with the number of curves or samples.
//
//   VrAbcCurvesStreamWriter out;
//   out.open("hair.abc", VrAbcCurvesStreamWriter::Options());
//   out.append(points, numPoints, counts, numCurves, widths);  // as often as needed
//   out.close();                                              // or abort()
//
// Motion samples: with `sampleOffsets` = {-0.25, 0.25} every batch brings the points of both
// samples (`appendSamples`); the curves share their counts and widths, which are stored with the
// first sample and repeat on the others, and sample i stands at (frame + offset i) / rate. Each
// sample also carries the points' velocities (units per second): the step to the next sample
// over its time, the last sample repeating the step from the one before.
//
// On failure or abort no file is left at the path. One thread at a time; errors are Errors
// naming the class and the file.

#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcCurvesWriter.h"
#include "io/alembic/VrAbcMotionSpools.h"
#include "io/alembic/VrAbcSpool.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class VrAbcCurvesStreamWriter {
 public:
  struct Options {
    std::string objectName = "curves";  ///< the Curves object, under the top
    double frame = 1.0;                 ///< the sample stands at frame / framesPerSecond seconds
    double framesPerSecond = 24.0;      ///< also the step of the uniform time sampling
    /// Frame offsets of the samples, strictly increasing; empty for one sample at `frame`. One
    /// sample keeps a uniform time sampling, several get an acyclic one.
    std::vector<double> sampleOffsets;
    uint8_t type = VrAbcCurvesWriter::Cubic;
    uint8_t basis = VrAbcCurvesWriter::Bspline;
    std::string spoolDirectory;  ///< where the spools go; TMPDIR or /tmp when empty
    VrAbcArchiveWriter::Options archive;
  };

  VrAbcCurvesStreamWriter() = default;
  /// A writer neither closed nor aborted is aborted.
  ~VrAbcCurvesStreamWriter() { abort(); }
  VrAbcCurvesStreamWriter(const VrAbcCurvesStreamWriter&) = delete;
  VrAbcCurvesStreamWriter& operator=(const VrAbcCurvesStreamWriter&) = delete;

  /// Starts an output to `path`. False with an Error when the spools cannot be made, the
  /// options are unusable (no object name, a rate not above 0, sample offsets not increasing),
  /// or the folder of `path` is not writable. Nothing is written at `path` before `close`.
  bool open(const std::string& path, const Options& options);
  bool isOpen() const { return opened; }

  /// Adds `numCurves` curves: `counts[i]` points for curve i, `numPoints` points in all given
  /// as x, y, z in `points`, and `widths` one per point or null. Either every batch has widths
  /// or none has. False with an Error (the writer is then spent: `close` fails) for counts that
  /// do not add up to `numPoints`, a negative count, or a spool that cannot be written.
  bool append(const float* points, uint64_t numPoints, const int32_t* counts, uint64_t numCurves,
              const float* widths);
  /// As `append`, with the points of every sample: `samplePoints[s]` holds `numPoints` points
  /// of sample s, for each of the `numSamples()` samples. A writer of one sample takes either.
  bool appendSamples(const float* const* samplePoints, uint64_t numPoints, const int32_t* counts,
                     uint64_t numCurves, const float* widths);

  /// Writes the archive and renames it into place. False with an Error, and no file at the
  /// path, when anything failed since `open`.
  bool close();
  /// Writes the Curves object into `archive`, open and owned by the caller, instead of an
  /// archive of its own; the writer is spent afterwards. False with an Error when anything
  /// failed since `open`.
  bool writeInto(VrAbcArchiveWriter& archive);
  /// Sends the points of sample 0 straight into `archive` (open, owned by the caller, and the
  /// one `writeInto` will be given) instead of a spool, so that the largest array is not copied
  /// at the end: nothing else may be written to the archive until `endStream` or `writeInto`.
  /// Before the first batch; false with an Error when the archive refuses.
  bool streamInto(VrAbcArchiveWriter& archive);
  /// Completes the points streamed into the archive, which takes other writes again.
  bool endStream();
  /// Drops everything; no file is left at the path.
  void abort();

  uint64_t numCurves() const { return curves; }
  uint64_t numPoints() const { return motion.numPoints(); }
  /// Samples per curve, as the options of the last `open` ask.
  unsigned numSamples() const {
    return settings.sampleOffsets.empty() ? 1u : static_cast<unsigned>(settings.sampleOffsets.size());
  }

 private:
  bool fail(const std::string& what);

  Options settings;
  std::string target;
  void release();

  VrAbcMotionSpools motion;
  VrAbcArchiveWriter* streamed = nullptr;  // takes the points of sample 0 as they come
  bool streamEnded = false;
  VrAbcWrittenSample streamedPoints;
  std::unique_ptr<VrAbcSpool> countSpool, widthSpool;
  uint64_t curves = 0;
  int hasWidths = -1;  // unknown until the first batch with points
  bool opened = false;
  bool failed = false;
};
