// `vorn render`: failures leave no output, the output does not depend on the thread count, and
// what comes out is what the bundled example's expressions ask for.

#include "geometry/SgVec3T.h"
#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcCurves.h"
#include "io/alembic/VrAbcCurvesStreamWriter.h"
#include "io/alembic/VrAbcMeshWriter.h"
#include "io/alembic/VrAbcPoints.h"
#include "io/alembic/VrAbcPolyMesh.h"
#include "io/alembic/VrAbcXformWriter.h"
#include "io/particles/VrParticles.h"
#include "io/vpd/VpdReader.h"
#include "renderers/renderapi/RenderAPITestSupport.h"
#include "support/CliExpect.h"
#include "support/Examples.h"
#include "support/RenderLines.h"
#include "support/SmallHead.h"
#include "support/TempDir.h"
#include "support/VpdRecords.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

using vrtest::ranWith;
using vrtest::readText;
using vrtest::runCommand;
using vrtest::shellWord;
using vrtest::vorn;
using vrtest::vornIn;

namespace {

const std::string exampleDir = std::string(VORN_SOURCE_DIR) + "/examples/head";

std::string renderArgs(const std::string& collection, const std::string& geometry, const std::string& output) {
  return "render " + shellWord(collection) + " --geom " + shellWord(geometry) + " --frame 1 -o " + shellWord(output);
}

// What `vorn render` at frame 1 writes to dir/out1<extension> on one thread and to
// dir/out2<extension> on two, run from `folder` (the examples whose data path is "./" render
// from their own folder).
std::array<std::string, 2> renderOnOneAndTwoThreads(const vrtest::TempDir& dir, const std::string& collection,
                                                    const std::string& geometry, const std::string& extension,
                                                    const std::string& folder = VORN_SOURCE_DIR) {
  std::array<std::string, 2> bytes;
  for (int threads : {1, 2}) {
    const std::string out = dir.file("out" + std::to_string(threads) + extension);
    const auto result = vornIn(folder, renderArgs(collection, geometry, out) + " --threads " + std::to_string(threads));
    EXPECT_TRUE(ranWith(result, 0, "rendered ")) << extension;
    bytes[threads - 1] = readText(out);
  }
  return bytes;
}

// The first line where two texts differ, both versions; "" when they are equal.
std::string firstDifference(const std::string& a, const std::string& b) {
  std::istringstream ia(a), ib(b);
  std::string la, lb;
  for (int n = 1;; ++n) {
    const bool moreA = static_cast<bool>(std::getline(ia, la));
    const bool moreB = static_cast<bool>(std::getline(ib, lb));
    if (!moreA && !moreB) return "";
    if (moreA != moreB || la != lb) return "line " + std::to_string(n) + ":\n" + la + "\n" + lb;
  }
}

// The length of the polyline through the CVs x0 y0 z0 x1 ...
double polylineLength(const std::vector<double>& cvs) {
  double length = 0.0;
  for (size_t k = 3; k < cvs.size(); k += 3)
    length += std::sqrt(std::pow(cvs[k] - cvs[k - 3], 2) + std::pow(cvs[k + 1] - cvs[k - 2], 2) +
                        std::pow(cvs[k + 2] - cvs[k - 1], 2));
  return length;
}

using Line = vrtest::RenderLine;
using vrtest::numbersIn;
using vrtest::parseRenderLines;

}  // namespace

TEST(VornRender, BadInputFailsClearlyAndLeavesNoOutput) {
  vrtest::TempDir dir;
  const std::string collection = vrtest::smallHeadCollection(dir);
  const std::string geometry = exampleDir + "/head.abc";
  const std::string out = dir.file("out.jsonl");

  // No --geom at all is a usage error.
  EXPECT_TRUE(ranWith(vorn("render " + shellWord(collection) + " --frame 1 -o " + shellWord(out)), 2, "--geom"));
  // A geometry file that is not there; a collection that cannot be read, and one that is not there.
  EXPECT_TRUE(ranWith(vorn(renderArgs(collection, dir.file("nothing.abc"), out)), 1,
                      "vorn: no such geometry file: " + dir.file("nothing.abc")));
  const std::string garbage = dir.write("garbage.vorn", "this is not a collection\n");
  EXPECT_TRUE(ranWith(vorn(renderArgs(garbage, geometry, out)), 1, "vorn: cannot read a collection from " + garbage));
  EXPECT_TRUE(ranWith(vorn(renderArgs(dir.file("absent.vorn"), geometry, out)), 1,
                      "vorn: no such file: " + dir.file("absent.vorn")));
  // Malformed Alembic: text, and a real archive cut short.
  const std::string text = dir.write("text.abc", "not an archive at all\n");
  const std::string bytes = readText(geometry);
  const std::string cut = dir.write("cut.abc", bytes.substr(0, bytes.size() / 2));
  for (const std::string& bad : {text, cut}) {
    SCOPED_TRACE(bad);
    for (const std::string& output : {out, dir.file("out.abc")})
      EXPECT_TRUE(
          ranWith(vorn(renderArgs(collection, bad, output)), 1, "vorn: not a readable Alembic archive: " + bad));
  }
  // A sound archive without the scalp, and a delta that does not apply: the render API reports
  // Errors while setting up, and nothing is written.
  const std::string other = dir.file("other.abc");
  {
    VrAbcCurvesStreamWriter writer;
    const float points[6] = {0, 0, 0, 0, 1, 0};
    const int32_t counts[1] = {2};
    ASSERT_TRUE(writer.open(other, VrAbcCurvesStreamWriter::Options()));
    ASSERT_TRUE(writer.append(points, 2, counts, 1, nullptr));
    ASSERT_TRUE(writer.close());
  }
  const auto result = vorn(renderArgs(collection, other, out));
  EXPECT_TRUE(ranWith(result, 1, "error: Lumo Error. Removing patch: scalpShape"));
  EXPECT_TRUE(ranWith(result, 1, "vorn: the render API could not set up patch \"scalpShape\" of description \"hair\""));
  const std::string delta = dir.write("bad.delta", "x");
  EXPECT_TRUE(ranWith(vorn(renderArgs(collection, geometry, out) + " --delta " + shellWord(delta)), 1,
                      "vorn: the render API reported errors while setting up the render; nothing was written"));
  // An output that is neither .abc nor .jsonl.
  EXPECT_TRUE(
      ranWith(vorn(renderArgs(collection, geometry, dir.file("out.txt"))), 2, "the output must end in .abc, .jsonl, .pmt, .pdb, .bgeo, .bgeo.gz or .geo"));

  for (const char* name : {"out.jsonl", "out.abc", "out.txt"}) EXPECT_FALSE(std::filesystem::exists(dir.file(name)));
  // Nothing else was left behind either: only the inputs written above.
  const auto entries = std::filesystem::directory_iterator(dir.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 6);
}

