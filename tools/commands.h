#pragma once
// The commands of `vorn`. Each returns the process exit status: 0 success,
// 1 the command ran and failed (the messages on standard error say why). Argument parsing, and
// with it exit status 2, stays in vorn.cpp.

#include <string>
#include <vector>

namespace vorncli {

constexpr int ExitOk = 0;
constexpr int ExitFailed = 1;
constexpr int ExitUsage = 2;

/// Where an attribute lives inside a collection file. Without a description it is the
/// collection itself; with a description but no object, the description. `object` is a module
/// word ("RandomGenerator"), "Description", or the name of an FX module ("Noise").
struct Address {
  bool hasDescription = false;
  std::string description;
  bool hasObject = false;
  std::string object;
};

/// `vorn check FILE`: reads the file; "ok: <collection>: <N> descriptions" on success.
int runCheck(const std::string& file);

/// `vorn ls FILE [DESCRIPTION]`: the layout of every description, or of the named one.
int runList(const std::string& file, bool hasDescription, const std::string& description);

/// `vorn get FILE ATTR [DESCRIPTION [OBJECT]]`: prints the attribute's value and a newline.
int runGet(const std::string& file, const std::string& attribute, const Address& address);

/// `vorn set FILE ATTR VALUE [DESCRIPTION [OBJECT]] [-o OUT]`: sets the attribute and saves to
/// `output`, or back onto `file` when `output` is empty.
int runSet(const std::string& file, const std::string& attribute, const std::string& value,
           const Address& address, const std::string& output);

/// `vorn resave IN OUT`: reads one collection file and writes it out again.
int runResave(const std::string& input, const std::string& output);

/// `vorn api SCRIPT`: runs one facade call per line of the script (`-`: standard input) and
/// prints each result on a line of its own; 1 when any call failed.
int runApi(const std::string& script);

/// What `vorn eval` evaluates: an attribute of a description's object ("Description" for the
/// description itself) at a location, at the collection's frame unless `hasFrame`.
struct EvalRequest {
  std::string file;
  std::string description;
  std::string object;
  std::string attribute;
  double u = 0.5;
  double v = 0.5;
  int face = 0;
  std::string patch;  ///< empty: no patch (maps and patch attributes then give 0.001)
  bool hasFrame = false;
  double frame = 0.0;
};

/// `vorn eval FILE DESCRIPTION OBJECT ATTR [--u U] [--v V] [--face F] [--patch P] [--frame N]`:
/// prints the value of the attribute's expression, one number or three.
int runEval(const EvalRequest& request);

/// `vorn delta create BASE EDITED OUT`: writes the delta file that turns BASE into EDITED.
/// Unlike the other commands: 0 when something differs, 1 when nothing does (OUT then holds
/// only its header), 2 on any failure (no file is left at OUT then).
int runDeltaCreate(const std::string& base, const std::string& edited, const std::string& output);

/// `vorn delta apply BASE DELTA... -o OUT`: applies the delta files in order and saves the
/// result to OUT; nothing is written when a delta fails or sends an Error.
int runDeltaApply(const std::string& base, const std::vector<std::string>& deltas,
                  const std::string& output);

/// `vorn inspect FILE`: prints the "alembic-ref-v1" dump of an Alembic (Ogawa) archive, the
/// "ptex-ref-v1" dump of a Ptex file, the "partio-ref-v1" dump of a particle file (.bgeo,
/// .bgeo.gz, .geo, .pdb) or the summary of a point/primitive file (.vuv, .vpd), chosen by the
/// file's magic and then its name; 1 when the file is refused or any part of it cannot be read.
int runInspect(const std::string& file);

/// What `vorn render` renders and how (see docs/render-command.md).
struct RenderRequest {
  std::string collection;             ///< collection file
  std::string geometry;               ///< Alembic file the patches bind to
  double frame = 1.0;
  bool hasFrame = false;              ///< --frame was given
  std::string frames;                 ///< --frames "FIRST-LAST[:STEP]"; empty: the one frame
  std::string output;                 ///< .abc (curves) or .jsonl; '#'s stand for the frame number
  int threads = 0;                    ///< 0: every core (VORN_THREAD_LIMIT caps it); 1: serial
  bool verbose = false;               ///< let the render API's version banner through; time the phases
  std::string extraArgs;              ///< appended to the render API argument string
  std::string camera, fov, cameraXform, ratio;
  std::vector<float> shutter;
  std::vector<double> motionSamples;  ///< frame offsets of the motion samples; empty: one at the frame
  double fps = 24.0;                  ///< frames per second, for geometry times and output times
  bool hasShutterOpen = false;
  float shutterOpen = 0.0f;
  std::vector<std::string> overrides;  ///< name=value, answered for "user:vorn_" + name
  std::vector<std::string> deltas;
  std::string nameSpace;
  bool progress = false;               ///< draw the progress bar even when stderr is no terminal
  std::string space = "world";         ///< "world": hair where the scene places the mesh; "object": the mesh's own space
  std::string bakeDir;                 ///< --bake: one .vpd per patch under DIR/<description>/ instead of -o
  bool archivesInline = false;         ///< .abc: archives also as transforms over their files' meshes
  bool mesh = false;                   ///< --mesh: polygon meshes through the geometry back end
  std::vector<std::string> meshSettings;  ///< --mesh-set NAME=VALUE on the geometry back end
  std::vector<std::string> meshSelect;    ///< --select "PATCH:FACE:ID[,...]": convert only these
  std::string meshSelectFile;             ///< --select-file: the same entries in a file
};

/// `vorn render COLLECTION --geom GEOM.abc --frame F -o OUT`: renders every patch of every
/// description through the render API, as a renderer plug-in would, and writes the primitives
/// ordered by patch, face and id. 1, with no output file, on any failure. With `--frames A-B`
/// every frame of the range goes to its own file; a failed frame stops the run and keeps the
/// frames written before it.
int runRender(const RenderRequest& request);

/// `vorn render COLLECTION --geom GEOM.abc --frame F --bake DIR`: bakes every description through
/// its file-writing back end, one `.vpd` per patch under DIR/<description>/; a summary line on
/// standard output. 1 on any failure (the file being written is removed), 2 on bad usage.
int runBake(const RenderRequest& request);

/// `vorn render COLLECTION --geom GEOM.abc --frame F --mesh -o OUT.abc`: converts every
/// description into polygon meshes with uvs through its geometry back end and writes them into
/// one Alembic archive; a summary line on standard output. 1 on any failure (nothing is left
/// at OUT), 2 on bad usage.
int runMesh(const RenderRequest& request);

/// What `vorn preview` draws (see docs/preview.md).
struct PreviewRequest {
  std::string collection;  ///< collection file
  std::string geometry;    ///< Alembic file the patches bind to
  double frame = 1.0;
  std::string output;      ///< .png
  std::string size = "1280x720";
  std::string camera;      ///< "ex,ey,ez,tx,ty,tz[,fov]"; empty: frame what is drawn
  bool guides = false;
  bool culled = false;
  bool ids = false;
  int threads = 0;         ///< 0: every core; 1: serially
  double fps = 24.0;
};

/// `vorn preview COLL --geom GEOM.abc --frame F -o SHOT.png`: renders every description through
/// its GL previewer and draws the bound surfaces and the primitives into a PNG, headless. 1 on
/// any failure (no picture then), among them a machine without OpenGL; 2 on bad usage.
int runPreview(const PreviewRequest& request);

/// What `vorn view` shows and how (see docs/preview.md).
struct ViewRequest {
  std::string collection;   ///< collection file, watched for changes
  std::string geometry;     ///< Alembic file the patches bind to
  double frame = 1.0;
  std::string size = "1280x720";  ///< the window's size
  std::string camera;       ///< "ex,ey,ez,tx,ty,tz[,fov]"; empty: frame what is drawn
  bool guides = false, culled = false, ids = false, vertices = false, poly = false;
  int threads = 0;
  double fps = 24.0;
  /// For scripts and tests: stop after drawing this many frames (0: run until closed), write
  /// the last one to `screenshot`, and after the first frame select the box `select`
  /// ("X0,Y0,X1,Y1" in pixels from the top left) and apply `mark` to it: "cull" or "promote",
  /// or "isolate" to show it alone.
  int exitAfter = 0;
  std::string screenshot;
  std::string select;
  std::string mark;
};

/// The keys and mouse of `vorn view`, as its help and docs/preview.md list them.
extern const char* const ViewControls;

/// `vorn view COLL --geom GEOM.abc [--frame F]`: a window with the surfaces and primitives, an
/// orbit camera, toggles, box selection (cull or promote, saving the collection) and a reload
/// whenever the collection file changes. 1 on any failure, among them no display; 2 on bad usage.
int runView(const ViewRequest& request);

/// `vorn preset export COLL DESCRIPTION OUT [--with-guides]`: writes the description as a
/// preset (document/VrDescriptionFile.h), with its guide shapes when `withGuides`.
int runPresetExport(const std::string& collection, const std::string& description,
                    const std::string& output, bool withGuides);

/// `vorn preset import COLL PRESET [--name NEW] [-o OUT]`: reads the preset into the collection
/// as a new description (named `name` when given, else the preset's name made unique), saves to
/// `output`, or atomically back onto `collection` when `output` is empty, and prints the new
/// description's name. 1, with nothing written, when the preset cannot be read or the name is
/// taken.
int runPresetImport(const std::string& collection, const std::string& preset, const std::string& name,
                    const std::string& output);

/// `vorn preset export-fx COLL DESCRIPTION MODULE OUT`: writes the FX module as a module preset.
int runPresetExportFX(const std::string& collection, const std::string& description,
                      const std::string& module, const std::string& output);

/// What `vorn clumps make` makes (see fxmodules/VrClumpMaker.h).
struct ClumpsRequest {
  std::string collection;   ///< collection file, saved in place
  std::string description;
  std::string module;       ///< name of the clumping module
  std::string geometry;     ///< Alembic file the patches bind to
  double density = -1.0;    ///< guides per unit area; negative: the module's `ptDensity`
  unsigned seed = 0;
  int threads = 0;          ///< 0: every core (VORN_THREAD_LIMIT caps it); 1: serially
};

/// `vorn clumps make COLL DESCRIPTION MODULE --geom GEOM.abc [--density D] [--seed S] [--threads N]`:
/// writes the
/// module's guide points (`.vuv` under `pointDir`) and region maps (Ptex under `mapDir`), sets
/// `mapInitialized` and saves the collection atomically. 1 on any failure.
int runClumpsMake(const ClumpsRequest& request);

struct FxBakeRequest {
  std::string collection;   ///< collection file; saved in place only with `use`
  std::string description;
  std::string module;       ///< name of the FX module to bake
  std::string geometry;     ///< Alembic file the patches bind to
  double frame = 1.0;
  double fps = 24.0;
  int threads = 0;          ///< 0: every core (VORN_THREAD_LIMIT caps it)
  bool use = false;         ///< then switch the module to its baked mode and save the collection
};

/// `vorn fx bake COLL DESCRIPTION MODULE --geom GEOM.abc [--frame F] [--use]`: renders the
/// description with the module's bake on, which writes the module's bake files (noise, mesh
/// cut). 1 on any failure, the collection file untouched.
int runFxBake(const FxBakeRequest& request);

}  // namespace vorncli
