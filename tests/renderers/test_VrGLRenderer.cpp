// The GL previewer without GL: its caches on any thread count, the limit, culled outlines, older
// attribute names and shader channels; picking, culling, isolating and promoting a selection; and
// the proxies archives share, or the boxes they fall back to.

#include "geometry/VrPatch.h"
#include "renderers/BakeScene.h"
#include "renderers/VrGLCamera.h"
#include "renderers/VrGLLabels.h"
#include "renderers/VrGLRenderer.h"
#include "renderers/VrRenderDescription.h"
#include "support/ArchiveScene.h"
#include "support/CaptureLogger.h"
#include "support/ScopedEnv.h"
#include "support/ShapeScene.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>

#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace {

struct GLScene : vrtest::ShapeScene {
  GLScene() : ShapeScene(nullptr, {}) { scatter(); }
  VrGLRenderer& previewer() {
    if (!gl) gl = static_cast<VrGLRenderer*>(description->addObject("GLRenderer"));
    return *gl;
  }
  // Culls, after geometry, every primitive in the upper half of u.
  void cullHalf() {
    description->activeGenerator()->setAttr("cullFlag", "true", "bool");
    description->activeGenerator()->setAttr("cullExpr", "$u > 0.5", "expr");
  }
  VrGLRenderer* gl = nullptr;
};

// What a render left in the caches, kept after its scene is gone (scenes share their names, so
// only one lives at a time).
struct Result {
  unsigned total = 0;
  size_t prims = 0, culled = 0, lineVertices = 0, outlineVertices = 0;
  std::vector<std::string> keys;
  std::vector<unsigned> ids;
  std::vector<VrGLCache::Vertex> lines;
  std::vector<uint32_t> lineIndices;
};

Result render(size_t threads, bool cullHalf, bool outlines, const char* limit = nullptr) {
  GLScene scene;
  if (cullHalf) scene.cullHalf();
  if (outlines) scene.previewer().setAttr("drawCulled", "true", "bool");  // the older spelling of `culled`
  if (limit) scene.previewer().setAttr("primNumLimit", limit, "int");
  EXPECT_TRUE(VrRenderDescription(scene.previewer(), threads));
  EXPECT_EQ(scene.previewer().drawCulled(), outlines);
  Result r;
  r.total = scene.previewer().totalEmitCount();
  for (const auto& entry : scene.previewer().caches()) {
    const VrGLCache& cache = entry.second;
    r.keys.push_back(cache.key());
    r.prims += cache.prims.size();
    for (const VrGLCache::Prim& prim : cache.prims) {
      r.culled += prim.culled ? 1 : 0;
      r.ids.push_back(prim.id);
    }
    r.lineVertices += cache.lines.vertices.size();
    r.outlineVertices += cache.outlines.vertices.size();
    r.lines.insert(r.lines.end(), cache.lines.vertices.begin(), cache.lines.vertices.end());
    r.lineIndices.insert(r.lineIndices.end(), cache.lines.indices.begin(), cache.lines.indices.end());
  }
  return r;
}

TEST(VrGLRenderer, CachesAreTheSameOnOneAndTwoThreads) {
  tbb::global_control two(tbb::global_control::max_allowed_parallelism, 2);
  const Result serial = render(1, false, false), parallel = render(2, false, false);
  ASSERT_GT(serial.total, 20u);
  EXPECT_EQ(serial.total, serial.prims);
  EXPECT_EQ(serial.keys, parallel.keys);
  EXPECT_EQ(serial.ids, parallel.ids);
  EXPECT_EQ(serial.lineIndices, parallel.lineIndices);
  ASSERT_EQ(serial.lines.size(), parallel.lines.size());
  EXPECT_EQ(0, std::memcmp(serial.lines.data(), parallel.lines.data(), serial.lines.size() * sizeof(VrGLCache::Vertex)));
  // The face's name in selection.
  EXPECT_EQ(serial.keys.front().rfind("body_XfaceidX_", 0), 0u);
  EXPECT_EQ(serial.keys.front().size(), std::string("body_XfaceidX_00000").size());
}

TEST(VrGLRenderer, PrimNumLimitStopsTheEmission) {
  for (size_t threads : {1u, 2u}) {
    vrtest::CaptureLogger log;
    const Result r = render(threads, false, false, "7");
    EXPECT_EQ(r.prims, 7u) << threads << " threads";
    EXPECT_EQ(r.total, 7u);
    EXPECT_EQ(log.warnings().size(), 1u);
  }
}

