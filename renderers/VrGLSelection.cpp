// The selection of VrGLRenderer: a box in the picture picks the emitted primitives whose
// root-to-tip segment crosses it; the picked ones are then culled by hand in their patches, or
// exported as instances and culled (promoted). The face caches name their patch in their key
// ("<patch>_XfaceidX_<face>"), which is how a face finds the patch to mark.

#include "base/VrMessage.h"
#include "base/vrutilCodec.h"
#include "document/VrDescription.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "renderers/VrGLDraw.h"
#include "renderers/VrGLLabels.h"
#include "renderers/VrGLRenderer.h"
#include "renderers/VrPromoteRenderer.h"
#include "renderers/VrRenderDescription.h"

#include <algorithm>
#include <set>
#include <tuple>

namespace {

const char* const faceSeparator = "_XfaceidX_";
const SgVec3T<double> selectionColor(1.0, 0.95, 0.1);

using PrimKeys = std::set<std::tuple<std::string, int, unsigned>>;

PrimKeys keysOf(const std::vector<VrGLRenderer::SelectedPrim>& prims) {
  PrimKeys keys;
  for (const VrGLRenderer::SelectedPrim& prim : prims) keys.insert(std::make_tuple(prim.patch, prim.face, prim.id));
  return keys;
}

// Where `p` falls in the picture, in pixels from the top left; false behind the camera.
bool toPixels(const float viewProjection[16], const SgVec3T<double>& p, unsigned width, unsigned height, double& x,
              double& y) {
  double clip[4];
  VrGLProject(viewProjection, p, clip);
  if (!(clip[3] > 0.0)) return false;
  x = (clip[0] / clip[3] + 1.0) * 0.5 * width;
  y = (1.0 - clip[1] / clip[3]) * 0.5 * height;
  return true;
}

// Whether the segment a-b crosses the box [x0, x1] x [y0, y1] (clipping it against each side).
bool crosses(double ax, double ay, double bx, double by, double x0, double y0, double x1, double y1) {
  double enter = 0.0, leave = 1.0;
  const double d[2] = {bx - ax, by - ay};
  const double from[2] = {ax, ay}, low[2] = {x0, y0}, high[2] = {x1, y1};
  for (int k = 0; k < 2; ++k) {
    if (d[k] == 0.0) {
      if (from[k] < low[k] || from[k] > high[k]) return false;
      continue;
    }
    double t0 = (low[k] - from[k]) / d[k], t1 = (high[k] - from[k]) / d[k];
    if (t0 > t1) std::swap(t0, t1);
    enter = std::max(enter, t0);
    leave = std::min(leave, t1);
    if (enter > leave) return false;
  }
  return true;
}

// The PromoteRenderer, exporting only the primitives of a selection.
class SelectionPromoter : public VrPromoteRenderer {
 public:
  SelectionPromoter(VrDescription* description, const std::vector<VrGLRenderer::SelectedPrim>& selection)
      : VrPromoteRenderer(description), wanted(keysOf(selection)) {}

 protected:
  bool keeps(double, double, int face, const std::string* patchName) override {
    const VrPrimitive* primitive = description()->activePrimitive();
    return patchName && primitive && wanted.count(std::make_tuple(*patchName, face, primitive->context().id())) > 0;
  }

 private:
  PrimKeys wanted;
};

}  // namespace

