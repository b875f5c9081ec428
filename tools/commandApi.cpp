// The scripting commands: `api` runs the string facade (document/vrapi.h) one call per script
// line, and `eval` evaluates one attribute expression of a collection file at a location.
// Both install a plain host logger, so that Errors and Warnings reach standard error as
// "error: <text>" and "warning: <text>" lines that scripts can read.

#include "tools/commands.h"

#include "tools/cliLogger.h"

#include "tools/collectionAccess.h"

#include "base/VrMessage.h"
#include "document/VrCollectionFile.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrapi.h"
#include "expressions/VrExpression.h"
#include "fxmodules/VrFXModule.h"
#include "primitives/VrPrimitive.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace vorncli {
namespace {

// ---------------------------------------------------------------------------------------------
// Script lines

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

// True for a blank line or a comment: nothing to run.
bool isEmptyLine(const std::string& line) {
  for (char c : line)
    if (!isBlank(c)) return c == '#';
  return true;
}

// Splits a line into words at blanks. Double quotes keep blanks inside a word and may make an
// empty word (""); within them \" and \\ stand for " and \, and any other backslash is kept.
bool splitWords(const std::string& line, std::vector<std::string>& words, std::string& why) {
  size_t i = 0;
  const size_t n = line.size();
  while (i < n) {
    while (i < n && isBlank(line[i])) ++i;
    if (i == n) break;
    std::string word;
    bool quoted = false;
    for (; i < n && (quoted || !isBlank(line[i])); ++i) {
      const char c = line[i];
      if (c == '"') {
        quoted = !quoted;
      } else if (quoted && c == '\\' && i + 1 < n && (line[i + 1] == '"' || line[i + 1] == '\\')) {
        word += line[++i];
      } else {
        word += c;
      }
    }
    if (quoted) {
      why = "unterminated quote";
      return false;
    }
    words.push_back(std::move(word));
  }
  return true;
}

// ---------------------------------------------------------------------------------------------
// Arguments: the script's words, converted to the parameter types of the facade

bool convert(const std::string& text, std::string& out, std::string&) {
  out = text;
  return true;
}

bool convert(const std::string& text, bool& out, std::string& why) {
  if (text == "true" || text == "1" || text == "on") {
    out = true;
    return true;
  }
  if (text == "false" || text == "0" || text == "off") {
    out = false;
    return true;
  }
  why = "must be true, false, 1, 0, on or off, not " + inQuotes(text);
  return false;
}

bool convert(const std::string& text, int& out, std::string& why) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(begin, &end, 10);
  if (text.empty() || isBlank(text[0]) || *end != '\0' || errno == ERANGE || value < INT_MIN ||
      value > INT_MAX) {
    why = "must be an integer, not " + inQuotes(text);
    return false;
  }
  out = static_cast<int>(value);
  return true;
}

template <class Tuple, size_t... I>
bool convertAll(const std::vector<std::string>& args, Tuple& values, std::string& why,
                std::index_sequence<I...>) {
  std::string reason;
  size_t failed = 0;
  const bool ok = ((convert(args[I], std::get<I>(values), reason) || (failed = I + 1, false)) && ...);
  if (!ok) why = "argument " + std::to_string(failed) + ' ' + reason;
  return ok;
}

// ---------------------------------------------------------------------------------------------
// Results: how a value prints, and when it says that the call failed

// Which results count as failures besides a logged Error.
enum class Check {
  ErrorOnly,   // any value is an answer (a list, a text, a predicate)
  FalseFails,  // false means the call did nothing
  EmptyFails,  // the call returns a name; empty means there is none
};

std::string show(const std::string& value) { return value; }
std::string show(bool value) { return value ? "true" : "false"; }
std::string show(int value) { return std::to_string(value); }
template <class T>
std::string show(const std::vector<T>& values) {
  std::string text;
  for (const T& value : values) text += (text.empty() ? "" : " ") + show(value);
  return text;
}

bool looksFailed(Check check, bool value) { return check == Check::FalseFails && !value; }
bool looksFailed(Check check, const std::string& value) { return check == Check::EmptyFails && value.empty(); }
bool looksFailed(Check, int) { return false; }
template <class T>
bool looksFailed(Check check, const std::vector<T>& values) {
  return check == Check::EmptyFails && values.empty();
}

struct Outcome {
  std::string text;
  bool failed = false;
};

// One facade function as the script calls it.
struct Function {
  size_t minArgs = 0;
  size_t maxArgs = 0;
  std::vector<std::string> defaults;  // for the trailing parameters that may be left out
  // False, with the reason, when an argument does not convert; nothing is called then.
  std::function<bool(const std::vector<std::string>&, Outcome&, std::string&)> call;
};