TEST(VrGLRenderer, CulledPrimitivesComeAsOutlinesOnlyWhenAskedFor) {
  const Result all = render(2, false, false), kept = render(2, true, false), drawn = render(2, true, true);
  EXPECT_EQ(kept.culled, 0u);
  EXPECT_EQ(kept.outlineVertices, 0u);
  EXPECT_GT(kept.prims, 0u);
  EXPECT_LT(kept.prims, all.prims);
  // With outlines, every primitive is there: the kept ones as before, the culled ones outlined.
  EXPECT_EQ(drawn.prims, all.prims);
  EXPECT_EQ(drawn.culled, all.prims - kept.prims);
  EXPECT_EQ(drawn.lineVertices, kept.lineVertices);
  EXPECT_EQ(drawn.outlineVertices + drawn.lineVertices, all.lineVertices);
}

TEST(VrGLRenderer, OlderSpellingsSetTheCurrentFlags) {
  const std::pair<const char*, const char*> pairs[] = {{"drawPatchNames", "patchNames"}, {"drawPrimIDs", "primIDs"},
                                                       {"drawCulled", "culled"},         {"drawVertices", "vertices"},
                                                       {"drawCPoly", "poly"},            {"drawPrimIDsAt", "primIDsAt"}};
  GLScene scene;
  for (const auto& [older, current] : pairs) {
    const std::string value = std::strcmp(older, "drawPrimIDsAt") == 0 ? "0.25" : "true";
    scene.previewer().setAttr(older, value, "bool");
    std::string read, type;
    ASSERT_TRUE(scene.previewer().getAttr(current, read, type)) << current;
    EXPECT_EQ(read, value) << older;
    EXPECT_EQ(type, std::strcmp(older, "drawPrimIDsAt") == 0 ? "float" : "bool") << older;
  }
}

TEST(VrGLRenderer, ShaderChannelsStopAtTheFirstEmptyOne) {
  GLScene scene;
  scene.previewer().setAttr("TEXCOORD5", "[1, 2, 3]", "expr");
  vrtest::CaptureLogger log;
  ASSERT_TRUE(VrRenderDescription(scene.previewer(), 1));
  EXPECT_TRUE(log.has("TEXCOORD5 cannot be active with inactive expressions above. It and those below are treated as "
                      "inactive."));
  // Only TEXCOORD3 ($cWidth in red) is evaluated: three numbers a primitive.
  for (const auto& entry : scene.previewer().caches()) {
    ASSERT_EQ(entry.second.shaderParams.size(), 3 * entry.second.prims.size());
    for (size_t i = 0; i < entry.second.prims.size(); ++i) {
      EXPECT_GT(entry.second.shaderParams[3 * i], 0.0f);
      EXPECT_EQ(entry.second.shaderParams[3 * i + 1], 0.0f);
    }
  }
}

// A primitive's face and id: ids count within a face.
using FaceId = std::pair<int, unsigned>;

// A 200 x 200 picture framing everything the previewer drew.
struct Picture {
  explicit Picture(const VrGLRenderer& previewer) {
    const SgBox3T<double> box = previewer.bounds();
    VrGLCamera::framing(box, 1.0).viewProjection(box, matrix);
  }
  std::set<FaceId> select(VrGLRenderer& previewer, double x0, double y0, double x1, double y1) const {
    const size_t count = previewer.selectPrims(matrix, 200, 200, x0, y0, x1, y1);
    std::set<FaceId> ids;
    for (const VrGLRenderer::SelectedPrim& prim : previewer.selection()) ids.insert({prim.face, prim.id});
    EXPECT_EQ(count, ids.size());
    return ids;
  }
  float matrix[16];
};

std::set<FaceId> idsOf(const VrGLRenderer& previewer, bool culled) {
  std::set<FaceId> ids;
  for (const auto& entry : previewer.caches())
    for (const VrGLCache::Prim& prim : entry.second.prims)
      if (prim.culled == culled) ids.insert({entry.second.face, prim.id});
  return ids;
}

TEST(VrGLRenderer, BoxesSelectThePrimitivesTheyCross) {
  GLScene scene;
  VrGLRenderer& previewer = scene.previewer();
  ASSERT_TRUE(VrRenderDescription(previewer, 1));
  const std::set<FaceId> all = idsOf(previewer, false);
  ASSERT_GT(all.size(), 20u);
  const Picture picture(previewer);
  EXPECT_EQ(picture.select(previewer, 0, 0, 200, 200), all);
  EXPECT_TRUE(picture.select(previewer, -60, -60, -10, -10).empty());
  // Corners in either order; the two halves of the picture together hold every primitive.
  std::set<FaceId> halves = picture.select(previewer, 100, 200, 0, 0);
  const std::set<FaceId> right = picture.select(previewer, 100, 0, 200, 200);
  EXPECT_LT(right.size(), all.size());
  halves.insert(right.begin(), right.end());
  EXPECT_EQ(halves, all);
  // A box of two pixels around one primitive's root holds it and few others.
  const VrGLCache& cache = previewer.caches().begin()->second;
  const VrGLCache::Prim& prim = cache.prims.front();
  double clip[4];
  VrGLProject(picture.matrix, prim.first, clip);
  const double x = (clip[0] / clip[3] + 1.0) * 100.0, y = (1.0 - clip[1] / clip[3]) * 100.0;
  const std::set<FaceId> one = picture.select(previewer, x - 1, y - 1, x + 1, y + 1);
  EXPECT_EQ(one.count({cache.face, prim.id}), 1u);
  EXPECT_LT(one.size(), all.size() / 4);
  EXPECT_EQ(previewer.selection().front().patch, "body");
  // The selection lasts over another render.
  ASSERT_TRUE(VrRenderDescription(previewer, 2));
  EXPECT_EQ(previewer.selection().size(), one.size());
  previewer.clearSelection();
  EXPECT_TRUE(previewer.selection().empty());
}