TEST(VornRender, SerialAndThreadedRendersWriteTheSameLines) {
  vrtest::TempDir dir;
  const std::string collection = vrtest::smallHeadCollection(dir);
  const std::string geometry = exampleDir + "/head.abc";
  std::vector<std::string> outputs;
  for (const std::string& threads : {std::string(), std::string(" --threads 1"), std::string(" --threads 2")}) {
    const std::string out = dir.file("out" + std::to_string(outputs.size()) + ".jsonl");
    ASSERT_TRUE(ranWith(vorn(renderArgs(collection, geometry, out) + threads), 0, "rendered "));
    outputs.push_back(readText(out));
  }
  for (size_t k = 1; k < outputs.size(); ++k) {
    SCOPED_TRACE("render " + std::to_string(k) + " against the serial one");
    EXPECT_EQ(outputs[k].size(), outputs[0].size());
    EXPECT_EQ(firstDifference(outputs[k], outputs[0]), "");
  }

  // Ordered by face and id, each (face, id) once, all on the example's one patch.
  const std::vector<Line> lines = parseRenderLines(outputs[0]);
  ASSERT_GT(lines.size(), 100u);
  for (size_t i = 0; i < lines.size(); ++i) {
    SCOPED_TRACE("line " + std::to_string(i));
    const Line& line = lines[i];
    EXPECT_EQ(line.patch, "scalpShape");
    if (i > 0) {
      EXPECT_LT(std::tie(lines[i - 1].face, lines[i - 1].id), std::tie(line.face, line.id));
    }
    ASSERT_EQ(line.widths.size() * 3, line.cvs.size());
    ASSERT_GE(line.widths.size(), 2u);
    // Roots stand on the dome (the subdivision limit of points on the unit sphere, upper half).
    const double radius = std::sqrt(line.cvs[0] * line.cvs[0] + line.cvs[1] * line.cvs[1] + line.cvs[2] * line.cvs[2]);
    EXPECT_GT(radius, 0.9);
    EXPECT_LT(radius, 1.0 + 1e-6);
    EXPECT_GT(line.cvs[1], -1e-3);
    // length = 0.3 + 0.15 * rand(). The bent shape is rebuilt to fxCVCount CVs after its length
    // is set, and a polyline through the rebuilt CVs cuts the bend's corners: allow 2% short.
    const double length = polylineLength(line.cvs);
    EXPECT_GT(length, 0.3 * 0.98);
    EXPECT_LT(length, 0.45 + 1e-4);
    // width = 0.004 * (0.7 + 0.6 * noise), noise in [0, 1].
    for (double w : line.widths) {
      EXPECT_GE(w, 0.004 * 0.7 - 1e-7);
      EXPECT_LE(w, 0.004 * 1.3 + 1e-7);
    }
  }
  // The Alembic form: the summary counts what was written, and `vorn inspect` reads every
  // curve and point, at frame 1 of 24 per second.
  const std::string abc = dir.file("hair.abc");
  const auto rendered = vorn(renderArgs(collection, geometry, abc) + " --threads 2");
  EXPECT_TRUE(ranWith(rendered, 0, "rendered " + std::to_string(lines.size()) + " primitives"));
  size_t points = 0;
  for (const Line& line : lines) points += line.widths.size();
  const auto dump = vorn("inspect " + shellWord(abc));
  ASSERT_EQ(dump.exitCode, 0) << dump.output;
  for (const std::string& line :
       {"num_curves: " + std::to_string(lines.size()), "num_points: " + std::to_string(points),
        "widths_count: " + std::to_string(points), std::string("time: 0.0416666667"), std::string("end: ok")})
    EXPECT_NE(dump.output.find("\n" + line + "\n"), std::string::npos) << line << "\n" << dump.output;
}

// Every instance output lists each primitive once, in the order of the JSON lines, with the
// root as its position, and is the same, byte for byte, on one and two threads.
TEST(VornRender, InstanceOutputsListEveryPrimitiveOnOneAndTwoThreads) {
  vrtest::TempDir dir;
  const std::string collection = vrtest::smallHeadCollection(dir);
  const std::string geometry = exampleDir + "/head.abc";
  ASSERT_TRUE(ranWith(vorn(renderArgs(collection, geometry, dir.file("ref.jsonl"))), 0, "rendered "));
  const std::vector<Line> lines = parseRenderLines(readText(dir.file("ref.jsonl")));
  ASSERT_GT(lines.size(), 100u);

  for (const char* extension : {".pmt", ".bgeo", ".bgeo.gz", ".geo", ".pdb"}) {
    SCOPED_TRACE(extension);
    const auto bytes = renderOnOneAndTwoThreads(dir, collection, geometry, extension);
    EXPECT_TRUE(bytes[0] == bytes[1]);
    const std::string out = dir.file(std::string("out1") + extension);
    if (std::string(extension) == ".pmt") {
      // 14 header lines, then 14 lines per record (13 and a blank one).
      std::istringstream in(bytes[0]);
      std::vector<std::string> rows;
      for (std::string row; std::getline(in, row);) rows.push_back(row);
      ASSERT_EQ(rows.size(), 14 + 14 * lines.size());
      EXPECT_EQ(rows[0], "# px py pz (position)");
      EXPECT_EQ(rows[12], "# geomid_VS");
      for (size_t i = 0; i < lines.size(); i += 37) {
        const size_t at = 14 + 14 * i;
        std::istringstream position(rows[at]);
        double x = 0, y = 0, z = 0;
        position >> x >> y >> z;
        EXPECT_NEAR(x, lines[i].cvs[0], 1e-6);
        EXPECT_NEAR(y, lines[i].cvs[1], 1e-6);
        EXPECT_NEAR(z, lines[i].cvs[2], 1e-6);
        EXPECT_EQ(rows[at + 4], std::to_string(lines[i].id));
        EXPECT_EQ(rows[at + 11], std::to_string(lines[i].face));
      }
      continue;
    }
    VrParticleSet set;
    std::string error;
    ASSERT_TRUE(VrReadParticles(out, set, &error)) << error;
    ASSERT_EQ(set.numParticles(), lines.size());
    ASSERT_EQ(set.numAttributes(), 13u);
    const int position = set.findAttribute("position");
    const int id = set.findAttribute("id_VP");
    const int face = set.findAttribute("faceid_VS");
    ASSERT_GE(position, 0);
    for (size_t i = 0; i < lines.size(); i += 37) {
      for (int k = 0; k < 3; ++k) EXPECT_NEAR(set.floats(position, i)[k], lines[i].cvs[k], 1e-6);
      EXPECT_EQ(*set.ints(id, i), lines[i].id);
      EXPECT_EQ(*set.ints(face, i), lines[i].face);
    }
  }
}

