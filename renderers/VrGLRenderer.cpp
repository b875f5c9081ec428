#include "renderers/VrGLRenderer.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "expressions/VrExpression.h"
#include "geometry/VrPatch.h"
#include "primitives/VrArchivePrimitive.h"
#include "primitives/VrCardPrimitive.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrSpherePrimitive.h"
#include "renderers/VrArchiveFrame.h"
#include "renderers/VrGLDraw.h"
#include "renderers/VrGLLabels.h"
#include "renderers/VrOpenGLThread.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

// Older attribute names and the ones they stand for.
const std::pair<const char*, const char*> olderSpellings[] = {
    {"drawPatchNames", "patchNames"}, {"drawPrimIDs", "primIDs"}, {"drawPrimIDsAt", "primIDsAt"},
    {"drawCulled", "culled"},         {"drawVertices", "vertices"}, {"drawCPoly", "poly"}};

const char* const shaderChannels[] = {"TEXCOORD3", "TEXCOORD4", "TEXCOORD5", "TEXCOORD6", "TEXCOORD7"};

const SgVec3T<double> polygonColor(0.55, 0.55, 0.6);
const SgVec3T<double> vertexColor(1.0, 1.0, 0.2);

using FaceMap = std::map<std::pair<std::string, int>, VrGLCache>;

VrGLCache& faceCache(FaceMap& faces, const std::string& patch, int face) {
  VrGLCache& cache = faces[{patch, face}];
  if (cache.face < 0) {
    cache.patch = patch;
    cache.face = face;
  }
  return cache;
}

// Points of a Catmull-Rom curve through `cvs`, `segments` per span.
std::vector<SgVec3T<double>> smoothed(const std::vector<SgVec3T<double>>& cvs, int segments) {
  if (segments <= 1 || cvs.size() < 3) return cvs;
  std::vector<SgVec3T<double>> out;
  const size_t n = cvs.size();
  for (size_t i = 0; i + 1 < n; ++i) {
    const SgVec3T<double>& p0 = cvs[i > 0 ? i - 1 : 0];
    const SgVec3T<double>& p1 = cvs[i];
    const SgVec3T<double>& p2 = cvs[i + 1];
    const SgVec3T<double>& p3 = cvs[std::min(i + 2, n - 1)];
    for (int s = 0; s < segments; ++s) {
      const double t = double(s) / segments, t2 = t * t, t3 = t2 * t;
      out.push_back((p1 * 2.0 + (p2 - p0) * t + (p0 * 2.0 - p1 * 5.0 + p2 * 4.0 - p3) * t2 +
                     (p1 * 3.0 - p0 - p2 * 3.0 + p3) * t3) * 0.5);
    }
  }
  out.push_back(cvs.back());
  return out;
}

// `d` mirrored across the plane through the root that is square to `across` (the side
// direction of a card), keeping its part along the card's normal.
SgVec3T<double> mirrored(const SgVec3T<double>& d, const SgVec3T<double>& normal) {
  const SgVec3T<double> up = normal * d.dot(normal);
  return up - (d - up);
}

}  // namespace

VrGLRenderer::VrGLRenderer(VrDescription* description) : VrRenderer(description) {
  colorExpression = std::make_unique<VrExpression>("color", "GLRenderer", description, "$a=[0,0,0];#color\\n$a", "color");
  guideColorExpression = std::make_unique<VrExpression>("guideColor", "GLRenderer", description,
                                                        "$a=[1.0,0.4313725,0.0];#color\\n$a", "color");
  for (const char* channel : shaderChannels)
    shaderExpressions.push_back(std::make_unique<VrExpression>(channel, "GLRenderer", description, "", "vector"));
  setAttr("inCameraOnly", inCameraOnly() ? "true" : "false", "bool");
  setAttr("inCameraMargin", "0.0", "float");
  setAttr("color", "$a=[0,0,0];#color\\n$a", "expr");
  setAttr("guideColor", "$a=[1.0,0.4313725,0.0];#color\\n$a", "expr");
  setAttr("TEXCOORD3", "[ $cWidth, 0, 0 ]  # red channel reserved by Vorn", "expr");
  for (int k = 4; k <= 7; ++k) setAttr("TEXCOORD" + std::to_string(k), "", "expr");
  for (int k = 3; k <= 7; ++k) setAttr("TEXCOORD" + std::to_string(k) + "i", "", "color");
  setAttr("patchNames", "false", "bool");
  setAttr("faceIds", "false", "bool");
  setAttr("primIDs", "false", "bool");
  setAttr("primIDsAt", "1.0", "float");
  setAttr("vertices", "false", "bool");
  setAttr("poly", "false", "bool");
  setAttr("culled", "false", "bool");
  setAttr("unitCube", "false", "bool");
  setAttr("splineSegments", "1", "int");
  setAttr("primNumLimit", "100000000", "int");
}

