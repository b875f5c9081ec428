// The collision module. Every resolution is a search along one family of shapes, from the
// spline as built (s = 0) to shapes farther and farther out: rotations about the root or about
// a CV by a growing angle, or blends towards a wire. The search steps out until a shape is
// clear of the mesh, then halves the last step until it is within the tolerance, always ending
// on a clear shape; each shape tested counts as one try of the `iterations` budget. Shapes are
// made from the spline as built, not from the previous try, so rounding does not pile up.

#include "fxmodules/VrCollisionFXModule.h"

#include "base/VrMessage.h"
#include "base/vrutilName.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "fxmodules/VrFXCollisionMesh.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

using Vec = SgVec3T<double>;
using Points = std::vector<Vec>;

constexpr double LengthEpsilon = 0.0001;
constexpr double AxisEpsilon = 0.0001;
// The first step of a rotation search, and the smallest and largest it may be (radians).
constexpr double LargestStep = 0.175;
constexpr double SmallestStep = 0.01;
// A search ends once the clear and the blocked shape are this close.
constexpr double AngleTolerance = 0.002;
constexpr double BlendTolerance = 1.0 / 1024.0;

// v rotated by `angle` about the unit `axis` through `pivot`.
Vec rotated(const Vec& p, const Vec& pivot, const Vec& axis, double angle) {
  const Vec v = p - pivot;
  const double c = std::cos(angle), s = std::sin(angle);
  return pivot + v * c + axis.cross(v) * s + axis * (axis.dot(v) * (1.0 - c));
}

bool anyInside(const TzBoundingTree& tree, const Points& P, size_t first, size_t last) {
  for (size_t i = first; i <= last && i < P.size(); ++i)
    if (tree.inside(P[i])) return true;
  return false;
}

// The angle and axis that turn the direction pivot->p onto pivot->s; false when they are
// (nearly) parallel.
bool turnTowards(const Vec& pivot, const Vec& p, const Vec& s, double& angle, Vec& axis) {
  const Vec a = p - pivot, b = s - pivot;
  const double la = a.length(), lb = b.length();
  if (la <= 0.0 || lb <= 0.0) return false;
  angle = std::acos(std::clamp(a.dot(b) / (la * lb), -1.0, 1.0));
  axis = a.cross(b);
  return axis.normalize() >= AxisEpsilon;
}

// The search of the file's header: `shape(s, P)` writes the shape at s into P, `clear(P)`
// tests it. Steps out by `step` up to `far` (unbounded when far is infinite), then halves down
// to `tolerance`. On success P holds the nearest clear shape found; otherwise the last tried.
template <class Shape, class Clear>
bool searchOut(double step, double far, double tolerance, int& budget, Points& P, Shape shape, Clear clear) {
  double blocked = 0.0, free = -1.0;
  while (budget > 0 && blocked < far) {
    const double s = std::min(blocked + step, far);
    shape(s, P);
    --budget;
    if (clear(P)) {
      free = s;
      break;
    }
    blocked = s;
  }
  if (free < 0.0) return false;
  while (budget > 0 && free - blocked > tolerance) {
    const double s = 0.5 * (blocked + free);
    shape(s, P);
    --budget;
    if (clear(P))
      free = s;
    else
      blocked = s;
  }
  shape(free, P);
  return true;
}

}  // namespace

// ---------------------------------------------------------------------------------------------

VrCollisionFXModuleContext::VrCollisionFXModuleContext() = default;
VrCollisionFXModuleContext::~VrCollisionFXModuleContext() = default;

std::unique_ptr<VrFXModuleContext> VrCollisionFXModuleContext::clone() const {
  auto copy = std::make_unique<VrCollisionFXModuleContext>();
  copy->curves = curves;
  return copy;
}