// A bake holds, per patch, what a render writes: every primitive once, with the same CVs, and
// the same bytes on one and two threads.
TEST(VornRender, ABakeHoldsWhatTheRenderWritesOnOneAndTwoThreads) {
  vrtest::TempDir dir;
  const std::string collection = vrtest::smallHeadCollection(dir);
  const std::string geometry = exampleDir + "/head.abc";
  ASSERT_TRUE(ranWith(vorn(renderArgs(collection, geometry, dir.file("ref.jsonl"))), 0, "rendered "));
  const std::vector<Line> lines = parseRenderLines(readText(dir.file("ref.jsonl")));
  std::string bytes[2];
  std::string bakedFile;
  for (int threads : {1, 2}) {
    const std::string bakeDir = dir.file("bake" + std::to_string(threads));
    const std::string args = "render " + shellWord(collection) + " --geom " + shellWord(geometry) +
                             " --frame 1 --threads " + std::to_string(threads) + " --bake " + shellWord(bakeDir);
    ASSERT_TRUE(ranWith(vorn(args), 0, "baked " + std::to_string(lines.size()) + " primitives of 1 descriptions"));
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(bakeDir))
      if (entry.is_regular_file()) files.push_back(entry.path().string());
    ASSERT_EQ(files.size(), 1u);
    EXPECT_EQ(std::filesystem::path(files[0]).filename(), "scalpShape.vpd");
    bytes[threads - 1] = readText(files[0]);
    bakedFile = files[0];
  }
  EXPECT_TRUE(bytes[0] == bytes[1]);

  std::unique_ptr<VpdReader> reader = VpdReader::open(bakedFile);
  ASSERT_TRUE(reader);
  ASSERT_EQ(reader->blockIndex("BakedGroom"), 0);
  const std::vector<vrtest::VpdRecord> records = vrtest::readRecords(*reader);
  ASSERT_EQ(records.size(), lines.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    SCOPED_TRACE("record " + std::to_string(i));
    ASSERT_EQ(records[i].face, lines[i].face);
    ASSERT_EQ(static_cast<int>(records[i].id), lines[i].id);
    ASSERT_GE(records[i].values.size(), 2 + lines[i].cvs.size());
    for (size_t k = 0; k < lines[i].cvs.size(); ++k)
      EXPECT_NEAR(records[i].values[2 + k], lines[i].cvs[k], 1e-5);
  }
}

TEST(VornRender, PaintedLengthsFollowTheMapOnOneAndTwoThreads) {
  // examples/head/painted.vorn: length 0.1 + 0.3 * map("maps/"), the map painted 1.0 on faces
  // 0-3, 8-11, ... and 0.25 on faces 4-7, 12-15, ... (vorn_make_example_length_map). The
  // collection's data path is "./": the render runs in the example's folder.
  vrtest::TempDir dir;
  const auto outputs = renderOnOneAndTwoThreads(dir, "painted.vorn", "head.abc", ".jsonl", exampleDir);
  EXPECT_EQ(firstDifference(outputs[1], outputs[0]), "");
  int counted[2] = {0, 0};
  for (const Line& line : parseRenderLines(outputs[0])) {
    const double length = polylineLength(line.cvs);
    // As above, the polyline through the rebuilt CVs may come out up to 2% short.
    const bool fullBand = (line.face / 4) % 2 == 0;
    const double expected = fullBand ? 0.4 : 0.1 + 0.3 * (64.0 / 255.0);
    EXPECT_GT(length, expected * 0.98) << "face " << line.face;
    EXPECT_LT(length, expected + 1e-4) << "face " << line.face;
    ++counted[fullBand ? 1 : 0];
  }
  EXPECT_GT(counted[0], 50);
  EXPECT_GT(counted[1], 50);

  // vorn eval reads the painted value on the patch it is given; no patch, no map.
  const std::string eval = "eval painted.vorn hair SplinePrimitive length";
  EXPECT_EQ(vornIn(exampleDir, eval + " --face 0 --patch scalpShape").output, "0.40000000000000002\n");
  EXPECT_EQ(vornIn(exampleDir, eval + " --face 4 --patch scalpShape").output, "0.17529412209987641\n");  // 64/255
  EXPECT_EQ(vornIn(exampleDir, eval + " --face 4").output, "0.1003\n");
  EXPECT_TRUE(ranWith(vornIn(exampleDir, eval + " --patch nose"), 1, "description \"hair\" has no patch \"nose\""));
}

// A grid that stands at z = 0 on frame 24 and at z = 1 on frame 25 (24 per second), with
// splines on its four faces.
class MovingGrid {
 public:
  MovingGrid() {
    EXPECT_TRUE(vrtest::writeGrid(geometry));
    collection = dir.write("grid.vorn", vrtest::collectionText("grid"));
  }
  std::string args(const std::string& frame, const std::string& output) const {
    return "render " + shellWord(collection) + " --geom " + shellWord(geometry) + " --frame " + frame +
           " -o " + shellWord(output);
  }
  vrtest::TempDir dir;
  std::string geometry = dir.file("grid.abc");
  std::string collection;
};

// Every CV of sample 1 is that of sample 0 moved by (0, 0, dz); roots stand at z = root.
void expectMovedBy(const std::vector<Line>& lines, double root, double dz) {
  ASSERT_GT(lines.size(), 10u);
  for (const Line& line : lines) {
    SCOPED_TRACE("face " + std::to_string(line.face) + " id " + std::to_string(line.id));
    ASSERT_EQ(line.samples.size(), 1u);
    ASSERT_EQ(line.samples[0].size(), line.cvs.size());
    ASSERT_GE(line.cvs.size(), 6u);
    EXPECT_NEAR(line.cvs[2], root, 1e-5);
    for (size_t k = 0; k < line.cvs.size(); k += 3) {
      EXPECT_NEAR(line.samples[0][k], line.cvs[k], 1e-5);
      EXPECT_NEAR(line.samples[0][k + 1], line.cvs[k + 1], 1e-5);
      EXPECT_NEAR(line.samples[0][k + 2], line.cvs[k + 2] + dz, 1e-5);
    }
  }
}

// The line without its "samples" member.
std::string withoutSamples(const std::string& text) {
  std::string out;
  std::istringstream in(text);
  for (std::string row; std::getline(in, row);) {
    const size_t from = row.find(",\"samples\":");
    const size_t to = row.find(",\"widths\":");
    if (from != std::string::npos && to != std::string::npos && to > from) row.erase(from, to - from);
    out += row + "\n";
  }
  return out;
}