VrGLRenderer::~VrGLRenderer() = default;

bool VrGLRenderer::setAttr(const std::string& name, const std::string& value, const std::string& type,
                           const std::string& enumStrings) {
  if (VrRenderer::setAttr(name, value, type, enumStrings)) return true;
  for (const auto& older : olderSpellings)
    if (name == older.first) {
      std::string currentType = type;
      std::string ignored;
      getAttr(older.second, ignored, currentType);
      return setAttr(older.second, value, currentType, enumStrings);
    }
  if (name == "color") return colorExpression->setExpression(value), true;
  if (name == "guideColor") return guideColorExpression->setExpression(value), true;
  for (size_t k = 0; k < shaderExpressions.size(); ++k)
    if (name == shaderChannels[k]) return shaderExpressions[k]->setExpression(value), true;
  if (name.rfind("TEXCOORD", 0) == 0) return true;
  if (name == "patchNames") return boolAttr(name, value, patchNamesFlag);
  if (name == "faceIds") return boolAttr(name, value, faceIdsFlag);
  if (name == "primIDs") return boolAttr(name, value, primIdsFlag);
  if (name == "primIDsAt") return floatAttr(name, value, primIdsAt);
  if (name == "vertices") return boolAttr(name, value, verticesFlag);
  if (name == "poly") return boolAttr(name, value, polyFlag);
  if (name == "culled") return boolAttr(name, value, culledFlag);
  if (name == "unitCube") return boolAttr(name, value, unitCubeFlag);
  if (name == "splineSegments") {
    const bool ok = intAttr(name, value, segments);
    segments = std::clamp(segments, 1, 64);
    return ok;
  }
  if (name == "primNumLimit") return intAttr(name, value, limit);
  return false;
}

// ---------------------------------------------------------------------------------------------
// Passes

void VrGLRenderer::initDescription() {
  VrRenderer::initDescription();
  for (auto& entry : faceCaches) retired.push_back(std::move(entry.second));
  faceCaches.clear();
  retired.push_back(std::move(guides));
  guides = VrGLCache();
  // The selection names primitives, which outlive a render; its strokes are drawn again at the end.
  retired.push_back(std::move(selectionHighlight));
  selectionHighlight = VrGLCache();
  retired.push_back(std::move(isolation));
  isolation = VrGLCache();
  emitted = 0;
  limitReported = false;
  serialCulledPending = false;
  std::string error;
  colorExpression->isValid(&error);
  // Channels are used in order: the first empty one ends them.
  activeShaderChannels = 0;
  bool gap = false;
  for (size_t k = 0; k < shaderExpressions.size(); ++k) {
    const bool active = !shaderExpressions[k]->expression().empty();
    if (active && gap) {
      VR_WARNING(1, std::string(shaderChannels[k]) + " cannot be " + "active with inactive expressions above." +
                        " It and those below are treated as" + " inactive.");
      break;
    }
    if (!active) gap = true;
    if (active && !gap) activeShaderChannels = static_cast<int>(k) + 1;
  }
  for (int k = 0; k < activeShaderChannels; ++k) shaderExpressions[static_cast<size_t>(k)]->isValid(&error);
}

