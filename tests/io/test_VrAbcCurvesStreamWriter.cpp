#include "io/alembic/VrAbcCurvesStreamWriter.h"

#include "io/AlembicTestSupport.h"

#include "io/alembic/VrAbcArchive.h"
#include "io/alembic/VrAbcArchiveWriter.h"
#include "io/alembic/VrAbcCurves.h"
#include "io/alembic/VrAbcCurvesWriter.h"
#include "io/alembic/VrAbcDump.h"
#include "support/CaptureLogger.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

// A test groom: curve i has 2 + i % 5 points on a slanted line from (i, 0, -i); widths fall
// from 0.1 along each curve.
struct Groom {
  std::vector<float> points;
  std::vector<int32_t> counts;
  std::vector<float> widths;
  explicit Groom(int numCurves) {
    for (int i = 0; i < numCurves; ++i) {
      const int n = 2 + i % 5;
      counts.push_back(n);
      for (int k = 0; k < n; ++k) {
        points.insert(points.end(), {static_cast<float>(i) + 0.25f * k, 0.5f * k, -static_cast<float>(i)});
        widths.push_back(0.1f - 0.01f * k);
      }
    }
  }
};

using vrtest::readText;

// The same curves in one piece through the schema writer, at the same time sampling.
bool writeWhole(const std::string& path, const Groom& groom, bool withWidths, double frame) {
  VrAbcArchiveWriter writer;
  if (!writer.open(path, VrAbcArchiveWriter::Options())) return false;
  const uint32_t ts = writer.addTimeSampling(VrAbcTimeSampling::uniform(1.0 / 24.0, frame / 24.0));
  VrAbcCurvesWriter curves;
  if (!curves.create(writer.top(), "hair", ts)) return false;
  VrAbcCurvesWriter::Sample sample;
  sample.positions = groom.points;
  sample.numVertices = groom.counts;
  if (withWidths) sample.widths = groom.widths;
  return curves.write(sample) && writer.close();
}

// Streams the groom in batches of `batch` curves; `intoArchive`: its points straight into an
// archive of the caller's.
bool writeStreamed(const std::string& path, const Groom& groom, bool withWidths, double frame, size_t batch,
                   bool intoArchive = false) {
  VrAbcCurvesStreamWriter out;
  VrAbcCurvesStreamWriter::Options options;
  options.objectName = "hair";
  options.frame = frame;
  if (!out.open(path, options)) return false;
  VrAbcArchiveWriter archive;
  if (intoArchive && !(archive.open(path, options.archive) && out.streamInto(archive))) return false;
  size_t point = 0;
  for (size_t first = 0; first < groom.counts.size(); first += batch) {
    const size_t n = std::min(batch, groom.counts.size() - first);
    uint64_t numPoints = 0;
    for (size_t i = first; i < first + n; ++i) numPoints += static_cast<uint64_t>(groom.counts[i]);
    if (!out.append(groom.points.data() + 3 * point, numPoints, groom.counts.data() + first, n,
                    withWidths ? groom.widths.data() + point : nullptr))
      return false;
    point += numPoints;
  }
  if (out.numCurves() != groom.counts.size() || out.numPoints() != groom.widths.size()) return false;
  return intoArchive ? out.writeInto(archive) && archive.close() : out.close();
}

// The curves `object` of the archive `file`; the handles keep the archive open.
VrAbcCurves curvesIn(const std::string& file, const std::string& object) {
  VrAbcArchive archive;
  VrAbcObject found;
  VrAbcCurves curves;
  EXPECT_TRUE(archive.open(file) && archive.findObject(object, found) && curves.open(found))
      << file << object;
  return curves;
}

}  // namespace

TEST(AbcCurvesStreamWriter, StreamedFileEqualsTheOnePieceFile) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const Groom groom(1000);
  for (const bool widths : {true, false}) {
    SCOPED_TRACE(widths ? "with widths" : "without widths");
    const std::string whole = dir.file(widths ? "whole_w.abc" : "whole.abc");
    ASSERT_TRUE(writeWhole(whole, groom, widths, 12.0));
    for (size_t batch : {1u, 7u, 1000u}) {
      SCOPED_TRACE("batches of " + std::to_string(batch));
      const std::string streamed = dir.file("streamed" + std::to_string(batch) + (widths ? "_w" : "") + ".abc");
      ASSERT_TRUE(writeStreamed(streamed, groom, widths, 12.0, batch));
      EXPECT_EQ(readText(streamed), readText(whole));
    }
  }
  // More than a read-back piece (1 MiB) of points: 60000 curves, 240000 points, 2.9 MB.
  const Groom big(60000);
  const std::string bigWhole = dir.file("bigWhole.abc");
  const std::string bigStreamed = dir.file("bigStreamed.abc");
  ASSERT_TRUE(writeWhole(bigWhole, big, true, 3.0));
  ASSERT_TRUE(writeStreamed(bigStreamed, big, true, 3.0, 4999));
  EXPECT_TRUE(readText(bigStreamed) == readText(bigWhole));
  // Points streamed straight into the archive lie elsewhere in the file and read the same.
  const std::string intoArchive = dir.file("intoArchive.abc");
  ASSERT_TRUE(writeStreamed(intoArchive, big, true, 3.0, 4999, true));
  EXPECT_EQ(std::filesystem::file_size(intoArchive), std::filesystem::file_size(bigWhole));
  EXPECT_EQ(vrtest::dumpWithoutFileLine(intoArchive), vrtest::dumpWithoutFileLine(bigWhole));
  VrAbcCurves::Sample sample;
  ASSERT_TRUE(curvesIn(intoArchive, "/hair").read(0, sample));
  EXPECT_TRUE(sample.points.positions == big.points);
  // Nothing but the outputs is left in the folder (spools are unlinked at once).
  const auto entries = std::filesystem::directory_iterator(dir.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 11);
  EXPECT_TRUE(log.errors().empty());
}