TEST(VornRender, MotionSamplesFollowTheMovingGeometry) {
  const MovingGrid grid;
  // Frame 24.5 with offsets -0.5 and 0.5 samples the geometry at its own frames 24 and 25.
  std::vector<std::string> outputs;
  for (const std::string& threads : {std::string(), std::string(" --threads 2")}) {
    const std::string out = grid.dir.file("moving" + std::to_string(outputs.size()) + ".jsonl");
    const auto result = vorn(grid.args("24.5", out) + " --motion-samples=-0.5,0.5" + threads);
    ASSERT_EQ(result.exitCode, 0) << result.output;
    // The back end is given a shutter time per sample and has nothing to complain about.
    EXPECT_EQ(result.output.find("error"), std::string::npos) << result.output;
    outputs.push_back(readText(out));
  }
  EXPECT_EQ(firstDifference(outputs[1], outputs[0]), "");
  const std::vector<Line> lines = parseRenderLines(outputs[0]);
  expectMovedBy(lines, 0.0, 1.0);
  for (const Line& line : lines) EXPECT_EQ(line.patch, "plane");

  // The Alembic form holds two samples, at frames 24 and 25, each with the points of the lines.
  const std::string abc = grid.dir.file("moving.abc");
  const auto rendered = vorn(grid.args("24.5", abc) + " --motion-samples=-0.5,0.5 --threads 2");
  ASSERT_EQ(rendered.exitCode, 0) << rendered.output;
  VrAbcArchive archive;
  ASSERT_TRUE(archive.open(abc));
  VrAbcObject object;
  ASSERT_TRUE(archive.findObject("/vornCurves", object));
  VrAbcCurves curves;
  ASSERT_TRUE(curves.open(object));
  ASSERT_EQ(curves.numSamples(), 2u);
  for (uint32_t i = 0; i < 2; ++i) {
    SCOPED_TRACE("sample " + std::to_string(i));
    double time = 0.0;
    ASSERT_TRUE(curves.timeSampling().sampleTime(i, time));
    EXPECT_NEAR(time, (24.0 + i) / 24.0, 1e-12);
    VrAbcCurves::Sample sample;
    ASSERT_TRUE(curves.read(i, sample));
    std::vector<float> expected;
    std::vector<int32_t> counts;
    for (const Line& line : lines) {
      const std::vector<double>& cvs = i == 0 ? line.cvs : line.samples[0];
      expected.insert(expected.end(), cvs.begin(), cvs.end());
      counts.push_back(static_cast<int32_t>(line.widths.size()));
    }
    EXPECT_EQ(sample.points.positions, expected);
    EXPECT_EQ(sample.numVertices, counts);
    EXPECT_TRUE(sample.hasWidths);
    EXPECT_NEAR(sample.points.bounds[2], i, 1e-5);  // the roots stand on the grid, at z = 0 then 1
    // The grid rises by one unit a frame: 24 units a second, the same on both samples.
    VrAbcArrayProperty velocities;
    std::vector<float> v;
    ASSERT_TRUE(curves.geometry().compound().array(".velocities", velocities));
    ASSERT_TRUE(velocities.readAs(i, v));
    ASSERT_EQ(v.size(), expected.size());
    for (size_t k = 0; k < v.size(); k += 3) {
      EXPECT_NEAR(v[k], 0.0, 1e-3);
      EXPECT_NEAR(v[k + 2], 24.0, 1e-3);
    }
  }
}

TEST(VornRender, OneMotionSampleWritesWhatAStillRenderWrites) {
  const MovingGrid grid;
  const std::string still = grid.dir.file("still.jsonl");
  const std::string one = grid.dir.file("one.jsonl");
  const std::string two = grid.dir.file("two.jsonl");
  ASSERT_EQ(vorn(grid.args("24", still)).exitCode, 0);
  ASSERT_EQ(vorn(grid.args("24", one) + " --motion-samples 0").exitCode, 0);
  ASSERT_EQ(vorn(grid.args("24", two) + " --motion-samples 0,1 --threads 2").exitCode, 0);
  const std::string stillText = readText(still);
  ASSERT_FALSE(stillText.empty());
  EXPECT_EQ(stillText.find("samples"), std::string::npos);
  EXPECT_EQ(firstDifference(readText(one), stillText), "");
  // Sample 0 of a moving render is the still render of its frame.
  const std::string twoText = readText(two);
  EXPECT_NE(twoText.find("],\"samples\":[[["), std::string::npos);
  EXPECT_EQ(firstDifference(withoutSamples(twoText), stillText), "");
  expectMovedBy(parseRenderLines(twoText), 0.0, 1.0);
}

// The 2 x 2 quads over a 3 x 3 grid of points at z = 0.
const std::vector<int32_t> gridCounts = {4, 4, 4, 4};
const std::vector<int32_t> gridIndices = {0, 1, 4, 3, 1, 2, 5, 4, 3, 4, 7, 6, 4, 5, 8, 7};
std::vector<float> gridPositions() {
  std::vector<float> positions;
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 3; ++x) positions.insert(positions.end(), {float(x), float(y), 0.0f});
  return positions;
}

// The grid of MovingGrid held still under /rig (moving 4 units along x a frame) and
// /rig/head (turned a quarter about z, rising 2 units along y a frame), frames 24 and 25.
bool writeRiggedGrid(const std::string& path) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0));
  VrAbcXformWriter rig, head;
  if (!rig.create(writer.top(), "rig", ts) || !head.create(*rig.object(), "head", ts)) return false;
  for (int s = 0; s < 2; ++s) {
    const double moved[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 4.0 * s, 0, 0, 1};
    const double turned[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 0, 2.0 * s, 0, 1};
    if (!rig.write(moved) || !head.write(turned)) return false;
  }
  VrAbcMeshWriter mesh;
  if (!mesh.create(*head.object(), "plane", VrAbcMeshWriter::Kind::SubD, ts)) return false;
  VrAbcMeshWriter::Sample sample;
  const std::vector<float> positions = gridPositions();  // the sample only views it
  sample.positions = positions;
  sample.faceCounts = gridCounts;
  sample.faceIndices = gridIndices;
  return mesh.write(sample) && writer.close();
}

// Every CV of `world` is the CV of `object` turned a quarter about z and moved by (4s, 2s, 0).
void expectPlaced(const std::vector<std::vector<double>>& world, const std::vector<Line>& object, double s) {
  ASSERT_EQ(world.size(), object.size());
  for (size_t i = 0; i < object.size(); ++i) {
    const std::vector<double>& local = object[i].cvs;
    ASSERT_EQ(world[i].size(), local.size());
    for (size_t k = 0; k < local.size(); k += 3) {
      EXPECT_NEAR(world[i][k], -local[k + 1] + 4.0 * s, 1e-4) << "line " << i;
      EXPECT_NEAR(world[i][k + 1], local[k] + 2.0 * s, 1e-4) << "line " << i;
      EXPECT_NEAR(world[i][k + 2], local[k + 2], 1e-4) << "line " << i;
    }
  }
}

