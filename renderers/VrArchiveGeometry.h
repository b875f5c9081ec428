#pragma once
// VrArchiveGeometry: which files stand for an archive primitive in a back end that shows their
// geometry (the GL preview's proxies, the geometry back end's meshes), and their merged meshes
// (VrArchiveMesh), read once per file set and archive frame.
//
// A back end records the key and archive frame of each archive while it emits (on any thread)
// and asks for the meshes afterwards, on the thread that runs the description's passes, in an
// order of its own that does not depend on the workers; a file set that cannot be read is
// reported once.

#include "io/VrArchiveMesh.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

class VrArchivePrimitive;
class VrPrimitiveContext;

class VrArchiveGeometry {
 public:
  /// The order in which the level-of-detail slots are tried.
  enum class Preference {
    Lightest,  ///< proxy, low, medium, high: a preview
    Finest,    ///< high, medium, low, proxy: geometry handed on
  };

  /// The key of the first slot, in `preference` order, under which the list has a file that was
  /// found; -1 for none (or a null archive).
  static int chooseKey(const VrArchivePrimitive* archive, const VrPrimitiveContext& context, Preference preference);
  /// The files found under `key`; empty when an entry asks to stand in with its box
  /// (`boundingbox=true`) or none was found.
  static std::vector<VrArchiveSource> sources(const VrArchivePrimitive& archive, int key);
  /// The time of an archive frame: the frame over the collection's frame rate.
  static double timeOf(const VrArchivePrimitive& archive, double frame);

  /// The merged mesh of the files under `key` at archive frame `frame`, read on the first ask;
  /// null when there are no files or they cannot be read (a warning, once per file set, says that
  /// their archives are drawn or written as `fallback`).
  const VrArchiveMesh* mesh(const VrArchivePrimitive& archive, int key, double frame, const std::string& fallback);
  void clear() { meshes.clear(); }

 private:
  std::map<std::pair<std::string, double>, std::unique_ptr<VrArchiveMesh>> meshes;  // null: unreadable
};