void VrGLRenderer::finishDescription() {
  VrRenderer::finishDescription();
  makeArchiveProxyFromReduce();
  if (!selected.empty()) highlightSelection();
  if (!isolated.empty()) buildIsolation();
  VrDescription* desc = description();
  const VrPrimitive* primitive = desc ? desc->activePrimitive() : nullptr;
  if (!guidesFlag || !primitive) return;
  const SgXform3T<double>& world = desc->palette() ? desc->palette()->world() : SgXform3T<double>();
  for (unsigned g = 0; g < primitive->numGuides(); ++g) {
    const VrGuide& guide = primitive->guide(g);
    std::vector<SgVec3T<double>> cvs = guide.cGuideGeom();
    for (SgVec3T<double>& cv : cvs) cv = world.transformed(cv);
    const VrPatch* patch = guide.patch();
    const int face = guide.faceId();
    const std::string patchName = patch ? patch->name() : std::string();
    const SgVec3T<double> color = guideColorExpression->eval(guide.patchU(), guide.patchV(), face, patch ? &patchName : nullptr);
    guides.addCurve(guides.lines, smoothed(cvs, segments), color);
  }
  guides.dirty = true;
}

std::unique_ptr<VrRendererContext> VrGLRenderer::newRendererContext() const {
  return std::make_unique<VrGLRendererContext>();
}

void VrGLRenderer::reduceResult(VrRendererContext& context, const std::string&, bool) {
  auto* record = dynamic_cast<VrGLRendererContext*>(&context);
  if (!record) return;
  std::lock_guard<std::recursive_mutex> hold(reduceMutex());
  for (auto& entry : record->faces) faceCache(faceCaches, entry.first.first, entry.first.second).append(std::move(entry.second));
  record->faces.clear();
}

// ---------------------------------------------------------------------------------------------
// Emission

bool VrGLRenderer::handleCulledPrimitive(unsigned, int face, unsigned id, VrPatch*) {
  if (!culledFlag) return false;
  serialCulledPending = true;
  serialCulledFace = face;
  serialCulledId = id;
  return true;
}

bool VrGLRenderer::handleCulledPrimitiveInParallel(VrPrimitiveContext& context, unsigned, int face, unsigned id,
                                                   VrPatch*) {
  auto* record = dynamic_cast<VrGLRendererContext*>(context.rendererContext());
  if (!culledFlag || !record) return false;
  record->culledPending = true;
  record->culledFace = face;
  record->culledId = id;
  return true;
}

bool VrGLRenderer::takeSlot() {
  if (emitted.fetch_add(1) < limit) return true;
  if (!limitReported.exchange(true))
    VR_WARNING(1, "GLRenderer of " + (description() ? description()->name() : std::string()) + " stops at " +
                      std::to_string(limit) + " primitives (primNumLimit).");
  return false;
}

void VrGLRenderer::emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) {
  VrDescription* desc = description();
  VrPrimitive* primitive = desc ? desc->activePrimitive() : nullptr;
  if (sample != 0 || !primitive || patches.empty() || !patches[0]) return;
  VrPrimitiveContext& context = primitive->context();
  const bool culled = serialCulledPending && serialCulledFace == face && serialCulledId == context.id();
  serialCulledPending = false;
  if (!takeSlot()) return;
  SgBox3T<double> box;
  emitInto(faceCaches, context, culled, u, v, face, *patches[0], box);
  mergeEmittedBox(box);
  incrEmitCount();
}

void VrGLRenderer::emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                                           const std::vector<VrPatch*>& patches) {
  auto* record = dynamic_cast<VrGLRendererContext*>(context.rendererContext());
  if (sample != 0 || !record || patches.empty() || !patches[0]) return;
  const bool culled = record->culledPending && record->culledFace == face && record->culledId == context.id();
  record->culledPending = false;
  if (!takeSlot()) return;
  SgBox3T<double> box;
  emitInto(record->faces, context, culled, u, v, face, *patches[0], box);
  record->mergeEmittedBox(box);
  record->incrEmitCount();
}

