#pragma once
// VrArchiveInstances: archives written inline, for tools that do not read point instancers. Each
// archive becomes a transform placed as the archive stands (its own x, y and z axes and
// position, one sample per motion sample), named "archive_<face>_<id>" under one transform per
// description and patch ("<description>_<patch>_inline"). Under it stands the geometry of the
// archive's file: the meshes of the file at the archive's frame, in the file's world space,
// merged into one polygon mesh named after the file. The first archive that uses a file at a
// frame holds the mesh; every later one holds an instance of it, so the file stays small however
// many archives share one rock.
//
// The file of an archive is that of its highest level of detail that names one (high, medium,
// low, then proxy). A file that cannot be read is reported once and leaves its archives with a
// transform and no geometry. The objects stay in memory until the archive is closed, so memory
// grows with the number of archives here, unlike the points form.

#include "io/output/VrPrimitiveOutput.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

class VrAbcArchiveWriter;
class VrAbcObjectWriter;

class VrArchiveInstances {
 public:
  /// Writes into `archive`; transforms sample on `timeSampling`, one sample per motion sample.
  VrArchiveInstances(VrAbcArchiveWriter& archive, uint32_t timeSampling, double framesPerSecond)
      : archive(archive), timeSampling(timeSampling), framesPerSecond(framesPerSecond) {}

  /// Places one archive under the group object `groupName`. False when the archive could not
  /// be written (the archive writer has the Error); an unreadable file is not a failure.
  bool add(const std::string& groupName, const VrOutputPrimitive& primitive);

  /// The file an archive places: that of its highest level of detail with one; "" for none.
  static std::string chosenFile(const VrOutputPrimitive& primitive);

 private:
  VrAbcObjectWriter* group(const std::string& name);
  /// Writes the merged meshes of `file` at `frame` as `name` under `parent`; false when the
  /// file cannot be read (reported once per file).
  bool writeGeometry(VrAbcObjectWriter& parent, const std::string& name, const std::string& file, double frame);

  VrAbcArchiveWriter& archive;
  uint32_t timeSampling;
  double framesPerSecond;
  std::map<std::string, VrAbcObjectWriter*> groups;
  std::map<std::pair<std::string, float>, std::string> firstUse;  // (file, frame) -> full name of its mesh
  std::set<std::string> unreadable;
};