TEST(VrGLRenderer, CullingTheSelectionTakesItOutOfTheNextRender) {
  GLScene scene;
  VrGLRenderer& previewer = scene.previewer();
  ASSERT_TRUE(VrRenderDescription(previewer, 2));
  const std::set<FaceId> all = idsOf(previewer, false);
  const std::set<FaceId> picked = Picture(previewer).select(previewer, 0, 0, 90, 200);
  ASSERT_FALSE(picked.empty());
  ASSERT_LT(picked.size(), all.size());
  const std::vector<VrGLRenderer::SelectedPrim> selection = previewer.selection();
  ASSERT_TRUE(previewer.cullSelectedPrims());
  EXPECT_TRUE(previewer.selection().empty());
  for (const VrGLRenderer::SelectedPrim& prim : selection) EXPECT_TRUE(scene.patch->isCulled(prim.face, prim.id));
  EXPECT_FALSE(previewer.cullSelectedPrims());  // nothing selected any more

  ASSERT_TRUE(VrRenderDescription(previewer, 2));
  const std::set<FaceId> kept = idsOf(previewer, false);
  EXPECT_EQ(kept.size() + picked.size(), all.size());
  for (const FaceId& prim : picked) EXPECT_EQ(kept.count(prim), 0u) << prim.first << " " << prim.second;
  // Drawn in outline, the culled ones are exactly the selection.
  previewer.setAttr("culled", "true", "bool");
  ASSERT_TRUE(VrRenderDescription(previewer, 2));
  EXPECT_EQ(idsOf(previewer, true), picked);
}

TEST(VrGLRenderer, PromotingTheSelectionExportsAndCullsExactlyIt) {
  vrtest::TempDir dir;
  vrtest::ScopedEnv tmp("TMP", dir.path().c_str());
  vrtest::BakeScene scene("PromoteRenderer");  // archives, one instance frame each
  auto& previewer = *static_cast<VrGLRenderer*>(scene.description->addObject("GLRenderer"));
  ASSERT_TRUE(VrRenderDescription(previewer, 1));
  const std::set<FaceId> all = idsOf(previewer, false);
  const std::set<FaceId> picked = Picture(previewer).select(previewer, 0, 0, 100, 200);
  ASSERT_FALSE(picked.empty());
  ASSERT_LT(picked.size(), all.size());
  ASSERT_TRUE(previewer.promoteSelectedPrims());
  // The header's 14 lines, then 14 a record.
  size_t lines = 0;
  std::ifstream pmt(previewer.promotedFile());
  for (std::string line; std::getline(pmt, line);) ++lines;
  EXPECT_EQ(previewer.promotedFile(), dir.path() + "/fur.pmt");
  EXPECT_EQ(lines, 14u + 14u * picked.size());
  std::set<FaceId> culled;
  for (const auto& face : scene.description->patch("skin")->culledPrims())
    for (unsigned id : face.second) culled.insert({face.first, id});
  EXPECT_EQ(culled, picked);
}

}  // namespace