void VrGLRenderer::emitInto(FaceMap& faces, VrPrimitiveContext& context, bool culled, double u, double v, int face,
                            const VrPatch& patch, SgBox3T<double>& box) {
  VrDescription* desc = description();
  const VrPrimitive* primitive = desc->activePrimitive();
  const std::string kind = primitive->typeName();
  VrGLCache& cache = faceCache(faces, patch.name(), face);
  const SgXform3T<double>& world = desc->palette() ? desc->palette()->world() : SgXform3T<double>();
  std::vector<SgVec3T<double>> cvs = context.cGeom();
  for (SgVec3T<double>& cv : cvs) {
    box.extend(cv);
    cv = world.transformed(cv);
  }
  if (cvs.empty()) return;
  const SgVec3T<double> color =
      culled ? outlineColor() : colorOverridden ? overrideValue : colorExpression->eval(u, v, face, &patch.name());

  VrGLCache::Prim& prim = cache.beginPrim();
  prim.id = context.id();
  prim.culled = culled;
  prim.first = cvs.front();
  prim.last = cvs.back();
  // The label's place: `primIDsAt` of the way along the CVs.
  const double along = std::clamp(primIdsAt, 0.0, 1.0) * double(cvs.size() - 1);
  const size_t below = std::min(static_cast<size_t>(along), cvs.size() - 1);
  const size_t above = std::min(below + 1, cvs.size() - 1);
  prim.label = cvs[below] + (cvs[above] - cvs[below]) * (along - double(below));
  emitShaderParams(context, u, v, face, patch.name(), cache);

  if (kind == "CardPrimitive" && cvs.size() == VrCardPrimitive::NumControlPoints) {
    addCard(cache, cvs, color, culled);
  } else if (kind == "SpherePrimitive" && cvs.size() == VrSpherePrimitive::NumControlPoints) {
    addSphere(cache, cvs, color, culled);
  } else if (kind == "ArchivePrimitive") {
    addArchive(cache, context, cvs, color, culled);
  } else {
    addSpline(cache, cvs, color, culled);
  }
  if (polyFlag) cache.addCurve(cache.polygons, cvs, polygonColor);
  if (verticesFlag)
    for (const SgVec3T<double>& cv : cvs) {
      const uint32_t i = cache.points.add(cv, SgVec3T<double>(), vertexColor);
      cache.points.indices.push_back(i);
    }
  cache.dirty = true;
}

void VrGLRenderer::emitShaderParams(const VrPrimitiveContext&, double u, double v, int face, const std::string& patch,
                                    VrGLCache& cache) const {
  for (int k = 0; k < activeShaderChannels; ++k) {
    const SgVec3T<double> value = shaderExpressions[static_cast<size_t>(k)]->eval(u, v, face, &patch);
    cache.shaderParams.insert(cache.shaderParams.end(), {float(value.x), float(value.y), float(value.z)});
  }
}

void VrGLRenderer::addSpline(VrGLCache& cache, const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& color,
                             bool culled) const {
  cache.addCurve(culled ? cache.outlines : cache.lines, smoothed(cvs, segments), color);
}

void VrGLRenderer::addCard(VrGLCache& cache, const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& color,
                           bool culled) const {
  using C = VrCardPrimitive;
  const SgVec3T<double> root = cvs[C::Root];
  SgVec3T<double> normal = (cvs[C::BendU] - root).cross(cvs[C::BendV] - root);
  normal.normalize();
  SgVec3T<double> acrossNormal = cvs[C::BendU] - root;
  acrossNormal.normalize();
  SgVec3T<double> alongNormal = cvs[C::BendV] - root;
  alongNormal.normalize();
  // Offsets from the root across and along: the far edge, the bend, nothing, the bend, the
  // edge, the negative side mirrored.
  const SgVec3T<double> a1 = cvs[C::BendU] - root, a2 = cvs[C::EdgeU] - root;
  const SgVec3T<double> b1 = cvs[C::BendV] - root, b2 = cvs[C::EdgeV] - root;
  const SgVec3T<double> across[5] = {mirrored(a2, acrossNormal), mirrored(a1, acrossNormal), SgVec3T<double>(), a1, a2};
  const SgVec3T<double> along[5] = {mirrored(b2, alongNormal), mirrored(b1, alongNormal), SgVec3T<double>(), b1, b2};
  auto at = [&](int i, int j) { return root + across[i] + along[j]; };
  if (culled) {
    std::vector<SgVec3T<double>> loop;
    for (int i = 0; i < 5; ++i) loop.push_back(at(i, 0));
    for (int j = 1; j < 5; ++j) loop.push_back(at(4, j));
    for (int i = 3; i >= 0; --i) loop.push_back(at(i, 4));
    for (int j = 3; j >= 0; --j) loop.push_back(at(0, j));
    cache.addCurve(cache.outlines, loop, color);
    return;
  }
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) cache.addQuad(at(i, j), at(i + 1, j), at(i + 1, j + 1), at(i, j + 1), color);
}

