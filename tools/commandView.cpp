// `vorn view`: the preview in a window. The scene is built as `vorn preview` builds it
// (tools/previewScene.h) and drawn on this thread, which owns the window's GL context. The
// event loop waits for input at most a quarter of a second, so that a change of the collection
// file's modification time (an editor's save, `vorn set`, a script) is seen within that and the
// collection read and drawn again; the camera stays where it was.
//
// Toggles and a reload render the descriptions again, on a thread of their own, while the window
// keeps answering; moving the camera only draws again. The render's camera, which in-camera
// culling sees, is the one of the last render ("r" renders again from the current view).

#include "renderers/VrGLCamera.h"
#include "renderers/VrGLDraw.h"
#include "renderers/VrGLLabels.h"
#include "renderers/VrGLRenderer.h"
#include "renderers/VrOpenGLThread.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"
#include "tools/commands.h"
#include "tools/previewScene.h"
#include "tools/renderThreads.h"

#include <GLFW/glfw3.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

namespace vorncli {

const char* const ViewControls =
    "Mouse: left drag orbits, middle drag or Ctrl+left drag pans, right drag or the wheel zooms,\n"
    "Shift+left drag selects the primitives whose root-to-tip line crosses the box.\n"
    "Keys: g guides, o culled primitives in outline, v vertices (CVs), p control polygons,\n"
    "i primitive ids, f frame everything, r render again from this view, c cull the selection\n"
    "and save, m promote the selection (archives, as instances) and save, x show only the\n"
    "selection (again: show everything), Esc clear the selection, q quit. The collection is\n"
    "read again whenever its file changes.";

namespace {

const float background[3] = {0.62f, 0.66f, 0.72f};
const SgVec3T<double> boxColor(1.0, 1.0, 1.0);

// The last GLFW error, for the message that says why no window opened.
std::string glfwProblem;
void onGlfwError(int, const char* text) { glfwProblem = text ? text : "unknown error"; }

// The modification of a file: its time and size; empty while the file cannot be read.
struct FileStamp {
  std::filesystem::file_time_type time{};
  uintmax_t size = 0;
  bool valid = false;
  static FileStamp of(const std::string& path) {
    FileStamp stamp;
    std::error_code ec, sizeError;
    stamp.time = std::filesystem::last_write_time(path, ec);
    stamp.size = std::filesystem::file_size(path, sizeError);
    stamp.valid = !ec && !sizeError;
    return stamp;
  }
  bool operator!=(const FileStamp& o) const { return valid != o.valid || time != o.time || size != o.size; }
};

bool parseBox(const std::string& text, double box[4]) {
  int used = 0;
  return std::sscanf(text.c_str(), "%lf,%lf,%lf,%lf%n", &box[0], &box[1], &box[2], &box[3], &used) == 4 &&
         text[static_cast<size_t>(used)] == '\0' && std::isfinite(box[0] + box[1] + box[2] + box[3]);
}

// The window and its event loop, and the GL thread's provider: renders run on a thread of their
// own (reading and binding the collection too, on a reload) while the loop keeps answering the
// window and runs the GL work a render sends it (the upload of its caches). The scene is drawn,
// selected in and marked only while no render is running.
class Viewer : public VrOpenGLThread::Provider {
 public:
  // `camera`: the parsed --camera, or one with only the window's aspect ratio set.
  Viewer(const ViewRequest& request, const CliLogger& logger, const VrGLCamera& camera)
      : request(request), logger(logger), camera(camera) {
    flags.guides = request.guides;
    flags.culled = request.culled;
    flags.ids = request.ids;
    flags.vertices = request.vertices;
    flags.poly = request.poly;
  }
  ~Viewer() override {
    waitForRender();
    if (scene) scene->release();
    VrOpenGLThread::instance().shutdown();
    program.reset();
    if (window) glfwDestroyWindow(window);
  }

  void enqueue(VrOpenGLThread::Task* task) override {
    {
      std::lock_guard<std::mutex> hold(queueGuard);
      queue.push_back(task);
    }
    glfwPostEmptyEvent();
  }

