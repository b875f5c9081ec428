#pragma once
// The export of a clumping module's guides as curves (`exportCurves`), for wire modules and other
// tools to pick up: one degree-2 curve per guide of the faces `exportFaces` names (all faces when
// it is empty), as an orm script "<exportDir><description>_<module>.orm" written atomically:
//
//   orm 1
//   note <what to do with the curves>
//   group <module>Curves
//   curve <face> <guide id> <n> x y z ...      the guide's CVs, "%12.10f"
//   end
//
// The guide id is the one the module's region map holds (the guide's number + 1).

#include <string>
#include <vector>

class VrFXModule;
struct VrClumpGuide;

/// The faces a face list names: numbers and ranges "a-b" separated by commas or spaces. False
/// (with `faces` empty) when the text is not such a list.
bool VrParseFaceList(const std::string& text, std::vector<int>& faces);

/// Writes the curves file of `module`'s `guides`; false, with an Error, when it cannot.
bool VrExportClumpCurves(VrFXModule& module, const std::vector<VrClumpGuide>& guides);
