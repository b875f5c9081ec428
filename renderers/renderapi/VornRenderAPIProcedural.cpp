// The render API front.
//
// Ownership: a patch-level procedural owns its description view; collections live in the
// process-wide dictionary, and a procedural holds one use of its collection in the reference
// table below (unless the plug-in says `DontReleaseCollection`). A temporary collection (batch
// mode, or a render with a shutter) is deleted when its last user goes, or by
// `deleteTempRenderPalettes`.
//
// Lifetime: `setupDone` outlives the procedurals, so that a collection shared by thousands of
// face procedurals is set up once per description.
//
// Threading: every public entry point runs under the render lock. `handleParallel` is the only
// place with workers: they share the description read-only and write only their own contexts.

#include "renderers/renderapi/VornRenderAPIProcedural.h"

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <unordered_map>

#include "base/VrConfig.h"
#include "base/VrMessage.h"
#include "base/VrProfiler.h"
#include "base/VrTaskManager.h"
#include "base/VrVersion.h"
#include "base/vrutilName.h"
#include "base/vrutilPath.h"
#include "base/vrutilString.h"
#include "document/VrCollectionFile.h"
#include "document/VrDelta.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "fxmodules/VrFXModule.h"
#include "generators/VrGenerator.h"
#include "generators/VrGeneratorContext.h"
#include "geometry/VrPatch.h"
#include "io/VrImportGeometry.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"
#include "renderers/renderapi/VornRenderAPIRenderer.h"

namespace VornRenderAPI {

namespace {

using Callbacks = ProceduralCallbacks;

// Process-wide state of the front, guarded by the render lock.
struct FrontState {
  std::unordered_map<std::string, bool> setupDone;
  std::map<std::string, int> references;
  bool quitOnError = false;
  int batchMode = -1;  // -1: not read yet
  bool banner = false;
};

FrontState& front() {
  static FrontState state;
  return state;
}

bool batchMode() {
  FrontState& state = front();
  if (state.batchMode < 0) state.batchMode = std::getenv("MI_ORLO_BATCH") ? 1 : 0;
  return state.batchMode == 1;
}

std::string text(const char* value) { return value ? std::string(value) : std::string(); }

// Ends the pass of every description of the collection that was set up, so that its renderer,
// generator and primitive report what they gathered while rendering, and forgets the set-ups.
// Called before the collection is deleted.
void finishSetUps(VrPalette& palette, const std::string& collectionName) {
  const std::string prefix = collectionName + "|";
  auto& setupDone = front().setupDone;
  for (auto it = setupDone.begin(); it != setupDone.end();) {
    if (it->first.compare(0, prefix.size(), prefix) != 0) {
      ++it;
      continue;
    }
    VrDescription* description = it->second ? palette.description(it->first.substr(prefix.size())) : nullptr;
    if (auto* active = description ? dynamic_cast<VrRenderer*>(description->activeRenderer()) : nullptr)
      active->finishDescription();
    it = setupDone.erase(it);
  }
}

std::string number(double value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

bool isSeparator(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ',' || c == ';'; }

// Blanks split the string; a token that starts with a double quote runs to the next one.
std::vector<std::string> tokenize(const std::string& args) {
  std::vector<std::string> tokens;
  size_t i = 0;
  while (i < args.size()) {
    if (std::isspace(static_cast<unsigned char>(args[i]))) {
      ++i;
      continue;
    }
    if (args[i] == '"') {
      const size_t end = args.find('"', i + 1);
      tokens.push_back(args.substr(i + 1, end == std::string::npos ? std::string::npos : end - i - 1));
      i = end == std::string::npos ? args.size() : end + 1;
      continue;
    }
    size_t end = i;
    while (end < args.size() && !std::isspace(static_cast<unsigned char>(args[end]))) ++end;
    tokens.push_back(args.substr(i, end - i));
    i = end;
  }
  return tokens;
}

// Splits at the list separators.
std::vector<std::string> splitItems(const std::string& value, bool blanksOnly) {
  std::vector<std::string> items;
  std::string item;
  for (char c : value) {
    const bool separator = blanksOnly ? std::isspace(static_cast<unsigned char>(c)) != 0 : isSeparator(c);
    if (separator) {
      if (!item.empty()) items.push_back(item);
      item.clear();
    } else {
      item += c;
    }
  }
  if (!item.empty()) items.push_back(item);
  return items;
}

// An item that starts with a letter (after an optional sign) ends a number list: a flag.
bool startsWithLetter(const std::string& item) {
  size_t i = 0;
  if (i < item.size() && (item[i] == '-' || item[i] == '+')) ++i;
  return i < item.size() && std::isalpha(static_cast<unsigned char>(item[i]));
}

std::string replaceAll(std::string value, const std::string& from, const std::string& to) {
  for (size_t at = value.find(from); at != std::string::npos; at = value.find(from, at + to.size()))
    value.replace(at, from.size(), to);
  return value;
}

// Gauss-Jordan inverse of a row-major 4x4 matrix; the identity for a singular one.
SgXform3T<double> inverse(const SgXform3T<double>& m) {
  double a[4][8];
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 8; ++c) a[r][c] = c < 4 ? m[r][c] : (c - 4 == r ? 1.0 : 0.0);
  for (int c = 0; c < 4; ++c) {
    int pivot = c;
    for (int r = c + 1; r < 4; ++r)
      if (std::fabs(a[r][c]) > std::fabs(a[pivot][c])) pivot = r;
    if (std::fabs(a[pivot][c]) < 1e-300) return SgXform3T<double>();
    if (pivot != c)
      for (int k = 0; k < 8; ++k) std::swap(a[c][k], a[pivot][k]);
    const double d = a[c][c];
    for (int k = 0; k < 8; ++k) a[c][k] /= d;
    for (int r = 0; r < 4; ++r) {
      if (r == c) continue;
      const double f = a[r][c];
      for (int k = 0; k < 8; ++k) a[r][k] -= f * a[c][k];
    }
  }
  SgXform3T<double> out;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) out[r][c] = a[r][c + 4];
  return out;
}

VrDescription* sampleDescription(VrDescription* description, unsigned sample) {
  if (!description) return nullptr;
  return sample == 0 ? description : description->sample(sample - 1);
}

class DescriptionImpl : public Description {
 public:
  explicit DescriptionImpl(VrDescription* description) : description(description) {}
  const char* getString(int key) const override {
    if (key != 0) {
      VR_ERROR("Invalid EStringAttribute");
      return "";
    }
    VrPrimitive* primitive = description ? description->activePrimitive() : nullptr;
    typeName = primitive ? primitive->typeName() : std::string();
    return typeName.c_str();
  }

