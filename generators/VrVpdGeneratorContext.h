#pragma once
// VrVpdGeneratorContext: the state of a generator that reads one ".vuv" or ".vpd" file per
// geometry: which geometry's file is open, its reader, the block to read and whether the file
// failed. A serial generator keeps one for itself; every worker of a parallel render has its own,
// so threads never share a reader. A broken file is reported once per geometry: the failure
// sticks until the geometry changes.

#include "generators/VrGeneratorContext.h"
#include "io/vpd/VpdFormat.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

class VpdReader;
class VrDescription;

class VrVpdGeneratorContext : public VrGeneratorContext {
 public:
  /// What a generator asks of its files, and its words when a file falls short. The messages
  /// are followed by the file's path.
  struct FileKind {
    const char* extension;     ///< ".vuv" or ".vpd"
    const char* blockName;     ///< the block of records to read
    const char* blockMissing;  ///< the file has no such block
    const char* wrongType;     ///< the file's primitive type is not the one asked for
    /// A face the file's header does not list: an error when set. A listed face without
    /// records, and any missing face otherwise, is a debug line.
    bool unknownFaceIsError;
  };

  /// ".vuv" location files, of the point type, block "Location".
  static const FileKind pointFiles;
  /// ".vpd" baked grooms, block "BakedGroom"; the type is the active primitive's.
  static const FileKind bakedFiles;

  /// Appends, for every patch of the description, the label and the path its file resolves to
  /// (found in the data path, or where it would be looked for first).
  static void listFiles(std::vector<std::pair<std::string, std::string>>& pairs, const std::string& label,
                        const FileKind& kind, const std::string& directory, VrDescription* description);

  VrVpdGeneratorContext();
  ~VrVpdGeneratorContext() override;

  const std::string& currentGeom() const { return geometry; }
  void setCurrentGeom(const std::string& name) { geometry = name; }
  int blockIndex() const { return block; }
  void setBlockIndex(int index) { block = index; }
  const std::string& fileName() const { return file; }
  void setFileName(const std::string& name) { file = name; }
  bool isErrOccurred() const { return failed; }
  void setErrOccurred(bool value = true) { failed = value; }
  /// The open file of the current geometry, or null.
  VpdReader* xFile() const { return reader.get(); }
  void setXFile(std::unique_ptr<VpdReader> file);
  /// Forgets the geometry and the failure, closing the file.
  void reset();

  /// The reader standing at the first record of `face` in the file of `geometry`: the file
  /// `directory` + geometry name without name space + the kind's extension, found in the
  /// description's data path and opened on the first face of a geometry. Null when the file is
  /// missing (silently), failed (reported once) or holds nothing for the face.
  VpdReader* readerForFace(const FileKind& kind, Vpd::PrimType type, const std::string& directory,
                           const std::string& geometry, VrDescription* description, int face);

 private:
  bool openFile(const FileKind& kind, Vpd::PrimType type, const std::string& path);

  std::unique_ptr<VpdReader> reader;
  std::string geometry;
  std::string file;
  int block = -1;
  bool failed = false;
};
