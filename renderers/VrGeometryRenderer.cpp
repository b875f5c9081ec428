#include "renderers/VrGeometryRenderer.h"

#include "base/VrMessage.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "primitives/VrArchivePrimitive.h"
#include "primitives/VrCardPrimitive.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrSplinePrimitive.h"
#include "renderers/VrArchiveFrame.h"

#include <algorithm>
#include <climits>
#include <set>

namespace {

using FaceMap = std::map<std::pair<std::string, int>, VrGeometryFace>;

const char* const jointPlacements = "One Joint per CV:Specify Joint Number";

// The attributes in the order they are written: name, default, type, enum labels.
const char* const declared[][4] = {{"outputInstances", "false", "bool", ""},
                                   {"useWidthRamp", "true", "bool", ""},
                                   {"geometryType", "0", "enum", "Polygon:Subdivision"},
                                   {"shapeType", "0", "enum", "Ribbon:Cross:Tube"},
                                   {"convertSelected", "false", "bool", ""},
                                   {"combineMesh", "true", "bool", ""},
                                   {"createStripJoints", "false", "bool", ""},
                                   {"stripJointPlacementType", "0", "enum", jointPlacements},
                                   {"jointNumOnStrip", "5", "int", ""},
                                   {"createGuideJoints", "false", "bool", ""},
                                   {"guideJointPlacementType", "0", "enum", jointPlacements},
                                   {"jointNumOnGuide", "5", "int", ""},
                                   {"meshOrientation", "0", "enum", "As Description Setting:Align Surface Normal"},
                                   {"insertWidthSpan", "false", "bool", ""},
                                   {"widthSpanNum", "1", "int", ""},
                                   {"curvature", "0.0", "float", ""},
                                   {"uvInTiles", "false", "bool", ""},
                                   {"uvLayoutType", "0", "enum", "Overlap:Side By Side"},
                                   {"uvTileSeparation", "0.0", "float", ""}};

}  // namespace

VrGeometryRenderer::VrGeometryRenderer(VrDescription* description) : VrRenderer(description) {
  for (const auto& attr : declared) setAttr(attr[0], attr[1], attr[2], attr[3]);
}

bool VrGeometryRenderer::setAttr(const std::string& name, const std::string& value, const std::string& type,
                                 const std::string& enumStrings) {
  if (VrRenderer::setAttr(name, value, type, enumStrings)) return true;
  struct Flag {
    const char* name;
    bool* value;
  };
  const Flag flags[] = {{"outputInstances", &instancesFlag},     {"useWidthRamp", &widthRampFlag},
                        {"convertSelected", &convertSelectedFlag}, {"combineMesh", &combineFlag},
                        {"createStripJoints", &stripJointsFlag},  {"createGuideJoints", &guideJointsFlag},
                        {"insertWidthSpan", &settings.insertWidthSpan}, {"uvInTiles", &settings.uvInTiles}};
  for (const Flag& f : flags)
    if (name == f.name) return boolAttr(name, value, *f.value);
  struct Whole {
    const char* name;
    int* value;
  };
  const Whole wholes[] = {{"geometryType", &geometryKind},
                          {"shapeType", &settings.shape},
                          {"stripJointPlacementType", &stripJointPlacement},
                          {"guideJointPlacementType", &guideJointPlacement},
                          {"meshOrientation", &settings.orientation},
                          {"uvLayoutType", &settings.uvLayout},
                          {"jointNumOnStrip", &jointsOnStrip},
                          {"jointNumOnGuide", &jointsOnGuide},
                          {"widthSpanNum", &settings.widthSpanNum}};
  for (const Whole& w : wholes)
    if (name == w.name) return intAttr(name, value, *w.value);
  if (name == "curvature") return floatAttr(name, value, settings.curvature);
  if (name == "uvTileSeparation") return floatAttr(name, value, settings.uvTileSeparation);
  return false;
}

void VrGeometryRenderer::initDescription() {
  VrRenderer::initDescription();
  helper = VrGeometryRendererDataHelper(settings);
  faceData.clear();
  meshList.clear();
  instanceList.clear();
  stripJointList.clear();
  guideJointList.clear();
}