 private:
  VrDescription* description;
  mutable std::string typeName;
};

}  // namespace

// ---------------------------------------------------------------------------------------------
// Arguments

struct Procedural::Args {
  std::string nameSpace, palette, description, patch, file, geom;
  std::string interpolation = "none";
  double frame = 0.0;
  double fps = 0.0;
  bool hasFrame = false;
  std::vector<double> lookups, placements;
  std::vector<std::string> deltas;
  bool hasWorld = false;
  double world[16] = {};
};

void Procedural::setBannerShown(bool shown) { front().banner = shown; }

Procedural::Procedural(ProceduralCallbacks* callbacks, const char* args) : callbackObject(callbacks) {
  VR_DEBUG(2, vrmsg::CatRender, "Creating patch procedural");
  FrontState& state = front();
  if (!state.banner) {
    state.banner = true;
    std::fprintf(stderr, "\nVorn Version: %s  Build Date: %s  %s\n\n", vornLibraryVersion(), __DATE__,
                 __TIME__);
  }
  parse(args);
}

Procedural::Procedural(const Procedural& patch, int face, ProceduralCallbacks* callbacks)
    : desc(patch.desc),
      patchObject(patch.patchObject),
      faceIndex(face),
      callbackObject(callbacks ? callbacks : patch.callbackObject),
      key(patch.key),
      patchName(patch.patchName),
      temporary(patch.temporary),
      rendererCast(patch.rendererCast),
      ownCast(patch.ownCast) {
  VR_DEBUG(3, vrmsg::CatRender, "Creating face procedural: " + patchName + "[" + std::to_string(face) + "]");
  if (!patch.collectionName.empty() &&
      !(callbackObject && callbackObject->getBool(Callbacks::EBoolAttribute::DontReleaseCollection))) {
    collectionName = patch.collectionName;
    addReference(false);
  }
}

Procedural::~Procedural() {
  view.reset();
  if (faceIndex < 0)
    VR_DEBUG(2, vrmsg::CatRender, "Deleting patch procedural: " + patchName);
  else
    VR_DEBUG(3, vrmsg::CatRender,
             "Deleting face procedural: " + patchName + "[" + std::to_string(faceIndex) + "]");
  dropReference();
}

void Procedural::addReference(bool create) {
  if (collectionName.empty()) return;
  auto& references = front().references;
  auto found = references.find(collectionName);
  if (found != references.end())
    ++found->second;
  else if (create)
    references[collectionName] = 1;
  else
    collectionName.clear();
}

void Procedural::dropReference() {
  if (collectionName.empty()) return;
  auto& references = front().references;
  auto found = references.find(collectionName);
  if (found == references.end()) return;
  if (--found->second > 0) return;
  references.erase(found);
  if (!temporary) return;
  if (VrPalette* palette = VrPalette::palette(collectionName)) {
    finishSetUps(*palette, collectionName);
    delete palette;
  }
}