template <class R, class... P>
Function adapt(R (*fn)(P...), Check check, std::vector<std::string> defaults = {}) {
  Function function;
  function.maxArgs = sizeof...(P);
  function.minArgs = sizeof...(P) - defaults.size();
  function.defaults = std::move(defaults);
  function.call = [fn, check](const std::vector<std::string>& args, Outcome& outcome, std::string& why) {
    std::tuple<std::decay_t<P>...> values;
    if (!convertAll(args, values, why, std::index_sequence_for<P...>{})) return false;
    if constexpr (std::is_void_v<R>) {
      (void)check;
      std::apply(fn, values);
      outcome = Outcome{};
    } else {
      const R result = std::apply(fn, values);
      outcome = Outcome{show(result), looksFailed(check, result)};
    }
    return true;
  };
  return function;
}

// Every function of the facade, by the name a script calls it by.
const std::map<std::string, Function>& facade() {
  using C = Check;
  static const std::map<std::string, Function> table = {
      // Collections
      {"createPalette", adapt(&vrapi::createPalette, C::FalseFails)},
      {"deletePalette", adapt(&vrapi::deletePalette, C::FalseFails)},
      {"palettes", adapt(&vrapi::palettes, C::ErrorOnly)},
      {"palette", adapt(&vrapi::palette, C::EmptyFails)},
      // Descriptions
      {"createDescription", adapt(&vrapi::createDescription, C::EmptyFails)},
      {"deleteDescription", adapt(&vrapi::deleteDescription, C::FalseFails)},
      {"descriptions", adapt(&vrapi::descriptions, C::ErrorOnly)},
      {"objects", adapt(&vrapi::objects, C::ErrorOnly)},
      {"getActive", adapt(&vrapi::getActive, C::EmptyFails)},
      {"setActive", adapt(&vrapi::setActive, C::FalseFails)},
      // Attributes
      {"attrs", adapt(&vrapi::attrs, C::ErrorOnly)},
      {"allAttrs", adapt(&vrapi::allAttrs, C::ErrorOnly)},
      {"customAttrs", adapt(&vrapi::customAttrs, C::ErrorOnly)},
      {"attrExists", adapt(&vrapi::attrExists, C::ErrorOnly)},
      {"getAttr", adapt(&vrapi::getAttr, C::ErrorOnly)},
      {"setAttr", adapt(&vrapi::setAttr, C::FalseFails)},
      {"setTextureAttr", adapt(&vrapi::setTextureAttr, C::FalseFails)},
      {"addCustomAttr", adapt(&vrapi::addCustomAttr, C::FalseFails)},
      {"remCustomAttr", adapt(&vrapi::remCustomAttr, C::FalseFails)},
      {"getAttrFromFile", adapt(&vrapi::getAttrFromFile, C::ErrorOnly)},
      {"availableModules", adapt(&vrapi::availableModules, C::ErrorOnly)},
      // FX modules
      {"fxModules", adapt(&vrapi::fxModules, C::ErrorOnly)},
      {"fxModuleType", adapt(&vrapi::fxModuleType, C::EmptyFails)},
      {"addFXModule", adapt(&vrapi::addFXModule, C::EmptyFails)},
      {"removeFXModule", adapt(&vrapi::removeFXModule, C::FalseFails)},
      {"moveFXModule", adapt(&vrapi::moveFXModule, C::FalseFails)},
      {"fxModuleIncludedInPreset", adapt(&vrapi::fxModuleIncludedInPreset, C::ErrorOnly)},
      // Bound geometry and culled primitives
      {"boundGeometry", adapt(&vrapi::boundGeometry, C::ErrorOnly)},
      {"boundFaces", adapt(&vrapi::boundFaces, C::ErrorOnly)},
      {"culledPrimPatches", adapt(&vrapi::culledPrimPatches, C::ErrorOnly)},
      {"culledPrimFaces", adapt(&vrapi::culledPrimFaces, C::ErrorOnly)},
      {"culledPrims", adapt(&vrapi::culledPrims, C::ErrorOnly)},
      // Guides
      {"initInterpolation", adapt(&vrapi::initInterpolation, C::FalseFails)},
      // Files
      {"importPalette", adapt(&vrapi::importPalette, C::EmptyFails)},
      {"exportPalette", adapt(&vrapi::exportPalette, C::FalseFails)},
      {"importDescription", adapt(&vrapi::importDescription, C::EmptyFails)},
      {"exportDescription", adapt(&vrapi::exportDescription, C::FalseFails)},
      {"importDescriptionAsPreset", adapt(&vrapi::importDescriptionAsPreset, C::EmptyFails)},
      {"exportDescriptionAsPreset", adapt(&vrapi::exportDescriptionAsPreset, C::FalseFails, {"true"})},
      {"importFXModule", adapt(&vrapi::importFXModule, C::EmptyFails)},
      {"exportFXModule", adapt(&vrapi::exportFXModule, C::FalseFails)},
      // Deltas and snapshots
      {"initSnapshot", adapt(&vrapi::initSnapshot, C::FalseFails)},
      {"canCreateDelta", adapt(&vrapi::canCreateDelta, C::ErrorOnly)},
      {"createDelta", adapt(&vrapi::createDelta, C::ErrorOnly)},
      {"applyDelta", adapt(&vrapi::applyDelta, C::FalseFails)},
      // File names and text
      {"findFileInVrDataPath", adapt(&vrapi::findFileInVrDataPath, C::EmptyFails)},
      {"expandFilepath", adapt(&vrapi::expandFilepath, C::ErrorOnly, {"", ""})},
      {"fileCleanup", adapt(&vrapi::fileCleanup, C::ErrorOnly)},
      {"prepForAttribute", adapt(&vrapi::prepForAttribute, C::ErrorOnly)},
      {"prepForEditor", adapt(&vrapi::prepForEditor, C::ErrorOnly)},
      {"stripNameSpace", adapt(&vrapi::stripNameSpace, C::ErrorOnly)},
      {"objNameSpace", adapt(&vrapi::objNameSpace, C::ErrorOnly)},
      {"objBaseNameSpace", adapt(&vrapi::objBaseNameSpace, C::ErrorOnly)},
      // Installation and configuration
      {"rootDir", adapt(&vrapi::rootDir, C::ErrorOnly)},
      {"iconDir", adapt(&vrapi::iconDir, C::ErrorOnly)},
      {"version", adapt(&vrapi::version, C::ErrorOnly)},
      {"docsDir", adapt(&vrapi::docsDir, C::ErrorOnly)},
      {"globalRepo", adapt(&vrapi::globalRepo, C::ErrorOnly)},
      {"localRepo", adapt(&vrapi::localRepo, C::ErrorOnly)},
      {"userRepo", adapt(&vrapi::userRepo, C::ErrorOnly)},
      {"promoteFunc", adapt(&vrapi::promoteFunc, C::ErrorOnly)},
      {"getProjectPath", adapt(&vrapi::getProjectPath, C::ErrorOnly)},
      {"setProjectPath", adapt(&vrapi::setProjectPath, C::ErrorOnly)},
      {"initConfig", adapt(&vrapi::initConfig, C::ErrorOnly)},
      // Message levels
      {"getMessageLevel", adapt(&vrapi::getMessageLevel, C::ErrorOnly)},
      {"setMessageLevel", adapt(&vrapi::setMessageLevel, C::FalseFails)},
  };
  return table;
}