void VrGLRenderer::addSphere(VrGLCache& cache, const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& color,
                             bool culled) const {
  using S = VrSpherePrimitive;
  const SgVec3T<double> mid = (cvs[S::Root] + cvs[S::Tip]) * 0.5;
  const SgVec3T<double> axis = cvs[S::Tip] - mid, width = cvs[S::WidthHandle] - mid, depth = cvs[S::DepthHandle] - mid;
  constexpr int rings = 8, sectors = 12;
  constexpr double pi = 3.14159265358979323846;
  auto point = [&](int ring, int sector) {
    const double theta = pi * ring / rings, phi = 2.0 * pi * sector / sectors;
    return mid + axis * std::cos(theta) + (width * std::cos(phi) + depth * std::sin(phi)) * std::sin(theta);
  };
  if (culled) {
    // Three rings: the equator and two meridians.
    std::vector<SgVec3T<double>> equator, meridian, square;
    for (int s = 0; s <= sectors; ++s) equator.push_back(point(rings / 2, s));
    for (int r = 0; r <= rings; ++r) meridian.push_back(point(r, 0));
    for (int r = rings; r >= 0; --r) meridian.push_back(point(r, sectors / 2));
    for (int r = 0; r <= rings; ++r) square.push_back(point(r, sectors / 4));
    for (int r = rings; r >= 0; --r) square.push_back(point(r, 3 * sectors / 4));
    for (const auto* loop : {&equator, &meridian, &square}) cache.addCurve(cache.outlines, *loop, color);
    return;
  }
  for (int r = 0; r < rings; ++r)
    for (int s = 0; s < sectors; ++s) cache.addQuad(point(r, s), point(r + 1, s), point(r + 1, s + 1), point(r, s + 1), color);
}

void VrGLRenderer::addArchive(VrGLCache& cache, const VrPrimitiveContext& context,
                              const std::vector<SgVec3T<double>>& cvs, const SgVec3T<double>& color, bool culled) const {
  const auto* archive = dynamic_cast<const VrArchivePrimitive*>(description()->activePrimitive());
  VrArchiveFrame frame;
  if (!frame.set(archive, cvs)) return;
  SgVec3T<double> corner, edges[3];
  frame.box(archive, context, unitCubeFlag, corner, edges);
  if (culled) return cache.addBoxEdges(cache.outlines, corner, edges, color);
  VrGLCache::Archive placed;
  placed.key = unitCubeFlag ? -1 : VrArchiveGeometry::chooseKey(archive, context, VrArchiveGeometry::Preference::Lightest);
  const auto* own = dynamic_cast<const VrArchivePrimitiveContext*>(&context);
  placed.frame = own ? own->archiveFrame : 0.0;
  double place[16];
  frame.matrix(place);
  const SgVec3T<double> boxColumns[4] = {edges[0], edges[1], edges[2], corner};
  for (int k = 0; k < 16; ++k) {
    placed.place[k] = float(place[k]);
    placed.box[k] = k % 4 == 3 ? (k == 15 ? 1.0f : 0.0f) : float(boxColumns[k / 4][k % 4]);
  }
  for (int k = 0; k < 3; ++k) placed.color[k] = float(color[k]);
  cache.archives.push_back(placed);
}

int VrGLRenderer::makeArchiveProxy(const VrArchivePrimitive& archive, int key, double frame,
                                   std::vector<VrGLProxy>& earlier, double limit, size_t& used, unsigned& over) {
  const std::vector<VrArchiveSource> files = VrArchiveGeometry::sources(archive, key);
  if (files.empty()) return -1;
  const std::string source = VrArchiveMesh::keyOf(files);
  auto same = [&](const VrGLProxy& p) { return p.source == source && p.frame == frame; };
  // Keys that list the same files share one proxy.
  const auto made = std::find_if(proxies.begin(), proxies.end(), same);
  if (made != proxies.end()) return int(made - proxies.begin());
  VrGLProxy proxy;
  const auto kept = std::find_if(earlier.begin(), earlier.end(), same);
  if (kept != earlier.end()) {
    proxy = std::move(*kept);
    earlier.erase(kept);
  } else {
    const VrArchiveMesh* mesh = archiveMeshes.mesh(archive, key, frame, "drawn as boxes");
    if (!mesh) return -1;
    proxy = VrGLProxy::fromMesh(*mesh);
    proxy.source = source;
    proxy.frame = frame;
  }
  if (proxy.indices.empty() || double(used + proxy.bytes()) > limit) {
    over += proxy.indices.empty() ? 0 : 1;
    if (proxy.uploaded()) retiredProxies.push_back(std::move(proxy));
    return -1;
  }
  used += proxy.bytes();
  proxies.push_back(std::move(proxy));
  return int(proxies.size() - 1);
}

