#include "document/VrFileReaderImpl.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "fxmodules/VrFXModule.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <istream>
#include <string>

namespace vrfile {

bool readFileVersion(std::istream& in) {
  long version = 0;
  if (!(in >> version)) {
    VR_ERROR("Unable to read the FileVersion number.");
    return false;
  }
  if (version < 14) {
    VR_ERROR("Vorn files with a FileVersion prior to 14 cannot be used with this release.");
    return false;
  }
  if (version >= 19) VR_WARNING(2, "Invalid file version: " + std::to_string(version));
  VRImportFileVersion = static_cast<unsigned>(std::min<long>(version, 0x7FFFFFFF));
  VRLowestImportFileVersion = std::min(VRLowestImportFileVersion, VRImportFileVersion);
  return true;
}

bool isObjectToken(const std::string& token) {
  return token.find("Primitive") != std::string::npos ||
         token.find("Generator") != std::string::npos ||
         token.find("Renderer") != std::string::npos;
}

bool isFXModuleToken(const std::string& token) { return token.find("FXModule") != std::string::npos; }

void reportCutShort(const std::string& token) {
  VR_ERROR("The " + token + " block ends before its endAttrs line.");
}

bool reportEndInside(const std::string& where) {
  VR_ERROR("The file ends, or holds an unreadable value, inside " + where + ".");
  return false;
}

VrObject* importObjectBlock(VrDescription* description, const std::string& token, std::istream& in,
                            const std::string& nameSpace, VrPrimitive*& currentPrimitive) {
  VR_DEBUG(1, vrmsg::CatFile, "Importing " + token);
  VrObject* object = description->addObject(token);
  if (!object) return nullptr;
  if (!object->importObj(in, nameSpace)) {
    reportCutShort(token);
    return nullptr;
  }
  if (auto* asPrimitive = dynamic_cast<VrPrimitive*>(object)) currentPrimitive = asPrimitive;
  return object;
}

bool importFXModuleBlock(VrPrimitive* primitive, const std::string& token, std::istream& in,
                         const std::string& nameSpace) {
  VR_DEBUG(1, vrmsg::CatFile, "Importing " + token);
  VrFXModule* module = primitive->addFXModule(token);
  if (!module) return false;
  if (!module->importObj(in, nameSpace)) {
    reportCutShort(token);
    primitive->removeFXModule(module);
    return false;
  }
  return true;
}

}  // namespace vrfile