std::string argumentCount(const Function& function) {
  std::string count = std::to_string(function.minArgs);
  if (function.maxArgs != function.minArgs) count += " to " + std::to_string(function.maxArgs);
  return count + (function.maxArgs == 1 ? " argument" : " arguments");
}

// Runs one script line that holds a call; false when the call failed. Its result goes to
// standard output; a line that cannot be called prints nothing there.
bool runLine(const std::string& line, unsigned number, const CliLogger& logger) {
  const std::string where = "line " + std::to_string(number) + ": ";
  std::vector<std::string> words;
  std::string why;
  if (!splitWords(line, words, why)) {
    fail(where + why);
    return false;
  }
  const std::string name = words.front();
  words.erase(words.begin());

  const auto found = facade().find(name);
  if (found == facade().end()) {
    fail(where + "unknown function " + inQuotes(name));
    return false;
  }
  const Function& function = found->second;
  if (words.size() < function.minArgs || words.size() > function.maxArgs) {
    fail(where + name + " takes " + argumentCount(function) + ", got " + std::to_string(words.size()));
    return false;
  }
  for (size_t i = words.size(); i < function.maxArgs; ++i)
    words.push_back(function.defaults[i - function.minArgs]);

  const unsigned errorsBefore = logger.errors();
  Outcome outcome;
  try {
    if (!function.call(words, outcome, why)) {
      fail(where + name + ": " + why);
      return false;
    }
  } catch (const std::exception& e) {
    fail(where + name + ": unexpected failure: " + e.what());
    return false;
  } catch (...) {
    fail(where + name + ": unexpected failure");
    return false;
  }
  std::cout << outcome.text << '\n' << std::flush;
  const bool errorLogged = logger.errors() != errorsBefore;
  // A failure always has a message: the facade's Error, or this line.
  if (outcome.failed && !errorLogged) fail(where + name + " failed");
  return !outcome.failed && !errorLogged;
}

