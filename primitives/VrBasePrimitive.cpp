#include "primitives/VrBasePrimitive.h"

#include "base/VrMessage.h"
#include "base/vrutilString.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "geometry/VrPatch.h"
#include "primitives/VrPrimitive.h"
#include "primitives/VrPrimitiveContext.h"

#include <algorithm>
#include <cstdio>
#include <vector>
#include <istream>
#include <ostream>

namespace {

// Old files wrote CVs as "[x,y,z]"; each is read as three numbers separated by one character.
bool readBracketCV(std::istream& in, SgVec3T<double>& cv) {
  char c = 0;
  while (in.get(c) && c != '[') {
  }
  if (!in) return false;
  char separator = 0;
  in >> cv.x;
  in.get(separator);
  in >> cv.y;
  in.get(separator);
  in >> cv.z;
  in.ignore(2);
  return !in.fail();
}

}  // namespace

const VrGuide* VrBasePrimitive::guide(const std::string& id) const {
  for (const VrGuide& g : guides)
    if (g.id() == id) return &g;
  return nullptr;
}

void VrBasePrimitive::stripGuidePatch(const VrPatch* patch) {
  guides.erase(std::remove_if(guides.begin(), guides.end(),
                              [patch](const VrGuide& g) { return g.patch() == patch; }),
               guides.end());
}

bool VrBasePrimitive::newCopiedGuides(const VrBasePrimitive* other) {
  if (!other) {
    VR_ERROR("Cant add copied guides with no other primitive.");
    return false;
  }
  guides.insert(guides.end(), other->guides.begin(), other->guides.end());
  return true;
}

SgBox3T<double> VrBasePrimitive::guideBoundingBox(unsigned index) const {
  SgBox3T<double> box;
  if (index >= guides.size()) return box;
  for (const SgVec3T<double>& cv : guides[index].cGuideGeom()) box.extend(cv);
  return box;
}

void VrBasePrimitive::defaultGuideGeom(VrGuide& guide) const {
  guide.setOrigIGeom({SgVec3T<double>(0.0, 0.0, 0.0), guide.exportedNormal()});
}

unsigned VrBasePrimitive::numGuidesOn(const VrPatch* patch) const {
  return static_cast<unsigned>(
      std::count_if(guides.begin(), guides.end(), [patch](const VrGuide& g) { return g.patch() == patch; }));
}

bool VrBasePrimitive::exportGuides(std::ostream& out, const VrPatch* patch) const {
  const unsigned count = numGuidesOn(patch);
  if (count == 0) return out.good();
  const std::string word = typeName();
  out << "Guides\t" << word.substr(0, word.size() >= 9 ? word.size() - 9 : 0) << '\t' << count
      << '\n';
  for (const VrGuide& g : guides) {
    if (g.patch() != patch) continue;
    const auto& cvs = g.iOrigGuideGeom();
    out << "\tid\t\t\t" << g.id() << '\n';
    out << "\tloc\t\t\t" << g.patchU() << ' ' << g.patchV() << ' ' << g.faceId() << '\n';
    out << "\tblend\t\t\t" << g.blend() << '\n';
    out << "\tinterp\t\t\t" << g.interpolation() << '\n';
    out << "\tCVs\t\t\t" << cvs.size() << '\n';
    // The root is not written: it comes back from the binding. An unbound patch has no frame,
    // so the CVs are written as they stand.
    for (size_t i = 1; i < cvs.size(); ++i)
      out << '\t' << cvs[i].x << ' ' << cvs[i].y << ' ' << cvs[i].z << '\n';
  }
  return out.good();
}