bool Procedural::parse(const char* argString) {
  setenv("VORN_RENDER_API_RENDERER", "RenderAPI", 1);
  VrConfig::state();
  long long timer = 0;
  vrutil::beginTiming(timer);

  Args args;
  bool hasFile = false, hasGeom = false, hasPalette = false, hasDescription = false, hasPatch = false;
  const std::vector<std::string> tokens = tokenize(text(argString));
  for (size_t i = 0; i < tokens.size(); ++i) {
    const std::string& token = tokens[i];
    VR_DEBUG(2, vrmsg::CatRender, "Token: " + token);
    auto value = [&]() -> std::string { return i + 1 < tokens.size() ? tokens[++i] : std::string(); };
    auto list = [&]() {
      std::vector<double> numbers;
      while (i + 1 < tokens.size() && !startsWithLetter(tokens[i + 1])) {
        for (const std::string& item : splitItems(tokens[++i], false))
          numbers.push_back(std::atof(item.c_str()));
      }
      return numbers;
    };
    if (token == "-debug") {
      VRDebugLevel = static_cast<unsigned>(std::atoi(value().c_str()));
      VR_DEBUG(2, vrmsg::CatRender, "Debug level set: " + std::to_string(VRDebugLevel));
    } else if (token == "-stats") {
      VRStatsLevel = static_cast<unsigned>(std::atoi(value().c_str()));
      VR_DEBUG(2, vrmsg::CatRender, "Stats level set: " + std::to_string(VRStatsLevel));
    } else if (token == "-warning") {
      VRWarningLevel = static_cast<unsigned>(std::atoi(value().c_str()));
      VR_DEBUG(2, vrmsg::CatRender, "Warning level set: " + std::to_string(VRWarningLevel));
    } else if (token == "-quitOnError") {
      front().quitOnError = true;
      VRQuitOnError = true;
      VR_DEBUG(2, vrmsg::CatRender, "Vorn set to quit on error in procedural (args).");
    } else if (token == "-nameSpace") {
      args.nameSpace = value();
      VR_DEBUG(2, vrmsg::CatRender, "NameSpace token: " + args.nameSpace);
    } else if (token == "-palette") {
      args.palette = value();
      hasPalette = true;
      VR_DEBUG(2, vrmsg::CatRender, "Collection token: " + args.palette);
    } else if (token == "-description") {
      args.description = value();
      hasDescription = true;
      VR_DEBUG(2, vrmsg::CatRender, "Description token: " + args.description);
    } else if (token == "-patch") {
      args.patch = value();
      hasPatch = true;
      VR_DEBUG(2, vrmsg::CatRender, "Patch token: " + args.patch);
    } else if (token == "-frame") {
      const std::string v = value();
      args.frame = std::atof(v.c_str());
      args.hasFrame = true;
      VR_DEBUG(2, vrmsg::CatRender, "Frame token: " + v);
    } else if (token == "-fps") {
      const std::string v = value();
      args.fps = std::atof(v.c_str());
      VR_DEBUG(2, vrmsg::CatRender, "FPS token: " + v);
    } else if (token == "-interpolation") {
      args.interpolation = value();
      VR_DEBUG(2, vrmsg::CatRender, "Interpolation token: " + args.interpolation);
    } else if (token == "-motionSamplesLookup") {
      args.lookups = list();
      VR_DEBUG(2, vrmsg::CatRender, "Motion Sample Lookup token: " + std::to_string(args.lookups.size()));
    } else if (token == "-motionSamplesPlacement") {
      args.placements = list();
      VR_DEBUG(2, vrmsg::CatRender,
               "Motion Sample Placement token: " + std::to_string(args.placements.size()));
    } else if (token == "-file") {
      args.file = value();
      hasFile = true;
      VR_DEBUG(2, vrmsg::CatRender, "File token: " + args.file);
    } else if (token == "-delta") {
      const std::string v = value();
      for (const std::string& item : splitItems(v, true)) args.deltas.push_back(item);
      VR_DEBUG(2, vrmsg::CatRender, "Delta token: " + v);
    } else if (token == "-geom") {
      args.geom = value();
      hasGeom = true;
      VR_DEBUG(2, vrmsg::CatRender, "Geom token: " + args.geom);
    } else if (token == "-world") {
      const std::string v = value();
      const std::vector<std::string> items = splitItems(v, false);
      args.hasWorld = items.size() == 16;
      for (size_t k = 0; k < items.size() && k < 16; ++k) args.world[k] = std::atof(items[k].c_str());
      VR_DEBUG(2, vrmsg::CatRender, "World token: " + v);
    } else {
      VR_WARNING(2, "Unknown token: " + token);
    }
  }

  if (args.lookups.empty() && args.placements.empty()) {
    args.lookups.push_back(0.0);
    args.placements.push_back(0.0);
  }
  if (!hasFile) return VR_ERROR("No collection filename given."), false;
  if (!hasGeom) return VR_ERROR("No geometry filename given."), false;
  if (args.lookups.size() != args.placements.size())
    return VR_ERROR("Motion sample lookup and placement sizes do not match."), false;
  if (!hasPalette) return VR_ERROR("No collection name given."), false;
  if (!hasDescription) return VR_ERROR("No description name given."), false;
  if (!hasPatch) return VR_ERROR("No patch name given."), false;
  if (!args.hasFrame) return VR_ERROR("No frame given."), false;
  fileName = args.file;

  const unsigned shutterSize =
      callbackObject ? callbackObject->getArraySize(Callbacks::EFloatArrayAttribute::Shutter) : 0u;
  temporary = batchMode() || shutterSize != 0;
  std::string nameSpace = args.nameSpace;
  std::string paletteName = args.palette, descriptionName = args.description;
  patchName = args.patch;
  if (!nameSpace.empty()) {
    if (temporary) {
      if (nameSpace.compare(0, 10, "VR_RENDER_") == 0) nameSpace.erase(0, 10);
      nameSpace = "VR_RENDER_:" + nameSpace;
    }
    paletteName = nameSpace + ":" + paletteName;
    descriptionName = nameSpace + ":" + descriptionName;
    patchName = nameSpace + ":" + patchName;
  }

  VrPalette* palette = VrPalette::palette(paletteName);
  if (palette && temporary && std::fabs(args.lookups[0] + args.frame - palette->frame()) >= 1e-06) {
    finishSetUps(*palette, paletteName);
    front().references.erase(paletteName);
    delete palette;
    palette = nullptr;
  }

  const bool release =
      !(callbackObject && callbackObject->getBool(Callbacks::EBoolAttribute::DontReleaseCollection));
  const bool imported = palette == nullptr;
  collectionName = release ? paletteName : std::string();
  if (imported) {
    addReference(true);
    if (!importCollection(args, paletteName, nameSpace)) {
      // Nothing half-read is kept: a later init reads the files again.
      front().references.erase(paletteName);
      collectionName.clear();
      delete VrPalette::palette(paletteName);
      return false;
    }
    palette = VrPalette::palette(paletteName);
  } else {
    addReference(false);
  }

  key = paletteName + "|" + descriptionName;
  desc = palette ? palette->description(descriptionName) : nullptr;
  if (desc && !front().setupDone.count(key)) front().setupDone[key] = false;
  if (!desc) {
    VR_ERROR("Could not find a description named " + descriptionName + " to go with the patch named " +
             patchName + ".");
  } else {
    patchObject = desc->patch(patchName);
    if (!patchObject && patchName != args.patch) {
      // Patches read from a file keep their own names inside a name space.
      patchObject = desc->patch(args.patch);
      if (patchObject) patchName = args.patch;
    }
    if (!patchObject) {
      VR_WARNING(2, "No patch with name: " + patchName + " in description: " + descriptionName);
      desc = nullptr;
    }
  }
  if (imported) {
    std::string time;
    vrutil::endTiming(timer, time);
    VR_STATS(1, "Preprocessing of " + args.file + " took " + time + ".");
  }
  return valid();
}

