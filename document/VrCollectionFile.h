#pragma once
// The collection file (".vorn"): a line-oriented text of object blocks. A collection file holds
// the collection's block, every description's block with the blocks of all its objects, then
// every description's patches. The reader keeps attributes it does not know, and either returns
// a whole collection or nothing. Main thread only; not reentrant.

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

class VrDescription;
class VrPalette;
class VrPatch;

/// The file version this release writes.
constexpr unsigned VrCurrentFileVersion = 18;

/// Writes the comment header and the "FileVersion" line; `fileType` is "Palette" or
/// "Description".
void VrExportHeader(std::ostream& out, const std::string& fileType);

/// Writes a whole collection. The path form writes atomically; false with an Error when the file
/// cannot be written.
bool VrExportPalette(VrPalette* palette, std::ostream& out);
bool VrExportPalette(VrPalette* palette, const std::string& path);

/// Writes the description's patches block.
bool VrExportDescriptionData(std::ostream& out, VrDescription* description);

/// Reads a collection. `nameSpace` prefixes every name. `sample` 0 reads the base collection and
/// resets the import state; a later sample attaches its collection and descriptions to the base
/// as motion samples. Null, with an Error, on any failure; nothing read is kept then.
VrPalette* VrImport(std::istream& in, const std::string& nameSpace, int sample);
VrPalette* VrImport(const std::string& path, const std::string& nameSpace, unsigned sample);

/// Reads a base collection (sample 0) without disturbing the import state of the collections
/// read before it: their base collection and patch tables stay as they were. For copies made
/// inside the library, such as a collection's snapshot.
VrPalette* VrImportAside(std::istream& in, const std::string& nameSpace);

/// Reads one "Patches" block into the named description of `palette`; with `skipToken` the
/// "Patches" word itself is read first. The description, or null with an Error.
VrDescription* VrImportPatches(std::istream& in, VrPalette* palette, bool skipToken);

/// Patches of the collections read since the last base import, by patch name, for binding
/// geometry.
const std::map<std::string, std::vector<VrPatch*>>& VrImportedPatches();

/// Forgets what the import state holds of a collection that is being destroyed.
void VrForgetImported(const VrPalette* palette);
/// Forgets a patch that is being destroyed.
void VrForgetImportedPatch(const VrPatch* patch);

/// Reads `file` and returns the values of `attribute` on every object that `object` names: a
/// module word ("RandomGenerator"), "Description", "Palette", or an FX module's name. Nothing
/// read is kept.
std::vector<std::string> VrGetAttr(const std::string& attribute, const std::string& object,
                                   const std::string& file);