  // Opens the window and makes its GL context current; false after a line saying why.
  bool open(unsigned width, unsigned height) {
    glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 3);
    glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 3);
    // No multisampling: on a software rasteriser it costs more than three times the frame time.
    glfwWindowHint(GLFW_SAMPLES, 0);
    const std::string title = "vorn view: " + request.collection;
    // Display lists for the archive proxies need a compatibility profile; without one the
    // proxies go into buffer objects in a core context.
    if (VrGLWantsDisplayLists()) {
      glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_COMPAT_PROFILE);
      window = glfwCreateWindow(int(width), int(height), title.c_str(), nullptr, nullptr);
    }
    glfwWindowHint(GLFW_OPENGL_PROFILE, GLFW_OPENGL_CORE_PROFILE);
    glfwWindowHint(GLFW_OPENGL_FORWARD_COMPAT, GLFW_TRUE);
    if (!window) window = glfwCreateWindow(int(width), int(height), title.c_str(), nullptr, nullptr);
    if (!window) {
      fail("cannot open a window: " + glfwProblem);
      return false;
    }
    glfwMakeContextCurrent(window);
    glfwSwapInterval(request.exitAfter > 0 ? 0 : 1);
    glfwSetWindowUserPointer(window, this);
    glfwSetKeyCallback(window, [](GLFWwindow* w, int key, int, int action, int) {
      if (action == GLFW_PRESS) self(w).onKey(key);
    });
    glfwSetMouseButtonCallback(window, [](GLFWwindow* w, int button, int action, int mods) {
      self(w).onButton(button, action, mods);
    });
    glfwSetCursorPosCallback(window, [](GLFWwindow* w, double x, double y) { self(w).onMove(x, y); });
    glfwSetScrollCallback(window, [](GLFWwindow* w, double, double dy) { self(w).zoomBy(std::pow(0.9, dy)); });
    glfwSetFramebufferSizeCallback(window, [](GLFWwindow* w, int, int) { self(w).dirty = true; });
    glfwSetWindowRefreshCallback(window, [](GLFWwindow* w) { self(w).dirty = true; });
    program = std::make_unique<VrGLProgram>();
    std::string error;
    if (!program->init(error)) {
      fail("cannot draw in the window: " + error);
      return false;
    }
    VrOpenGLThread::instance().initialize(this);
    return true;
  }

  // Draws until the window closes (or `exitAfter` frames); the exit status.
  int run() {
    auto start = std::chrono::steady_clock::now();  // of the first frame drawn
    startReload();
    int frames = 0;
    while (!glfwWindowShouldClose(window)) {
      runQueuedTasks();
      if (renderFinished()) {
        if (!scene && !everShown) return ExitFailed;  // the first read failed: said why already
        if (scene) everShown = true;
      }
      if (!rendering() && (dirty || request.exitAfter > 0)) {
        if (frames == 0) start = std::chrono::steady_clock::now();
        drawFrame();
        ++frames;
        if (frames == 1 && !request.select.empty() && !scriptedSelection()) return ExitFailed;
        const bool last = request.exitAfter > 0 && frames >= request.exitAfter && !rendering();
        if (last && !request.screenshot.empty() && !screenshot()) return ExitFailed;
        glfwSwapBuffers(window);
        if (last) break;
      }
      if (request.exitAfter > 0 && !rendering())
        glfwPollEvents();
      else
        glfwWaitEventsTimeout(rendering() ? 0.05 : 0.25);
      if (!rendering() && FileStamp::of(request.collection) != stamp) {
        std::cout << "vorn: " << request.collection << " changed; reading it again\n" << std::flush;
        startReload();
      }
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::ostringstream summary;
    startSummary(summary);
    summary << "viewed " << (scene ? scene->primitives() : 0) << " primitives; drew " << frames << " frames in "
            << seconds << " s (" << (seconds > 0.0 ? frames / seconds : 0.0) << " frames a second) on "
            << VrGLDriverName() << "\n";
    std::cout << summary.str();
    return ExitOk;
  }

 private:
  static Viewer& self(GLFWwindow* window) { return *static_cast<Viewer*>(glfwGetWindowUserPointer(window)); }

  void runQueuedTasks() {
    for (;;) {
      VrOpenGLThread::Task* task = nullptr;
      {
        std::lock_guard<std::mutex> hold(queueGuard);
        if (queue.empty()) return;
        task = queue.front();
        queue.pop_front();
      }
      task->run();
      task->setDone();
    }
  }

  bool rendering() const { return worker.joinable(); }

  // Whether a render just ended; takes its scene.
  bool renderFinished() {
    if (!rendering() || !workerDone.load()) return false;
    worker.join();
    if (workerOk) scene = std::move(building);
    building.reset();
    if (framingPending && workerOk) {
      flags = firstFlags;
      camera = firstCamera;
      framed = true;
    }
    framingPending = false;
    if (scene) depthRange = scene->bounds();
    dirty = true;
    if (renderAgain) {
      renderAgain = false;
      startRender();
    }
    return true;
  }

  void waitForRender() {
    while (rendering()) {
      runQueuedTasks();
      if (!renderFinished()) std::this_thread::yield();
    }
  }

  // Drops the scene and reads the collection again, on the render thread. The first time, the
  // camera frames what is drawn (unless --camera placed it) and the toggles start as the
  // collection's previewer has them, plus the flags given.
  void startReload() {
    waitForRender();
    if (scene) scene->release();
    scene.reset();
    stamp = FileStamp::of(request.collection);
    building = std::make_unique<PreviewScene>();
    const bool first = !framed;
    launch([this, target = building.get(), first, view = camera, shown = flags] {
      if (!target->load(request.collection, request.geometry, request.frame, request.fps, logger)) {
        warn("nothing is drawn until " + request.collection + " reads and binds");
        return false;
      }
      VrGLCamera renderCamera = view;
      if (first && request.camera.empty()) renderCamera = VrGLCamera::framing(target->surfaceBounds(), view.aspect);
      if (!target->render(renderCamera, shown, !first, renderWorkers(request.threads))) return false;
      if (first) {
        firstFlags = target->flagsInUse();
        firstCamera = request.camera.empty() ? VrGLCamera::framing(target->bounds(), view.aspect) : view;
      }
      target->upload(false);
      report(*target);
      return true;
    });
    framingPending = first;
  }

  // Renders the scene again with the current flags and camera, on the render thread.
  void startRender() {
    if (!scene) return;
    if (rendering()) {
      renderAgain = true;
      return;
    }
    building = std::move(scene);
    launch([this, target = building.get(), view = camera, shown = flags] {
      if (target->render(view, shown, true, renderWorkers(request.threads))) target->upload(false);
      report(*target);
      return true;
    });
  }

  // Runs `body` on the render thread; a false answer or an exception drops the scene it built.
  void launch(std::function<bool()> body) {
    workerDone = false;
    workerOk = false;
    worker = std::thread([this, body] {
      try {
        workerOk = body();
      } catch (const std::exception& e) {
        fail(std::string("the render failed: ") + e.what());
      }
      workerDone = true;
      glfwPostEmptyEvent();
    });
  }

  void report(const PreviewScene& built) {
    std::ostringstream line;
    startSummary(line);
    line << "rendered " << built.primitives() << " primitives\n";
    std::cout << line.str() << std::flush;
  }

  // The window's framebuffer size and the factor from cursor to framebuffer pixels.
  void pictureSize(unsigned& width, unsigned& height, double& scale) const {
    int fw = 0, fh = 0, ww = 0, wh = 0;
    glfwGetFramebufferSize(window, &fw, &fh);
    glfwGetWindowSize(window, &ww, &wh);
    width = unsigned(std::max(fw, 1));
    height = unsigned(std::max(fh, 1));
    scale = ww > 0 ? double(fw) / ww : 1.0;
  }

  void viewProjection(float out[16]) {
    unsigned width = 0, height = 0;
    double scale = 1.0;
    pictureSize(width, height, scale);
    camera.aspect = double(width) / double(height);
    SgBox3T<double> range = depthRange;
    range.extend(camera.target);
    camera.viewProjection(range, out);
  }

  void drawFrame() {
    unsigned width = 0, height = 0;
    double scale = 1.0;
    pictureSize(width, height, scale);
    float matrix[16];
    viewProjection(matrix);
    VrGLBeginFrame(background, width, height);
    if (scene) scene->draw(*program, matrix, camera.lightDirection(), width, height);
    if (boxing) {
      VrGLCache overlay;
      VrGLAddRectangle(overlay.polygons, pressX * scale, pressY * scale, cursorX * scale, cursorY * scale, width,
                       height, boxColor);
      VrGLDrawOverlay(*program, overlay);
    }
    dirty = false;
  }

  bool screenshot() {
    unsigned width = 0, height = 0;
    double scale = 1.0;
    pictureSize(width, height, scale);
    VrRgbImage image;
    if (!VrGLReadFrame(width, height, image) || !VrWritePng(request.screenshot, image)) {
      fail("cannot write " + request.screenshot);
      return false;
    }
    return true;
  }

  // Selects the primitives crossing the box (in framebuffer pixels) in every previewer.
  void select(double x0, double y0, double x1, double y1) {
    if (!scene || rendering()) return;
    unsigned width = 0, height = 0;
    double scale = 1.0;
    pictureSize(width, height, scale);
    float matrix[16];
    viewProjection(matrix);
    size_t count = 0;
    for (VrGLRenderer* previewer : scene->previewers())
      count += previewer->selectPrims(matrix, width, height, x0, y0, x1, y1);
    scene->upload(false);
    std::cout << "vorn: selected " << count << " primitives\n" << std::flush;
    dirty = true;
  }

  // Shows only the selection, or everything again when something is isolated already.
  void toggleIsolation() {
    if (!scene || rendering()) return;
    bool anyIsolated = false;
    for (VrGLRenderer* previewer : scene->previewers()) anyIsolated = anyIsolated || previewer->isolating();
    size_t shown = 0;
    bool isolatedSome = false;
    for (VrGLRenderer* previewer : scene->previewers()) {
      isolatedSome = previewer->isolateSelectedPrims(!anyIsolated) || isolatedSome;
      shown += previewer->shownPrims().size();
    }
    if (!anyIsolated && !isolatedSome) {
      warn("nothing is selected: Shift+drag a box first");
      return;
    }
    scene->upload(false);
    std::cout << "vorn: " << (anyIsolated ? "showing all " : "isolated ") << shown << " primitives\n" << std::flush;
    dirty = true;
  }

  // Culls or promotes the selection, saves the collection and reads it again.
  bool mark(const std::string& operation) {
    if (!scene || rendering()) return true;
    bool marked = false, ok = true;
    for (VrGLRenderer* previewer : scene->previewers()) {
      if (previewer->selection().empty()) continue;
      marked = true;
      ok = (operation == "cull" ? previewer->cullSelectedPrims() : previewer->promoteSelectedPrims()) && ok;
      if (operation == "promote") std::cout << "vorn: promoted into " << previewer->promotedFile() << "\n";
    }
    if (!marked) {
      warn("nothing is selected: Shift+drag a box first");
      return true;
    }
    if (!ok) fail("the " + operation + " of the selection failed; the collection is not saved");
    if (!ok || !saveCollection(scene->palette(), request.collection)) return false;
    std::cout << "vorn: saved " << request.collection << "\n" << std::flush;
    startReload();
    return true;
  }

  bool scriptedSelection() {
    double box[4];
    if (!parseBox(request.select, box)) {
      fail("--select takes \"X0,Y0,X1,Y1\", four numbers: " + request.select);
      return false;
    }
    select(box[0], box[1], box[2], box[3]);
    if (request.mark == "isolate") return toggleIsolation(), true;
    return request.mark.empty() || mark(request.mark);
  }

  void toggle(bool& flag) {
    flag = !flag;
    startRender();
  }

  void onKey(int key) {
    switch (key) {
      case GLFW_KEY_G: toggle(flags.guides); break;
      case GLFW_KEY_O: toggle(flags.culled); break;
      case GLFW_KEY_V: toggle(flags.vertices); break;
      case GLFW_KEY_P: toggle(flags.poly); break;
      case GLFW_KEY_I: toggle(flags.ids); break;
      case GLFW_KEY_R: startRender(); break;
      case GLFW_KEY_F:
        camera = VrGLCamera::framing(depthRange, camera.aspect);
        dirty = true;
        break;
      case GLFW_KEY_C: mark("cull"); break;
      case GLFW_KEY_M: mark("promote"); break;
      case GLFW_KEY_X: toggleIsolation(); break;
      case GLFW_KEY_ESCAPE:
        if (scene && !rendering()) {
          for (VrGLRenderer* previewer : scene->previewers()) previewer->clearSelection();
          scene->upload(false);
        }
        dirty = true;
        break;
      case GLFW_KEY_Q: glfwSetWindowShouldClose(window, GLFW_TRUE); break;
      default: break;
    }
  }

  void onButton(int button, int action, int mods) {
    if (action == GLFW_PRESS) {
      glfwGetCursorPos(window, &cursorX, &cursorY);
      pressX = cursorX, pressY = cursorY;
      const bool left = button == GLFW_MOUSE_BUTTON_LEFT;
      boxing = left && (mods & GLFW_MOD_SHIFT);
      panning = button == GLFW_MOUSE_BUTTON_MIDDLE || (left && (mods & GLFW_MOD_CONTROL));
      orbiting = left && !boxing && !panning;
      zooming = button == GLFW_MOUSE_BUTTON_RIGHT;
      return;
    }
    if (boxing) {
      double scale = 1.0;
      unsigned width = 0, height = 0;
      pictureSize(width, height, scale);
      select(pressX * scale, pressY * scale, cursorX * scale, cursorY * scale);
    }
    boxing = panning = orbiting = zooming = false;
    dirty = true;
  }

  void onMove(double x, double y) {
    const double dx = x - cursorX, dy = y - cursorY;
    cursorX = x, cursorY = y;
    int ww = 0, wh = 0;
    glfwGetWindowSize(window, &ww, &wh);
    const double height = std::max(wh, 1);
    if (orbiting) camera.orbit(-dx * 0.4, dy * 0.4);
    if (panning) camera.pan(-dx / height, dy / height);
    if (zooming) zoomBy(std::exp(dy * 0.01));
    if (orbiting || panning || zooming || boxing) dirty = true;
  }

  void zoomBy(double factor) {
    camera.zoom(factor);
    dirty = true;
  }

  const ViewRequest& request;
  const CliLogger& logger;
  GLFWwindow* window = nullptr;
  std::unique_ptr<VrGLProgram> program;
  // The scene drawn, and the one a render thread is building (the same, moved out, when it renders
  // again): only the render thread touches `building` while it runs.
  std::unique_ptr<PreviewScene> scene, building;
  std::thread worker;
  std::atomic<bool> workerDone{false};
  bool workerOk = false;  // written by the render thread, read after it is joined
  bool renderAgain = false, everShown = false, framingPending = false;
  PreviewFlags firstFlags;  // what the first render found, taken when it is joined
  VrGLCamera firstCamera;
  std::mutex queueGuard;
  std::deque<VrOpenGLThread::Task*> queue;
  VrGLCamera camera;
  PreviewFlags flags;
  SgBox3T<double> depthRange;
  FileStamp stamp;
  bool framed = false, dirty = true;
  bool boxing = false, panning = false, orbiting = false, zooming = false;
  double pressX = 0.0, pressY = 0.0, cursorX = 0.0, cursorY = 0.0;
};

