#pragma once
// Description files and FX module files: one description (with its active objects, the global
// expressions it uses and optionally its guides and patches), or one FX module, written on its
// own so that it can be brought into another collection. A description preset is the same file
// without what ties it to a scene. Main thread only.

#include <iosfwd>
#include <string>

class VrDescription;
class VrFXModule;
class VrPalette;

/// Writes a description file: the description's block, its active primitive with its FX
/// modules, generator, renderer and previewer, its textures, the collection expressions its
/// attributes call, then with `withGuides` the guide shapes and with `withPatches` the patches.
bool VrExportDescription(VrDescription* description, std::ostream& out, bool withGuides,
                         bool withPatches);
/// Path form: atomic, never with patches.
bool VrExportDescription(VrDescription* description, const std::string& path, bool withGuides);

/// Reads a description file into `palette`. A name taken in the collection is replaced when
/// `replace`, otherwise made unique with the smallest positive number. The new description, or
/// null with an Error (nothing is kept then).
VrDescription* VrImportDescription(VrPalette* palette, std::istream& in, bool replace);
VrDescription* VrImportDescription(VrPalette* palette, const std::string& path, bool replace);

/// Writes a description preset: the description file's blocks in preset form (without what
/// depends on the scene: map and patch reads, paths, textures, patches), headed "Description
/// Preset" and a "VornPresetType" line with the kind ("Guide", "Groom" or "AttrExpr"); the FX
/// modules that go into presets when `withModules`, the collection expressions used, and the
/// guide shapes when `withGuides`. False when a block cannot be written.
bool VrExportDescriptionAsPreset(VrDescription* description, std::ostream& out, bool withGuides,
                                 bool withModules);
/// Path form: atomic.
bool VrExportDescriptionAsPreset(VrDescription* description, const std::string& path, bool withGuides,
                                 bool withModules);
/// Reads a preset (or a description file) into `palette` under a free name; it binds no geometry.
VrDescription* VrImportDescriptionAsPreset(VrPalette* palette, const std::string& path);

/// Writes an FX module file (header "FX Module", every attribute; atomic); false with an Error
/// when it cannot be written. It serves as the module's preset.
bool VrExportFXModule(const VrFXModule* module, const std::string& path);
/// Adds the FX module of the file to the description's active primitive, with every attribute
/// of the file; a name the stack already holds gets the smallest positive number that frees it.
/// Null with an Error.
VrFXModule* VrImportFXModule(VrDescription* description, const std::string& path);
