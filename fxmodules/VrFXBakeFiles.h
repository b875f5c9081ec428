#pragma once
// The `.vpd` files a module bakes its per-spline results into, one per patch, each with the
// module's one block. A bake pass creates them (faces listed from the patch, records written on
// the worker that renders the face, the file committed atomically at the end of the pass); a
// baked pass opens them, checks them, and finds a spline's record by id within its face.
//
// The files are fixed for a pass; everything a worker moves through (its face, its reading and
// writing positions) lives in a `VrFXBakeCursor` in the module's per-worker context.

#include "io/vpd/VpdFileCachedReader.h"
#include "io/vpd/VpdFileCachedWriter.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

class VrFXModule;
class VrPatch;

/// A worker's place in the bake files: the face it renders and where it reads or writes.
struct VrFXBakeCursor {
  int face = -1;  // -1 outside a face
  const VrPatch* patch = nullptr;
  const VpdFileCachedReader* reader = nullptr;
  std::string readerPath;
  VpdFileCachedReaderContext readPosition;
  bool positioned = false;  // the face's block was found
  VpdFileCachedWriter* writer = nullptr;
  VpdFileCachedWriterContext writePosition;

  bool writing() const { return writer != nullptr; }
  /// Leaves the face.
  void reset();
};

class VrFXBakeFiles {
 public:
  enum class Read { Found, Missing, Failed };

  /// `block` names the module's block; `checkCVCount` makes a file of another CV count an error.
  VrFXBakeFiles(std::string block, bool checkCVCount) : blockName(std::move(block)), checkCVCount(checkCVCount) {}

  /// Opens the bake of `patch` at `fileName` (macros unexpanded) for reading. A file that cannot
  /// be opened, lacks the block, or is not of object-space splines of `cvCount` CVs is reported
  /// as an Error and leaves the patch without a bake.
  void openForReading(const VrFXModule& module, const VrPatch& patch, const std::string& fileName, unsigned cvCount);
  /// Creates the bake of `patch` at `fileName`, listing the patch's faces.
  void createForWriting(const VrFXModule& module, const VrPatch& patch, const std::string& fileName,
                        unsigned cvCount);
  /// Commits the files written (reporting a failure) and closes every file.
  void close();

  /// Moves `cursor` onto `face` of `patch`: onto its block in the file read, or starts the face
  /// in the file written (a face met twice in one pass is written once).
  void beginFace(VrFXBakeCursor& cursor, const VrPatch* patch, int face) const;
  /// The record of spline `id` on the cursor's face. Missing: the face holds no record of it;
  /// Failed: the face has no block (reported when it began) or the record is unreadable (an Error).
  Read read(VrFXBakeCursor& cursor, unsigned id, std::vector<float>& record) const;
  /// Reports a record of the cursor's face that cannot be used as an Error naming the face and file.
  static void reportUnreadable(const VrFXBakeCursor& cursor);
  /// Appends the record of spline `id` to the cursor's face; a failure is an Error.
  void write(VrFXBakeCursor& cursor, unsigned id, const std::vector<float>& record) const;

 private:
  struct Opened {
    std::unique_ptr<VpdFileCachedReader> reader;
    int block = -1;
    std::string path;
  };

  std::string blockName;
  bool checkCVCount;
  std::map<std::string, Opened> readers;
  std::map<std::string, std::unique_ptr<VpdFileCachedWriter>> writers;
};