VrCollisionFXModule::VrCollisionFXModule(VrDescription* description)
    : VrFXModule(description), iterations("iterations", "CollisionFXModule", description, "50") {
  setAttr("name", "Collision", "string");
  setAttr("active", "true", "bool");
  setAttr("mask", "1.0", "expr");
  setAttr("resolveType", "0", "enum", "flexible:stiff:wireFlex:wireStiff");
  setAttr("meshFile", "${DESC}/${FXMODULE}/mesh.abc", "string");
  setAttr("iterations", "50", "expr");
  setAttr("popBake", "false", "bool");
}

bool VrCollisionFXModule::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                  const std::string& enumStrings) {
  if (VrFXModule::setAttr(name, value, type, enumStrings)) return true;
  if (name == "resolveType") return intAttr(name, value, resolve);
  if (name == "meshFile") {
    meshFile = value;
    return true;
  }
  if (name == "iterations") {
    iterations.set(value);
    return true;
  }
  if (name == "popBake") return boolAttr(name, value, popBake);
  return false;
}

void VrCollisionFXModule::getExternalContext(ExternalContext& pairs, const std::string& prefix) const {
  VrFXModule::getExternalContext(pairs, prefix);
  iterations.expr.getExternalContext(pairs, prefix + "iterations");
}

std::unique_ptr<VrFXModuleContext> VrCollisionFXModule::createModuleContext() const {
  return std::make_unique<VrCollisionFXModuleContext>();
}

void VrCollisionFXModule::initDescription(VrPrimitive* owner) {
  VrFXModule::initDescription(owner);
  tree.reset();
  if (!isActive()) return;
  tree = VrLoadCollisionMesh(*this, meshFile);
  if (!tree) return;
  if ((resolve == WireFlex || resolve == WireStiff) && !wireDependencyHolds())
    deactivate("Dependency check fails. ");
}

void VrCollisionFXModule::finishDescription() { tree.reset(); }

bool VrCollisionFXModule::wireDependencyHolds() {
  const VrPrimitive* owner = primitive();
  if (!owner) return false;
  bool anyWires = false, serving = false;
  for (const VrFXModule* module : owner->modules()) {
    if (module->typeName() != "AnimWiresFXModule") continue;
    anyWires = true;
    std::string value;
    const bool affects = module->getAttr("affectCollision", value) && (value == "true" || value == "1");
    if (module->moduleIndex() < moduleIndex() && module->isActive() && affects) serving = true;
  }
  if (!anyWires)
    VR_ERROR(
        "The collision module is dependent on AnimWires module for wire guided method, but no AnimWires modules "
        "are found in the fx chain. " +
        messageTag());
  else if (!serving)
    VR_ERROR(
        "The collision module is dependent on an AnimWires module above it for wire guided method. Either "
        "AnimWires module is inactive or deactivated from errors, or does not have the \"affectCollision\" option "
        "checked. " +
        messageTag());
  return serving;
}

std::string VrCollisionFXModule::recordFile(const VrPatch* patch, int face) const {
  const VrDescription* desc = description();
  const VrPalette* palette = desc ? desc->palette() : nullptr;
  char tail[64];
  std::snprintf(tail, sizeof tail, "/face%05d/frame%05.0f.txt", face, palette ? palette->frame() : 0.0);
  return "${DESC}/${FXMODULE}/" + (patch ? vrutil::stripNameSpace(patch->name()) : std::string()) + tail;
}

void VrCollisionFXModule::beginPatchFace(VrPrimitiveContext& context, const VrPatch* patch, int face) {
  if (!popBake || !tree) return;
  if (auto* state = static_cast<VrCollisionFXModuleContext*>(context.fxModuleContext(this)))
    state->record.open(*this, recordFile(patch, face));
}

void VrCollisionFXModule::endPatchFace(VrPrimitiveContext& context, const VrPatch*, int) {
  if (auto* state = static_cast<VrCollisionFXModuleContext*>(context.fxModuleContext(this))) state->record.commit();
}

std::string VrCollisionFXModule::primitiveTag(const VrPrimitiveContext& context) const {
  const VrDescription* desc = description();
  return "[" + std::to_string(context.id()) + "," + (desc ? desc->name() : std::string()) + "," + name() + "]";
}