std::unique_ptr<VrRendererContext> VrGeometryRenderer::newRendererContext() const {
  return std::make_unique<VrGeometryRendererContext>();
}

void VrGeometryRenderer::reduceResult(VrRendererContext& context, const std::string&, bool) {
  auto* record = dynamic_cast<VrGeometryRendererContext*>(&context);
  if (!record) return;
  std::lock_guard<std::recursive_mutex> hold(reduceMutex());
  for (auto& entry : record->faces) faceData[entry.first].append(std::move(entry.second));
  record->faces.clear();
}

void VrGeometryRenderer::emitPrimitive(int sample, double u, double v, int face, const std::vector<VrPatch*>& patches) {
  VrPrimitive* primitive = description() ? description()->activePrimitive() : nullptr;
  if (sample != 0 || !primitive || patches.empty() || !patches[0]) return;
  SgBox3T<double> box;
  if (!emitInto(faceData, primitive->context(), u, v, face, *patches[0], box)) return;
  mergeEmittedBox(box);
  incrEmitCount();
}

void VrGeometryRenderer::emitPrimitiveInParallel(VrPrimitiveContext& context, int sample, double u, double v, int face,
                                                 const std::vector<VrPatch*>& patches) {
  auto* record = dynamic_cast<VrGeometryRendererContext*>(context.rendererContext());
  if (sample != 0 || !record || patches.empty() || !patches[0]) return;
  SgBox3T<double> box;
  if (!emitInto(record->faces, context, u, v, face, *patches[0], box)) return;
  record->mergeEmittedBox(box);
  record->incrEmitCount();
}

bool VrGeometryRenderer::emitInto(FaceMap& faces, VrPrimitiveContext& context, double u, double v, int face,
                                  const VrPatch& patch, SgBox3T<double>& box) {
  if (convertSelectedFlag && !selected.count(PrimKey(patch.name(), face, context.id()))) return false;
  VrDescription* desc = description();
  const std::string kind = desc->activePrimitive()->typeName();
  const SgXform3T<double>& world = desc->palette() ? desc->palette()->world() : SgXform3T<double>();
  std::vector<SgVec3T<double>> cvs = context.cGeom();
  for (SgVec3T<double>& cv : cvs) {
    box.extend(cv);
    cv = world.transformed(cv);
  }
  VrGeometryFace& faceRecord = faces[{patch.name(), face}];
  VrGeometryFace::Prim prim;
  prim.id = context.id();
  prim.start = faceRecord.mesh.end();
  bool made = false;
  if (kind == "SplinePrimitive")
    made = handleSpline(context, u, v, cvs, faceRecord, prim);
  else if (kind == "CardPrimitive")
    made = handleCard(cvs, faceRecord);
  else if (kind == "SpherePrimitive")
    made = handleSphere(cvs, faceRecord);
  else if (kind == "ArchivePrimitive")
    made = handleArchive(context, cvs, faceRecord, prim);
  if (made) faceRecord.prims.push_back(std::move(prim));
  return true;
}

void VrGeometryFace::append(VrGeometryFace&& other) {
  const VrMeshData::Mark shift = mesh.end();
  for (Prim& prim : other.prims) {
    prim.start.point += shift.point;
    prim.start.face += shift.face;
    prim.start.corner += shift.corner;
    prims.push_back(std::move(prim));
  }
  mesh.append(other.mesh);
  instances.insert(instances.end(), other.instances.begin(), other.instances.end());
}

bool VrGeometryRenderer::handleSpline(VrPrimitiveContext& context, double u, double v,
                                      const std::vector<SgVec3T<double>>& cvs, VrGeometryFace& face,
                                      VrGeometryFace::Prim& prim) const {
  const auto* spline = dynamic_cast<const VrSplinePrimitive*>(description()->activePrimitive());
  const auto* splineContext = dynamic_cast<const VrSplinePrimitiveContext*>(&context);
  std::vector<float> widths(cvs.size(), static_cast<float>(context.cWidth()));
  if (widthRampFlag && spline && splineContext) spline->calcCVWidths(*splineContext, widths);
  const SgXform3T<double>& world =
      description()->palette() ? description()->palette()->world() : SgXform3T<double>();
  const SgVec3T<double> side =
      world.transformed(splineContext ? splineContext->widthVec() : context.cU(u, v, false), true);
  const SgVec3T<double> normal = world.transformed(context.cN(u, v, false), true);
  if (!helper.addDataForSplinePrim(cvs, widths, side, normal, face.mesh)) return false;
  if (stripJointsFlag) prim.joints = placeJoints(cvs, stripJointPlacement == OneJointPerCV, jointsOnStrip);
  return true;
}

