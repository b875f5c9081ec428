#pragma once
// File name macros and the search of files along a collection's data path, with a cache of
// search results keyed by collection and expanded name.

#include <string>

class VrDescription;

namespace vrutil {

/// Expands, in order: surrounding quotes, "$g" (with a non-empty geometry name), "${PROJECT}",
/// "${DESC}", "${NS}", "${FXMODULE}", then environment variables; "${FRAME}" is kept for the
/// caller. Without a description only "$g", "${PROJECT}" and the environment are expanded.
/// A missing variable expands to nothing, silently.
std::string expandMacros(const std::string& text, const std::string& geometryName,
                         VrDescription* description, const std::string& fxModuleName = "",
                         double u = 0.0, double v = 0.0, int face = 0);

/// expandMacros with no geometry name, at (0, 0) of face 0.
std::string expandInputMapName(const std::string& text, VrDescription* description,
                               const std::string& fxModuleName = "");

/// Expands an output file name in place; a relative result goes behind the first data path
/// directory. With `createDirs`, makes its directory (the whole text when it ends in a
/// separator). False, text unchanged, without a description; false when a directory could not
/// be made.
bool expandOutputFileName(std::string& text, const std::string& geometryName,
                          VrDescription* description, const std::string& fxModuleName = "",
                          bool createDirs = false);

/// expandOutputFileName for the description of that name (in whichever collection holds it),
/// kept in directory form when `isDirectory`. Returns the text as given on failure.
std::string expandFilepath(const std::string& text, const std::string& descriptionName,
                           bool isDirectory, bool createDirs, const std::string& geometryName = "",
                           const std::string& fxModuleName = "");

/// Finds the macro-expanded `file` along the collection's data path, then the user and global
/// repositories; sets `found` and returns true on success. Results, misses included, are
/// cached per collection and name. A miss is reported as an Error unless `quiet`; a cached miss
/// is silent. False without a description.
bool findFileInVrDataPath(std::string& found, const std::string& file,
                          const std::string& geometryName, VrDescription* description,
                          const std::string& fxModuleName = "", bool quiet = false,
                          double u = 0.0, double v = 0.0, int face = 0);

/// The found path; when not found, the expanded name if absolute, else that name behind the
/// first data path directory. Without a description: the expanded name.
std::string resolveFileInVrDataPath(const std::string& file, const std::string& geometryName,
                                    VrDescription* description,
                                    const std::string& fxModuleName = "");

/// Forgets every cached search result.
void clearFileCache();

}  // namespace vrutil
