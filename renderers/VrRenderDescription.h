#pragma once
// VrRenderDescription: one whole render of a description through one back end, the way a baking
// command drives it: `initDescription`; every face of every patch (patches in name order, faces
// ascending); `finishDescription`. This is how files are baked outside a host (`VrFileRenderer`,
// `VrPointRenderer`, `VrParticleRenderer`, `VrPromoteRenderer`, `VrOrmRenderer`) and how guides are
// made from a render (`VrGuideRenderer`).
//
//   VrFileRenderer bake(description);
//   bake.setAttr("outputDir", "/shots/sh010/bake/");
//   if (!VrRenderDescription(bake, 0) || bake.failed()) ...   // one .vpd per patch
//
// Threads: with `threads` other than 1 and a back end that can run in parallel
// (`canRunInParallel`), each patch goes through `renderPatchInParallel` on `threads` workers (0:
// the library's `VrTaskManager::threadCount()`); otherwise faces are rendered one by one on the
// calling thread. The output of the file writers does not depend on the thread count. Main thread
// only; the description must not change while it runs.

#include <cstddef>

class VrRenderer;

/// Renders every face of every bound patch of `renderer`'s description into `renderer`. For the
/// duration the renderer is the description's active renderer and the previewer is set aside, so
/// that the generator emits to it; both are restored afterwards. False (with an Error) when the
/// renderer has no description or the description no active generator or primitive; the back
/// end's own failures are its own to report (for instance `VrPatchFileRenderer::failed`).
bool VrRenderDescription(VrRenderer& renderer, size_t threads = 0);