bool VrBasePrimitive::importGuides(std::istream& in, const VrPatch* patch, unsigned fileVersion) {
  int count = 0;
  if (!(in >> count) || count < 0) {
    VR_ERROR("Unable to read the number of guides in Guide import.");
    return false;
  }
  VrPalette* palette = description() ? description()->palette() : nullptr;
  std::string token, line;
  for (int n = 0; n < count; ++n) {
    VrGuide g;
    g.setPatch(patch);
    bool sawCVs = false;
    while (in >> token) {
      if (token[0] == '#') {
        vrutil::safeGetline(in, line);
      } else if (token == "CVs") {
        sawCVs = true;
        break;
      } else if (token == "id") {
        std::string id;
        in >> id;
        g.setId(id);
      } else if (token == "loc") {
        double u = 0.0, v = 0.0;
        int face = 0;
        in >> u >> v >> face;
        g.setU(u);
        g.setV(v);
        g.setFaceId(face);
      } else if (token == "blend") {
        double blend = 0.0;
        in >> blend;
        g.setBlend(blend);
      } else if (token == "interp") {
        vrutil::safeGetline(in, line);
        g.setInterpolation(vrutil::stripWhitespace(line));
      } else if (token == "u" || token == "v") {
        double value = 0.0;
        in >> value;
        token == "u" ? g.setU(value) : g.setV(value);
      } else if (token == "faceId") {
        int face = 0;
        in >> face;
        g.setFaceId(face);
      } else {
        vrutil::safeGetline(in, line);
        VR_ERROR("Unrecognized token: " + token + " in Guide import. Trying to read and continue.");
      }
      if (in.fail()) break;
    }
    if (!sawCVs) {
      VR_ERROR("No CVs found for guide during import.");
      return false;
    }
    vrutil::safeGetline(in, line);
    int cvCount = 0;
    if (std::sscanf(line.c_str(), "%d", &cvCount) != 1 || cvCount < 0) cvCount = 0;
    std::vector<SgVec3T<double>> cvs;
    if (cvCount > 0) cvs.emplace_back(0.0, 0.0, 0.0);
    for (int i = 1; i < cvCount; ++i) {
      SgVec3T<double> cv;
      const bool ok = fileVersion >= 15 ? static_cast<bool>(in >> cv.x >> cv.y >> cv.z)
                                        : readBracketCV(in, cv);
      if (!ok) {
        VR_ERROR("No CVs found for guide during import.");
        return false;
      }
      cvs.push_back(cv);
    }
    g.setOrigIGeom(std::move(cvs));
    if (fileVersion < 16) g.setId(palette);
    guides.push_back(std::move(g));
  }
  return true;
}

// ---------------------------------------------------------------------------------------------
// Interpolation

VrPrimitiveContext* VrBasePrimitive::serialContext() const {
  auto* primitive = dynamic_cast<const VrPrimitive*>(this);
  return primitive ? const_cast<VrPrimitiveContext*>(&primitive->context()) : nullptr;
}

unsigned VrBasePrimitive::transformGuidesToSurface() {
  unsigned placed = 0;
  for (unsigned i = 0; i < numGuides(); ++i)
    if (prepGuideCGeom(i)) ++placed;
  return placed;
}

bool VrBasePrimitive::prepGuideCGeom(unsigned index) {
  if (index >= numGuides()) return false;
  VrGuide& g = guides[index];
  return g.patchFrame(g.faceId());
}

void VrBasePrimitive::setupInterpolation(bool silent) {
  if (VrPrimitiveContext* context = serialContext()) context->setActivePatchFace(nullptr, 0);
  VR_DEBUG(2, vrmsg::CatPrimitive, "CV interpolation");
  if (guides.empty()) {
    if (!silent) VR_WARNING(1, "rNoPreviewVisibleGuidesTip");
    return;
  }
  transformGuidesToSurface();
  initInterpolation("");
}

void VrBasePrimitive::initInterpolation(const std::string& connectivityFile) {
  clearCandidates();
  if (guides.empty() || !description()) return;
  const vrguide::GuideRoots roots = vrguide::collectRoots(guides);
  std::vector<std::vector<int>> neighbourSets;
  std::vector<vrguide::FaceBox> boxes;
  vrguide::gatherNeighbors(guides, *description(), roots, neighbourSets, boxes);
  vrguide::processGuides(guides, roots, neighbourSets, connectivityFile);
  vrguide::associateCandidates(guides, roots, boxes, candidateTable);
  candidatesAssociated = true;
}

