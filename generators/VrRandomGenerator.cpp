#include "generators/VrRandomGenerator.h"

#include "io/ptex/VrPtexTexture.h"
#include "io/vpd/VpdReader.h"

#include "base/VrMessage.h"
#include "base/vrutilCodec.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "document/vrutilFiles.h"
#include "expressions/VrSeExprHash.h"
#include "geometry/VrPatch.h"
#include "geometry/vrutilSamples.h"
#include "primitives/VrPrimitive.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace {

// Past this many table points on one face the table is tiled: a warning.
constexpr unsigned tilingWarningLimit = 5 * 32768;
// Past this many the tiling shows: the face stops, and surface compensation is left out beyond.
constexpr unsigned tilingLimit = 19 * 32768;

constexpr const char* dcMapExpression = "map(\"DC/\")";

// Truncation towards zero that saturates instead of overflowing.
int64_t truncate64(double x) {
  if (!(x == x)) return 0;
  if (x >= 9.2e18) return std::numeric_limits<int64_t>::max();
  if (x <= -9.2e18) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(x);
}

int32_t truncate32(double x) {
  const int64_t wide = truncate64(x);
  return static_cast<int32_t>(std::clamp<int64_t>(wide, std::numeric_limits<int32_t>::min(),
                                                  std::numeric_limits<int32_t>::max()));
}

// Rounded to five decimals, halves away from zero.
double roundToFiveDecimals(double x) {
  return x > 0.0 ? std::floor(x * 100000.0 + 0.5) / 100000.0 : -std::floor(0.5 - x * 100000.0) / 100000.0;
}

double clamp01(double x) { return std::min(1.0, std::max(0.0, x)); }

std::string sevenFive(double x) {
  char text[64];
  std::snprintf(text, sizeof text, "%7.5f", x);
  return text;
}

struct MaskWarning {
  const char* plain;
  const char* reference;
  const char* text;
};

// Point forms have no meaning while locations are chosen: the primitive has no geometry yet.
constexpr MaskWarning maskWarnings[] = {
    {"P", "Pref", "Use of $P or $Pref is not recommended in RandomGenerator mask. Use $Pg or $Prefg instead. ["},
    {"Pw", "Prefw",
     "Use of $Pw or $Prefw is not recommended in RandomGenerator mask. Use $Pgw or $Prefgw instead. ["},
    {"N", "Nref", "Use of $N or $Nref is not recommended in RandomGenerator mask. Use $Ng or $Nrefg instead. ["},
    {"dPdu", "dPduref",
     "Use of $dPdu or $dPduref is not recommendedin RandomGenerator mask. Use $dPdug or $dPdurefg instead. ["},
    {"dPdv", "dPdvref",
     "Use of $dPdv or $dPdvref is not recommendedin RandomGenerator mask. Use $dPdvg or $dPdvrefg instead. ["},
};

}  // namespace

VrRandomGenerator::VrRandomGenerator(VrDescription* description)
    : VrVpdReadingGenerator(description),
      maskExpr("mask", "RandomGenerator", description, "1.0", "float"),
      dcExpr("dcExprInternal", "RandomGenerator", description, "1.0", "float"),
      roundOffExpr("roundOffInternal", "RandomGenerator", description, "rand()", "float") {
  setAttr("density", "1.0", "float");
  setAttr("mask", "1.0 # map('${DESC}/density/')", "expr");
  setAttr("dcFlag", "false", "bool");
  setAttr("scFlag", "true", "bool");
  setAttr("usePoints", "false", "bool");
  setAttr("pointDir", "${DESC}/Points/", "string");
  setAttr("ptLength", "1.0", "float");
}

VrRandomGenerator::~VrRandomGenerator() = default;

bool VrRandomGenerator::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                const std::string& enumStrings) {
  if (VrVpdReadingGenerator::setAttr(name, value, type, enumStrings)) return true;

  if (name == "density") {
    double parsed = 0.0;
    const bool ok = floatAttr(name, value, parsed);
    densityValue = parsed > 1e-6 ? parsed : 1e-6;
    return ok;
  }
  if (name == "mask") {
    maskExpr.setExpression(value);
    warnAboutMask();
    return true;
  }
  if (name == "dcFlag") {
    const bool ok = boolAttr(name, value, dcOn);
    dcExpr.setExpression(dcOn ? dcMapExpression : "1.0");
    return ok;
  }
  if (name == "scFlag") return boolAttr(name, value, scOn);
  if (name == "usePoints") return boolAttr(name, value, pointsOn);
  return setPointFileAttr(name, value, pointDirectory);
}

void VrRandomGenerator::warnAboutMask() const {
  if (VRWarningLevel < 2) return;
  // The variables of a text are known once it is bound. A separate parse does it, so that the
  // mask itself is bound at its first use, when collection expressions it calls may exist.
  const VrExpression probe(maskExpr.name(), "RandomGenerator", description(), maskExpr.expression(), "float");
  if (!probe.isValid()) return;
  for (const MaskWarning& warning : maskWarnings)
    if (probe.usesVar(warning.plain) || probe.usesVar(warning.reference))
      VR_WARNING(2, warning.text + maskExpr.name() + "]");
}

