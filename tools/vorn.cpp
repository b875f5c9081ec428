// vorn: the command-line front of the library, for scripts and render farms. This file wires the
// commands to their functions (commands.h).
// Exit codes: 0 success, 1 the command ran and failed, 2 bad usage.

#include "base/VrConfig.h"
#include "base/VrMessage.h"
#include "base/VrModules.h"
#include "base/VrTaskManager.h"
#include "base/VrVersion.h"
#include "base/vrutilPath.h"
#include "tools/commands.h"

#include <CLI/CLI.hpp>

#include "vornRevision.h"

#include <cmath>
#include <cstdlib>
#include <unistd.h>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

// The installation root is the folder above the one holding this program, unless
// VORN_LOCATION says otherwise; presets and documentation are found below it.
void defaultInstallationRoot() {
  if (std::getenv("VORN_LOCATION")) return;
  char exe[4096];
  const ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (n <= 0) return;
  std::string path(exe, static_cast<size_t>(n));
  for (int up = 0; up < 2; ++up) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return;
    path.resize(slash);
  }
  setenv("VORN_LOCATION", (path + "/").c_str(), 0);
}

// "0.1.0 (git 1a2b3c4d5e)" in a checkout, the release number alone in a tarball.
std::string versionText() {
  const std::string revision = VORN_REVISION;
  return std::string(vornLibraryVersion()) + (revision.empty() ? "" : " (" + revision + ")");
}

