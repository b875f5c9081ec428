// `vorn render ... --mesh -o OUT.abc`: converts every description of a collection at one frame
// into polygon meshes through the geometry back end (VrGeometryRenderer), and writes them with
// their uvs into one Alembic archive: one mesh per description (or per primitive with
// `combineMesh` off), archives as instance transforms with `outputInstances`, and joint chains
// as linear curves. The collection is read and bound here, as a bake does; the back end's
// settings are those of the description's GeometryRenderer object, then those of --mesh-set.
// `--select` and `--select-file` name primitives as PATCH:FACE:ID; given, they turn
// `convertSelected` on with that selection in every description.

#include "base/vrutilString.h"
#include "document/VrDescription.h"
#include "document/VrPalette.h"
#include "io/output/VrMeshFile.h"
#include "renderers/VrGeometryRenderer.h"
#include "renderers/VrRenderDescription.h"
#include "tools/cliLogger.h"
#include "tools/collectionAccess.h"
#include "tools/commands.h"
#include "tools/renderThreads.h"

#include <chrono>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <tuple>

namespace vorncli {

namespace {

struct MeshTotals {
  size_t meshes = 0, points = 0, faces = 0, instances = 0;
  uint64_t primitives = 0;
  unsigned descriptions = 0;
};

using Selection = std::set<VrGeometryRenderer::PrimKey>;

// A whole number from 0 to `most`, digits only.
bool wholeNumber(const std::string& text, unsigned long most, unsigned long& value) {
  if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  value = std::stoul(text);
  return value <= most;
}

// Adds the "PATCH:FACE:ID" entries of `text` (separated by commas or line breaks, '#' to the end
// of a line a comment, blanks around an entry ignored) to `out`; false with `bad` the first entry
// that is not one. The patch is everything before the last two colons, so it may hold colons.
bool parseSelection(const std::string& text, Selection& out, std::string& bad) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream entries(line.substr(0, line.find('#')));
    for (std::string piece; std::getline(entries, piece, ',');) {
      const std::string entry = vrutil::stripWhitespace(piece);
      if (entry.empty()) continue;
      const size_t idAt = entry.rfind(':');
      const size_t faceAt = idAt == std::string::npos || idAt == 0 ? std::string::npos : entry.rfind(':', idAt - 1);
      unsigned long face = 0, id = 0;
      if (faceAt == std::string::npos || faceAt == 0 ||
          !wholeNumber(entry.substr(faceAt + 1, idAt - faceAt - 1), INT32_MAX, face) ||
          !wholeNumber(entry.substr(idAt + 1), UINT32_MAX, id)) {
        bad = entry;
        return false;
      }
      out.emplace(entry.substr(0, faceAt), int(face), unsigned(id));
    }
  }
  return true;
}

// The selection of --select and --select-file; false after a line saying why, with `code` the
// exit code (2 for bad usage, 1 for a file that cannot be read).
bool readSelection(const RenderRequest& request, Selection& selection, int& code) {
  std::string bad;
  code = ExitUsage;
  for (const std::string& text : request.meshSelect)
    if (!parseSelection(text, selection, bad))
      return fail("--select takes PATCH:FACE:ID entries separated by commas: " + inQuotes(bad)), false;
  if (!request.meshSelectFile.empty()) {
    std::ifstream in(request.meshSelectFile, std::ios::binary);
    std::ostringstream text;
    if (!in || !(text << in.rdbuf())) {
      code = ExitFailed;
      return fail("cannot read the selection file " + request.meshSelectFile), false;
    }
    if (!parseSelection(text.str(), selection, bad))
      return fail("the selection file " + request.meshSelectFile + " holds an entry that is not PATCH:FACE:ID: " +
                  inQuotes(bad)),
             false;
  }
  if (selection.empty()) return fail("--select and --select-file name no primitive"), false;
  return true;
}

// Whether every patch of the selection is a patch of a description; false after a line naming
// the first that is not.
bool selectionFound(const Selection& selection, VrPalette& palette) {
  for (const VrGeometryRenderer::PrimKey& key : selection) {
    bool found = false;
    for (unsigned d = 0; d < palette.numDescriptions() && !found; ++d)
      found = palette.description(d) && palette.description(d)->patch(std::get<0>(key));
    if (!found) return fail("the selection names a patch that no description has: " + inQuotes(std::get<0>(key))), false;
  }
  return true;
}

bool usable(const RenderRequest& request) {
  if (!request.frames.empty() || !request.hasFrame) return fail("--mesh takes one --frame"), false;
  if (!request.bakeDir.empty()) return fail("--mesh and --bake cannot both be given"), false;
  const std::filesystem::path out(request.output);
  if (out.extension() != ".abc") return fail("--mesh writes an .abc output: " + request.output), false;
  if (request.threads < 0) return fail("--threads must be 1 or more"), false;
  if (!(request.fps > 0.0)) return fail("--fps must be above 0"), false;
  for (const std::string& entry : request.meshSettings)
    if (entry.find('=') == std::string::npos || entry.front() == '=')
      return fail("--mesh-set takes NAME=VALUE: " + entry), false;
  return true;
}