// Deletes the collections a script leaves behind; deleting one can take others with it.
void deleteCollections() {
  for (const std::string& name : vrapi::palettes())
    if (VrPalette* collection = VrPalette::palette(name)) delete collection;
}

// ---------------------------------------------------------------------------------------------
// eval

// The expression type of an attribute: its declared word, or for a "custom_<type>_<name>"
// attribute the word in its name (the file reader declares every attribute "float"). Words the
// expression language has no vector for count as "float".
std::string expressionType(const std::string& attribute, const std::string& declared) {
  std::string type = declared;
  const std::string prefix = "custom_";
  if (attribute.compare(0, prefix.size(), prefix) == 0) {
    const size_t underscore = attribute.find('_', prefix.size());
    if (underscore != std::string::npos) type = attribute.substr(prefix.size(), underscore - prefix.size());
  }
  for (const char* word : {"float", "vector", "color", "point", "normal"})
    if (type == word) return type;
  return "float";
}

// The name the object's own expression of a custom attribute goes by: the part after the type,
// which also seeds `rand`.
std::string expressionName(const std::string& attribute) {
  const std::string prefix = "custom_";
  if (attribute.compare(0, prefix.size(), prefix) != 0) return attribute;
  const size_t underscore = attribute.find('_', prefix.size());
  return underscore == std::string::npos ? attribute : attribute.substr(underscore + 1);
}

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", value);
  return text;
}

int evaluate(const EvalRequest& request, const CliLogger& logger) {
  PalettePtr palette = importCollection(request.file);
  if (!palette) return ExitFailed;
  Address address;
  address.hasDescription = address.hasObject = true;
  address.description = request.description;
  address.object = request.object;
  Target target;
  if (!resolve(*palette, address, target)) return ExitFailed;
  VrObject* object = target.object;
  const std::string& label = target.label;
  VrDescription* description = palette->description(request.description);
  std::string text, type;
  if (!object->getAttr(request.attribute, text, type)) {
    fail(label + " has no attribute " + inQuotes(request.attribute));
    return ExitFailed;
  }

  const VrExpression expression(expressionName(request.attribute), object->typeName(), description,
                                text, expressionType(request.attribute, type));
  const unsigned errorsBefore = logger.errors();
  std::string report;
  if (!expression.isValid(&report)) {
    if (logger.errors() == errorsBefore) std::cerr << "error: " << report << '\n';
    return ExitFailed;
  }
  if (!request.patch.empty() && !description->patch(request.patch)) {
    fail("description " + inQuotes(request.description) + " has no patch " + inQuotes(request.patch));
    return ExitFailed;
  }
  if (request.hasFrame) palette->setFrame(request.frame);
  const SgVec3T<double> value =
      expression.eval(request.u, request.v, request.face, request.patch.empty() ? nullptr : &request.patch);
  if (logger.errors() != errorsBefore) return ExitFailed;

  std::string out = number(value.x);
  if (expression.isVec()) out += ' ' + number(value.y) + ' ' + number(value.z);
  std::cout << out << '\n' << std::flush;
  if (std::cout) return ExitOk;
  fail("cannot write to standard output");
  return ExitFailed;
}

}  // namespace

int runApi(const std::string& script) {
  std::ifstream file;
  if (script != "-") {
    std::error_code ec;
    const auto status = std::filesystem::status(script, ec);
    if (status.type() == std::filesystem::file_type::not_found) {
      fail("no such file: " + script);
      return ExitFailed;
    }
    if (std::filesystem::is_directory(status)) {
      fail("is a folder, not a script: " + script);
      return ExitFailed;
    }
    file.open(script, std::ios::binary);
    if (!file) {
      fail("cannot read the script " + script);
      return ExitFailed;
    }
  }
  std::istream& in = script == "-" ? std::cin : file;

  CliLogger logger;
  bool failed = false;
  std::string line;
  for (unsigned number = 1; std::getline(in, line); ++number) {
    if (isEmptyLine(line)) continue;
    if (!runLine(line, number, logger)) failed = true;
  }
  if (in.bad()) {
    fail("could not read the whole script " + script);
    failed = true;
  }
  deleteCollections();
  if (!std::cout) {
    fail("cannot write to standard output");
    failed = true;
  }
  return failed ? ExitFailed : ExitOk;
}

int runEval(const EvalRequest& request) {
  CliLogger logger;
  try {
    return evaluate(request, logger);
  } catch (const std::exception& e) {
    fail(std::string("unexpected failure: ") + e.what());
  } catch (...) {
    fail("unexpected failure");
  }
  return ExitFailed;
}

}  // namespace vorncli