TEST(VrGLRenderer, IsolatingShowsTheSelectionAloneUntilTurnedOff) {
  GLScene scene;
  VrGLRenderer& previewer = scene.previewer();
  ASSERT_TRUE(VrRenderDescription(previewer, 2));
  auto keysOf = [](const std::vector<VrGLRenderer::SelectedPrim>& prims) {
    std::set<std::tuple<std::string, int, unsigned>> keys;
    for (const auto& prim : prims) keys.insert({prim.patch, prim.face, prim.id});
    return keys;
  };
  const auto all = keysOf(previewer.shownPrims());
  EXPECT_FALSE(previewer.isolateSelectedPrims(true));  // nothing selected
  EXPECT_EQ(keysOf(previewer.shownPrims()), all);
  Picture(previewer).select(previewer, 0, 0, 90, 200);
  const auto picked = keysOf(previewer.selection());
  ASSERT_FALSE(picked.empty());
  ASSERT_LT(picked.size(), all.size());
  ASSERT_TRUE(previewer.isolateSelectedPrims(true));
  EXPECT_EQ(keysOf(previewer.shownPrims()), picked);
  // The isolation outlives the selection and another render, and changes no patch.
  previewer.clearSelection();
  ASSERT_TRUE(VrRenderDescription(previewer, 1));
  EXPECT_EQ(keysOf(previewer.shownPrims()), picked);
  ASSERT_TRUE(previewer.isolateSelectedPrims(false));
  EXPECT_EQ(keysOf(previewer.shownPrims()), all);

  // What isolation copies of a primitive is its whole part of the cache: copying every primitive
  // of a face, in order, gives the face again (here after a merge of two workers' caches).
  ASSERT_TRUE(VrRenderDescription(previewer, 2));
  for (const auto& entry : previewer.caches()) {
    const VrGLCache& cache = entry.second;
    VrGLCache copy;
    for (size_t i = 0; i < cache.prims.size(); ++i) copy.appendPrim(cache, i);
    for (int k = 0; k < 5; ++k) {
      ASSERT_EQ(copy.meshes[k]->indices, cache.meshes[k]->indices) << cache.key() << " mesh " << k;
      ASSERT_EQ(copy.meshes[k]->vertices.size(), cache.meshes[k]->vertices.size());
      for (size_t v = 0; v < cache.meshes[k]->vertices.size(); ++v)
        ASSERT_EQ(std::memcmp(&copy.meshes[k]->vertices[v], &cache.meshes[k]->vertices[v], sizeof(VrGLCache::Vertex)), 0);
    }
  }
}

TEST(VrGLRenderer, ArchivesShareOneProxyOfTheirFileOrFallBackToTheirBox) {
  vrtest::TempDir dir;
  const std::string tetra = vrtest::writeTetra(dir);
  const std::string garbage = dir.write("garbage.abc", "not an archive");
  const struct {
    const char* what;
    std::string file;
    const char* cacheSize;  // VORN_MAX_ARCHIVE_CACHE_SIZE; null: unset
    bool unitCube;
    size_t proxies;
    const char* warning;  // part of the one warning expected; "" for none
  } rows[] = {
      {"the file's proxy", tetra, nullptr, false, 1, ""},
      {"a bound the proxy fits in (4 vertices, 12 indices: 144 bytes)", tetra, "0.0002", false, 1, ""},
      {"a bound it does not fit in", tetra, "0.0001", false, 0, "would take more than 0.0001 MB"},
      {"a size that is not a number", tetra, "lots", false, 1, "is not a size in megabytes: \"lots\""},
      {"unit cubes asked for", tetra, nullptr, true, 0, ""},
      {"a file that is no archive", garbage, nullptr, false, 0, "garbage.abc has no mesh that can be read; its archives are drawn as boxes."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    vrtest::ScopedEnv size("VORN_MAX_ARCHIVE_CACHE_SIZE", row.cacheSize);
    std::vector<std::vector<float>> places[2];
    for (size_t threads : {1u, 2u}) {
      vrtest::ArchiveScene scene(row.file);
      auto& previewer = *static_cast<VrGLRenderer*>(scene.description->addObject("GLRenderer"));
      previewer.setAttr("unitCube", row.unitCube ? "true" : "false", "bool");
      vrtest::CaptureLogger log;
      ASSERT_TRUE(VrRenderDescription(previewer, threads));
      ASSERT_GT(previewer.totalEmitCount(), 10u);
      ASSERT_EQ(previewer.archiveProxies().size(), row.proxies);
      size_t archives = 0;
      for (const auto& entry : previewer.caches())
        for (const VrGLCache::Archive& placed : entry.second.archives) {
          ++archives;
          EXPECT_EQ(placed.proxy, row.proxies ? 0 : -1);
          places[threads - 1].emplace_back(placed.place, placed.place + 16);
        }
      EXPECT_EQ(archives, previewer.totalEmitCount());
      size_t told = 0;
      for (const std::string& warning : log.warnings()) told += *row.warning && warning.find(row.warning) != std::string::npos;
      EXPECT_EQ(told, *row.warning ? 1u : 0u);
      if (row.proxies) {
        // The file's points as they are, one triangle a face.
        const VrGLProxy& proxy = previewer.archiveProxies()[0];
        ASSERT_EQ(proxy.vertices.size(), 4u);
        for (size_t i = 0; i < 12; ++i) EXPECT_EQ(proxy.vertices[i / 3].position[i % 3], vrtest::tetraPoints[i]);
        EXPECT_EQ(std::vector<int32_t>(proxy.indices.begin(), proxy.indices.end()), vrtest::tetraFaces);
        EXPECT_EQ(proxy.bytes(), 144u);
      }
    }
    EXPECT_EQ(places[0], places[1]);
  }
}