bool VrGeometryRenderer::handleCard(const std::vector<SgVec3T<double>>& cvs, VrGeometryFace& face) const {
  return cvs.size() == VrCardPrimitive::NumControlPoints && helper.addDataForCardPrim(cvs, face.mesh);
}

bool VrGeometryRenderer::handleSphere(const std::vector<SgVec3T<double>>& cvs, VrGeometryFace& face) const {
  return helper.addDataForSpherePrim(cvs, face.mesh);
}

bool VrGeometryRenderer::handleArchive(const VrPrimitiveContext& context, const std::vector<SgVec3T<double>>& cvs,
                                       VrGeometryFace& face, VrGeometryFace::Prim& prim) const {
  const auto* archive = dynamic_cast<const VrArchivePrimitive*>(description()->activePrimitive());
  VrArchiveFrame frame;
  if (!frame.set(archive, cvs)) return false;
  if (instancesFlag) {
    VrGeometryFace::Instance instance;
    instance.id = prim.id;
    frame.matrix(instance.matrix);
    face.instances.push_back(instance);
    return false;
  }
  auto placed = std::make_unique<VrGeometryFace::Archive>();
  placed->key = VrArchiveGeometry::chooseKey(archive, context, VrArchiveGeometry::Preference::Finest);
  const auto* own = dynamic_cast<const VrArchivePrimitiveContext*>(&context);
  placed->frame = own ? own->archiveFrame : 0.0;
  placed->place = frame;
  frame.box(archive, context, false, placed->corner, placed->edges);
  prim.archive = std::move(placed);
  return true;
}

void VrGeometryRenderer::readArchiveMeshes() {
  const auto* archive = dynamic_cast<const VrArchivePrimitive*>(description()->activePrimitive());
  std::set<std::pair<int, double>> wanted;
  for (const auto& entry : faceData)
    for (const VrGeometryFace::Prim& prim : entry.second.prims)
      if (prim.archive && prim.archive->key >= 0) wanted.emplace(prim.archive->key, prim.archive->frame);
  for (const auto& keyFrame : wanted)
    if (archive) archiveMeshes.mesh(*archive, keyFrame.first, keyFrame.second, "written as boxes");
}

void VrGeometryRenderer::archivePart(const VrGeometryFace::Archive& placed, VrMeshData& out) {
  const auto* archive = dynamic_cast<const VrArchivePrimitive*>(description()->activePrimitive());
  const VrArchiveMesh* mesh =
      archive && placed.key >= 0 ? archiveMeshes.mesh(*archive, placed.key, placed.frame, "written as boxes") : nullptr;
  if (mesh)
    helper.addDataForArchiveMesh(*mesh, placed.place.origin, placed.place.axes, out);
  else
    helper.addDataForArchivePrim(placed.corner, placed.edges, out);
}

std::string VrGeometryRenderer::primName(const std::string& patch, int face, unsigned id) const {
  return description()->name() + "_" + patch + "_" + std::to_string(face) + "_" + std::to_string(id);
}

std::vector<SgVec3T<double>> VrGeometryRenderer::placeJoints(const std::vector<SgVec3T<double>>& cvs, bool perCV,
                                                             int count) {
  if (perCV || cvs.size() < 2) return cvs;
  count = std::max(count, 2);
  std::vector<double> along(cvs.size(), 0.0);
  for (size_t i = 1; i < cvs.size(); ++i) along[i] = along[i - 1] + (cvs[i] - cvs[i - 1]).length();
  std::vector<SgVec3T<double>> joints;
  size_t span = 0;
  for (int j = 0; j < count; ++j) {
    const double at = along.back() * j / (count - 1);
    while (span + 2 < cvs.size() && along[span + 1] < at) ++span;
    const double length = along[span + 1] - along[span];
    const double t = length > 0.0 ? std::clamp((at - along[span]) / length, 0.0, 1.0) : 0.0;
    joints.push_back(cvs[span] + (cvs[span + 1] - cvs[span]) * t);
  }
  return joints;
}