TEST(AbcCurvesStreamWriter, NoCurvesStillMakeAValidArchive) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string path = dir.file("empty.abc");
  VrAbcCurvesStreamWriter out;
  ASSERT_TRUE(out.open(path, VrAbcCurvesStreamWriter::Options()));
  EXPECT_TRUE(out.append(nullptr, 0, nullptr, 0, nullptr));
  ASSERT_TRUE(out.close());
  VrAbcDump::Result result;
  EXPECT_NE(vrtest::dumpText(path, &result).find("curves"), std::string::npos);
  EXPECT_EQ(result, VrAbcDump::Result::Ok);
  EXPECT_TRUE(log.errors().empty());
}

// A refused batch spends the writer: it says why once, closing it only answers false, and no
// file is left; nor is one by a writer aborted or dropped without closing.
TEST(AbcCurvesStreamWriter, MisuseIsRefusedWithItsReasonAndLeavesNoFile) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string path = dir.file("out.abc");
  const Groom groom(3);  // counts 2, 3, 4: nine points
  const int32_t negative[2] = {4, -2};
  const float* oneRowOfTwo[2] = {groom.points.data(), nullptr};
  using Writer = VrAbcCurvesStreamWriter;
  const struct {
    const char* what;
    std::vector<double> offsets;
    std::function<bool(Writer&)> feed;
    std::string reason;  // empty: any
  } cases[] = {
      {"counts that do not add up", {},
       [&](Writer& w) { return w.append(groom.points.data(), 8, groom.counts.data(), 3, nullptr); },
       "the point counts of a batch add up to 9, not 8"},
      {"widths on one batch and not the next", {},
       [&](Writer& w) {
         return w.append(groom.points.data(), 2, groom.counts.data(), 1, groom.widths.data()) &&
                w.append(groom.points.data() + 6, 3, groom.counts.data() + 1, 1, nullptr);
       },
       "widths must come with every batch or with none"},
      {"a negative count", {}, [&](Writer& w) { return w.append(groom.points.data(), 2, negative, 2, nullptr); }, ""},
      {"two samples given the points of one", {0.0, 1.0},
       [&](Writer& w) { return w.append(groom.points.data(), 9, groom.counts.data(), 3, nullptr); },
       "a writer of 2 samples needs the points of every sample"},
      {"a missing row", {0.0, 1.0},
       [&](Writer& w) { return w.appendSamples(oneRowOfTwo, 9, groom.counts.data(), 3, nullptr); },
       "a batch without its arrays"},
      {"streaming after the first batch", {},
       [&](Writer& w) {
         VrAbcArchiveWriter other;
         return other.open(dir.file("other.abc"), VrAbcArchiveWriter::Options()) &&
                w.append(groom.points.data(), 2, groom.counts.data(), 1, nullptr) && w.streamInto(other);
       },
       "points can be streamed only from the first batch on"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    log.clear();
    Writer::Options options;
    options.sampleOffsets = c.offsets;
    Writer out;
    ASSERT_TRUE(out.open(path, options));
    EXPECT_FALSE(c.feed(out));
    EXPECT_FALSE(out.close());
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_EQ(log.errors().size(), 1u);
    if (!c.reason.empty()) {
      EXPECT_EQ(log.errors()[0], "VrAbcCurvesStreamWriter: " + path + ": " + c.reason);
    }
  }
  {
    Writer aborted, dropped;
    ASSERT_TRUE(aborted.open(path, Writer::Options()));
    EXPECT_TRUE(aborted.append(groom.points.data(), 9, groom.counts.data(), 3, nullptr));
    aborted.abort();
    EXPECT_FALSE(std::filesystem::exists(path));
    ASSERT_TRUE(dropped.open(path, Writer::Options()));
    EXPECT_TRUE(dropped.append(groom.points.data(), 9, groom.counts.data(), 3, nullptr));
  }
  EXPECT_FALSE(std::filesystem::exists(path));

  // A folder that does not exist, no frame rate, and offsets that do not increase are refused
  // at open, each with an Error.
  log.clear();
  Writer::Options noRate, repeated, decreasing;
  noRate.framesPerSecond = 0.0;
  repeated.sampleOffsets = {0.5, 0.5};
  decreasing.sampleOffsets = {0.5, -0.5};
  Writer out;
  EXPECT_FALSE(out.open(dir.file("missing/out.abc"), Writer::Options()));
  for (const Writer::Options& options : {noRate, repeated, decreasing}) EXPECT_FALSE(out.open(path, options));
  ASSERT_EQ(log.errors().size(), 4u);
  EXPECT_EQ(log.errors().back(),
            "VrAbcCurvesStreamWriter: " + path + ": the sample offsets must be strictly increasing");
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(AbcCurvesStreamWriter, MotionSamplesShareTopologyAndStandAtTheirTimes) {
  vrtest::CaptureLogger log;
  vrtest::TempDir dir;
  const std::string path = dir.file("moving.abc");
  const Groom groom(50);
  // Sample 1 is sample 0 moved by (0, 0, 2); sample 2 by (1, 0, 0).
  std::vector<float> moved = groom.points, shifted = groom.points;
  for (size_t i = 0; i < moved.size(); i += 3) {
    moved[i + 2] += 2.0f;
    shifted[i] += 1.0f;
  }
  VrAbcCurvesStreamWriter out;
  VrAbcCurvesStreamWriter::Options options;
  options.objectName = "hair";
  options.frame = 12.0;
  options.framesPerSecond = 25.0;
  options.sampleOffsets = {-0.25, 0.0, 0.5};
  ASSERT_TRUE(out.open(path, options));
  size_t point = 0;
  for (size_t first = 0; first < groom.counts.size(); first += 7) {
    const size_t n = std::min<size_t>(7, groom.counts.size() - first);
    uint64_t numPoints = 0;
    for (size_t i = first; i < first + n; ++i) numPoints += static_cast<uint64_t>(groom.counts[i]);
    const float* rows[3] = {groom.points.data() + 3 * point, moved.data() + 3 * point,
                            shifted.data() + 3 * point};
    ASSERT_TRUE(out.appendSamples(rows, numPoints, groom.counts.data() + first, n, groom.widths.data() + point));
    point += numPoints;
  }
  ASSERT_TRUE(out.close());

  const VrAbcCurves curves = curvesIn(path, "/hair");
  ASSERT_EQ(curves.numSamples(), 3u);
  // (12 - 0.25) / 25, 12 / 25, (12 + 0.5) / 25 seconds.
  const double times[3] = {0.47, 0.48, 0.5};
  const std::vector<float>* expected[3] = {&groom.points, &moved, &shifted};
  for (uint32_t i = 0; i < 3; ++i) {
    SCOPED_TRACE("sample " + std::to_string(i));
    double time = -1.0;
    ASSERT_TRUE(curves.timeSampling().sampleTime(i, time));
    EXPECT_NEAR(time, times[i], 1e-12);
    VrAbcCurves::Sample sample;
    ASSERT_TRUE(curves.read(i, sample));
    EXPECT_EQ(sample.points.positions, *expected[i]);
    EXPECT_EQ(sample.numVertices, groom.counts);
    ASSERT_TRUE(sample.hasWidths);
    std::vector<float> widths;
    ASSERT_TRUE(sample.widths.values.as(widths));
    EXPECT_EQ(widths, groom.widths);
    // The box of each sample is its own: z spans [-49, 0] moved by 2 in sample 1.
    EXPECT_DOUBLE_EQ(sample.points.bounds[2], i == 1 ? -47.0 : -49.0);
    EXPECT_DOUBLE_EQ(sample.points.bounds[5], i == 1 ? 2.0 : 0.0);
  }
  // Counts repeat, points change: the topology is shared.
  EXPECT_EQ(curves.topologyVariance(), VrAbcSchema::Variance::Homogeneous);
  EXPECT_TRUE(log.errors().empty());
}

// One offset is one sample at frame + offset, with the uniform sampling of a still output.
TEST(AbcCurvesStreamWriter, OneOffsetIsAStillOutputAtItsFrame) {
  vrtest::TempDir dir;
  const std::string path = dir.file("out.abc");
  const Groom groom(3);
  VrAbcCurvesStreamWriter::Options options;
  options.sampleOffsets = {0.5};
  options.frame = 11.5;
  {
    VrAbcCurvesStreamWriter out;
    ASSERT_TRUE(out.open(path, options));
    ASSERT_TRUE(out.append(groom.points.data(), 9, groom.counts.data(), 3, nullptr));
    ASSERT_TRUE(out.close());
  }
  const std::string still = dir.file("still.abc");
  ASSERT_TRUE(writeWhole(still, groom, false, 12.0));
  const VrAbcCurves written = curvesIn(path, "/curves");
  EXPECT_TRUE(written.timeSampling() == curvesIn(still, "/hair").timeSampling());
  EXPECT_EQ(written.numSamples(), 1u);
}
