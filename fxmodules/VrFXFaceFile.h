#pragma once
// The files a module writes face by face (records, bakes): opened at the start of a face on the
// worker that renders it, written under a temporary name and renamed into place at its end.

#include "base/VrAtomicFile.h"

#include <memory>
#include <string>

class VrFXModule;

/// One face's file of a module. Lives in the module's per-worker context.
class VrFXFaceFile {
 public:
  /// Opens `path` (macros expanded for `module` as an output file name, its folder made); on
  /// failure reports "Failed to open file: " + path and stays closed.
  void open(VrFXModule& module, const std::string& path);
  bool isOpen() const { return file != nullptr; }
  std::ostream& out() { return file->out(); }
  /// Renames the file into place (reporting a failure as above) and closes it.
  void commit();

 private:
  std::unique_ptr<VrAtomicFile> file;
  std::string target;
};