void VrRandomGenerator::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrVpdReadingGenerator::getExternalContext(pairs, prefix);
  maskExpr.getExternalContext(pairs, prefix + "mask");
  dcExpr.getExternalContext(pairs, prefix + "densityCompensate ");
  if (pointsOn)
    VrVpdGeneratorContext::listFiles(pairs, prefix + "Point", VrVpdGeneratorContext::pointFiles, pointDirectory,
                                     description());
}

std::unique_ptr<VrGeneratorContext> VrRandomGenerator::newGeneratorContext() const {
  return std::make_unique<VrRandomGeneratorContext>();
}

void VrRandomGenerator::genPrimitives(int face, const std::vector<VrPatch*>& patches, double start,
                                      double percent) {
  if (primitive) genPrimitivesInParallel(primitive->context(), face, patches, start, percent);
}

void VrRandomGenerator::genPrimitivesInParallel(VrPrimitiveContext& context, int face,
                                                const std::vector<VrPatch*>& patches, double start,
                                                double percent) {
  if (patches.empty() || !patches[0]) return;
  scatter(context, face, patches, start, percent);
  if (!pointsOn) return;
  if (VrVpdGeneratorContext* state = fileState(context)) points(*state, context, face, patches, percent);
}

double VrRandomGenerator::surfaceCompensation(const VrPatch& patch, int face) const {
  if (!scOn || !patch.isBound()) return 1.0;
  const double limit = scTolerance + 1.0001;
  const double alongU = patch.lengthV(0.5, face);
  const double alongV = patch.lengthU(0.5, face);
  const double x = std::min(scMax, std::max(1.0 / scMax, alongU / alongV));
  if (!(x == x)) return 1.0;  // a face without length either way
  return x >= 1.0 / limit && x <= limit ? 1.0 : x;
}

double VrRandomGenerator::dcMax(const std::string& geometry, int face) const {
  std::string found;
  if (!vrutil::findFileInVrDataPath(found, "DC/" + vrutil::stripNameSpace(geometry) + ".ptx", geometry,
                                    description(), "", true))
    return 1.0;
  // The map was normalised when it was written: "VrDCMax" keeps each face's greatest value.
  const std::shared_ptr<VrPtexTexture> map = VrExpression::getPtex(found);
  if (!map) return 1.0;
  if (map->metaData().numKeys() == 0) {
    VR_ERROR("No meta data in " + found + " so cant resolve dcMax");
    return 1.0;
  }
  std::vector<double> maxima;
  if (!map->metaData().getNumbers("VrDCMax", maxima)) return 1.0;
  if (face < 0 || maxima.size() <= static_cast<size_t>(face)) {
    VR_ERROR("Invalid dcMax in density compensation map " + found);
    return 1.0;
  }
  return maxima[static_cast<size_t>(face)];
}