bool VrCollisionFXModule::computeParallel(VrPrimitiveContext& context) {
  Points& P = context.getGeom();
  if (!tree || P.size() < 2) return true;
  if (maskValue(context) < MaskEpsilon) return true;
  VR_DEBUG(3, vrmsg::CatFXModule, "Collide compute on prim #" + std::to_string(context.id()));
  if (context.cLength() < LengthEpsilon) {
    VR_DEBUG(3, vrmsg::CatFXModule, "Prim #" + std::to_string(context.id()) + "'s length is 0. Skip.");
    return true;
  }
  auto* state = static_cast<VrCollisionFXModuleContext*>(context.fxModuleContext(this));
  if (!state) {
    context.addModuleContext(this, createModuleContext());
    state = static_cast<VrCollisionFXModuleContext*>(context.fxModuleContext(this));
  }
  const int limit = static_cast<int>(std::max(iterations.at(VrFXLocation(context)), 1.0));
  switch (resolve) {
    case Flexible:
      resolveFlexible(context, *state, limit);
      break;
    case Stiff:
      resolveStiff(context, *state, limit);
      break;
    case WireFlex:
    case WireStiff:
      resolveWire(context, *state, limit);
      break;
    default: {
      const VrDescription* desc = description();
      const VrPalette* collection = desc ? desc->palette() : nullptr;
      VR_ERROR("Unrecognized resolve type! [" + (collection ? collection->name() : std::string()) + "," +
               (desc ? desc->name() : std::string()) + "," + name() + "]");
      return true;
    }
  }
  context.dirtyCLength();
  if (state->record.isOpen()) {
    std::ostream& out = state->record.out();
    out << context.id() << ' ' << P.size();
    char number[32];
    for (const Vec& p : P)
      for (int axis = 0; axis < 3; ++axis) {
        std::snprintf(number, sizeof number, " %.17g", p[axis]);
        out << number;
      }
    out << '\n';
  }
  return true;
}

void VrCollisionFXModule::resolveStiff(VrPrimitiveContext& context, VrCollisionFXModuleContext& state,
                                       int limit) const {
  Points& P = context.getGeom();
  state.curves.refit(P, 1);
  state.inside.clear();
  if (!tree->intersect(state.curves, state.inside)) {
    VR_DEBUG(5, vrmsg::CatFXModule, "No CVs inside collision object.");
    return;
  }
  VR_DEBUG(5, vrmsg::CatFXModule, std::to_string(state.inside.size()) + " CVs inside collision object.");
  // The deepest-turned CV decides the axis: turning it onto its nearest surface point's
  // direction is the largest turn any inside CV asks for.
  double best = -1.0;
  Vec axis;
  for (const TzInsideInfo& info : state.inside) {
    double angle = 0.0;
    Vec candidate;
    if (!turnTowards(P[0], P[static_cast<size_t>(info.index)], info.nearest, angle, candidate)) continue;
    if (angle > best) {
      best = angle;
      axis = candidate;
    }
  }
  state.start = P;
  int budget = limit;
  const Points& start = state.start;
  const bool resolved =
      best >= 0.0 &&
      searchOut(
          std::clamp(best, SmallestStep, LargestStep), HUGE_VAL, AngleTolerance, budget, P,
          [&](double angle, Points& out) {
            for (size_t i = 1; i < out.size(); ++i) out[i] = rotated(start[i], start[0], axis, angle);
          },
          [&](const Points& shape) { return !anyInside(*tree, shape, 1, shape.size() - 1); });
  if (!resolved)
    VR_WARNING(2, "Didn't find a single angle to resolve collision. " + primitiveTag(context));
}