int runInfo() {
  VrConfig& config = VrConfig::state();
  std::string projectPath;
  if (const char* cwd = std::getenv("PWD")) projectPath = cwd;
  config.init(projectPath);

  std::cout << "vorn " << versionText() << "\n";
  // The installation folder's own version ("/opt/vorn_2.1/"), when it carries one.
  const std::string installed = vrutil::version();
  if (installed != "NOT VERSIONED") std::cout << "installation version: " << installed << "\n";
  std::cout << "threads: " << VrTaskManager::threadCount() << "\n";
  std::cout << "texture cache per thread: " << VrTaskManager::ptexCacheSize() << " bytes\n";
  std::cout << "global repository: " << config.globalRepo() << "\n";
  std::cout << "local repository: " << config.localRepo() << "\n";
  std::cout << "user repository: " << config.userRepo() << "\n";
  std::cout << "documentation: " << config.docs() << "\n";
  std::cout << "flip parameter: " << (config.flipParam() ? "true" : "false") << "\n";

  std::vector<std::string> modules;
  VrGetRegisteredModules(modules);
  std::cout << "modules (" << modules.size() << "):\n";
  for (const std::string& name : modules) std::cout << "  " << name << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  defaultInstallationRoot();
  CLI::App app{"vorn: grows primitives on surfaces and edits collection files"};
  app.require_subcommand(1);
  app.fallthrough();
  // Answered before parsing, since every other command line needs a command.
  app.set_version_flag("--version", "vorn " + versionText());
  if (argc == 2 && std::string(argv[1]) == "--version") {
    std::cout << "vorn " << versionText() << "\n";
    return 0;
  }
  CLI::App* info = app.add_subcommand("info", "print the version, configuration, thread count and modules");

  std::string file, output, attribute, value;
  vorncli::Address address;

  CLI::App* check = app.add_subcommand("check", "read a collection file and report whether it is sound");
  check->add_option("file", file, "collection file (.vorn)")->required();

  CLI::App* ls = app.add_subcommand("ls", "list the descriptions of a collection file and what they hold");
  ls->add_option("file", file, "collection file (.vorn)")->required();
  CLI::Option* lsDescription = ls->add_option("description", address.description, "only this description");

  CLI::App* get = app.add_subcommand("get", "print an attribute of the collection, a description or an object");
  get->add_option("file", file, "collection file (.vorn)")->required();
  get->add_option("attribute", attribute, "attribute name")->required();
  CLI::Option* getDescription = get->add_option("description", address.description,
                                                "description (none: the collection)");
  CLI::Option* getObject = get->add_option("object", address.object,
                                           "module word or FX module name (none: the description)");

  CLI::App* set = app.add_subcommand("set", "set an attribute and save the collection file");
  set->add_option("file", file, "collection file (.vorn)")->required();
  set->add_option("attribute", attribute, "attribute name")->required();
  set->add_option("value", value, "new value (an empty argument clears it)")->required();
  CLI::Option* setDescription = set->add_option("description", address.description,
                                                "description (none: the collection)");
  CLI::Option* setObject = set->add_option("object", address.object,
                                           "module word or FX module name (none: the description)");
  set->add_option("-o,--output", output, "write here instead of back onto the file");

  CLI::App* resave = app.add_subcommand("resave", "read a collection file and write it out again");
  resave->add_option("input", file, "collection file to read")->required();
  resave->add_option("output", output, "collection file to write")->required();

  std::string script;
  CLI::App* api = app.add_subcommand("api", "run facade calls, one per line of a script");
  api->add_option("script", script, "script file, or - for standard input")->required();

  vorncli::EvalRequest evalRequest;
  CLI::App* eval = app.add_subcommand("eval", "print the value of an attribute's expression at a location");
  eval->add_option("file", evalRequest.file, "collection file (.vorn)")->required();
  eval->add_option("description", evalRequest.description, "description")->required();
  eval->add_option("object", evalRequest.object, "module word, FX module name or Description")->required();
  eval->add_option("attribute", evalRequest.attribute, "attribute name")->required();
  eval->add_option("--u", evalRequest.u, "u parameter on the face (default 0.5)");
  eval->add_option("--v", evalRequest.v, "v parameter on the face (default 0.5)");
  eval->add_option("--face", evalRequest.face, "face id (default 0)");
  eval->add_option("--patch", evalRequest.patch, "patch of the description the location is on (default: none)");
  CLI::Option* evalFrame = eval->add_option("--frame", evalRequest.frame,
                                            "frame (default: the collection's)");

  vorncli::ClumpsRequest clumpsRequest;
  CLI::App* clumps = app.add_subcommand("clumps", "make the clump guides and region maps of a clumping module");
  clumps->require_subcommand(1);
  CLI::App* clumpsMake = clumps->add_subcommand("make", "scatter clump guides and write their points and region maps");
  clumpsMake->add_option("collection", clumpsRequest.collection, "collection file (.vorn), saved in place")->required();
  clumpsMake->add_option("description", clumpsRequest.description, "description")->required();
  clumpsMake->add_option("module", clumpsRequest.module, "name of the clumping module")->required();
  clumpsMake->add_option("--geom", clumpsRequest.geometry, "Alembic file the patches bind to")->required();
  clumpsMake->add_option("--density", clumpsRequest.density, "guides per unit area (default: the module's ptDensity)");
  clumpsMake->add_option("--seed", clumpsRequest.seed, "seed of the scattering (default 0)");
  clumpsMake->add_option("--threads", clumpsRequest.threads, "work on N threads (default: every core; 1: serially)");

  vorncli::FxBakeRequest fxBakeRequest;
  CLI::App* fx = app.add_subcommand("fx", "work on the FX modules of a description");
  fx->require_subcommand(1);
  CLI::App* fxBake = fx->add_subcommand("bake", "render with an FX module's bake on, writing its bake files");
  fxBake->add_option("collection", fxBakeRequest.collection, "collection file (.vorn)")->required();
  fxBake->add_option("description", fxBakeRequest.description, "description")->required();
  fxBake->add_option("module", fxBakeRequest.module, "name of the FX module (a noise or mesh cut module)")->required();
  fxBake->add_option("--geom", fxBakeRequest.geometry, "Alembic file the patches bind to")->required();
  fxBake->add_option("--frame", fxBakeRequest.frame, "frame to bake (default 1)");
  fxBake->add_option("--fps", fxBakeRequest.fps, "frames per second of the geometry (default 24)");
  fxBake->add_option("--threads", fxBakeRequest.threads, "render faces on N threads (default: every core; 1: serially)");
  fxBake->add_flag("--use", fxBakeRequest.use, "then switch the module to its baked mode and save the collection");

  std::string deltaBase, deltaEdited, deltaOutput;
  std::vector<std::string> deltaFiles;
  CLI::App* delta = app.add_subcommand("delta", "write delta files between collections, or apply them");
  delta->require_subcommand(1);
  CLI::App* deltaCreate = delta->add_subcommand(
      "create", "write the delta from a base collection to an edited copy (exit 0 differs, 1 same, 2 error)");
  deltaCreate->add_option("base", deltaBase, "base collection file (.vorn)")->required();
  deltaCreate->add_option("edited", deltaEdited, "edited collection file (.vorn)")->required();
  deltaCreate->add_option("output", deltaOutput, "delta file to write")->required();
  CLI::App* deltaApply = delta->add_subcommand("apply", "apply delta files to a base collection and save it");
  deltaApply->add_option("base", deltaBase, "base collection file (.vorn)")->required();
  deltaApply->add_option("deltas", deltaFiles, "delta files, applied in order")->required();
  deltaApply->add_option("-o,--output", deltaOutput, "collection file to write")->required();

  std::string presetCollection, presetDescription, presetModule, presetFile, presetName, presetOutput;
  bool presetWithGuides = false;
  CLI::App* preset = app.add_subcommand("preset", "write descriptions and FX modules as presets, or import a preset");
  preset->require_subcommand(1);
  CLI::App* presetExport = preset->add_subcommand("export", "write a description as a preset");
  presetExport->add_option("collection", presetCollection, "collection file (.vorn)")->required();
  presetExport->add_option("description", presetDescription, "description")->required();
  presetExport->add_option("output", presetFile, "preset file to write (.vornpreset)")->required();
  presetExport->add_flag("--with-guides", presetWithGuides, "keep the guides' shapes in the preset");
  CLI::App* presetImport = preset->add_subcommand("import", "add a preset to a collection as a new description");
  presetImport->add_option("collection", presetCollection, "collection file (.vorn), saved in place unless -o")->required();
  presetImport->add_option("preset", presetFile, "preset file to read (.vornpreset)")->required();
  CLI::Option* presetNameOption = presetImport->add_option("--name", presetName, "name of the new description");
  presetImport->add_option("-o,--output", presetOutput, "write here instead of back onto the collection file");
  CLI::App* presetExportFX = preset->add_subcommand("export-fx", "write an FX module as a module preset");
  presetExportFX->add_option("collection", presetCollection, "collection file (.vorn)")->required();
  presetExportFX->add_option("description", presetDescription, "description")->required();
  presetExportFX->add_option("module", presetModule, "name of the FX module")->required();
  presetExportFX->add_option("output", presetFile, "module preset file to write (.vornfx)")->required();

  std::string archive;
  CLI::App* inspect = app.add_subcommand("inspect", "print a dump of an Alembic archive, a Ptex texture, a particle file or a point/primitive file");
  inspect->add_option("file", archive, "Alembic archive (Ogawa), Ptex file, particle file (.bgeo, .bgeo.gz, .geo, .pdb) or point/primitive file (.vuv, .vpd)")->required();

  vorncli::RenderRequest renderRequest;
  std::string shutterText;
  CLI::App* render = app.add_subcommand(
      "render", "render a collection through the render API and write the primitives (.abc curves, .jsonl, .pmt or particles)");
  render->add_option("collection", renderRequest.collection, "collection file (.vorn)")->required();
  render->add_option("--geom", renderRequest.geometry, "Alembic file the patches bind to")->required();
  CLI::Option* renderFrame = render->add_option("--frame", renderRequest.frame, "frame to render");
  render->add_option("--frames", renderRequest.frames,
                     "\"FIRST-LAST[:STEP]\": render a frame range in one process, one file per frame");
  render->add_option("-o,--output", renderRequest.output,
                     "output file: .abc (curves), .jsonl, .pmt, .pdb, .bgeo, .bgeo.gz or .geo; a run of '#' stands for the zero-padded frame number");
  render->add_option("--bake", renderRequest.bakeDir,
                     "instead of -o: bake one .vpd per patch under DIR/<description>/ through the file-writing back end");
  render->add_flag("--mesh", renderRequest.mesh,
                   "with -o OUT.abc: polygon meshes with uvs through the geometry back end, one per description");
  render->add_option("--mesh-set", renderRequest.meshSettings,
                     "NAME=VALUE: an attribute of the geometry back end for --mesh (repeatable)");
  render->add_option("--select", renderRequest.meshSelect,
                     "\"PATCH:FACE:ID[,...]\": with --mesh, convert only these primitives (repeatable)");
  render->add_option("--select-file", renderRequest.meshSelectFile,
                     "with --mesh, convert only the primitives listed in FILE: PATCH:FACE:ID entries separated by "
                     "commas or line breaks, '#' starting a comment");
  render->add_option("--threads", renderRequest.threads,
                     "render faces on N threads (default: every core; 1: serially)");
  render->add_flag("--verbose", renderRequest.verbose, "print the library's version banner and the time of each phase (setup, render, finishing the output)");
  render->add_option("--args", renderRequest.extraArgs, "raw text appended to the render API argument string");
  render->add_option("--camera", renderRequest.camera, "\"name,x,y,z\": camera name and view direction");
  render->add_option("--fov", renderRequest.fov, "\"h,v\": field of view in degrees");
  render->add_option("--cam-xform", renderRequest.cameraXform, "16 numbers, camera to world, row by row");
  render->add_option("--ratio", renderRequest.ratio, "aspect ratio");
  render->add_option("--shutter", shutterText, "\"t0,t1,...\": motion sample times");
  std::string motionText;
  render->add_option("--motion-samples", motionText,
                     "\"a,b,...\": increasing frame offsets of the motion samples (default: 0)");
  render->add_option("--fps", renderRequest.fps, "frames per second (default 24)");
  CLI::Option* shutterOpen = render->add_option("--shutter-open", renderRequest.shutterOpen, "shutter open time");
  render->add_option("--override", renderRequest.overrides, "name=value, answered for user:vorn_<name>");
  render->add_option("--delta", renderRequest.deltas, "delta file applied after the import (repeatable)");
  render->add_option("--name-space", renderRequest.nameSpace, "name space of the render collection");
  render->add_flag("--archives-inline", renderRequest.archivesInline,
                  ".abc: also write each archive as a transform over its file's meshes, instanced, for tools "
                  "that do not read point instancers");
  render->add_flag("--progress", renderRequest.progress, "draw the progress bar even when stderr is no terminal");
  render
      ->add_option("--space", renderRequest.space,
                   "world (default): the geometry's transforms place the hair as the scene places the mesh; "
                   "object: each mesh's own space")
      ->check(CLI::IsMember({"world", "object"}));

  vorncli::PreviewRequest previewRequest;
  CLI::App* preview = app.add_subcommand("preview", "draw the surfaces and primitives of a collection into a PNG, headless");
  preview->add_option("collection", previewRequest.collection, "collection file (.vorn)")->required();
  preview->add_option("--geom", previewRequest.geometry, "Alembic file the patches bind to")->required();
  preview->add_option("--frame", previewRequest.frame, "frame to draw")->required();
  preview->add_option("-o,--output", previewRequest.output, "picture to write (.png)")->required();
  preview->add_option("--size", previewRequest.size, "WIDTHxHEIGHT in pixels (default 1280x720)");
  preview->add_option("--camera", previewRequest.camera,
                      "\"ex,ey,ez,tx,ty,tz[,fov]\": eye, target and vertical field of view in degrees (default 30); "
                      "without it the view frames what is drawn");
  preview->add_flag("--guides", previewRequest.guides, "draw the guides");
  preview->add_flag("--culled", previewRequest.culled, "draw culled primitives in outline");
  preview->add_flag("--ids", previewRequest.ids, "draw each primitive's id at its tip");
  preview->add_option("--threads", previewRequest.threads, "build the preview on N threads (default: every core)");
  preview->add_option("--fps", previewRequest.fps, "frames per second (default 24)");

  vorncli::ViewRequest viewRequest;
  CLI::App* view = app.add_subcommand("view", "a window with the surfaces and primitives of a collection, redrawn when the file changes");
  view->add_option("collection", viewRequest.collection, "collection file (.vorn)")->required();
  view->add_option("--geom", viewRequest.geometry, "Alembic file the patches bind to")->required();
  view->add_option("--frame", viewRequest.frame, "frame to draw (default 1)");
  view->add_option("--size", viewRequest.size, "window size WIDTHxHEIGHT (default 1280x720)");
  view->add_option("--camera", viewRequest.camera, "\"ex,ey,ez,tx,ty,tz[,fov]\"; without it the view frames what is drawn");
  view->add_flag("--guides", viewRequest.guides, "start with the guides drawn");
  view->add_flag("--culled", viewRequest.culled, "start with culled primitives in outline");
  view->add_flag("--ids", viewRequest.ids, "start with primitive ids drawn");
  view->add_flag("--vertices", viewRequest.vertices, "start with the CVs drawn");
  view->add_flag("--poly", viewRequest.poly, "start with the control polygons drawn");
  view->add_option("--threads", viewRequest.threads, "build the preview on N threads (default: every core)");
  view->add_option("--fps", viewRequest.fps, "frames per second (default 24)");
  view->add_option("--exit-after", viewRequest.exitAfter, "scripts: draw N frames, print the frame rate and exit");
  view->add_option("--screenshot", viewRequest.screenshot, "scripts: write the last frame drawn to this .png");
  view->add_option("--select", viewRequest.select,
                   "scripts: after the first frame select the box \"X0,Y0,X1,Y1\" (pixels from the top left)");
  view->add_option("--mark", viewRequest.mark,
                   "scripts: cull or promote the selection of --select and save, or isolate it (shown alone, not saved)")
      ->check(CLI::IsMember({"cull", "promote", "isolate"}));
  view->footer(vorncli::ViewControls);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);
    return code == 0 ? 0 : 2;
  }

  if (*info) return runInfo();
  if (*check) return vorncli::runCheck(file);
  if (*ls) return vorncli::runList(file, lsDescription->count() > 0, address.description);
  if (*get || *set) {
    address.hasDescription = (*get ? getDescription : setDescription)->count() > 0;
    address.hasObject = (*get ? getObject : setObject)->count() > 0;
    if (*get) return vorncli::runGet(file, attribute, address);
    if (output.empty() && set->count("--output") > 0) {
      std::cerr << "vorn: --output needs a file name\n";
      return 2;
    }
    return vorncli::runSet(file, attribute, value, address, output);
  }
  if (*resave) return vorncli::runResave(file, output);
  if (*api) return vorncli::runApi(script);
  if (*deltaCreate) return vorncli::runDeltaCreate(deltaBase, deltaEdited, deltaOutput);
  if (*deltaApply) return vorncli::runDeltaApply(deltaBase, deltaFiles, deltaOutput);
  if (*presetExport) return vorncli::runPresetExport(presetCollection, presetDescription, presetFile, presetWithGuides);
  if (*presetImport) {
    if (presetName.empty() && presetNameOption->count() > 0) {
      std::cerr << "vorn: --name needs a description name\n";
      return 2;
    }
    if (presetOutput.empty() && presetImport->count("--output") > 0) {
      std::cerr << "vorn: --output needs a file name\n";
      return 2;
    }
    return vorncli::runPresetImport(presetCollection, presetFile, presetName, presetOutput);
  }
  if (*presetExportFX)
    return vorncli::runPresetExportFX(presetCollection, presetDescription, presetModule, presetFile);
  if (*inspect) return vorncli::runInspect(archive);
  if (*render) {
    renderRequest.hasShutterOpen = shutterOpen->count() > 0;
    renderRequest.hasFrame = renderFrame->count() > 0;
    std::string item;
    for (char& c : shutterText)
      if (c == ';' || c == ' ') c = ',';
    std::istringstream times(shutterText);
    while (std::getline(times, item, ',')) {
      if (item.empty()) continue;
      char* end = nullptr;
      const float t = std::strtof(item.c_str(), &end);
      if (!end || *end) {
        std::cerr << "vorn: --shutter takes numbers separated by commas: " << shutterText << "\n";
        return 2;
      }
      renderRequest.shutter.push_back(t);
    }
    for (char& c : motionText)
      if (c == ';' || c == ' ') c = ',';
    std::istringstream offsets(motionText);
    while (std::getline(offsets, item, ',')) {
      if (item.empty()) continue;
      char* end = nullptr;
      const double offset = std::strtod(item.c_str(), &end);
      if (!end || *end || !std::isfinite(offset)) {
        std::cerr << "vorn: --motion-samples takes numbers separated by commas: " << motionText << "\n";
        return 2;
      }
      renderRequest.motionSamples.push_back(offset);
    }
    if (!renderRequest.mesh && (!renderRequest.meshSelect.empty() || !renderRequest.meshSelectFile.empty())) {
      std::cerr << "vorn: --select and --select-file need --mesh\n";
      return 2;
    }
    if (renderRequest.mesh) return vorncli::runMesh(renderRequest);
    if (!renderRequest.bakeDir.empty()) return vorncli::runBake(renderRequest);
    if (renderRequest.output.empty()) {
      std::cerr << "vorn: render needs -o OUT or --bake DIR\n";
      return 2;
    }
    return vorncli::runRender(renderRequest);
  }
  if (*preview) return vorncli::runPreview(previewRequest);
  if (*view) return vorncli::runView(viewRequest);
  if (*clumpsMake) return vorncli::runClumpsMake(clumpsRequest);
  if (*fxBake) return vorncli::runFxBake(fxBakeRequest);
  if (*eval) {
    evalRequest.hasFrame = evalFrame->count() > 0;
    return vorncli::runEval(evalRequest);
  }
  return 2;
}
