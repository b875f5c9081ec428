#pragma once
// Object names: a path of '|' separators, a name space of ':' separators.

#include <string>

namespace vrutil {

/// The part behind the last '|' (the whole text when there is none).
std::string sgObjName(const std::string& text);

/// Shape node name under a transform: with `beforeDigits`, "Shape" goes before the trailing
/// digits of sgObjName(text) ("pCube12" -> "pCubeShape12"); otherwise it is appended.
std::string sgXformToShape(const std::string& text, bool beforeDigits);

/// Of sgObjName(text), everything up to and including the last ':'; empty when there is none.
std::string objNameSpace(const std::string& text);

/// objNameSpace(text) without its trailing ':'.
std::string objBaseNameSpace(const std::string& text);

/// Removes every occurrence of objNameSpace(text) from the text.
std::string stripNameSpace(const std::string& text);

/// True when the text is non-empty and stripNameSpace(text) is non-empty (i.e. the base name is
/// NOT empty; callers rely on this sense).
bool isBaseNameEmpty(const std::string& text);

}  // namespace vrutil
