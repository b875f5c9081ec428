#include "tools/collectionAccess.h"

#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "io/VrImportGeometry.h"
#include "primitives/VrPrimitive.h"
#include "tools/cliLogger.h"

#include <exception>
#include <filesystem>
#include <iostream>
#include <sstream>

namespace vorncli {

void fail(const std::string& text) { std::cerr << "vorn: " << text << '\n'; }
void warn(const std::string& text) { std::cerr << "vorn: warning: " << text << '\n'; }

std::string inQuotes(const std::string& text) { return '"' + text + '"'; }

PalettePtr importCollection(const std::string& path) {
  std::error_code ec;
  const auto status = std::filesystem::status(path, ec);
  if (status.type() == std::filesystem::file_type::not_found) {
    fail("no such file: " + path);
    return nullptr;
  }
  if (ec) {
    fail("cannot reach " + path + ": " + ec.message());
    return nullptr;
  }
  if (std::filesystem::is_directory(status)) {
    fail("is a folder, not a collection file: " + path);
    return nullptr;
  }
  PalettePtr palette(VrImport(path, "", 0u));
  if (!palette) fail("cannot read a collection from " + path);
  return palette;
}

// A text that the reader refuses must never replace a file: the collection is written to memory
// and read back before anything goes to disk.
bool readsBack(VrPalette* palette) {
  std::stringstream text;
  if (!VrExportPalette(palette, text)) {
    fail("the collection could not be written out");
    return false;
  }
  PalettePtr again(VrImport(text, "", 0));
  if (!again) {
    fail("the collection would not read back after saving; nothing was written");
    return false;
  }
  return true;
}

bool saveCollection(VrPalette* palette, const std::string& path) {
  if (!readsBack(palette)) return false;
  if (!VrExportPalette(palette, path)) {
    fail("could not save " + path);
    return false;
  }
  return true;
}

// The FX module of that name: the active primitive's stack first, then those of the other
// primitives in object order.
VrFXModule* findFXModule(const VrDescription& description, const std::string& name) {
  if (VrPrimitive* active = description.activePrimitive())
    if (VrFXModule* found = active->findFXModule(name)) return found;
  std::string module;
  for (int i = 0; description.objectName(i, module); ++i)
    if (auto* primitive = dynamic_cast<VrPrimitive*>(description.getObject(module)))
      if (VrFXModule* found = primitive->findFXModule(name)) return found;
  return nullptr;
}

// Resolves an address; a message and false when any part of it is missing. A description
// argument "Palette" names the collection itself unless a description has that name.
bool resolve(VrPalette& palette, const Address& address, Target& target) {
  const std::string collectionLabel = "collection " + inQuotes(palette.name());
  if (!address.hasDescription) {
    target = {&palette, collectionLabel};
    return true;
  }
  VrDescription* description = palette.description(address.description);
  if (!description) {
    if (address.description == "Palette" && !address.hasObject) {
      target = {&palette, collectionLabel};
      return true;
    }
    fail("no description " + inQuotes(address.description) + " in " + collectionLabel);
    return false;
  }
  const std::string descriptionLabel = "description " + inQuotes(description->name());
  if (!address.hasObject || address.object == "Description") {
    target = {description, descriptionLabel};
    return true;
  }
  if (VrObject* object = description->getObject(address.object)) {
    target = {object, "object " + inQuotes(address.object) + " of " + descriptionLabel};
    return true;
  }
  if (VrFXModule* module = findFXModule(*description, address.object)) {
    target = {module, "FX module " + inQuotes(address.object) + " of " + descriptionLabel};
    return true;
  }
  fail("no object or FX module " + inQuotes(address.object) + " in " + descriptionLabel);
  return false;
}

int guarded(int failure, const std::function<int()>& body) {
  try {
    return body();
  } catch (const std::exception& e) {
    fail(std::string("unexpected failure: ") + e.what());
  } catch (...) {
    fail("unexpected failure");
  }
  return failure;
}

BoundCollection::~BoundCollection() {
  if (!owned) return;
  VrResetImportGeometry();
  VrCloseGeometryFiles();
}

bool BoundCollection::bind(const std::string& collection, const std::string& geometry, double frame, double fps,
                           bool objectSpace, const CliLogger& logger, const std::string& nothingDone) {
  owned = importCollection(collection);
  if (!owned) return false;
  owned->setFrame(frame);
  owned->setFramesPerSecond(fps);
  VrSetGeometrySpace(objectSpace ? VrGeometrySpace::Object : VrGeometrySpace::World);
  const unsigned errorsBefore = logger.errors();
  if (!VrImportGeometry(geometry, frame, "linear", fps) || logger.errors() != errorsBefore) {
    fail("the patches do not bind to " + geometry + "; " + nothingDone);
    return false;
  }
  return true;
}

}  // namespace vorncli
