// Reading clump guides. The records of the point file are gathered first, serially; growing a
// guide is the costly part and the only one that the parallel reader spreads over workers. Each
// guide lands in its own slot, so the serial and parallel readers give the same guides.

#include "fxmodules/VrClumpGuides.h"

#include "base/VrExactCast.h"
#include "base/VrMessage.h"
#include "base/VrTaskManager.h"
#include "expressions/VrExpression.h"
#include "fxmodules/VrFXModule.h"
#include "geometry/SgCurve.h"
#include "geometry/VrPatch.h"
#include "io/vpd/VpdFileCachedReader.h"
#include "primitives/VrSplinePrimitive.h"

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

struct Record {
  double u, v;
  int face;
  unsigned id;
};

// The region and the "break" values a guide just grown in `context` carries.
void regionAndBreak(const VrPrimitive& primitive, const VrPrimitiveContext& context, const VrPatch* patch,
                    const Record& record, VrClumpGuide& guide) {
  const unsigned region = primitive.guideRegion(record.u, record.v, record.face, patch->name());
  guide.region = region != 0 ? static_cast<int>(region) : -1;
  guide.breakValues.clear();
  const auto* spline = vrExactCast<VrSplinePrimitiveContext>(&context);
  if (!spline || !spline->breakActive || spline->dominantGuide < 0) return;
  const unsigned dominant = static_cast<unsigned>(spline->dominantGuide);
  if (dominant >= primitive.numGuides()) return;
  if (const std::vector<float>* values = primitive.guide(dominant).guideCVAttrs().find("break"))
    guide.breakValues = *values;
}

// Grows one guide in `context` and stores it in `guide`; `lengthScale` stretches it about its root.
void grow(VrPrimitive& primitive, VrFXModule* module, VrPrimitiveContext& context, const VrPatch* patch,
          const Record& record, const VrFXRamp* curlScale, double lengthScale, VrClumpGuide& guide) {
  guide.u = record.u;
  guide.v = record.v;
  guide.face = record.face;
  guide.patchName = patch->name();
  context.setActivePatchFace(patch, record.face);
  context.setId(record.id);
  primitive.makeGeometryInParallel(context, record.u, record.v, module);
  guide.T = context.cN(record.u, record.v, false);
  guide.A = context.cU(record.u, record.v, false);
  guide.B = context.cV(record.u, record.v, false);
  guide.cvs = context.cGeom();
  if (lengthScale != 1.0)
    for (size_t i = 1; i < guide.cvs.size(); ++i)
      guide.cvs[i] = guide.cvs[0] + (guide.cvs[i] - guide.cvs[0]) * lengthScale;
  regionAndBreak(primitive, context, patch, record, guide);
  guide.length = guide.cvs.size() > 1 ? SgCurve::cpolyLength(guide.cvs, guide.segmentLengths) : 0.0;
  guide.valid = !context.cullPrim() && guide.length > 0.0;
  const size_t n = guide.cvs.size();
  guide.curlAngles.assign(n, 0.0);
  if (guide.valid && curlScale && n > 1) {
    // A scale above one half curls one way, below the other; 200 pi radians per unit length.
    const double scale = 628.3185307179587 / guide.length;
    for (size_t i = 1; i < n; ++i) {
      const double s = curlScale->at(static_cast<double>(i) / static_cast<double>(n - 1));
      const double step = guide.segmentLengths[i - 1] * scale;
      guide.curlAngles[i] = guide.curlAngles[i - 1] + (s > 0.5 ? -(s - 0.5) * step : (0.5 - s) * step);
    }
  }
  guide.filled = true;
}

}  // namespace

bool VrClumpGuides::readClumpGuides(VrPrimitive* primitive, VrFXModule* module, VrDescription*,
                                    const VpdFileCachedReader& reader, const VrPatch* patch,
                                    const VrFXRamp* curlScale, const std::string& path) {
  return read(primitive, module, reader, patch, curlScale, path, false);
}

bool VrClumpGuides::readClumpGuidesInParallel(VrPrimitive* primitive, VrFXModule* module, VrDescription*,
                                              const VpdFileCachedReader& reader, const VrPatch* patch,
                                              const VrFXRamp* curlScale, const std::string& path) {
  return read(primitive, module, reader, patch, curlScale, path, true);
}

bool VrClumpGuides::read(VrPrimitive* primitive, VrFXModule* module, const VpdFileCachedReader& reader,
                         const VrPatch* patch, const VrFXRamp* curlScale, const std::string& path,
                         bool parallel) {
  if (!primitive || !patch) return false;
  const int block = reader.blockIndex(Vpd::LocationBlock);
  if (block < 0) {
    VR_ERROR("Failed to find the Location block in file: " + path);
    return false;
  }
  std::vector<int> faces = patch->faceIds();
  std::sort(faces.begin(), faces.end());
  std::vector<Record> records;
  VpdFileCachedReaderContext cursor;
  std::vector<float> values;
  for (int face : faces) {
    if (!reader.findFace(cursor, face)) {
      // A face the file names but never started simply has no guides.
      const std::vector<int>& named = reader.faceIds();
      if (std::find(named.begin(), named.end(), face) == named.end())
        VR_WARNING(3, "Face id " + std::to_string(face) + " not found in file " + path);
      continue;
    }
    if (!reader.findBlock(cursor, block)) continue;
    std::uint32_t id = 0;
    while (reader.readPrim(cursor, id, values)) {
      if (values.size() < 2) continue;
      records.push_back(Record{values[0], values[1], face, id});
    }
  }
  VR_DEBUG(2, vrmsg::CatFXModule, "Reading " + std::to_string(records.size()) + " clump guides.");

  const size_t first = guides.size();
  guides.resize(first + records.size());
  if (!parallel) {
    for (size_t i = 0; i < records.size(); ++i)
      grow(*primitive, module, primitive->context(), patch, records[i], curlScale, lengthScale, guides[first + i]);
    return true;
  }
  VrTaskManager::parallelChunks(records.size(), [&](size_t begin, size_t end) {
    std::unique_ptr<VrPrimitiveContext> worker = primitive->cloneContext(primitive->context());
    primitive->initDescriptionInParallel(*worker);
    VrExpression::initTLS(worker.get());
    for (size_t i = begin; i != end; ++i)
      grow(*primitive, module, *worker, patch, records[i], curlScale, lengthScale, guides[first + i]);
    VrExpression::clearTLS();
    primitive->finishDescriptionInParallel(*worker);
  });
  return true;
}
