#include "tools/previewScene.h"

#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "io/alembic/VrAbcArchive.h"
#include "renderers/VrGLCamera.h"
#include "renderers/VrGLDraw.h"
#include "renderers/VrGLRenderer.h"
#include "renderers/VrGLSurface.h"
#include "renderers/VrOpenGLThread.h"
#include "renderers/VrRenderDescription.h"

#include <cstdio>
#include <filesystem>

namespace vorncli {

namespace {

const SgVec3T<double> surfaceColor(0.85, 0.72, 0.62);
// Grid of each surface face: enough for a smooth silhouette on a subdivision mesh's faces.
constexpr int surfaceGrid = 4;

}  // namespace

bool parsePictureSize(const std::string& text, unsigned& width, unsigned& height) {
  unsigned w = 0, h = 0;
  char x = 0;
  int used = 0;
  if (std::sscanf(text.c_str(), "%u%c%u%n", &w, &x, &h, &used) != 3 || (x != 'x' && x != 'X') ||
      text[static_cast<size_t>(used)] != '\0')
    return false;
  if (w < 16 || h < 16 || w > 8192 || h > 8192) return false;
  width = w;
  height = h;
  return true;
}

bool isPngName(const std::string& path) {
  const size_t n = path.size();
  return n >= 4 && (path.compare(n - 4, 4, ".png") == 0 || path.compare(n - 4, 4, ".PNG") == 0);
}

bool geometryReadable(const std::string& path) {
  std::error_code ec;
  if (path.empty() || !std::filesystem::is_regular_file(path, ec)) {
    fail("no such geometry file: " + path);
    return false;
  }
  VrAbcArchive archive;
  if (!archive.open(path)) {
    fail("not a readable Alembic archive: " + path);
    return false;
  }
  return true;
}

PreviewScene::PreviewScene() = default;
PreviewScene::~PreviewScene() = default;

bool PreviewScene::load(const std::string& collection, const std::string& geometry, double frame, double fps,
                        const CliLogger& logger) {
  if (!bound.bind(collection, geometry, frame, fps, false, logger, "nothing was drawn")) return false;
  VrPalette* collectionRead = bound.palette();
  for (unsigned d = 0; d < collectionRead->numDescriptions(); ++d) {
    VrDescription* description = collectionRead->description(d);
    if (!description) continue;
    for (VrGLCache& cache : VrGLSurfaceCaches(*description, surfaceGrid, surfaceColor)) surfaces.push_back(std::move(cache));
  }
  return true;
}

bool PreviewScene::render(const VrGLCamera& camera, const PreviewFlags& flags, bool exact, unsigned workers) {
  camera.applyToRenderer();
  glRenderers.clear();
  emitted = 0;
  VrPalette* collectionRead = bound.palette();
  for (unsigned d = 0; collectionRead && d < collectionRead->numDescriptions(); ++d) {
    VrDescription* description = collectionRead->description(d);
    if (!description || description->patches().empty()) continue;
    auto* previewer = dynamic_cast<VrGLRenderer*>(description->addObject("GLRenderer"));
    if (!previewer) {
      fail("description " + inQuotes(description->name()) + " has no GL previewer");
      return false;
    }
    const std::pair<const char*, bool> asked[] = {
        {"culled", flags.culled}, {"primIDs", flags.ids}, {"vertices", flags.vertices}, {"poly", flags.poly}};
    for (const auto& flag : asked)
      if (flag.second || exact) previewer->setAttr(flag.first, flag.second ? "true" : "false", "bool");
    previewer->setDrawGuides(flags.guides);
    if (!VrRenderDescription(*previewer, workers)) {
      fail("the preview of description " + inQuotes(description->name()) + " failed");
      return false;
    }
    emitted += previewer->totalEmitCount();
    glRenderers.push_back(previewer);
  }
  return true;
}

PreviewFlags PreviewScene::flagsInUse() const {
  PreviewFlags flags;
  if (glRenderers.empty()) return flags;
  const VrGLRenderer& first = *glRenderers.front();
  auto on = [&](const char* name) {
    std::string value;
    return first.getAttr(name, value) && (value == "true" || value == "1");
  };
  flags.guides = first.drawGuides();
  flags.culled = first.drawCulled();
  flags.ids = on("primIDs");
  flags.vertices = on("vertices");
  flags.poly = on("poly");
  return flags;
}

SgBox3T<double> PreviewScene::surfaceBounds() const {
  SgBox3T<double> box;
  for (const VrGLCache& cache : surfaces)
    for (const VrGLCache::Vertex& v : cache.triangles.vertices)
      box.extend(SgVec3T<double>(v.position[0], v.position[1], v.position[2]));
  return box;
}

SgBox3T<double> PreviewScene::bounds() const {
  SgBox3T<double> box = surfaceBounds();
  for (const VrGLRenderer* previewer : glRenderers) box.unite(previewer->bounds());
  return box;
}

void PreviewScene::upload(bool all) {
  VrOpenGLThread::instance().enqueueAndWait([&] {
    for (VrGLCache& cache : surfaces) VrGLUpload(cache);
    for (VrGLRenderer* previewer : glRenderers) previewer->refresh(all, false);
  });
}

void PreviewScene::draw(const VrGLProgram& program, const float viewProjection[16], const SgVec3T<double>& light,
                        unsigned width, unsigned height) const {
  program.use(viewProjection, light);
  for (const VrGLCache& cache : surfaces) program.draw(cache, false);
  for (const VrGLRenderer* previewer : glRenderers) previewer->draw(program);
  for (const VrGLRenderer* previewer : glRenderers) previewer->drawLabels(program, viewProjection, width, height);
}

void PreviewScene::release() {
  VrOpenGLThread::instance().enqueueAndWait([&] {
    for (VrGLCache& cache : surfaces) VrGLRelease(cache);
    for (VrGLRenderer* previewer : glRenderers) previewer->cleanRefresh();
  });
}

}  // namespace vorncli