bool Procedural::importCollection(const Args& args, const std::string& paletteName,
                                  const std::string& nameSpace) {
  Callbacks* cb = callbackObject;
  const float open = cb ? cb->getFloat(Callbacks::EFloatAttribute::ShutterOpen) : 0.0f;
  std::vector<float> shutter;
  if (cb) {
    const unsigned size = std::min(cb->getArraySize(Callbacks::EFloatArrayAttribute::Shutter), 20u);
    const float* values = cb->getFloatArray(Callbacks::EFloatArrayAttribute::Shutter);
    if (values) shutter.assign(values, values + size);
  }
  VR_DEBUG(1, vrmsg::CatRender,
           "Importing " + std::to_string(args.lookups.size()) + " samples for " + paletteName);

  VrPalette* base = nullptr;
  for (size_t i = 0; i < args.lookups.size(); ++i) {
    VrPalette* palette = VrImport(args.file, nameSpace, static_cast<unsigned>(i));
    if (!palette) {
      VR_ERROR("No collections were imported from " + args.file);
      return false;
    }
    if (i == 0 && palette->name() != paletteName) {
      // Kept, it would be registered under a name no procedural holds a use of, and never freed.
      VR_ERROR("The collection file " + args.file + " holds the collection " + palette->name() + ", not " +
               paletteName + ".");
      delete palette;
      return false;
    }
    if (i == 0) base = palette;
    palette->setFrame(args.lookups[i] + args.frame);
    palette->setFramesPerSecond(args.fps);
    palette->setInterpolation(args.interpolation);

    const float t = shutter.empty() ? 0.0f : shutter[std::min(i, shutter.size() - 1)];
    const float time = t > open ? 1.0f / (t - open) : 0.0f;
    float matrix[16];
    for (int k = 0; k < 16; ++k) matrix[k] = (k % 5 == 0) ? 1.0f : 0.0f;
    if (cb) cb->getTransform(time, matrix);
    double widened[16];
    for (int k = 0; k < 16; ++k) widened[k] = matrix[k];
    SgXform3T<double> world(widened);
    if (args.hasWorld) world = SgXform3T<double>(args.world) * world;
    palette->setWorld(world);
    palette->setWorldInverse(inverse(world));

    if (!VrImportGeometry(args.geom, args.frame + args.placements[i], args.interpolation, args.fps))
      return false;
    if (!args.deltas.empty() && !VrApplyDeltas(palette, args.deltas))
      VR_ERROR("Failed to apply deltas to collection " + palette->name());

    for (unsigned d = 0; d < palette->numDescriptions(); ++d) {
      VrDescription* description = palette->description(d);
      if (!description) continue;
      if (auto* renderer = dynamic_cast<Renderer*>(description->activeRenderer())) {
        renderer->setCallbacks(cb);
        if (i == 0) {
          renderer->setShutter(shutter);
          renderer->setMotionSamples(args.placements);
        }
      }
      description->cleanObjects(false);
    }
  }
  (void)base;
  return true;
}

// ---------------------------------------------------------------------------------------------
// Faces and boxes

Description* Procedural::descriptionView() {
  if (!desc) return nullptr;
  if (!view) view = std::make_unique<DescriptionImpl>(desc);
  return view.get();
}

VrRenderer* Procedural::renderer() const { return desc ? rendererCast(desc->activeRenderer()) : nullptr; }

Renderer* Procedural::ownRenderer() const { return ownCast(renderer()); }

double Procedural::padding() const {
  double bound = 0.0;
  if (Renderer* own = ownRenderer()) bound = own->primitiveBound();
  return std::min(bound * 1.05, bound + 0.5);
}

bool Procedural::mergedBox(int face, double bbox[6], bool padded, int onlySample) {
  if (!desc || !patchObject) return false;
  SgBox3T<double> box;
  const unsigned samples = desc->numSamples() + 1;
  for (unsigned s = 0; s < samples; ++s) {
    if (onlySample >= 0 && static_cast<unsigned>(onlySample) != s) continue;
    VrDescription* sample = sampleDescription(desc, s);
    if (!sample) {
      if (onlySample >= 0) return false;
      break;
    }
    VrPatch* patch = sample->patch(patchName);
    if (!patch) {
      if (onlySample >= 0) return false;
      VR_ERROR("Could not find patch " + patchName + " in motion description.");
      continue;
    }
    const SgBox3T<double> part = face < 0 ? patch->boundingBox(false) : patch->boundingBox(face, false);
    if (!part.valid) continue;
    if (box.valid)
      box.unite(part);
    else
      box = part;
  }
  if (!box.valid) return false;
  const double pad = padded ? padding() : 0.0;
  const SgVec3T<double> hi = box.maxCorner();
  const double out[6] = {box.min.x - pad, hi.x + pad,      box.min.y - pad,
                         hi.y + pad,      box.min.z - pad, hi.z + pad};
  std::copy(out, out + 6, bbox);
  return true;
}

