#pragma once
// Delta files and snapshots. A delta file is the text difference between a base collection and
// a changed copy of it: changed attributes, changed active objects, added and removed FX modules
// and further hand-culled primitives. It is applied on import, as often as wanted, to the same
// base. A collection keeps a copy of itself as it was loaded, its snapshot, to diff against.
// Main thread only.

#include <string>
#include <vector>

class VrPalette;

/// Writes the delta file that turns `original` into `current`. Answers 1 when anything differs,
/// 0 when nothing does (the file then holds only its header) and -1 on failure, with an Error.
/// The file is written under a temporary name and renamed into place; a delta that cannot be
/// expressed leaves no file at `path`.
int VrDeltaPalettes(VrPalette* original, VrPalette* current, const std::string& path);

/// Applies one delta file to the collection. An empty path is nothing to apply. Lines that do
/// not fit are warned about and skipped; a missing description, primitive or patch ends the read
/// with an Error and false, leaving what was applied so far in place.
bool VrApplyDelta(VrPalette* collection, const std::string& path);

/// Applies the files in order and stops at the first one that fails.
bool VrApplyDeltas(VrPalette* collection, const std::vector<std::string>& paths);

/// Makes a copy of the collection, without guides and without objects that are not active, and
/// gives it to the collection as its snapshot. False when the copy cannot be made.
bool VrCreateSnapshot(VrPalette* collection);