void VrCollisionFXModule::resolveFlexible(VrPrimitiveContext& context, VrCollisionFXModuleContext& state,
                                          int limit) const {
  Points& P = context.getGeom();
  bool resolved = true;
  for (size_t i = 1; i < P.size(); ++i) {
    if (!tree->inside(P[i])) continue;
    Vec nearest, axis;
    double angle = 0.0;
    if (!tree->nearestPoint(P[i], nearest)) {
      resolved = false;
      continue;
    }
    if (!turnTowards(P[i - 1], P[i], nearest, angle, axis)) {
      // The segment points straight at its nearest surface point: any turn leads out, so
      // turn across the coordinate axis least along the segment, in full steps.
      const Vec a = P[i] - P[i - 1];
      const Vec ax(std::fabs(a.x), std::fabs(a.y), std::fabs(a.z));
      const Vec across = ax.x <= ax.y && ax.x <= ax.z ? Vec(1, 0, 0) : (ax.y <= ax.z ? Vec(0, 1, 0) : Vec(0, 0, 1));
      axis = a.cross(across);
      if (axis.normalize() < AxisEpsilon) {
        resolved = false;
        continue;
      }
      angle = LargestStep;
    }
    state.start = P;
    const Points& start = state.start;
    int budget = limit;
    resolved = searchOut(
                   std::clamp(angle, SmallestStep, LargestStep), HUGE_VAL, AngleTolerance, budget, P,
                   [&](double a, Points& out) {
                     for (size_t k = i; k < out.size(); ++k) out[k] = rotated(start[k], start[i - 1], axis, a);
                   },
                   [&](const Points& shape) { return !tree->inside(shape[i]); }) &&
               resolved;
  }
  if (!resolved) VR_WARNING(2, "Didn't find a single angle to resolve collision. " + primitiveTag(context));
}

void VrCollisionFXModule::resolveWire(VrPrimitiveContext& context, VrCollisionFXModuleContext& state,
                                      int limit) const {
  Points& P = context.getGeom();
  const std::string id = std::to_string(context.id());
  const Points* wire = context.getPipeData(wirePipeName());
  if (!wire) {
    const VrPatch* patch = context.cPatch();
    VR_WARNING(2, "No wire is found in the pipe for collision module for primitive #" + id + " on patch " +
                      (patch ? patch->name() : std::string()) + ". Collision is not resolved. " + messageTag());
    return;
  }
  if (wire->size() != P.size()) {
    VR_WARNING(2, "The number of cvs in the wire does not match the primitive: " + std::to_string(wire->size()) +
                      " vs " + std::to_string(P.size()) + " for primitive # " + id);
    return;
  }
  const size_t last = P.size() - 1;
  if (!anyInside(*tree, P, 1, last)) {
    VR_DEBUG(5, vrmsg::CatFXModule, "No cv is inside for primitive #" + id);
    return;
  }
  state.start = P;
  const Points& start = state.start;
  const Points& W = *wire;
  Vec axis;
  double angle = 0.0;
  if (resolve == WireStiff && !turnTowards(start[0], start[last], start[0] + (W[last] - W[0]), angle, axis)) {
    VR_WARNING(2, "No intersection found between wire and prim #" + id);
    return;
  }
  // s in [0, 1]: from the spline towards the wire carried to the spline's root.
  auto shape = [&](double s, Points& out) {
    for (size_t i = 1; i < out.size(); ++i)
      out[i] = resolve == WireStiff ? rotated(start[i], start[0], axis, angle * s)
                                    : start[i] + ((W[i] - W[0]) - (start[i] - start[0])) * s;
  };
  auto clear = [&](const Points& candidate) { return !anyInside(*tree, candidate, 1, last); };
  Points& trial = state.trial;
  trial = start;
  shape(1.0, trial);
  if (!clear(trial)) {
    VR_WARNING(2, "No intersection found between prim #" + id +
                      " and wire. cvs from wire and prim are inside collision object. ");
    return;
  }
  int budget = std::max(limit, 2);
  if (!searchOut(1.0, 1.0, BlendTolerance, budget, P, shape, clear)) P = trial;
}