bool Procedural::nextFace(double bbox[6], unsigned& face) {
  VrRenderer* active = renderer();
  if (!desc || !patchObject) {
    face = ~0u;
    return false;
  }
  if (!active || active->typeName() != "RendermanRenderer") {
    VR_DEBUG(2, vrmsg::CatRender, "Skipping " + patchName + " since it isn't set for renderman.");
    face = ~0u;
    return false;
  }
  VR_DEBUG(2, vrmsg::CatRender, "Subdividing " + patchName);
  if (Renderer* own = ownRenderer()) own->setCallbacks(callbackObject);
  if (!VrRenderer::shadowPass() && cursor == 0) {
    readCameraAndPhase();
    if (callbackObject) {
      const std::string only = text(callbackObject->getOverride("user:vorn_inCameraOnly"));
      if (!only.empty()) active->setAttr("inCameraOnly", only, "bool");
      const std::string margin = text(callbackObject->getOverride("user:vorn_inCameraMargin"));
      if (!margin.empty()) active->setAttr("inCameraMargin", margin, "float");
    }
  }
  const bool cull = active->inCameraOnly();

  const std::vector<int>& faces = patchObject->faceIds();
  if (cursor >= faces.size()) {
    face = ~0u;
    return false;
  }
  face = static_cast<unsigned>(faces[cursor++]);
  if (!mergedBox(static_cast<int>(face), bbox, true, -1)) {
    std::fill(bbox, bbox + 6, 0.0);
    return true;
  }
  if (cull && !active->faceInCam(patchObject->boundingBox(static_cast<int>(face), false), patchObject)) {
    VR_DEBUG(2, vrmsg::CatRender,
             desc->name() + "|" + patchName + "[" + std::to_string(face) +
                 "] is not visible with primitives. Skipped for rendering.");
    std::fill(bbox, bbox + 6, 0.0);
  }
  return true;
}

bool Procedural::patchBox(double bbox[6], bool padded) { return mergedBox(-1, bbox, padded, -1); }

bool Procedural::sampleBox(double bbox[6], unsigned sample, bool padded) {
  return mergedBox(-1, bbox, padded, static_cast<int>(sample));
}

// ---------------------------------------------------------------------------------------------
// Camera, phase and description setup

void Procedural::readCameraAndPhase() {
  Callbacks* cb = callbackObject;
  if (!cb) return;
  bool ortho = false;
  SgVec3T<double> direction(0.0, 0.0, -1.0);
  double fov[2] = {90.0, 90.0};
  double ratio = 1.0;
  SgXform3T<double> camToWorld;

  const std::string cam = text(cb->getString(Callbacks::EStringAttribute::RenderCam));
  if (!cam.empty()) {
    VR_DEBUG(2, vrmsg::CatRender, "Camera token: " + cam);
    char name[256] = {0};
    double x = 0, y = 0, z = 0;
    if (std::sscanf(cam.c_str(), "%255[^,],%lf,%lf,%lf", name, &x, &y, &z) == 4)
      direction = SgVec3T<double>(x, y, z);
    ortho = std::strcmp(name, "true") == 0 || std::strcmp(name, "ortho") == 0 ||
            std::strcmp(name, "orthographic") == 0;
  } else {
    VR_ERROR("No Camera attribute found in rib.");
  }
  const std::string fovText = text(cb->getString(Callbacks::EStringAttribute::RenderCamFOV));
  if (!fovText.empty()) {
    VR_DEBUG(2, vrmsg::CatRender, "Camera FOV token: " + fovText);
    std::sscanf(fovText.c_str(), "%lf,%lf", &fov[0], &fov[1]);
  } else {
    VR_ERROR("No Camera FOV attribute found in rib.");
  }
  const std::string xform = text(cb->getString(Callbacks::EStringAttribute::RenderCamXform));
  if (!xform.empty()) {
    VR_DEBUG(2, vrmsg::CatRender, "Camera Transform token: " + xform);
    const std::vector<std::string> items = splitItems(xform, false);
    if (items.size() == 16) {
      double values[16];
      for (int k = 0; k < 16; ++k) values[k] = std::atof(items[static_cast<size_t>(k)].c_str());
      camToWorld = SgXform3T<double>(values);
    }
  } else {
    VR_ERROR("No Camera Xform attribute found in rib.");
  }
  const std::string ratioText = text(cb->getString(Callbacks::EStringAttribute::RenderCamRatio));
  if (!ratioText.empty()) {
    VR_DEBUG(2, vrmsg::CatRender, "Camera Ratio token: " + ratioText);
    std::sscanf(ratioText.c_str(), "%lf", &ratio);
  } else {
    VR_ERROR("No Camera Ratio attribute found in rib.");
  }

  const std::string phase = text(cb->getString(Callbacks::EStringAttribute::Phase));
  VR_DEBUG(2, vrmsg::CatRender, "user:phase: " + phase);
  const bool shadow = phase == "Shadow";
  VrRenderer::setCamIsOrtho(ortho);
  VrRenderer::setCamDir(direction);
  VrRenderer::setCamFOV(fov[0] * 0.017453292519943295 * 0.5, fov[1] * 0.017453292519943295 * 0.5);
  VrRenderer::setCamInverseXform(inverse(camToWorld));
  VrRenderer::setCamRatio(ratio);
  if (!shadow) {
    VrRenderer::setRealCamDir(direction);
    VrRenderer::setRealCamIsOrtho(ortho);
  }
  if (shadow) {
    VR_DEBUG(2, vrmsg::CatRender, "Shadow phase render.");
    VrRenderer::setShadowPass(true);
    std::string generator = text(cb->getString(Callbacks::EStringAttribute::Generator));
    VR_DEBUG(2, vrmsg::CatRender, "user:generator: " + generator);
    if (generator.empty()) generator = "undefined";
    const float blur = cb->getFloat(Callbacks::EFloatAttribute::ShadowMotionBlur);
    VR_DEBUG(3, vrmsg::CatRender, "user:shadowMotionBlur: " + number(blur));
    VrRenderer::setMotionBlurShadows(blur != 0.0f);
  } else {
    VR_DEBUG(2, vrmsg::CatRender, "Color phase render.");
    VrRenderer::setShadowPass(false);
  }
}