void VrGLRenderer::makeArchiveProxyFromReduce() {
  VrDescription* desc = description();
  const auto* archive = dynamic_cast<const VrArchivePrimitive*>(desc ? desc->activePrimitive() : nullptr);
  // Every key and frame asked for, in order, so that which proxies fit does not depend on the
  // workers.
  std::map<std::pair<int, double>, int> wanted;
  for (const auto& entry : faceCaches)
    for (const VrGLCache::Archive& placed : entry.second.archives)
      if (placed.key >= 0) wanted.emplace(std::make_pair(placed.key, placed.frame), -1);
  std::vector<VrGLProxy> earlier = std::move(proxies);
  proxies.clear();
  const double limit = archiveCacheLimit();
  size_t used = 0;
  unsigned over = 0;
  for (auto& entry : wanted)
    entry.second = archive ? makeArchiveProxy(*archive, entry.first.first, entry.first.second, earlier, limit, used, over) : -1;
  for (VrGLProxy& old : earlier)
    if (old.uploaded()) retiredProxies.push_back(std::move(old));
  archiveMeshes.clear();
  for (auto& entry : faceCaches)
    for (VrGLCache::Archive& placed : entry.second.archives)
      placed.proxy = placed.key >= 0 ? wanted[std::make_pair(placed.key, placed.frame)] : -1;
  if (over > 0) {
    char megabytes[32];
    std::snprintf(megabytes, sizeof megabytes, "%g", limit / bytesPerCacheUnit);
    VR_WARNING(1, "The archive proxies of " + desc->name() + " would take more than " + megabytes +
                      " MB (VORN_MAX_ARCHIVE_CACHE_SIZE): the archives of " + std::to_string(over) +
                      " file sets are drawn as boxes.");
  }
}

double VrGLRenderer::archiveCacheLimit() {
  const char* text = std::getenv("VORN_MAX_ARCHIVE_CACHE_SIZE");
  if (!text) return defaultCacheSize * bytesPerCacheUnit;
  char* end = nullptr;
  const double size = std::strtod(text, &end);
  if (end == text || !(size >= 0.0)) {
    VR_WARNING(1, std::string("VORN_MAX_ARCHIVE_CACHE_SIZE is not a size in megabytes: \"") + text + "\"; the bound is " +
                      std::to_string(int(defaultCacheSize)) + " MB.");
    return defaultCacheSize * bytesPerCacheUnit;
  }
  return size * bytesPerCacheUnit;
}

// ---------------------------------------------------------------------------------------------
// Drawing

void VrGLRenderer::refresh(bool all, bool unused) {
  if (!VrOpenGLThread::instance().isMainThread())
    return VrOpenGLThread::instance().enqueueAndWait([&] { refresh(all, unused); });
  releaseRetired();
  for (auto& entry : faceCaches) {
    if (all) entry.second.dirty = true;
    VrGLUpload(entry.second);
  }
  VrGLUploadProxy(boxProxy);
  for (VrGLProxy& proxy : proxies) VrGLUploadProxy(proxy);
  if (all) guides.dirty = selectionHighlight.dirty = isolation.dirty = true;
  VrGLUpload(guides);
  VrGLUpload(selectionHighlight);
  VrGLUpload(isolation);
  setDirty(false);
}

void VrGLRenderer::cleanRefresh() {
  if (!VrOpenGLThread::instance().isMainThread())
    return VrOpenGLThread::instance().enqueueAndWait([&] { cleanRefresh(); });
  releaseRetired();
  for (auto& entry : faceCaches) VrGLRelease(entry.second);
  VrGLReleaseProxy(boxProxy);
  for (VrGLProxy& proxy : proxies) VrGLReleaseProxy(proxy);
  VrGLRelease(guides);
  VrGLRelease(selectionHighlight);
  VrGLRelease(isolation);
}

