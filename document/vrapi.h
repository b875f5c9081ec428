#pragma once
// vrapi: the string interface that the host's scripts drive the library through. Names and
// paths are strings and every document object is addressed by collection, description and
// object name. The facade holds no state: each call resolves its names, forwards to the document
// model and turns a failure into one Error and an empty or false result.
//
// Failures are reported with message keys ("rCouldNotFindCollection", ...) whose texts the
// host's logger named "orlo" supplies: the Error's text is vrLocName(key, the call's string
// arguments in order), or the key itself when the host gives no text for it. Calls named with a
// literal text below send that text instead. The document layers may send their own Errors
// before the facade's, as when a file cannot be read or a module is not registered.
//
// Main thread only.

#include <string>
#include <vector>

namespace vrapi {

/// @name Collections
/// @{
/// Makes a collection of that name; false (silently) when the name is empty or taken.
bool createPalette(const std::string& name);
/// Deletes the collection with everything it owns. Key: rCouldNotDeleteCollection.
bool deletePalette(const std::string& name);
/// The names of all collections, sorted.
std::vector<std::string> palettes();
/// The name of the collection holding a description of this name (vrutil::palette).
std::string palette(const std::string& descriptionName);
/// @}

/// @name Descriptions
/// @{
/// Makes a description in the collection (made too when missing) and returns its name:
/// name space of the collection + `description` without its name space, with 1, 2, ... appended
/// while the name is taken. Active objects are `primitive` + "Primitive", `generator` +
/// "Generator" and `renderer` + "Renderer", with "GLRenderer" previewing; `method` "Attribute"
/// or "Guides" sets the primitive's "iMethod" to "0" or "1". Keys: rNoPaletteName,
/// rNoDescriptionName, rInvalidPrimitive, rInvalidGenerator, rInvalidRenderer, rInvalidPreviewer,
/// rInvalidInterpolation; a description that fails is deleted again.
std::string createDescription(const std::string& collection, const std::string& description,
                              const std::string& primitive, const std::string& generator,
                              const std::string& renderer, const std::string& method);
/// Deletes the description with its objects and patches. Key: rCouldNotDeleteDescription.
bool deleteDescription(const std::string& collection, const std::string& description);
/// The collection's description names in order. Key: rCouldNotFindCollection.
std::vector<std::string> descriptions(const std::string& collection);
/// The module words of the description's objects in dictionary order; with `activeOnly` those
/// of the active primitive, generator, renderer and previewer (each once). Key:
/// rCouldNotGetObjects.
std::vector<std::string> objects(const std::string& collection, const std::string& description,
                                 bool activeOnly);
/// The module word of the active "Primitive", "Generator", "Renderer" or "Previewer". Keys:
/// rCouldNotFindActiveType (no description, or nothing active of that kind),
/// rUnknownTypeGiven.
std::string getActive(const std::string& collection, const std::string& description,
                      const std::string& kind);
/// Makes `module` active. With `previewer` only "GLRenderer" is accepted, as the previewer;
/// without it "GLRenderer" is refused. Keys: rCouldNotSetActiveType (unknown description or a
/// module name without a base name), rPreviewerMustBeGL, rRendererMustBeGL,
/// rCouldNotSetActiveOfType (the description could not make it active).
bool setActive(const std::string& collection, const std::string& description,
               const std::string& module, bool previewer);
/// @}

/// @name Attributes
/// The object is found as vrutil::getObject finds it: an empty description addresses the
/// collection, an empty object the description, and an object is a module word or an FX
/// module's name. Calls without a key of their own send getObject's Error.
/// @{
/// Attribute names in declaration order without the "custom_" ones.
std::vector<std::string> attrs(const std::string& collection, const std::string& description,
                               const std::string& object);
/// All attribute names in declaration order.
std::vector<std::string> allAttrs(const std::string& collection, const std::string& description,
                                  const std::string& object);
/// The names beginning with "custom_" or "archive_", in declaration order.
std::vector<std::string> customAttrs(const std::string& collection,
                                     const std::string& description, const std::string& object);
/// Whether the object has the attribute. Key: rCallToAttrExists (no such object).
bool attrExists(const std::string& attribute, const std::string& collection,
                const std::string& description, const std::string& object);
/// vrutil::getAttr, pseudo-attributes included.
std::string getAttr(const std::string& attribute, const std::string& collection,
                    const std::string& description, const std::string& object);
/// vrutil::setAttr: only attributes the object has, and the pseudo-attributes.
bool setAttr(const std::string& attribute, const std::string& value,
             const std::string& collection, const std::string& description,
             const std::string& object);
/// vrutil::setTexture.
bool setTextureAttr(const std::string& attribute, const std::string& value,
                    const std::string& collection, const std::string& description,
                    const std::string& object);
/// Adds a "custom_..." or "archive_..." attribute with the value "0.0"; on the collection
/// (description and object empty) it is a global expression. Errors: "Could not add custom
/// attribute [attribute]" for another name, "Call to addCustomAttr failed. [names]" with the
/// non-empty names joined by ", " for a missing object, "Call to addCustomAttr failed. attribute
/// already exists. [object]" with the addressed name.
bool addCustomAttr(const std::string& attribute, const std::string& collection,
                   const std::string& description, const std::string& object);
/// Removes an attribute that addCustomAttr could have added. Error: "Could not remove custom
/// attribute [attribute]" for another name, a missing object or a missing attribute.
bool remCustomAttr(const std::string& attribute, const std::string& collection,
                   const std::string& description, const std::string& object);
/// The values of `attribute` on the objects that `object` names in a collection file (VrGetAttr).
std::vector<std::string> getAttrFromFile(const std::string& attribute, const std::string& object,
                                         const std::string& file);
/// Every registered module name, in byte order.
std::vector<std::string> availableModules();
/// @}

/// @name FX modules of a description's active primitive
/// Modules are addressed by their name attribute.
/// @{
/// Module names in stack order. Key: rCouldNotFindFxModules.
std::vector<std::string> fxModules(const std::string& collection, const std::string& description);
/// The module's type word. Key: rCouldNotFindModifierType.
std::string fxModuleType(const std::string& collection, const std::string& description,
                         const std::string& module);
/// Appends a module of type `type` and, when `name` is not empty, names it; returns the module's
/// name. Key: rCouldNotAddModifierType.
std::string addFXModule(const std::string& collection, const std::string& description,
                        const std::string& type, const std::string& name);
/// Whether the module goes into presets of its description. Key:
/// rCouldNotFindModifierForPreset (no description, primitive or module).
bool fxModuleIncludedInPreset(const std::string& collection, const std::string& description,
                              const std::string& module);
/// Deletes the module. Keys: rCouldNotRemoveModifierType (no description or primitive),
/// rFxModuleNotFound.
bool removeFXModule(const std::string& collection, const std::string& description,
                    const std::string& module);
/// Moves the module `step` places (negative: towards the start), stopping at either end of the
/// stack. Keys: rCouldNotMoveModifierType (no description or primitive),
/// rFxModuleNotFoundMove.
bool moveFXModule(const std::string& collection, const std::string& description,
                  const std::string& module, int step);
/// @}

/// @name Bound geometry and culled primitives
/// @{
/// Names of the description's patches, in name order. Key: rCouldNotReturnBoundGeo.
std::vector<std::string> boundGeometry(const std::string& collection,
                                       const std::string& description);
/// The patch's growing face ids, sorted; `flag` does not change the answer. Keys:
/// rCouldNotReturnBoundFace (no description), rCouldNotReturnBoundFaceNotFound (no patch).
std::vector<int> boundFaces(const std::string& collection, const std::string& description,
                            const std::string& patch, bool flag);
/// Names of the patches that have primitives culled by hand. Key: rCouldNotReturnPatches.
std::vector<std::string> culledPrimPatches(const std::string& collection,
                                           const std::string& description);
/// The faces of the patch with culled primitives, ascending. Keys: rCouldNotReturnPatchIds
/// (no description), rCouldNotReturnPatchNotFound.
std::vector<int> culledPrimFaces(const std::string& collection, const std::string& description,
                                 const std::string& patch);
/// The ids of the primitives culled on one face, ascending; empty for a face without any.
/// Keys: rCouldNotReturnCulledPrims (no description), rCouldNotReturnPatchNotFound.
std::vector<int> culledPrims(const std::string& collection, const std::string& description,
                             const std::string& patch, int face);
/// @}

/// @name Guides
/// @{
/// Places the guides of a primitive on their patches and rebuilds their reach maps and
/// candidate lists, whatever its interpolation method; `object` is the primitive's module word,
/// empty for the active primitive. Key: rCouldNotInitInterpolation (no such primitive).
bool initInterpolation(const std::string& collection, const std::string& description,
                       const std::string& object);
/// @}

/// @name Files
/// @{
/// Reads a collection file with every name put in `nameSpace`, applies the delta files of
/// `deltas` (paths separated by blanks) in order and keeps a snapshot of the result; returns the
/// collection's name. A collection whose name is taken, or to which a delta fails to apply, is
/// deleted again. A snapshot that cannot be made is reported, and the collection is kept (it
/// only cannot give deltas). Keys: rSpecifyFileName, rFailedToImportCollectionFromFile,
/// rTriedToImportDuplicate, rFailedToApplyDelta, rFailedToCreateSnapshot.
std::string importPalette(const std::string& file, const std::string& deltas,
                          const std::string& nameSpace);
/// Writes the collection file. Keys: rYouMustSpecifyAFileName, rCouldNotExportCollection.
bool exportPalette(const std::string& collection, const std::string& file);
/// Reads a description file into the collection, making a taken name unique; returns the new
/// description's name. Keys: rSpecifyFileNameError, rCouldNotImportDescription (no
/// collection), rFailedToImportDescription.
std::string importDescription(const std::string& collection, const std::string& file);
/// Writes a description file, with the guide shapes when `withGuides`. Keys:
/// rSpecifyFileNameExportDesc, rCouldNotExportDesc.
bool exportDescription(const std::string& collection, const std::string& description,
                       const std::string& file, bool withGuides);
/// Reads a description preset (or description file) into the collection under a free name;
/// returns the new description's name. It binds no geometry until patches are added. Keys:
/// rSpecifyFileNameError, rCouldNotImportDescAsPreset (no collection),
/// rFailedToImportDescAsPreset.
std::string importDescriptionAsPreset(const std::string& collection, const std::string& file);
/// Writes a description preset, with the guide shapes when `withGuides` and the FX modules that
/// go into presets when `withModules`. Keys: rSpecifyFileNameExportDescAsPreset,
/// rCouldNotExportDescAsPreset.
bool exportDescriptionAsPreset(const std::string& collection, const std::string& description,
                               const std::string& file, bool withGuides, bool withModules);
/// Adds the FX module of a module file to the description's active primitive; returns its name.
/// Keys: rFileNameImportModifier, rCouldNotImportModifier (no description or primitive),
/// rCouldNotImportModifierFile.
std::string importFXModule(const std::string& collection, const std::string& description,
                           const std::string& file);
/// Writes one FX module to a module file. Keys: rModifierExportFileName, rCouldNotFindModifier;
/// a file that cannot be written is reported by the writer.
bool exportFXModule(const std::string& collection, const std::string& description,
                    const std::string& module, const std::string& file);
/// @}

/// @name Deltas and snapshots
/// A collection's snapshot is a copy of it as it was loaded; a delta file holds what changed
/// since then (document/VrDelta.h).
/// @{
/// Makes (or remakes) the collection's snapshot. Keys: rFailedSnapshotCollectionNotFound,
/// rFailedToCreateSnapshot.
bool initSnapshot(const std::string& collection);
/// Whether the collection has a snapshot to write deltas against. Key:
/// rFailedCanCreateDeltaCollectionNotFound.
bool canCreateDelta(const std::string& collection);
/// Writes the delta of the collection against its snapshot: 1 when anything changed, 0 when
/// nothing did, -1 on failure. Keys: rFailedDeltaCollectionNotFound,
/// rFailedDeltaSnapshotNotFound; a delta that cannot be written is reported by the writer.
int createDelta(const std::string& collection, const std::string& file);
/// Applies one delta file to the collection. Key: rPaletteDoesNotExist; a delta that does not
/// fit is reported by the reader.
bool applyDelta(const std::string& collection, const std::string& file);
/// @}

/// @name File names and text (forwarded to vrutil)
/// @{
/// The path of `file` found along the description's data path and the repositories, macros
/// expanded with `geometry` as the "$g" name. Key: rCouldNotFindFileInDataPath (no such
/// description or no such file).
std::string findFileInVrDataPath(const std::string& file, const std::string& geometry,
                                 const std::string& collection, const std::string& description);
std::string expandFilepath(const std::string& text, const std::string& description,
                           bool isDirectory, bool createDirs, const std::string& geometry = "",
                           const std::string& fxModule = "");
/// The text after vrutil::fileCleanup, also when a variable was missing.
std::string fileCleanup(const std::string& text);
std::string prepForAttribute(const std::string& text);
std::string prepForEditor(const std::string& text);
std::string stripNameSpace(const std::string& text);
std::string objNameSpace(const std::string& text);
std::string objBaseNameSpace(const std::string& text);
/// @}

/// @name Installation and configuration (forwarded to vrutil and VrConfig)
/// @{
std::string rootDir();
std::string iconDir();
std::string version();
std::string docsDir();
std::string globalRepo();
std::string localRepo();
std::string userRepo();
std::string promoteFunc();
std::string getProjectPath();
void setProjectPath(const std::string& path);
/// Loads the configuration and custom modules (effective once per process).
void initConfig(const std::string& projectPath);
/// @}

/// @name Message levels
/// Kinds "debug", "warning", "stats" (detail levels 0 to 5) and "quitOnError" (1 or 0).
/// @{
/// The current level; 0 for another kind.
int getMessageLevel(const std::string& kind);
/// Stores the level, limited to 0..5; "quitOnError" is on for any level but 0. False for
/// another kind.
bool setMessageLevel(const std::string& kind, int level);
/// @}

}  // namespace vrapi