std::vector<VrObject*> Procedural::objectsOf(const std::string& kind) const {
  std::vector<VrObject*> objects;
  if (!desc) return objects;
  for (unsigned s = 0; s <= desc->numSamples(); ++s) {
    VrDescription* sample = sampleDescription(desc, s);
    if (!sample) break;
    VrObject* object = nullptr;
    if (kind == "primitive")
      object = sample->activePrimitive();
    else if (kind == "generator")
      object = sample->activeGenerator();
    else if (kind == "renderer")
      object = sample->activeRenderer();
    else if (kind == "description")
      object = sample;
    else if (kind == "palette")
      object = sample->palette();
    if (object) objects.push_back(object);
  }
  return objects;
}

bool Procedural::applyOverride(const std::string& name, const std::string& kind, bool flag) {
  if (!callbackObject) return false;
  std::string attr = name;
  const size_t scale = attr.find("Scale");
  if (scale != std::string::npos) attr.erase(scale, 5);
  const std::string lookup = kind == "palette" ? "custom_float_" + name : "user:vorn_" + name;
  const std::string value = text(callbackObject->getOverride(lookup.c_str()));
  if (value.empty()) return false;
  VR_DEBUG(2, vrmsg::CatRender, "Modifying attribute [" + name + "] " + "to " + value);

  const bool original =
      value.find('$') != std::string::npos && value.find("$originalExpr") != std::string::npos;
  if (original && flag && kind == "primitive" && (attr == "length" || attr == "width" || attr == "depth")) {
    const std::string variable = attr == "length" ? "$cLength" : attr == "width" ? "$cWidth" : "$cDepth";
    const std::string replaced = replaceAll(value, "$originalExpr", variable);
    const std::string expression = "(" + variable + ">0)?((" + replaced + ")/" + variable + "):0";
    for (VrObject* object : objectsOf(kind)) object->setAttr(attr + "Scale", expression, "float");
    return true;
  }
  for (VrObject* object : objectsOf(kind)) {
    std::string old;
    object->getAttr(attr, old);
    object->setAttr(attr, replaceAll(value, "$originalExpr", "(" + old + ")"), "float");
  }
  return true;
}

void Procedural::applyLodPair(const char* name, int key) {
  const auto which = static_cast<Callbacks::EFloatArrayAttribute>(key);
  const float* values = callbackObject->getFloatArray(which);
  if (!values) return;
  const unsigned size = callbackObject->getArraySize(which);
  if (size != 2) {
    VR_ERROR("User attribute " + std::string(name) + " has invalid size (" + std::to_string(size) + "!=2).");
    return;
  }
  for (VrObject* object : objectsOf("primitive")) {
    object->setAttr(std::string(name) + "Lower", number(values[0]), "float");
    object->setAttr(std::string(name) + "Upper", number(values[1]), "float");
  }
}

void Procedural::applyDensityFalloff() {
  const float* values = callbackObject->getFloatArray(Callbacks::EFloatArrayAttribute::DensityFalloff);
  if (!values) return;
  const unsigned size = callbackObject->getArraySize(Callbacks::EFloatArrayAttribute::DensityFalloff);
  if (size != 7) {
    VR_ERROR("User attribute vorn_densityFalloff has invalid size (" + std::to_string(size) + "!=7).");
    return;
  }
  for (VrObject* generator : objectsOf("generator")) {
    std::string mask;
    if (!generator->getAttr("mask", mask)) {
      VR_WARNING(2, "No \"mask\" attribute is found in generator " + generator->name() +
                        ". Ribbox vorn_densityFalloff is ignored.");
      continue;
    }
    const int selector = static_cast<int>(values[5]);
    const char* step = selector == 1 ? "smoothstep" : selector == 2 ? "gaussstep" : "linearstep";
    const std::string expression = "$distToLoc = length($Pg-[" + number(values[0]) + "," + number(values[1]) +
                                   "," + number(values[2]) + "]);\\n" + "$radA = " + number(values[3]) +
                                   ";\\n" + "$radB = " + number(values[4]) + ";\\n" + "(1.0 - (" + step +
                                   "($distToLoc,$radA,$radB)))" + ")*(" + mask + "\\n)";
    generator->setAttr("mask", expression, "float");
  }
}