void VrBasePrimitive::clearCandidates() {
  candidateTable.clear();
  candidatesAssociated = false;
}

const std::vector<int>* VrBasePrimitive::candidates(const std::string& patchName, int face) const {
  const auto patchEntry = candidateTable.find(patchName);
  if (patchEntry == candidateTable.end()) return nullptr;
  const auto faceEntry = patchEntry->second.find(face);
  return faceEntry == patchEntry->second.end() ? nullptr : &faceEntry->second;
}

void VrBasePrimitive::findGuidesAndWeightsInParallel(VrPrimitiveContext& context, double u, double v) {
  if (!context.cPatch()) {
    VR_ERROR("No patch to find guides and weights on.");
    context.activeGuides.clear();
    return;
  }
  switch (interpMethod) {
    case 0:
      context.activeGuides.clear();
      break;
    case 1:
      calcCVWeightsInParallel(context, u, v);
      break;
    default:
      VR_ERROR("Invalid interpolation method.");
      break;
  }
}

void VrBasePrimitive::findGuidesAndWeights(double u, double v) {
  if (VrPrimitiveContext* context = serialContext()) findGuidesAndWeightsInParallel(*context, u, v);
}

void VrBasePrimitive::calcCVWeights(double u, double v) {
  if (VrPrimitiveContext* context = serialContext()) calcCVWeightsInParallel(*context, u, v);
}

void VrBasePrimitive::calcCVWeightsInParallel(VrPrimitiveContext& context, double u, double v) {
  context.weight.clear();
  context.weightN = 0.0;
  context.activeGuides.clear();
  if (guides.empty()) return;
  if (!candidatesAssociated) {
    const VrDescription* owner = description();
    const VrPalette* palette = owner ? owner->palette() : nullptr;
    VR_ERROR("Candidate guides have not been associated! " + (palette ? palette->name() : std::string()) +
             " " + (owner ? owner->name() : std::string()));
    context.setCullPrim(true);
    return;
  }
  const VrPatch* patch = context.cPatch();
  if (!patch) return;
  const int face = context.cFaceId();
  const unsigned region = guideRegion(u, v, face, patch->name());
  const double mask = region != 0 ? guideRegionMask(u, v, face, patch->name()) : 1.0;
  const bool wasCulled = context.cullPrim();
  const SgVec3T<double> P = context.cPg(u, v, true);
  if (!wasCulled && context.cullPrim()) return;  // the surface failed and said so
  const SgVec3T<double> N = context.cNg(u, v, true);
  static const std::vector<int> none;
  const std::vector<int>* list = candidates(patch->name(), face);
  const double sum = vrguide::guideWeights(guides, list ? *list : none, P, N, region, mask,
                                           context.activeGuides, context.weight);
  if (sum <= static_cast<double>(1e-8f)) {
    char point[96];
    std::snprintf(point, sizeof point, "%f %f %f ", P.x, P.y, P.z);
    VR_WARNING(3, "No guides within reach of point on patch " + patch->name() + "[" + std::to_string(face) +
                      "]. Primitive (or clump guide) culled.  [ " + point + "]");
    context.setCullPrim(true);
    return;
  }
  context.weightN = 1.0 / sum;
  VR_DEBUG(4, vrmsg::CatPrimitive, "Using " + std::to_string(context.activeGuides.size()) + " active guides.");
}

unsigned VrBasePrimitive::guideRegion(double, double, int, const std::string&) const { return 0; }

double VrBasePrimitive::guideRegionMask(double, double, int, const std::string&) const { return 1.0; }

const std::vector<double>& VrBasePrimitive::weight() const {
  static const std::vector<double> none;
  const VrPrimitiveContext* context = serialContext();
  return context ? context->weight : none;
}

double VrBasePrimitive::weightN() const {
  const VrPrimitiveContext* context = serialContext();
  return context ? context->weightN : 0.0;
}

const std::vector<int>& VrBasePrimitive::activeGuides() const {
  static const std::vector<int> none;
  const VrPrimitiveContext* context = serialContext();
  return context ? context->activeGuides : none;
}