// Writes what `converter` made for `description` into `file`.
bool writeDescription(const VrGeometryRenderer& converter, const std::string& description, VrMeshFile& file,
                      MeshTotals& totals) {
  for (const VrGeometryRenderer::Mesh& mesh : converter.meshes()) {
    if (!file.addMesh(mesh.name, mesh.data, converter.subdivisionMeshes())) return false;
    ++totals.meshes;
    totals.points += mesh.data.numPoints();
    totals.faces += mesh.data.numFaces();
  }
  for (const VrGeometryRenderer::Instance& instance : converter.instances())
    if (!file.addTransform(description + "_instances", instance.name, instance.matrix)) return false;
  totals.instances += converter.instances().size();
  const std::pair<const char*, const std::vector<VrGeometryRenderer::JointChain>*> chainSets[] = {
      {"_stripJoints", &converter.stripJoints()}, {"_guideJoints", &converter.guideJoints()}};
  for (const auto& set : chainSets) {
    std::vector<std::vector<SgVec3T<double>>> chains;
    for (const VrGeometryRenderer::JointChain& chain : *set.second) chains.push_back(chain.joints);
    if (!file.addJointChains(description + set.first, chains)) return false;
  }
  return true;
}

int mesh(const RenderRequest& request, const CliLogger& logger) {
  const auto start = std::chrono::steady_clock::now();
  if (!usable(request)) return ExitUsage;
  Selection selection;
  const bool selecting = !request.meshSelect.empty() || !request.meshSelectFile.empty();
  int code = ExitOk;
  if (selecting && !readSelection(request, selection, code)) return code;
  std::error_code ec;
  if (request.geometry.empty() || !std::filesystem::is_regular_file(request.geometry, ec)) {
    fail("no such geometry file: " + request.geometry);
    return ExitFailed;
  }
  BoundCollection bound;
  if (!bound.bind(request.collection, request.geometry, request.frame, request.fps, request.space == "object", logger,
                  "nothing was written"))
    return ExitFailed;
  VrPalette* palette = bound.palette();
  if (selecting && !selectionFound(selection, *palette)) return ExitUsage;
  const unsigned workers = renderWorkers(request.threads);

  VrMeshFile file;
  if (!file.open(request.output, request.frame, request.fps)) {
    fail("cannot write " + request.output);
    return ExitFailed;
  }
  MeshTotals totals;
  for (unsigned d = 0; d < palette->numDescriptions(); ++d) {
    VrDescription* description = palette->description(d);
    if (!description || description->patches().empty()) continue;
    auto* converter = dynamic_cast<VrGeometryRenderer*>(description->addObject("GeometryRenderer"));
    if (!converter) {
      fail("description " + inQuotes(description->name()) + " has no geometry back end");
      return ExitFailed;
    }
    for (const std::string& entry : request.meshSettings) {
      const size_t eq = entry.find('=');
      std::string type;
      std::string old;
      if (!converter->getAttr(entry.substr(0, eq), old, type)) {
        fail("the geometry back end has no attribute " + inQuotes(entry.substr(0, eq)));
        return ExitUsage;
      }
      converter->setAttr(entry.substr(0, eq), entry.substr(eq + 1), type);
    }
    if (selecting) {
      converter->setAttr("convertSelected", "true", "bool");
      converter->setSelection(selection);
    }
    if (!VrRenderDescription(*converter, workers)) {
      fail("the conversion of description " + inQuotes(description->name()) + " failed; nothing was written");
      return ExitFailed;
    }
    if (!writeDescription(*converter, description->name(), file, totals)) {
      fail("cannot write the meshes of description " + inQuotes(description->name()) + " to " + request.output);
      return ExitFailed;
    }
    totals.primitives += converter->totalEmitCount();
    ++totals.descriptions;
  }
  if (!file.close()) {
    fail("cannot write " + request.output);
    return ExitFailed;
  }

  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::ostringstream summary;
  startSummary(summary);
  summary << "converted " << totals.primitives << " primitives of " << totals.descriptions << " descriptions into "
          << totals.meshes << " meshes (" << totals.points << " points, " << totals.faces << " faces)";
  if (totals.instances) summary << " and " << totals.instances << " instances";
  summary << " in " << request.output << " in " << seconds << " s on " << workersText(workers) << "\n";
  std::cout << summary.str();
  return ExitOk;
}

}  // namespace

int runMesh(const RenderRequest& request) {
  CliLogger logger;
  return guarded(ExitFailed, [&] { return mesh(request, logger); });
}

}  // namespace vorncli