void VrRandomGenerator::scatter(VrPrimitiveContext& context, int face, const std::vector<VrPatch*>& patches,
                                double start, double percent) {
  const VrPatch& patch = *patches[0];
  const std::string& name = patch.name();
  VrDescription* desc = description();
  static const std::string noName;
  const std::string& descName = desc ? desc->name() : noName;

  // How many: area times density, the fraction rounded up or down by a value hashed from the
  // face, so that many small faces together reach the right total.
  const double area = patch.area(face);
  // A density past any count the table can hold becomes the largest count: the face then runs
  // into the tiling warnings below instead of wrapping to nothing.
  double samples = std::min(area * densityValue, static_cast<double>(std::numeric_limits<int32_t>::max() - 1));
  const double fraction = samples - static_cast<double>(truncate32(samples));
  const bool roundedUp = fraction > roundOffExpr.eval(0.0, 0.0, face, &name).x;
  if (roundedUp) samples += 1.0;
  if (dcOn && dcExpr.expression() != "1.0") samples = std::floor(dcMax(name, face) * samples);
  const double rounded = roundToFiveDecimals(samples);

  const int64_t count = truncate64(rounded * percent);
  if (static_cast<uint32_t>(count) == 0) {
    if (VRStatsLevel >= 3)
      vrmessage(vrmsg::Stats | vrmsg::CatGenerator | 3, "", 0,
                descName + "|" + name + "[" + std::to_string(face) + "] 0 emitted (max=0 density=" +
                    sevenFive(densityValue) + " area=" + sevenFive(area) + ")");
    return;
  }

  const double sc = surfaceCompensation(patch, face);
  // The face's table set and flip; the same key seeds rand() on this face.
  const unsigned descriptionId = desc ? desc->descriptionId() : 0;
  double key[3] = {static_cast<double>(descriptionId),
                   static_cast<double>(vrutil::hashString(vrutil::stripNameSpace(name))),
                   static_cast<double>(face)};
  const unsigned set = static_cast<unsigned>(truncate32(vrSeExprHash(3, key) * 1600.0));
  const unsigned flip = descriptionId;
  const bool regionActive = renderRegionCheck();
  const bool serial = isSerialContext(context);

  const double step = 1.0 / rounded;
  const int32_t startIndex = truncate32(rounded * start);
  const int32_t all = truncate32(rounded);
  const int32_t last = static_cast<int32_t>(std::min<int64_t>(
      static_cast<int64_t>(startIndex) + static_cast<int32_t>(count), static_cast<int64_t>(all)));

  unsigned k = 0;     // table index
  unsigned tried = 0; // table points read with surface compensation on
  unsigned emitted = 0;
  unsigned dcEvaluations = 0;
  int32_t i = 0;      // accepted points
  double f = 0.0;     // i / rounded: the share of the face's points before this one
  bool warned = false;
  while (i < last) {
    double u = 0.0, v = 0.0;
    vrutil::getSample(k, flip, set, u, v);
    if (scOn) {
      ++tried;
      if (k < tilingLimit) {
        if (sc < 1.0)
          u /= sc;
        else
          v *= sc;
      }
    }
    ++k;
    if (u > 1.0 || v > 1.0) continue;  // outside the stretched square

    if (!warned && k > tilingWarningLimit) {
      VR_WARNING(2, "WARNING:  You have generated over 163840 primitives on a single face. This means Vorn is "
                    "having to reuse and tile it's samples. It is recommended you carve up the face to prevent "
                    "this from happening. [" +
                        (desc && desc->palette() ? desc->palette()->name() : std::string()) + "," + descName +
                        "," + name + "(" + std::to_string(face) + ")]");
      warned = true;
    }
    if (k > tilingLimit) {
      VR_WARNING(1, "WARNING: You have exceeded the number of samples Vorn can tile without noticable tiling "
                    "artifacts. [" +
                        (desc && desc->palette() ? desc->palette()->name() : std::string()) + "," + descName +
                        "," + name + "(" + std::to_string(face) + ")]");
      break;
    }

    // Every accepted table point has an id, whether it becomes a primitive or not.
    context.incrId();
    if (i >= startIndex) {
      if (regionActive && !validRenderRegion(u, v, face, name)) {
        VR_DEBUG(5, vrmsg::CatGenerator,
                 "Primitive " + descName + "|" + name + "[" + std::to_string(face) + "] " +
                     std::to_string(context.id()) + "is culled for region preview.");
      } else {
        double m = clamp01(maskExpr.eval(u, v, face, &name).x);
        if (dcOn) {
          ++dcEvaluations;
          m = clamp01(m * dcExpr.eval(u, v, face, &name).x);
        }
        // The mask keeps the first share m of the face's points.
        if (f < m && (serial ? emitIfOk(u, v, face, patches) : emitIfOkInParallel(context, u, v, face, patches)))
          ++emitted;
      }
    }
    ++i;
    f += step;
  }
  // Ids on a face do not depend on the window, the mask or the tiling.
  context.setId(static_cast<unsigned>(truncate64(rounded)));

  if (VRStatsLevel >= 3)
    vrmessage(vrmsg::Stats | vrmsg::CatGenerator | 3, "", 0,
              descName + "|" + name + "[" + std::to_string(face) + "] " + std::to_string(emitted) +
                  " emitted (max=" + std::to_string(count) + " density=" + sevenFive(densityValue) +
                  " area=" + sevenFive(area) + " group=" + std::to_string(set) +
                  " rounded=" + (roundedUp ? "1" : "0") + " samples=" + std::to_string(k) +
                  " sc=" + std::to_string(tried) + " dc=" + std::to_string(dcEvaluations) + "), " +
                  std::to_string(culledOnFace(context)) + " culled.");
}

void VrRandomGenerator::points(VrVpdGeneratorContext& state, VrPrimitiveContext& context, int face,
                               const std::vector<VrPatch*>& patches, double percent) {
  VpdReader* reader = state.readerForFace(VrVpdGeneratorContext::pointFiles, Vpd::PointPrimitive, pointDirectory,
                                          patches[0]->name(), description(), face);
  if (!reader) return;
  const unsigned culledBefore = culledOnFace(context);
  const std::uint64_t inFile = reader->numPrims();
  // The points count on from the scatter's ids.
  const unsigned generated = offerRecordLocations(context, *reader, false, 0.0, percent, face, patches);
  if (!reader->error().empty()) {
    VR_ERROR(reader->error());
    state.setErrOccurred();
  }
  if (VRStatsLevel >= 3)
    vrmessage(vrmsg::Stats | vrmsg::CatGenerator | 3, "", 0,
              std::to_string(inFile) + " points in file, " + std::to_string(generated) + " generated, " +
                  std::to_string(culledOnFace(context) - culledBefore) + " culled.");
}
