#pragma once
// VornRenderAPI::Procedural: the worker behind the exported renderers. A patch-level procedural
// parses the argument string, imports (or reuses) the collection, and finds the description and
// the patch; it hands out faces with their boxes. A face-level procedural shares the patch's
// description and renders one face; `handleParallel` renders many faces on a task arena.
//
// Every call is made under the render lock (`RenderLock`); the process-wide state below it (set
// up descriptions, collection use counts, batch mode, the banner) is guarded by that lock too.

#include <memory>
#include <string>
#include <vector>

#include "base/VrExactCast.h"
#include "renderers/renderapi/VornRenderAPI.h"

class VrDescription;
class VrObject;
class VrPatch;
class VrRenderer;

namespace VornRenderAPI {

class Renderer;

class Procedural {
 public:
  /// Patch level: parses `args` and finds description and patch; `valid()` says whether it did.
  Procedural(ProceduralCallbacks* callbacks, const char* args);
  /// Face level: shares the description and patch of `patch`; null `callbacks` takes the patch's.
  Procedural(const Procedural& patch, int face, ProceduralCallbacks* callbacks);
  ~Procedural();
  Procedural(const Procedural&) = delete;
  Procedural& operator=(const Procedural&) = delete;

  bool valid() const { return desc && patchObject; }
  VrDescription* description() const { return desc; }
  VrPatch* patch() const { return patchObject; }
  int face() const { return faceIndex; }
  ProceduralCallbacks* callbacks() const { return callbackObject; }
  /// The plug-in's view of the description; null without one.
  Description* descriptionView();

  /// @name Faces and boxes (patch level)
  /// @{
  bool nextFace(double bbox[6], unsigned& face);
  bool patchBox(double bbox[6], bool padded);
  bool sampleBox(double bbox[6], unsigned sample, bool padded);
  /// @}

  /// @name Rendering
  /// @{
  /// Renders this face-level procedural's face, then tells the callbacks it is done.
  void handleFace();
  /// Whether threading is on and primitive, generator and renderer may run on workers.
  bool canRunInParallel() const;
  /// Renders `faces` (face-level procedurals of this patch) on a task arena; `threads` > 0 caps
  /// the parallelism, `grain` > 0 sets the faces a worker takes at a time. Workers take the
  /// faces in queue order, so faces finish roughly in that order whatever the thread count.
  void handleParallel(const std::vector<Procedural*>& faces, int threads, int grain);
  /// @}

  /// Deletes every collection whose name starts with "VR_RENDER_".
  static void deleteTempRenderPalettes();
  static void setBannerShown(bool shown);

 private:
  struct Args;
  bool parse(const char* args);
  bool importCollection(const Args& args, const std::string& collectionName, const std::string& nameSpace);
  void setupDescription();
  void reportFaceDone() const;
  void readCameraAndPhase();
  VrRenderer* renderer() const;
  /// `renderer()` as this interface's Renderer, or null.
  Renderer* ownRenderer() const;
  double padding() const;
  // Merges the face's box (face < 0: the patch's) over the samples; false without a patch.
  bool mergedBox(int face, double bbox[6], bool padded, int onlySample);
  // One user override: see the class notes in the source.
  bool applyOverride(const std::string& name, const std::string& kind, bool flag);
  void applyLodPair(const char* name, int key);
  void applyDensityFalloff();
  std::vector<VrObject*> objectsOf(const std::string& kind) const;
  void addReference(bool create);
  void dropReference();

  VrDescription* desc = nullptr;
  VrPatch* patchObject = nullptr;
  int faceIndex = -1;
  ProceduralCallbacks* callbackObject = nullptr;
  std::string collectionName;  // the name whose use this procedural holds; empty: none
  std::string key;             // collection + "|" + description
  std::string patchName;
  std::string fileName;
  bool temporary = false;  // batch or shutter mode: the collection goes with its last user
  size_t cursor = 0;       // next face of `nextFace`
  std::unique_ptr<Description> view;
  // The active renderer cast to VrRenderer and to Renderer: every face asks for it several times.
  mutable VrRememberedCast<VrRenderer> rendererCast;
  mutable VrRememberedCast<Renderer> ownCast;
};

}  // namespace VornRenderAPI
