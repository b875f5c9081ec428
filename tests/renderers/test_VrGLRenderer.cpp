// The GL previewer's emission (no GL needed): what it caches for a render does not depend on the
// thread count, the limit and the culled outlines keep their promises, older attribute names
// still work, and the shader channels stop at the first empty one.

#include "renderers/VrGLRenderer.h"
#include "renderers/VrRenderDescription.h"
#include "support/CaptureLogger.h"
#include "support/ShapeScene.h"

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>

#include <cstring>
#include <string>
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

}  // namespace
