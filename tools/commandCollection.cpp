// The collection file commands: check, ls, get, set and resave. They share one way to read a
// file (with a message on every failure, even where the reader has none) and one way to address
// an object inside it.

#include "tools/commands.h"

#include "tools/collectionAccess.h"

#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace vorncli {
namespace {

bool hasLineBreak(const std::string& text) { return text.find_first_of("\n\r") != std::string::npos; }

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\n' || c == '\r'; }

// Attribute lines are "name<TAB>value": a name must be one word that does not end the block or
// read as a comment, and a value one line without surrounding blanks (the reader strips them).
bool writableAttribute(const VrObject& object, const std::string& label, const std::string& name,
                       const std::string& value) {
  if (name.empty()) {
    fail("an attribute name cannot be empty");
    return false;
  }
  for (char c : name) {
    if (static_cast<unsigned char>(c) <= ' ' || c == 127) {
      fail("attribute name " + inQuotes(name) + " holds a blank or control character");
      return false;
    }
  }
  if (name == "endAttrs" || name[0] == '#') {
    fail(inQuotes(name) + " cannot be used as an attribute name in a collection file");
    return false;
  }
  if (object.isExtraAttr(name)) {
    fail(inQuotes(name) + " of " + label + " is written from the collection; set it on the collection");
    return false;
  }
  if (hasLineBreak(value)) {
    fail("the value of " + inQuotes(name) + " must be a single line");
    return false;
  }
  if (!value.empty() && (isBlank(value.front()) || isBlank(value.back()))) {
    fail("the value of " + inQuotes(name) + " cannot begin or end with a blank");
    return false;
  }
  if (name == "name") {
    for (char c : value) {
      if (isBlank(c)) {
        fail("a name cannot hold blanks: " + inQuotes(value));
        return false;
      }
    }
  }
  return true;
}

std::string patchWord(const VrPatch& patch) {
  std::string type = patch.typeName();
  const std::string suffix = "Patch";
  if (type.size() > suffix.size() && type.compare(type.size() - suffix.size(), suffix.size(), suffix) == 0)
    type.resize(type.size() - suffix.size());
  return type;
}

std::string typeOrNone(const VrObject* object) { return object ? object->typeName() : "(none)"; }

void listFXModules(std::ostream& out, const std::string& owner, const VrPrimitive& primitive) {
  out << "  fx modules of " << owner << " (" << primitive.modules().size() << "):\n";
  for (const VrFXModule* module : primitive.modules())
    out << "    " << module->name() << ": " << module->typeName() << '\n';
}

void listDescription(std::ostream& out, const VrDescription& description) {
  const VrPrimitive* active = description.activePrimitive();
  out << "description: " << description.name() << '\n';
  out << "  primitive: " << typeOrNone(active) << '\n';
  out << "  generator: " << typeOrNone(description.activeGenerator()) << '\n';
  out << "  renderer: " << typeOrNone(description.activeRenderer(false)) << '\n';
  out << "  previewer: " << typeOrNone(description.activePreviewer()) << '\n';

  // Sorted: the saved order follows the dictionary's chains, which a resave can reverse.
  std::vector<std::string> modules;
  std::string module;
  for (int i = 0; description.objectName(i, module); ++i) modules.push_back(module);
  std::sort(modules.begin(), modules.end());
  out << "  objects (" << modules.size() << "):\n";
  for (const std::string& name : modules) out << "    " << name << '\n';

  // The active primitive's stack always; another primitive's only when it has one.
  for (const std::string& name : modules) {
    const auto* primitive = dynamic_cast<const VrPrimitive*>(description.getObject(name));
    if (primitive && (primitive == active || !primitive->modules().empty()))
      listFXModules(out, name, *primitive);
  }

  out << "  patches (" << description.numPatches() << "):\n";
  for (const auto& entry : description.patches()) {
    const VrPatch& patch = *entry.second;
    out << "    " << patch.name() << " (" << patchWord(patch) << ")\n";
    out << "      faces (" << patch.numFaces() << "):";
    for (int face : patch.faceIds()) out << ' ' << face;
    out << '\n';
    for (const auto& culled : patch.culledPrims()) {
      out << "      culled on face " << culled.first << ':';
      for (unsigned id : culled.second) out << ' ' << id;
      out << '\n';
    }
    out << "      guides: " << (active ? active->numGuidesOn(&patch) : 0u) << '\n';
  }
  out << "  guides: " << (active ? active->numGuides() : 0u) << '\n';
}

// Writes a command's output; a closed or full standard output is a failure too.
int emit(const std::string& text) {
  std::cout << text << std::flush;
  if (std::cout) return ExitOk;
  fail("cannot write to standard output");
  return ExitFailed;
}

}  // namespace

int runCheck(const std::string& file) {
  return guarded(ExitFailed, [&] {
    PalettePtr palette = importCollection(file);
    if (!palette) return ExitFailed;
    return emit("ok: " + palette->name() + ": " + std::to_string(palette->numDescriptions()) +
                " descriptions\n");
  });
}

int runList(const std::string& file, bool hasDescription, const std::string& description) {
  return guarded(ExitFailed, [&] {
    PalettePtr palette = importCollection(file);
    if (!palette) return ExitFailed;
    std::vector<const VrDescription*> shown;
    if (hasDescription) {
      const VrDescription* found = palette->description(description);
      if (!found) {
        fail("no description " + inQuotes(description) + " in collection " + inQuotes(palette->name()));
        return ExitFailed;
      }
      shown.push_back(found);
    } else {
      for (unsigned i = 0; i < palette->numDescriptions(); ++i) shown.push_back(palette->description(i));
    }
    std::ostringstream out;
    out << "collection: " << palette->name() << '\n';
    out << "descriptions: " << palette->numDescriptions() << '\n';
    for (const VrDescription* entry : shown) listDescription(out, *entry);
    return emit(out.str());
  });
}

int runGet(const std::string& file, const std::string& attribute, const Address& address) {
  return guarded(ExitFailed, [&] {
    PalettePtr palette = importCollection(file);
    if (!palette) return ExitFailed;
    Target target;
    if (!resolve(*palette, address, target)) return ExitFailed;
    std::string value;
    if (!target.object->getAttr(attribute, value)) {
      fail(target.label + " has no attribute " + inQuotes(attribute));
      return ExitFailed;
    }
    return emit(value + '\n');
  });
}

int runSet(const std::string& file, const std::string& attribute, const std::string& value,
           const Address& address, const std::string& output) {
  return guarded(ExitFailed, [&] {
    PalettePtr palette = importCollection(file);
    if (!palette) return ExitFailed;
    Target target;
    if (!resolve(*palette, address, target)) return ExitFailed;
    if (!writableAttribute(*target.object, target.label, attribute, value)) return ExitFailed;
    if (!target.object->hasAttr(attribute))
      warn(inQuotes(attribute) + " is not a known attribute of " + target.label + "; adding it");
    target.object->setAttr(attribute, value);
    // An object that cannot parse the text keeps its canonical value instead ("false", "0.0").
    std::string stored;
    if (target.object->getAttr(attribute, stored) && stored != value)
      warn(inQuotes(attribute) + " of " + target.label + " was stored as " + inQuotes(stored));
    return saveCollection(palette.get(), output.empty() ? file : output) ? ExitOk : ExitFailed;
  });
}

int runResave(const std::string& input, const std::string& output) {
  return guarded(ExitFailed, [&] {
    PalettePtr palette = importCollection(input);
    if (!palette) return ExitFailed;
    return saveCollection(palette.get(), output) ? ExitOk : ExitFailed;
  });
}

}  // namespace vorncli
