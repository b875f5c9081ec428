#pragma once
// Reading collection files and addressing the objects in them, for the commands of `vorn`.
// Every failure prints one line "vorn: ..." on standard error.

#include "tools/commands.h"

#include <functional>
#include <memory>
#include <string>

class VrDescription;
class VrFXModule;
class VrObject;
class VrPalette;

namespace vorncli {

using PalettePtr = std::unique_ptr<VrPalette>;

/// Prints "vorn: <text>" on standard error.
void fail(const std::string& text);
/// Prints "vorn: warning: <text>" on standard error.
void warn(const std::string& text);
std::string inQuotes(const std::string& text);

/// Runs a command body; an exception escaping the library is reported and answers `failure`.
int guarded(int failure, const std::function<int()>& body);

/// Reads a collection file; null, with a line naming the file, when it cannot be read.
PalettePtr importCollection(const std::string& path);

class CliLogger;

/// A collection read and bound to geometry at one frame, as a bake or a preview uses it. The
/// binding is dropped and the geometry files closed when it goes, before the collection.
class BoundCollection {
 public:
  BoundCollection() = default;
  ~BoundCollection();
  BoundCollection(const BoundCollection&) = delete;
  BoundCollection& operator=(const BoundCollection&) = delete;

  /// Reads `collection`, sets its frame and frame rate and binds its patches to `geometry`
  /// (each mesh's own space with `objectSpace`, else the scene's); false after a line saying
  /// what failed, which ends in `nothingDone` ("nothing was baked") when the binding failed.
  bool bind(const std::string& collection, const std::string& geometry, double frame, double fps, bool objectSpace,
            const CliLogger& logger, const std::string& nothingDone);
  VrPalette* palette() const { return owned.get(); }

 private:
  PalettePtr owned;
};

/// Writes the collection to memory and reads it back; false (with a message) when the reader
/// would refuse it, so that such a text never replaces a file.
bool readsBack(VrPalette* palette);
/// `readsBack`, then an atomic save to `path`.
bool saveCollection(VrPalette* palette, const std::string& path);

/// One addressed object and the words that name it in messages.
struct Target {
  VrObject* object = nullptr;
  std::string label;
};

/// The FX module of that name: the active primitive's stack first, then those of the other
/// primitives in object order.
VrFXModule* findFXModule(const VrDescription& description, const std::string& name);

/// Resolves an address; a message and false when any part of it is missing. A description
/// argument "Palette" names the collection itself unless a description has that name.
bool resolve(VrPalette& palette, const Address& address, Target& target);

}  // namespace vorncli