void VrGLRenderer::releaseRetired() {
  for (VrGLCache& old : retired) VrGLRelease(old);
  retired.clear();
  for (VrGLProxy& old : retiredProxies) VrGLReleaseProxy(old);
  retiredProxies.clear();
}

void VrGLRenderer::overrideColor(const std::string& color) {
  double r = 0.0, g = 0.0, b = 0.0;
  if (std::sscanf(color.c_str(), " %lf %lf %lf", &r, &g, &b) != 3 &&
      std::sscanf(color.c_str(), " %lf , %lf , %lf", &r, &g, &b) != 3)
    return;
  colorOverridden = true;
  overrideValue = SgVec3T<double>(r, g, b);
}

void VrGLRenderer::restoreColor() { colorOverridden = false; }

void VrGLRenderer::draw(const VrGLProgram& program) const {
  auto drawCache = [&](const VrGLCache& cache) {
    program.draw(cache, culledFlag);
    program.drawArchives(cache, proxies, boxProxy);
  };
  if (isolating())
    drawCache(isolation);
  else
    for (const auto& entry : faceCaches) drawCache(entry.second);
  if (guidesFlag) program.draw(guides, false);
  program.draw(selectionHighlight, false);
}

void VrGLRenderer::drawLabels(const VrGLProgram& program, const float viewProjection[16], unsigned width,
                              unsigned height) const {
  if (!primIdsFlag && !faceIdsFlag) return;
  VrGLCache labels;
  const SgVec3T<double> white(1.0, 1.0, 1.0), yellow(1.0, 0.9, 0.2);
  double clip[4];
  for (const auto& entry : faceCaches) {
    const VrGLCache& cache = entry.second;
    if (primIdsFlag)
      for (const VrGLCache::Prim& prim : cache.prims) {
        VrGLProject(viewProjection, prim.label, clip);
        VrGLAddLabel(labels.polygons, std::to_string(prim.id), clip, width, height, white);
      }
    const VrPatch* patch = description() ? description()->patch(cache.patch) : nullptr;
    if (faceIdsFlag && patch) {
      const SgBox3T<double> box = patch->boundingBox(cache.face, false);
      const SgXform3T<double>& world = description()->palette() ? description()->palette()->world() : SgXform3T<double>();
      VrGLProject(viewProjection, world.transformed(box.center()), clip);
      VrGLAddLabel(labels.polygons, std::to_string(cache.face), clip, width, height, yellow);
    }
  }
  VrGLDrawOverlay(program, labels);
}

SgBox3T<double> VrGLRenderer::bounds() const {
  SgBox3T<double> box;
  auto add = [&](const VrGLCache& cache) {
    for (const VrGLCache::Mesh* mesh : cache.meshes)
      for (const VrGLCache::Vertex& v : mesh->vertices)
        box.extend(SgVec3T<double>(v.position[0], v.position[1], v.position[2]));
    // An archive: the corners of its proxy's box (or of the unit cube) under its matrix.
    for (const VrGLCache::Archive& placed : cache.archives) {
      const bool own = placed.proxy >= 0 && size_t(placed.proxy) < proxies.size();
      const SgBox3T<double>& local = own ? proxies[size_t(placed.proxy)].box : boxProxy.box;
      const float* m = own ? placed.place : placed.box;
      if (!local.valid) continue;
      for (int bits = 0; bits < 8; ++bits) {
        const SgVec3T<double> corner = local.min + SgVec3T<double>(bits & 1 ? local.size.x : 0.0,
                                                                   bits & 2 ? local.size.y : 0.0,
                                                                   bits & 4 ? local.size.z : 0.0);
        box.extend(SgVec3T<double>(m[0], m[1], m[2]) * corner.x + SgVec3T<double>(m[4], m[5], m[6]) * corner.y +
                   SgVec3T<double>(m[8], m[9], m[10]) * corner.z + SgVec3T<double>(m[12], m[13], m[14]));
      }
    }
  };
  for (const auto& entry : faceCaches) add(entry.second);
  if (guidesFlag) add(guides);
  return box;
}