size_t VrGLRenderer::selectPrims(const float viewProjection[16], unsigned width, unsigned height, double x0, double y0,
                                 double x1, double y1) {
  selected.clear();
  if (x0 > x1) std::swap(x0, x1);
  if (y0 > y1) std::swap(y0, y1);
  VR_DEBUG(2, vrmsg::CatRender,
           "Selected within (" + vrutil::ftoa(x0) + "," + vrutil::ftoa(y0) + ") to (" + vrutil::ftoa(x1) + "," +
               vrutil::ftoa(y1) + ")");
  VrDescription* desc = description();
  for (const auto& entry : faceCaches) {
    const VrGLCache& cache = entry.second;
    const std::string key = cache.key();
    const std::string name = key.substr(0, key.rfind(faceSeparator));
    if (!desc || !desc->patch(name)) {
      VR_ERROR("Unable to find patch " + name + " in description for marking [" + (desc ? desc->name() : std::string()) +
               "]");
      continue;
    }
    VR_DEBUG(3, vrmsg::CatRender, "Testing patch " + name);
    for (const VrGLCache::Prim& prim : cache.prims) {
      if (prim.culled) continue;
      double ax = 0.0, ay = 0.0, bx = 0.0, by = 0.0;
      if (!toPixels(viewProjection, prim.first, width, height, ax, ay) ||
          !toPixels(viewProjection, prim.last, width, height, bx, by))
        continue;
      VR_DEBUG(4, vrmsg::CatRender,
               "Testing prim " + std::to_string(prim.id) + " from points " + vrutil::vtoa(SgVec3T<double>(ax, ay, 0.0)) +
                   " to " + vrutil::vtoa(SgVec3T<double>(bx, by, 0.0)));
      if (!crosses(ax, ay, bx, by, x0, y0, x1, y1)) continue;
      VR_DEBUG(3, vrmsg::CatRender, "Prim #" + std::to_string(prim.id) + " selected.");
      selected.push_back({name, cache.face, prim.id});
    }
  }
  highlightSelection();
  return selected.size();
}

void VrGLRenderer::clearSelection() {
  selected.clear();
  highlightSelection();
}

void VrGLRenderer::highlightSelection() {
  retired.push_back(std::move(selectionHighlight));
  selectionHighlight = VrGLCache();
  const PrimKeys wanted = keysOf(selected);
  for (const auto& entry : faceCaches)
    for (const VrGLCache::Prim& prim : entry.second.prims)
      if (!prim.culled && wanted.count(std::make_tuple(entry.first.first, entry.first.second, prim.id)))
        selectionHighlight.addCurve(selectionHighlight.polygons, {prim.first, prim.last}, selectionColor);
}

bool VrGLRenderer::isolateSelectedPrims(bool on) {
  if (on && selected.empty()) return false;
  isolated = on ? selected : std::vector<SelectedPrim>();
  buildIsolation();
  return true;
}

void VrGLRenderer::buildIsolation() {
  retired.push_back(std::move(isolation));
  isolation = VrGLCache();
  const PrimKeys wanted = keysOf(isolated);
  for (const auto& entry : faceCaches) {
    const VrGLCache& cache = entry.second;
    for (size_t i = 0; i < cache.prims.size(); ++i)
      if (wanted.count(std::make_tuple(entry.first.first, entry.first.second, cache.prims[i].id)))
        isolation.appendPrim(cache, i);
  }
}

std::vector<VrGLRenderer::SelectedPrim> VrGLRenderer::shownPrims() const {
  const PrimKeys wanted = keysOf(isolated);
  std::vector<SelectedPrim> shown;
  for (const auto& entry : faceCaches)
    for (const VrGLCache::Prim& prim : entry.second.prims)
      if (!isolating() || wanted.count(std::make_tuple(entry.first.first, entry.first.second, prim.id)))
        shown.push_back({entry.first.first, entry.first.second, prim.id});
  return shown;
}

bool VrGLRenderer::cullSelectedPrims() { return markSelectedPrims("cull"); }

bool VrGLRenderer::promoteSelectedPrims() { return markSelectedPrims("promote"); }

bool VrGLRenderer::markSelectedPrims(const std::string& operation) {
  VrDescription* desc = description();
  if (operation != "cull" && operation != "promote") {
    VR_ERROR("Unknown marking operation " + operation);
    return false;
  }
  if (selected.empty() || !desc) return false;
  bool ok = true;
  if (operation == "cull") {
    for (const SelectedPrim& prim : selected)
      if (VrPatch* patch = desc->patch(prim.patch)) patch->cullPrim(prim.face, prim.id);
  } else {
    SelectionPromoter promoter(desc, selected);
    ok = VrRenderDescription(promoter, 1) && !promoter.failed();
    promotePath = promoter.outputPath();
  }
  clearSelection();
  return ok;
}