void Procedural::setupDescription() {
  FrontState& state = front();
  if (callbackObject && callbackObject->getBool(Callbacks::EBoolAttribute::ClearDescriptionCache))
    state.setupDone.clear();
  auto found = state.setupDone.find(key);
  if (found != state.setupDone.end() && found->second) return;
  long long timer = 0;
  vrutil::beginTiming(timer);
  VR_DEBUG(1, vrmsg::CatRender, "Setting up " + key);
  readCameraAndPhase();
  for (VrObject* object : objectsOf("primitive"))
    static_cast<VrPrimitive*>(object)->transformGuidesToSurface();

  VrRenderer* active = renderer();
  Renderer* own = ownRenderer();
  if (callbackObject) {
    if (vrutil::stob(text(callbackObject->getString(Callbacks::EStringAttribute::CacheInUse)))) {
      for (VrObject* object : objectsOf("primitive")) {
        bool after = false;
        for (VrFXModule* module : static_cast<VrPrimitive*>(object)->modules()) {
          if (after) module->setActive(false);
          if (module->typeName() == "BakedGroomManagerFXModule") after = true;
        }
      }
    }
    const std::string method = text(callbackObject->getString(Callbacks::EStringAttribute::RenderMethod));
    if (own && method == "DRA") own->setRenderMethod(1);
    if (own && method == "DSO") own->setRenderMethod(2);

    if (!applyOverride("lengthScale", "primitive", true)) applyOverride("length", "primitive", true);
    if (!applyOverride("widthScale", "primitive", true)) applyOverride("width", "primitive", true);
    if (!applyOverride("depthScale", "primitive", true)) applyOverride("depth", "primitive", true);
    applyOverride("taperScale", "primitive", true);
    applyLodPair("lodHi", 1);
    applyLodPair("lodMed", 3);
    applyLodPair("lodLo", 2);
    applyOverride("cullExpr", "generator", false);
    if (!applyOverride("maskScale", "generator", false) && !applyOverride("mask", "generator", false))
      applyDensityFalloff();
    if (!applyOverride("densityScale", "generator", false)) applyOverride("density", "generator", false);
    if (!applyOverride("offsetScale", "generator", false)) applyOverride("offset", "generator", false);
    if (!applyOverride("percentScale", "renderer", false)) applyOverride("percent", "renderer", false);
    applyOverride("inCameraOnly", "renderer", false);
    applyOverride("inCameraMargin", "renderer", false);
    for (const char* name :
         {"lodFlag", "averageWidth", "pixelFadeSize", "pixelCullSize", "minDensity", "maxWidthRatio"})
      applyOverride(name, "description", false);
  }

  std::string directory = "vornCache/";
  const std::string cacheDir =
      callbackObject ? text(callbackObject->getString(Callbacks::EStringAttribute::CacheDir)) : "";
  if (!cacheDir.empty()) {
    directory = vrutil::validPath(cacheDir);
    VR_DEBUG(2, vrmsg::CatRender, "user:vornCache: " + cacheDir);
  }
  std::string phase = "color";
  if (VrRenderer::shadowPass() && callbackObject) {
    phase = text(callbackObject->getString(Callbacks::EStringAttribute::Generator));
    if (phase.empty()) phase = "undefined";
  }
  if (own) {
    own->setFileName(directory + phase + ".rib");
    own->setCallbacks(callbackObject);
  }
  if (active) active->initDescription();
  state.setupDone[key] = true;
  std::string time;
  vrutil::endTiming(timer, time);
  VR_STATS(1, "Setup for " + key + " took " + time + ".");
}

// ---------------------------------------------------------------------------------------------
// Rendering

void Procedural::handleFace() {
  if (!desc) {
    VR_ERROR("Procedural::handleFace was given an invalid Description.");
    return;
  }
  if (!desc->palette()) {
    VR_ERROR("Procedural::handleFace was given a Description with an invalid Palette.");
    return;
  }
  VR_DEBUG(3, vrmsg::CatRender, "Rendering " + patchName + "[" + std::to_string(faceIndex) + "]");
  VrRenderer* active = renderer();
  if (!active) return;
  Renderer* own = ownRenderer();
  if (own) own->setCallbacks(callbackObject);
  setupDescription();
  if (own) own->setCallbacks(callbackObject);
  active->render(faceIndex, patchName);
  reportFaceDone();
}

void Procedural::reportFaceDone() const {
  if (!callbackObject || faceIndex < 0) return;
  const size_t colon = patchName.rfind(':');
  callbackObject->faceDone(colon == std::string::npos ? patchName.c_str() : patchName.c_str() + colon + 1,
                           static_cast<unsigned>(faceIndex));
}

bool Procedural::canRunInParallel() const {
  VrRenderer* active = renderer();
  auto* generator = desc ? dynamic_cast<VrGenerator*>(desc->activeGenerator()) : nullptr;
  return VrTaskManager::multithreadingEnabled() && desc && desc->activePrimitive() && generator &&
         generator->canRunInParallel() && active && active->canRunInParallel();
}