TEST(VornRender, HairStandsWhereTheSceneTransformsPlaceTheMesh) {
  vrtest::TempDir dir;
  const std::string geometry = dir.file("rig.abc");
  ASSERT_TRUE(writeRiggedGrid(geometry));
  const std::string collection = dir.write("grid.vorn", vrtest::collectionText("grid"));
  auto renderAt = [&](const std::string& frame, const std::string& flags) {
    const std::string out = dir.file("out.jsonl");
    const auto result = vorn("render " + shellWord(collection) + " --geom " + shellWord(geometry) + " --frame " +
                             frame + " -o " + shellWord(out) + flags);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output.find("error"), std::string::npos) << result.output;
    return parseRenderLines(readText(out));
  };
  const std::vector<Line> object = renderAt("24", " --space object");
  ASSERT_GT(object.size(), 10u);
  EXPECT_NEAR(object[0].cvs[2], 0.0, 1e-6);
  for (const auto& frame : {std::make_pair(std::string("24"), 0.0), std::make_pair(std::string("25"), 1.0)}) {
    SCOPED_TRACE("frame " + frame.first);
    std::vector<std::vector<double>> cvs;
    for (const Line& line : renderAt(frame.first, " --threads 2")) cvs.push_back(line.cvs);
    expectPlaced(cvs, object, frame.second);
    // In object space the animation of the transforms does not reach the hair.
    const std::vector<Line> still = renderAt(frame.first, " --space object");
    ASSERT_EQ(still.size(), object.size());
    for (size_t i = 0; i < still.size(); ++i) EXPECT_EQ(still[i].cvs, object[i].cvs);
  }
  // Motion samples a quarter frame either side of 24.5 (given blank-separated), the transforms
  // blended between frames.
  const std::vector<Line> blurred = renderAt("24.5", " --motion-samples \"-0.25 0.25\" --args \"-interpolation linear\"");
  std::vector<std::vector<double>> first, second;
  for (const Line& line : blurred) {
    first.push_back(line.cvs);
    ASSERT_EQ(line.samples.size(), 1u);
    second.push_back(line.samples[0]);
  }
  expectPlaced(first, object, 0.25);
  expectPlaced(second, object, 0.75);
}

TEST(VornRender, AFrameRangeWritesWhatSingleFramesWriteAndStopsAtAFailedFrame) {
  const MovingGrid grid;
  const std::string common = "render " + shellWord(grid.collection) + " --geom " + shellWord(grid.geometry);
  const std::string pattern = grid.dir.file("out.####.abc");
  const auto range = vorn(common + " --frames 23-25 -o " + shellWord(pattern) + " --threads 2");
  ASSERT_EQ(range.exitCode, 0) << range.output;
  EXPECT_NE(range.output.find(" over 3 frames in "), std::string::npos) << range.output;
  for (int frame = 23; frame <= 25; ++frame) {
    const std::string single = grid.dir.file("single.abc");
    ASSERT_EQ(vorn(common + " --frame " + std::to_string(frame) + " -o " + shellWord(single)).exitCode, 0);
    EXPECT_EQ(readText(grid.dir.file("out.00" + std::to_string(frame) + ".abc")), readText(single)) << frame;
  }

  // A grid that loses a face on frame 25 cannot carry hair there: frame 24 stays written.
  const std::string melting = grid.dir.file("melting.abc");
  {
    VrAbcArchiveWriter writer;
    ASSERT_TRUE(writer.open(melting, VrAbcArchiveWriter::Options()));
    const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, 1.0));
    VrAbcMeshWriter mesh;
    ASSERT_TRUE(mesh.create(writer.top(), "plane", VrAbcMeshWriter::Kind::SubD, ts));
    const std::vector<int32_t> fewer = {4, 4, 4}, fewerIndices(gridIndices.begin(), gridIndices.begin() + 12);
    VrAbcMeshWriter::Sample first, second;
    const std::vector<float> positions = gridPositions();  // the samples only view it
    first.positions = second.positions = positions;
    first.faceCounts = gridCounts;
    first.faceIndices = gridIndices;
    second.faceCounts = fewer;
    second.faceIndices = fewerIndices;
    ASSERT_TRUE(mesh.write(first) && mesh.write(second) && writer.close());
  }
  const std::string melted = grid.dir.file("melt.##.abc");
  const auto failed = vorn("render " + shellWord(grid.collection) + " --geom " + shellWord(melting) +
                           " --frames 24-25 -o " + shellWord(melted));
  EXPECT_TRUE(ranWith(failed, 1, "The geometry plane changes its faces over time"));
  EXPECT_TRUE(
      ranWith(failed, 1,
              "vorn: frame 25 failed; the frames before it are written, " + grid.dir.file("melt.25.abc") + " is not"));
  EXPECT_TRUE(std::filesystem::exists(grid.dir.file("melt.24.abc")));
  EXPECT_FALSE(std::filesystem::exists(grid.dir.file("melt.25.abc")));
}

