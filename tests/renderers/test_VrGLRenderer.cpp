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

namespace {

struct Counts {
  size_t prims = 0, culled = 0, lineVertices = 0, outlineVertices = 0;
};

Counts countsOf(const VrGLRenderer& gl) {
  Counts c;
  for (const auto& entry : gl.caches()) {
    c.prims += entry.second.prims.size();
    for (const VrGLCache::Prim& prim : entry.second.prims) c.culled += prim.culled ? 1 : 0;
    c.lineVertices += entry.second.lines.vertices.size();
    c.outlineVertices += entry.second.outlines.vertices.size();
  }
  return c;
}

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

TEST(VrGLRenderer, CachesAreTheSameOnOneAndTwoThreads) {
  tbb::global_control two(tbb::global_control::max_allowed_parallelism, 2);
  GLScene serial, parallel;
  ASSERT_TRUE(VrRenderDescription(serial.previewer(), 1));
  ASSERT_TRUE(VrRenderDescription(parallel.previewer(), 2));
  ASSERT_GT(serial.previewer().totalEmitCount(), 20u);
  EXPECT_EQ(serial.previewer().totalEmitCount(), countsOf(serial.previewer()).prims);
  ASSERT_EQ(serial.previewer().caches().size(), parallel.previewer().caches().size());
  auto a = serial.previewer().caches().begin();
  for (auto b = parallel.previewer().caches().begin(); b != parallel.previewer().caches().end(); ++a, ++b) {
    ASSERT_EQ(a->first, b->first);
    ASSERT_EQ(a->second.lines.vertices.size(), b->second.lines.vertices.size());
    EXPECT_EQ(0, std::memcmp(a->second.lines.vertices.data(), b->second.lines.vertices.data(),
                             a->second.lines.vertices.size() * sizeof(VrGLCache::Vertex)));
    EXPECT_EQ(a->second.lines.indices, b->second.lines.indices);
    ASSERT_EQ(a->second.prims.size(), b->second.prims.size());
    for (size_t i = 0; i < a->second.prims.size(); ++i) EXPECT_EQ(a->second.prims[i].id, b->second.prims[i].id);
    // The face's name in selection.
    EXPECT_EQ(a->second.key(), "body_XfaceidX_" + std::string(5 - std::to_string(a->first.second).size(), '0') +
                                   std::to_string(a->first.second));
  }
}

TEST(VrGLRenderer, PrimNumLimitStopsTheEmission) {
  for (size_t threads : {1u, 2u}) {
    GLScene scene;
    scene.previewer().setAttr("primNumLimit", "7", "int");
    vrtest::CaptureLogger log;
    ASSERT_TRUE(VrRenderDescription(scene.previewer(), threads));
    EXPECT_EQ(countsOf(scene.previewer()).prims, 7u) << threads << " threads";
    EXPECT_EQ(scene.previewer().totalEmitCount(), 7u);
    EXPECT_EQ(log.warnings().size(), 1u);
  }
}

TEST(VrGLRenderer, CulledPrimitivesComeAsOutlinesOnlyWhenAskedFor) {
  GLScene whole, hidden, outlined;
  hidden.cullHalf();
  outlined.cullHalf();
  outlined.previewer().setAttr("drawCulled", "true", "bool");  // the older spelling of `culled`
  for (GLScene* scene : {&whole, &hidden, &outlined}) ASSERT_TRUE(VrRenderDescription(scene->previewer(), 2));
  const Counts all = countsOf(whole.previewer()), kept = countsOf(hidden.previewer()), drawn = countsOf(outlined.previewer());
  EXPECT_TRUE(outlined.previewer().drawCulled());
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