void VrGeometryRenderer::makeGuideJoints() {
  VrDescription* desc = description();
  const VrPrimitive* primitive = desc ? desc->activePrimitive() : nullptr;
  if (!guideJointsFlag || !primitive) return;
  const SgXform3T<double>& world = desc->palette() ? desc->palette()->world() : SgXform3T<double>();
  for (unsigned g = 0; g < primitive->numGuides(); ++g) {
    std::vector<SgVec3T<double>> cvs = primitive->guide(g).cGuideGeom();
    for (SgVec3T<double>& cv : cvs) cv = world.transformed(cv);
    if (cvs.empty()) continue;
    guideJointList.push_back({desc->name() + "_guide" + std::to_string(g),
                              placeJoints(cvs, guideJointPlacement == OneJointPerCV, jointsOnGuide)});
  }
}

void VrGeometryRenderer::finishDescription() {
  VrRenderer::finishDescription();
  VrDescription* desc = description();
  if (!desc) return;
  if (convertSelectedFlag && selected.empty())
    VR_WARNING(1, "GeometryRenderer of " + desc->name() + " converts the selected primitives, and none is selected.");
  // Primitives in id order within each face (a face's emission order already is, as a rule).
  size_t count = 0;
  std::map<std::pair<std::string, int>, std::vector<size_t>> orders;
  for (auto& entry : faceData) {
    const auto& prims = entry.second.prims;
    std::vector<size_t>& order = orders[entry.first];
    order.resize(prims.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return prims[a].id < prims[b].id; });
    auto& instances = entry.second.instances;
    std::stable_sort(instances.begin(), instances.end(), [](const auto& a, const auto& b) { return a.id < b.id; });
    count += prims.size();
  }
  readArchiveMeshes();
  size_t index = 0;
  if (combineFlag && count > 0) meshList.push_back({desc->name(), VrMeshData()});
  for (auto& entry : faceData) {
    const std::string& patch = entry.first.first;
    const int face = entry.first.second;
    VrGeometryFace& record = entry.second;
    for (size_t i : orders[entry.first]) {
      VrGeometryFace::Prim& prim = record.prims[i];
      const std::string name = primName(patch, face, prim.id);
      // The primitive's part: of the face's mesh, or made now for an archive.
      VrMeshData archivePolygons;
      if (prim.archive) archivePart(*prim.archive, archivePolygons);
      const VrMeshData& from = prim.archive ? archivePolygons : record.mesh;
      const VrMeshData::Mark start = prim.archive ? VrMeshData::Mark() : prim.start;
      const VrMeshData::Mark end = prim.archive ? archivePolygons.end() : record.end(i);
      // Face indices are 32-bit: a combined mesh goes on in another one before it overflows.
      if (!combineFlag)
        meshList.push_back({name, VrMeshData()});
      else if (meshList.back().data.numPoints() + (end.point - start.point) > size_t(INT32_MAX))
        meshList.push_back({desc->name() + "_" + std::to_string(meshList.size()), VrMeshData()});
      VrMeshData& into = meshList.back().data;
      const size_t first = into.numPoints();
      into.appendPart(from, start, end);
      helper.layoutUVs(into, first, index++, count);
      if (!prim.joints.empty()) stripJointList.push_back({name, std::move(prim.joints)});
    }
    for (const VrGeometryFace::Instance& instance : record.instances) {
      instanceList.push_back({primName(patch, face, instance.id), {}});
      std::copy(instance.matrix, instance.matrix + 16, instanceList.back().matrix);
    }
    // Each face's mesh goes as soon as it is copied, so that the memory does not double.
    record = VrGeometryFace();
  }
  faceData.clear();
  archiveMeshes.clear();
  makeGuideJoints();
}
