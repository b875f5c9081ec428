#pragma once
// Token handling shared by the readers of collection, description and FX module files.
// Internal to the library.

#include <iosfwd>
#include <string>

class VrDescription;
class VrObject;
class VrPrimitive;

namespace vrfile {

/// Reads the number after "FileVersion" and applies the version rules. False when the read
/// must stop (unreadable, or older than the oldest version still read).
bool readFileVersion(std::istream& in);

/// True for tokens naming a primitive, generator or renderer block.
bool isObjectToken(const std::string& token);
/// True for tokens naming an FX module block.
bool isFXModuleToken(const std::string& token);

/// Reads the block of the object `token` into `description` (creating it if needed). A
/// primitive becomes `currentPrimitive`. Null with an Error when the object cannot be made or
/// its block is cut short.
VrObject* importObjectBlock(VrDescription* description, const std::string& token, std::istream& in,
                            const std::string& nameSpace, VrPrimitive*& currentPrimitive);

/// Adds an FX module `token` to `primitive` and reads its block; false with an Error when the
/// module cannot be made or its block is cut short.
bool importFXModuleBlock(VrPrimitive* primitive, const std::string& token, std::istream& in,
                         const std::string& nameSpace);

/// The Error for a block that ended before its "endAttrs".
void reportCutShort(const std::string& token);

/// Sends the Error for a file that ends inside `where` (or holds an unreadable value there) and
/// returns false.
bool reportEndInside(const std::string& where);

}  // namespace vrfile
