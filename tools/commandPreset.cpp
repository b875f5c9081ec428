// The preset commands: `preset export` writes a description of a collection file as a preset,
// `preset import` reads a preset into a collection file as a new description, and
// `preset export-fx` writes one FX module as a module preset. Errors and warnings of the library
// reach standard error as "error: <text>" and "warning: <text>".

#include "tools/commands.h"

#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"

#include "document/VrDescription.h"
#include "document/VrDescriptionFile.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"

#include <iostream>
#include <string>

namespace vorncli {
namespace {

VrDescription* findDescription(VrPalette& palette, const std::string& name, const std::string& file) {
  VrDescription* description = palette.description(name);
  if (!description) fail("no description " + inQuotes(name) + " in " + file);
  return description;
}

// A description name is one word: the file's attribute lines and the commands split at blanks.
bool validName(const std::string& name) {
  for (char c : name) {
    if (static_cast<unsigned char>(c) <= ' ' || c == 127) {
      fail("a description name cannot hold blanks or control characters: " + inQuotes(name));
      return false;
    }
  }
  return true;
}

// Gives the imported description the name asked for; false when another description holds it.
bool rename(VrPalette& palette, VrDescription& imported, const std::string& name) {
  const VrDescription* holder = palette.description(name);
  if (holder && holder != &imported) {
    fail("collection " + inQuotes(palette.name()) + " already has a description " + inQuotes(name));
    return false;
  }
  imported.setAttr("name", name);
  if (imported.name() != name) warn("the description was named " + inQuotes(imported.name()));
  return true;
}

}  // namespace

int runPresetExport(const std::string& collection, const std::string& description,
                    const std::string& output, bool withGuides) {
  CliLogger logger;
  return guarded(ExitFailed, [&] {
    PalettePtr palette = importCollection(collection);
    if (!palette) return ExitFailed;
    VrDescription* found = findDescription(*palette, description, collection);
    if (!found) return ExitFailed;
    if (!VrExportDescriptionAsPreset(found, output, withGuides, true)) {
      fail("could not write the preset " + output);
      return ExitFailed;
    }
    return ExitOk;
  });
}

int runPresetImport(const std::string& collection, const std::string& preset, const std::string& name,
                    const std::string& output) {
  CliLogger logger;
  return guarded(ExitFailed, [&] {
    if (!name.empty() && !validName(name)) return ExitFailed;
    PalettePtr palette = importCollection(collection);
    if (!palette) return ExitFailed;
    VrDescription* imported = VrImportDescriptionAsPreset(palette.get(), preset);
    if (!imported) {
      fail("could not import the preset " + preset + "; nothing was written");
      return ExitFailed;
    }
    if (!name.empty() && !rename(*palette, *imported, name)) return ExitFailed;
    if (!saveCollection(palette.get(), output.empty() ? collection : output)) return ExitFailed;
    std::cout << imported->name() << '\n' << std::flush;
    if (std::cout) return ExitOk;
    fail("cannot write to standard output");
    return ExitFailed;
  });
}

int runPresetExportFX(const std::string& collection, const std::string& description,
                      const std::string& module, const std::string& output) {
  CliLogger logger;
  return guarded(ExitFailed, [&] {
    PalettePtr palette = importCollection(collection);
    if (!palette) return ExitFailed;
    VrDescription* found = findDescription(*palette, description, collection);
    if (!found) return ExitFailed;
    const VrFXModule* fxModule = findFXModule(*found, module);
    if (!fxModule) {
      fail("no FX module " + inQuotes(module) + " in description " + inQuotes(description));
      return ExitFailed;
    }
    if (!VrExportFXModule(fxModule, output)) {
      fail("could not write the module preset " + output);
      return ExitFailed;
    }
    return ExitOk;
  });
}

}  // namespace vorncli