TEST(VornRender, UsageAndOutputsAreCheckedBeforeAnyWork) {
  const MovingGrid grid;
  const std::string common = "render " + shellWord(grid.collection) + " --geom " + shellWord(grid.geometry);
  const std::string hashes = " -o " + shellWord(grid.dir.file("x.#.abc"));
  std::filesystem::create_directory(grid.dir.file("out"));
  const std::string out = " --frame 24 -o " + shellWord(grid.dir.file("out/out.jsonl"));
  const struct {
    std::string flags;
    int exitCode;
    std::string message;
  } cases[] = {
      {" --frames 3-1" + hashes, 2, "vorn: --frames takes FIRST-LAST or FIRST-LAST:STEP"},
      {" --frames 1-3:0" + hashes, 2, "vorn: --frames takes"},
      {" --frames one-two" + hashes, 2, "vorn: --frames takes"},
      {" --frames 1-3:2x" + hashes, 2, "vorn: --frames takes"},
      {" --frames 1-2 -o " + shellWord(grid.dir.file("x.abc")), 2, "need a '#' in the output name"},
      {" --frame 1 --frames 1-2" + hashes, 2, "vorn: --frame and --frames cannot both be given"},
      {hashes, 2, "vorn: --frame or --frames is required"},
      {" --frame 1 -o /nonexistent/dir/x.abc", 1,
       "vorn: cannot write /nonexistent/dir/x.abc: no folder /nonexistent/dir"},
      {out + " --motion-samples 0.5,0.5", 2, "vorn: --motion-samples must be frame offsets in increasing order"},
      {out + " --motion-samples 1,0", 2, "vorn: --motion-samples must be frame offsets in increasing order"},
      {out + " --motion-samples 0,x", 2, "vorn: --motion-samples takes numbers separated by commas: 0,x"},
      {out + " --fps 0", 2, "vorn: --fps must be above 0"},
      {out + " --motion-samples 0,1 --shutter 0,0.5,1", 2, "vorn: --shutter needs one time per motion sample (2)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.flags);
    const auto result = vorn(common + c.flags);
    EXPECT_TRUE(ranWith(result, c.exitCode, c.message));
    EXPECT_EQ(result.output.find("rendered"), std::string::npos) << result.output;
  }
  EXPECT_TRUE(std::filesystem::is_empty(grid.dir.path() + "/out"));
}

TEST(VornRender, EveryCoreByDefaultAndTheBannerOnlyWhenVerbose) {
  const MovingGrid grid;
  const std::string out = grid.dir.file("out.jsonl");
  const std::string command = vrtest::vornCli() + " " + grid.args("24", out);
  const struct {
    std::string run;
    std::string threads;
    bool banner;
  } cases[] = {
      {"VORN_THREAD_LIMIT=2 " + command, " on 2 threads\n", false},
      {"VORN_THREAD_LIMIT=1 " + command + " --threads 2", " on 1 thread (serial)\n", false},
      {"VORN_THREAD_LIMIT=2 " + command + " --threads 1 --verbose", " on 1 thread (serial)\n", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.run);
    const auto result = runCommand(c.run);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_NE(result.output.find(c.threads), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("Vorn Version: ") != std::string::npos, c.banner) << result.output;
  }
}

// The object the example's cards or spheres become in `path`: `count` cards of 5 x 5 points and
// 16 quads that pass through the first card's control points `cp` and mirror them about its
// root, or `count` points, the first at the centre of `cp` with its width, radii and the
// rotation that takes the sphere's y axis to its root-to-tip direction.
void checkShapeObject(const std::string& path, const std::string& kind, size_t count, const std::vector<double>& cp,
                      uint64_t firstId) {
  VrAbcArchive archive;
  ASSERT_TRUE(archive.open(path));
  ASSERT_EQ(archive.top().numChildren(), 1u);  // no empty curves beside the shapes
  VrAbcObject object;
  ASSERT_TRUE(archive.findObject("/hair_scalpShape", object));
  const auto point = [](const std::vector<float>& p, size_t i) { return SgVec3T<double>(p[3 * i], p[3 * i + 1], p[3 * i + 2]); };
  const auto control = [&](size_t i) { return SgVec3T<double>(cp[3 * i], cp[3 * i + 1], cp[3 * i + 2]); };
  VrAbcCompoundProperty arbitrary;
  if (kind == "CardPrimitive") {
    VrAbcPolyMesh mesh;
    VrAbcPolyMesh::Sample s;
    ASSERT_TRUE(mesh.open(object));
    ASSERT_TRUE(mesh.read(0, s));
    ASSERT_EQ(s.points.positions.size(), 3 * 25 * count);
    ASSERT_EQ(s.faceCounts.size(), 16 * count);
    EXPECT_EQ(s.faceIndices.size(), 64 * count);
    // Root at the grid's middle, bend centres and edges beside it, the far halves mirrored.
    const std::pair<size_t, size_t> along[] = {{13, 1}, {14, 3}, {17, 2}, {22, 4}};
    EXPECT_LT((point(s.points.positions, 12) - control(0)).length(), 1e-5);
    for (const auto& a : along) EXPECT_LT((point(s.points.positions, a.first) - control(a.second)).length(), 1e-5);
    for (const auto& mirror : {std::pair<size_t, size_t>{11, 13}, {10, 14}, {7, 17}, {2, 22}})
      EXPECT_NEAR((point(s.points.positions, mirror.first) - control(0)).length(),
                  (point(s.points.positions, mirror.second) - control(0)).length(), 1e-5);
    ASSERT_TRUE(s.hasUvs);
    EXPECT_EQ(s.uvs.values.numValues(), 25 * count);
    ASSERT_TRUE(mesh.geometry().compound().compound(".arbGeomParams", arbitrary));
    VrAbcGeomParam ids;
    VrAbcGeomParam::Sample idSample;
    ASSERT_TRUE(ids.open(arbitrary, "vorn_id", VrAbcPod::Int32, 1, nullptr));
    ASSERT_TRUE(ids.read(0, idSample));
    std::vector<int32_t> idValues;
    ASSERT_TRUE(idSample.values.as(idValues));
    ASSERT_EQ(idValues.size(), 16 * count);
    EXPECT_EQ(static_cast<uint64_t>(idValues[0]), firstId & 0xffffffffu);
    EXPECT_EQ(idSample.scope, VrAbcScope::Uniform);
  } else {
    VrAbcPoints points;
    VrAbcPoints::Sample s;
    ASSERT_TRUE(points.open(object));
    ASSERT_TRUE(points.read(0, s));
    ASSERT_EQ(s.ids.size(), count);
    EXPECT_EQ(s.ids[0], firstId);
    const SgVec3T<double> mid = (control(0) + control(1)) * 0.5;
    EXPECT_LT((point(s.points.positions, 0) - mid).length(), 1e-5);
    std::vector<float> widths;
    ASSERT_TRUE(s.hasWidths && s.widths.values.as(widths));
    EXPECT_NEAR(widths[0], 2.0 * (control(2) - mid).length(), 1e-5);
    ASSERT_TRUE(points.geometry().compound().compound(".arbGeomParams", arbitrary));
    VrAbcGeomParam orient, radii;
    VrAbcGeomParam::Sample q, r;
    ASSERT_TRUE(orient.open(arbitrary, "orient", VrAbcPod::Float32, 4, nullptr) && orient.read(0, q));
    ASSERT_TRUE(radii.open(arbitrary, "radii", VrAbcPod::Float32, 3, nullptr) && radii.read(0, r));
    std::vector<float> qv, rv;
    ASSERT_TRUE(q.values.as(qv) && r.values.as(rv));
    // The quaternion turns (0, 1, 0) into the unit root-to-tip direction.
    const SgVec3T<double> v(qv[1], qv[2], qv[3]), y(0, 1, 0);
    const SgVec3T<double> t = v.cross(y) * 2.0;
    const SgVec3T<double> turned = y + t * qv[0] + v.cross(t);
    const SgVec3T<double> axis = control(1) - control(0);
    EXPECT_LT((turned - axis / axis.length()).length(), 1e-5);
    EXPECT_NEAR(rv[1], axis.length() / 2, 1e-5);
    EXPECT_NEAR(rv[0], widths[0] / 2, 1e-5);
  }
}

// The example with cards, then spheres, instead of hair: every line carries the kind, the five
// or four control points with a width each, and the sizes the control points tell, which are
// the ones the example's expressions ask for; one and two threads write the same lines and the
// same Alembic file.
TEST(VornRender, CardsAndSpheresWriteTheirControlPointsAndSizes) {
  struct Row {
    const char* kind;
    size_t count;
    bool hasDepth;
  };
  for (const Row& row : {Row{"CardPrimitive", 5, false}, Row{"SpherePrimitive", 4, true}}) {
    SCOPED_TRACE(row.kind);
    vrtest::TempDir dir;
    std::string text = readText(vrtest::smallHeadCollection(dir));
    for (size_t at = text.find("SplinePrimitive"); at != std::string::npos; at = text.find("SplinePrimitive", at))
      text.replace(at, 15, row.kind);
    const std::string collection = dir.write("kind.vorn", text);
    const auto outputs = renderOnOneAndTwoThreads(dir, collection, exampleDir + "/head.abc", ".jsonl");
    EXPECT_EQ(firstDifference(outputs[0], outputs[1]), "");
    std::istringstream in(outputs[0]);
    size_t count = 0;
    for (std::string line; std::getline(in, line); ++count) {
      SCOPED_TRACE(line);
      ASSERT_NE(line.find(",\"kind\":\"" + std::string(row.kind) + "\",\"cvs\":["), std::string::npos);
      const size_t cvs = line.find("\"cvs\":[") + 7, widths = line.find("],\"widths\":[");
      const size_t sizes = line.find("],\"length\":");
      ASSERT_NE(widths, std::string::npos);
      ASSERT_NE(sizes, std::string::npos);
      EXPECT_EQ(numbersIn(line, cvs, widths).size(), 3 * row.count);
      const std::vector<double> w = numbersIn(line, widths + 12, sizes);
      ASSERT_EQ(w.size(), row.count);
      // width = 0.004 * (0.7 + 0.6 * noise); length = 0.3 + 0.15 * rand(); depth the default 1.
      EXPECT_GE(w[0], 0.004 * 0.7 - 1e-7);
      EXPECT_LE(w[0], 0.004 * 1.3 + 1e-7);
      const double length = std::stod(line.substr(sizes + 11));
      const double width = std::stod(line.substr(line.find(",\"width\":") + 9));
      EXPECT_GE(length, 0.3 - 1e-5);
      EXPECT_LE(length, 0.45 + 1e-5);
      EXPECT_NEAR(width, w[0], 1e-5);
      const size_t depth = line.find(",\"depth\":");
      ASSERT_EQ(depth != std::string::npos, row.hasDepth);
      if (row.hasDepth) {
        EXPECT_NEAR(std::stod(line.substr(depth + 9)), 1.0, 1e-5);
      }
    }
    EXPECT_GT(count, 100u);
    // The Alembic form, the same bytes on one and two threads, read back against the first
    // line's control points.
    const auto abcBytes = renderOnOneAndTwoThreads(dir, collection, exampleDir + "/head.abc", ".abc");
    EXPECT_TRUE(abcBytes[0] == abcBytes[1]);
    const std::string first = outputs[0].substr(0, outputs[0].find('\n'));
    const size_t cvsAt = first.find("\"cvs\":[") + 7;
    const std::vector<double> cp = numbersIn(first, cvsAt, first.find("],\"widths\":["));
    const uint64_t face = std::stoull(first.substr(first.find("\"face\":") + 7));
    const uint64_t id = std::stoull(first.substr(first.find(",\"id\":") + 6));
    checkShapeObject(dir.file("out1.abc"), row.kind, count, cp, face << 32 | id);
  }
}

// Values no hair can have: an attribute that divides by zero culls the primitives it reaches with
// one warning naming it, and nothing that is not a number reaches the output; a CV count that
// would exhaust the memory is refused when it is set.
TEST(VornRender, NonFiniteAttributesCullWithOneWarningAndHugeCVCountsAreRefused) {
  struct Row {
    const char* attribute;
    const char* value;
    const char* said;
  };
  const Row rows[] = {
      {"length", "1/0", "attribute \"length\" is not a finite number"},
      {"width", "1/0", "attribute \"width\" is not a finite number"},
      {"taper", "log(0)", "attribute \"taper\" is not a finite number"},
      {"offN", "0/0", "attribute \"offN\" is not a finite number"},
      {"attrCVCount", "100000000", "Cant set cv count to a value greater than 1000."},
      {"fxCVCount", "100000000", "Cant set fx cv count to a value greater than 1000."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.attribute);
    vrtest::TempDir dir;
    const std::string collection = vrtest::smallHeadCollection(dir);
    const auto set = vorn("set " + shellWord(collection) + " " + row.attribute + " " + shellWord(row.value) +
                          " hair SplinePrimitive");
    const bool refused = std::string(row.attribute).find("CVCount") != std::string::npos;
    if (refused) {  // said, and the file keeps the count it had
      EXPECT_NE(set.output.find(row.said), std::string::npos) << set.output;
      const auto kept = vorn("get " + shellWord(collection) + " " + row.attribute + " hair SplinePrimitive");
      EXPECT_EQ(kept.exitCode, 0) << kept.output;
      EXPECT_EQ(kept.output.find("100000000"), std::string::npos) << kept.output;
      continue;
    }
    ASSERT_EQ(set.exitCode, 0) << set.output;
    const std::string out = dir.file("out.jsonl");
    const auto render = vorn(renderArgs(collection, exampleDir + "/head.abc", out));
    ASSERT_EQ(render.exitCode, 0) << render.output;
    size_t said = 0;
    for (size_t at = render.output.find(row.said); at != std::string::npos; at = render.output.find(row.said, at + 1))
      ++said;
    EXPECT_EQ(said, 1u) << render.output;
    const std::string lines = readText(out);
    EXPECT_EQ(lines.find("nan"), std::string::npos);
    EXPECT_EQ(lines.find("inf"), std::string::npos);
  }
}

// The rocks of examples/archives: two groups of three levels each, scattered on the head. The
// camera stands at the origin, inside the head (radius 1), so every rock is nearer than the
// default medium distance and its proxy is its group's level 0, the high file.
TEST(VornRender, ArchivesWritePlacementGroupFrameAndFilesOnOneAndTwoThreads) {
  const std::string rocks = std::string(VORN_SOURCE_DIR) + "/examples/archives";
  vrtest::TempDir dir;
  const auto outputs = renderOnOneAndTwoThreads(dir, "rocks.vorn", "../head/head.abc", ".jsonl", rocks);
  EXPECT_EQ(firstDifference(outputs[0], outputs[1]), "");
  std::istringstream in(outputs[0]);
  size_t perGroup[2] = {0, 0};
  for (std::string line; std::getline(in, line);) {
    SCOPED_TRACE(line);
    const size_t position = line.find(",\"kind\":\"ArchivePrimitive\",\"position\":[");
    const size_t axes = line.find("],\"axes\":[");
    const size_t group = line.find("]],\"group\":");
    ASSERT_NE(position, std::string::npos);
    ASSERT_NE(axes, std::string::npos);
    ASSERT_NE(group, std::string::npos);
    // On the unit dome; the axes are the width, length and depth (0.05 to 0.1, the archives
    // being one unit across), the up axis along the surface normal.
    const std::vector<double> p = numbersIn(line, position + 39, axes);
    const std::vector<double> a = numbersIn(line, axes + 10, group);
    ASSERT_EQ(p.size(), 3u);
    ASSERT_EQ(a.size(), 9u);
    EXPECT_NEAR(std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]), 1.0, 0.05);
    for (int k = 0; k < 3; ++k) {
      const double length = std::sqrt(a[3 * k] * a[3 * k] + a[3 * k + 1] * a[3 * k + 1] + a[3 * k + 2] * a[3 * k + 2]);
      EXPECT_GE(length, 0.05 - 1e-5);
      EXPECT_LE(length, 0.1 + 1e-5);
    }
    EXPECT_GT((a[3] * p[0] + a[4] * p[1] + a[5] * p[2]) / std::sqrt(a[3] * a[3] + a[4] * a[4] + a[5] * a[5]), 0.9);
    const int g = std::stoi(line.substr(group + 11));
    ASSERT_TRUE(g == 0 || g == 1);
    ++perGroup[g];
    const std::string kind = g == 0 ? "pebble" : "slab";
    for (const char* slot : {"\"low\":\"", "\"medium\":\"", "\"high\":\"", "\"proxy\":\""}) {
      const size_t at = line.find(slot);
      ASSERT_NE(at, std::string::npos);
      const std::string file = line.substr(at + std::strlen(slot), line.find('"', at + std::strlen(slot)) - at - std::strlen(slot));
      const std::string level = std::strcmp(slot, "\"low\":\"") == 0 ? "lo" : std::strcmp(slot, "\"medium\":\"") == 0 ? "med" : "hi";
      EXPECT_EQ(std::filesystem::path(file).filename().string(), kind + "_" + level + ".abc");
      EXPECT_TRUE(std::filesystem::exists(rocks + "/" + file)) << file;
    }
  }
  EXPECT_GT(perGroup[0], 100u);
  EXPECT_GT(perGroup[1], 100u);

  // The Alembic form: one points object of the archives, in the lines' order, with the group and
  // the chosen file of each slot of every archive; inline, a transform per archive over the mesh
  // of its high file, written once per file and instanced after.
  const std::string abcPath = dir.file("rocks.abc");
  const auto abc = vornIn(rocks, renderArgs("rocks.vorn", "../head/head.abc", abcPath) + " --archives-inline");
  ASSERT_EQ(abc.exitCode, 0) << abc.output;
  VrAbcArchive archive;
  VrAbcObject object;
  VrAbcPoints points;
  VrAbcPoints::Sample sample;
  VrAbcCompoundProperty arbitrary;
  ASSERT_TRUE(archive.open(abcPath) && archive.findObject("/stones_scalpShape", object));
  ASSERT_TRUE(points.open(object) && points.read(0, sample));
  ASSERT_EQ(sample.ids.size(), perGroup[0] + perGroup[1]);
  ASSERT_TRUE(points.geometry().compound().compound(".arbGeomParams", arbitrary));
  VrAbcGeomParam groups, high;
  VrAbcGeomParam::Sample g, h;
  ASSERT_TRUE(groups.open(arbitrary, "archiveGroup", VrAbcPod::Int32, 1, nullptr) && groups.read(0, g));
  ASSERT_TRUE(high.open(arbitrary, "archiveFileHigh", VrAbcPod::String, 1, nullptr) && high.read(0, h));
  std::vector<int32_t> groupValues;
  ASSERT_TRUE(g.values.as(groupValues));
  ASSERT_TRUE(h.indexed);
  ASSERT_EQ(h.indices.size(), groupValues.size());
  std::istringstream again(outputs[0]);
  size_t i = 0;
  for (std::string line; std::getline(again, line) && i < groupValues.size(); ++i) {
    EXPECT_EQ(groupValues[i], std::stoi(line.substr(line.find("\"group\":") + 8)));
    ASSERT_LT(h.indices[i], h.values.strings.size());
    EXPECT_NE(line.find("\"high\":\"" + h.values.strings[h.indices[i]] + "\""), std::string::npos);
  }

  VrAbcObject inlined, placed, mesh;
  ASSERT_TRUE(archive.findObject("/stones_scalpShape_inline", inlined));
  ASSERT_EQ(inlined.numChildren(), groupValues.size());
  size_t instances = 0;
  for (size_t k = 0; k < inlined.numChildren(); ++k) {
    ASSERT_TRUE(inlined.child(k, placed) && placed.numChildren() == 1 && placed.child(0, mesh));
    const std::string stem = groupValues[k] == 0 ? "pebble_hi" : "slab_hi";
    EXPECT_EQ(mesh.name(), stem);
    EXPECT_EQ(mesh.header().metaData.get("schema"), "AbcGeom_PolyMesh_v1");
    instances += mesh.isInstanceRoot() ? 1 : 0;
    if (k == 0) {
      // The mesh is the file's own, faces in the file's winding.
      VrAbcArchive source;
      VrAbcObject sourceObject;
      VrAbcPolyMesh written, original;
      VrAbcPolyMesh::Sample w, o;
      ASSERT_TRUE(source.open(rocks + "/" + stem + ".abc") &&
                  source.findObject("/rockShape", sourceObject));
      ASSERT_TRUE(original.open(sourceObject) && original.read(0, o));
      ASSERT_TRUE(written.open(mesh) && written.read(0, w));
      EXPECT_EQ(w.faceCounts, o.faceCounts);
      EXPECT_EQ(w.faceIndices, o.faceIndices);
    }
  }
  EXPECT_EQ(instances, groupValues.size() - 2);

  // The instance list gives the level of detail in use: the high one.
  const std::string pmt = dir.file("rocks.pmt");
  ASSERT_EQ(vornIn(rocks, renderArgs("rocks.vorn", "../head/head.abc", pmt)).exitCode, 0);
  std::istringstream records(readText(pmt));
  std::vector<std::string> lines;
  for (std::string line; std::getline(records, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 14 + 14 * groupValues.size());
  for (size_t r = 0; r < groupValues.size(); ++r) ASSERT_EQ(lines[14 + 14 * r + 8], "2") << "record " << r;
}