int view(const ViewRequest& request, const CliLogger& logger) {
  unsigned width = 0, height = 0;
  if (!parsePictureSize(request.size, width, height)) {
    fail("--size takes WIDTHxHEIGHT, each from 16 to 8192 pixels: " + request.size);
    return ExitUsage;
  }
  if (request.threads < 0 || request.exitAfter < 0) {
    fail(request.threads < 0 ? "--threads must be 1 or more" : "--exit-after must be 0 or more");
    return ExitUsage;
  }
  if (!(request.fps > 0.0) || !std::isfinite(request.fps)) {
    fail("--fps must be above 0");
    return ExitUsage;
  }
  if (!request.screenshot.empty() && (!isPngName(request.screenshot) || request.exitAfter == 0)) {
    fail("--screenshot needs a .png name and --exit-after: " + request.screenshot);
    return ExitUsage;
  }
  double box[4];
  if (!request.select.empty() && !parseBox(request.select, box)) {
    fail("--select takes \"X0,Y0,X1,Y1\", four numbers: " + request.select);
    return ExitUsage;
  }
  if (!request.mark.empty() && request.select.empty()) {
    fail("--mark needs --select");
    return ExitUsage;
  }
  VrGLCamera start;
  start.aspect = double(width) / double(height);
  std::string cameraError;
  if (!request.camera.empty() && !start.parse(request.camera, cameraError)) {
    fail(cameraError);
    return ExitUsage;
  }
  std::error_code ec;
  if (!std::filesystem::is_regular_file(request.collection, ec)) {
    fail("no such collection file: " + request.collection);
    return ExitFailed;
  }
  if (!geometryReadable(request.geometry)) return ExitFailed;

  glfwSetErrorCallback(onGlfwError);
  if (!glfwInit()) {
    fail("cannot open a window: " + (glfwProblem.empty() ? std::string("no display") : glfwProblem));
    return ExitFailed;
  }
  int status = ExitFailed;
  {
    Viewer viewer(request, logger, start);
    if (viewer.open(width, height)) status = viewer.run();
  }
  glfwTerminate();
  return status;
}

}  // namespace

int runView(const ViewRequest& request) {
  CliLogger logger;
  return guarded(ExitFailed, [&] { return view(request, logger); });
}

}  // namespace vorncli