void Procedural::handleParallel(const std::vector<Procedural*>& faces, int threads, int grain) {
  if (!desc) {
    VR_ERROR("Procedural::handleParallel was given an invalid Description.");
    return;
  }
  if (!desc->palette()) {
    VR_ERROR("Procedural::handleParallel was given a Description with an invalid Palette.");
    return;
  }
  for (unsigned s = 0; s < desc->numSamples(); ++s) {
    VrDescription* sample = desc->sample(s);
    if (!sample) {
      VR_ERROR("Bad motion description set up.");
      return;
    }
    if (!sample->patch(patchName)) {
      VR_ERROR("Could not find patch " + patchName + " in motion description.");
      return;
    }
  }
  char count[32];
  std::snprintf(count, sizeof(count), "parallel..[%1d]", static_cast<int>(faces.size()));
  VR_DEBUG(3, vrmsg::CatRender, "Rendering " + patchName + count);
  setupDescription();

  VrRenderer* active = renderer();
  auto* generator = dynamic_cast<VrGenerator*>(desc->activeGenerator());
  VrPrimitive* primitive = desc->activePrimitive();
  if (!active || !generator || !primitive) return;

  std::unique_ptr<tbb::global_control> limit;
  if (threads > 0)
    limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                  static_cast<size_t>(threads));
  const bool wasMultithreaded = VrTaskManager::seExprMultithreading();
  VrTaskManager::setSeExprMultithreading(true);
  // A worker takes this many faces at a time: enough to keep the shared counter quiet, few enough
  // that faces finish close to queue order.
  const size_t chunk = grain > 0 ? static_cast<size_t>(grain)
                                 : std::clamp<size_t>(VrTaskManager::taskGrainSize(faces.size()), 1, 8);

  const int samples = active->numSamples();
  std::vector<VrPrimitive*> primitives;
  for (int s = 0; s < samples; ++s) {
    VrDescription* sample = sampleDescription(desc, static_cast<unsigned>(s));
    VrPrimitive* samplePrimitive = sample ? sample->activePrimitive() : nullptr;
    if (!samplePrimitive) break;
    samplePrimitive->context().setActivePatchFace(sample->patch(patchName), 0);
    samplePrimitive->initModules();
    primitives.push_back(samplePrimitive);
  }
  generator->initGenerator();
  active->setRendering(true);

  // Each worker sets its contexts up once and then takes the next `chunk` faces in queue order
  // until none are left: faces finish close to queue order, which lets a plug-in write them in
  // order from a small window, and the result does not depend on who rendered which face.
  const int arenaThreads = static_cast<int>(VrTaskManager::threadCount());
  tbb::task_arena arena(arenaThreads > 0 ? arenaThreads : tbb::task_arena::automatic, 1);
  const int workers = std::max(1, std::min(threads > 0 ? threads : arena.max_concurrency(), arena.max_concurrency()));
  std::atomic<size_t> next{0};
  auto work = [&](int) {
    std::unique_ptr<VrRendererContext> record = active->newRendererContext();
    std::unique_ptr<VrGeneratorContext> generatorRecord = generator->newGeneratorContext();
    std::vector<std::unique_ptr<VrPrimitiveContext>> contexts;
    for (VrPrimitive* samplePrimitive : primitives) {
      contexts.push_back(samplePrimitive->cloneContext(samplePrimitive->context()));
      contexts.back()->clearSamples();
      contexts.back()->setRendererContext(record.get());
      contexts.back()->setGeneratorContext(generatorRecord.get());
    }
    if (contexts.empty()) return;
    VrPrimitiveContext& context = *contexts[0];
    for (size_t s = 1; s < contexts.size(); ++s) context.addSample(contexts[s].get());
    VrExpression::initTLS(&context);
    active->initDescriptionInParallel(context);
    auto* own = dynamic_cast<Renderer2::Context*>(record.get());
    for (size_t begin = next.fetch_add(chunk); begin < faces.size(); begin = next.fetch_add(chunk)) {
      const size_t end = std::min(faces.size(), begin + chunk);
      for (size_t i = begin; i != end; ++i) {
        if (own) {
          own->callbacks = faces[i]->callbackObject;
          own->userData = faces[i];
        }
        active->renderInParallel(context, faces[i]->faceIndex, patchName);
        faces[i]->reportFaceDone();
      }
    }
    active->reduceContext(*record, patchName, false);
    active->accumlateTotalEmitCount(static_cast<unsigned>(record->totalCount()));
    active->finishDescriptionInParallel(context);
    VrExpression::clearTLS();
  };
  arena.execute([&] {
    tbb::parallel_for(tbb::blocked_range<int>(0, workers, 1),
                      [&](const tbb::blocked_range<int>& slots) {
                        for (int slot = slots.begin(); slot != slots.end(); ++slot) work(slot);
                      },
                      tbb::simple_partitioner());
  });

  active->setRendering(false);
  for (VrPrimitive* samplePrimitive : primitives) samplePrimitive->finishModules();
  generator->finishGenerator();
  VrTaskManager::setSeExprMultithreading(wasMultithreaded);
  VrExpression::clearPtexs();
}

void Procedural::deleteTempRenderPalettes() {
  std::vector<std::string> names;
  const VrDict<VrPalette*>& palettes = VrPalette::palettes();
  for (auto it = palettes.begin(); it != palettes.end(); ++it)
    if (it.key().compare(0, 10, "VR_RENDER_") == 0) names.push_back(it.key());
  FrontState& state = front();
  for (const std::string& name : names) {
    const std::string prefix = name + "|";
    for (auto it = state.setupDone.begin(); it != state.setupDone.end();)
      it = it->first.compare(0, prefix.size(), prefix) == 0 ? state.setupDone.erase(it) : std::next(it);
    state.references.erase(name);
    delete VrPalette::palette(name);
  }
  // The frame's geometry goes too: patches hold their own uses of the surfaces they are bound to,
  // and the next frame reads its geometry afresh anyway. Kept, the last frame's surfaces would
  // outlive the plug-in (and show as leaked at exit).
  VrResetImportGeometry();
}

}  // namespace VornRenderAPI