// Every bundled example renders from the folder its README names, with no Error, and writes the
// objects its README promises.
TEST(VornRender, BundledExamplesRender) {
  struct Example {
    const char* folder;  // where the render runs, under the source tree
    const char* collection;
    const char* geometry;
    const char* object;  // an object the .abc must hold
  };
  const Example examples[] = {
      {"", "examples/leaves/leaves.vorn", "examples/leaves/twig.abc", "/leaves_twigShape"},
      {"", "examples/collar/collar.vorn", "examples/head/head.abc", "/vornCurves"},
      {"", "examples/styled/styled.vorn", "examples/head/head.abc", "/vornCurves"},
      {"examples/archives", "rocks.vorn", "../head/head.abc", "/stones_scalpShape"},
  };
  vrtest::TempDir dir;
  for (const Example& example : examples) {
    SCOPED_TRACE(example.collection);
    const std::string out = dir.file("example.abc");
    const auto result = vornIn(std::string(VORN_SOURCE_DIR) + "/" + example.folder,
                               renderArgs(example.collection, example.geometry, out));
    ASSERT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output.find("Error"), std::string::npos) << result.output;
    VrAbcArchive archive;
    VrAbcObject object;
    EXPECT_TRUE(archive.open(out) && archive.findObject(example.object, object));
  }
}
