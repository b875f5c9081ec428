#include "io/output/VrOrderedRuns.h"
#include "support/Examples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>


namespace {

VrOutputRun runOf(int face, int firstId) {
  VrOutputRun run;
  run.face = face;
  run.firstId = firstId;
  run.floats.assign(2, 0.0f);
  return run;
}

using Key = std::pair<int, int>;  // face, first id

}  // namespace

TEST(VrOrderedRuns, DeliversInFaceAndIdOrderAsSoonAsTheHeadIsDone) {
  std::vector<Key> got;
  VrOrderedRuns runs([&](VrOutputRun& run) {
    got.push_back({run.face, run.firstId});
    return true;
  });
  runs.startJob(0, {5, 1, 3, 7});
  runs.add(runOf(3, 10));
  runs.add(runOf(1, 4));
  runs.add(runOf(1, 0));  // a second batch of face 1, with lower ids
  runs.faceDone(3);
  EXPECT_TRUE(got.empty());  // face 1 comes first
  runs.faceDone(1);
  EXPECT_EQ(got, (std::vector<Key>{{1, 0}, {1, 4}, {3, 10}}));
  runs.add(runOf(9, 0));  // not a face of the job
  runs.add(runOf(7, 2));  // never reported done
  runs.faceDone(5);       // nothing on it
  EXPECT_EQ(got.size(), 3u);
  runs.finishJob();
  EXPECT_EQ(got, (std::vector<Key>{{1, 0}, {1, 4}, {3, 10}, {7, 2}, {9, 0}}));
  EXPECT_FALSE(runs.failed());
  EXPECT_EQ(runs.peakBytes(), 3 * runOf(0, 0).bytes());  // the three runs before face 1 was done
}

TEST(VrOrderedRuns, AFailedWriteStopsDelivery) {
  int calls = 0;
  VrOrderedRuns runs([&](VrOutputRun&) { return ++calls < 2; });
  runs.startJob(0, {0, 1, 2});
  for (int face = 0; face < 3; ++face) {
    runs.add(runOf(face, 0));
    runs.faceDone(face);
  }
  runs.finishJob();
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(runs.failed());
}

// Two workers finishing alternate faces: whatever the interleaving, the writer sees every run
// once, in order, and never two at a time.
TEST(VrOrderedRuns, WorkersOnTwoThreadsStillWriteInOrder) {
  const int faces = 2000;
  std::vector<Key> got;
  std::atomic<int> writing{0};
  bool overlapped = false;
  VrOrderedRuns runs([&](VrOutputRun& run) {
    if (writing.fetch_add(1) != 0) overlapped = true;
    got.push_back({run.face, run.firstId});
    writing.fetch_sub(1);
    return true;
  });
  std::vector<unsigned> all;
  for (int f = 0; f < faces; ++f) all.push_back(static_cast<unsigned>(f));
  runs.startJob(0, all);
  auto worker = [&](int parity) {
    for (int f = parity; f < faces; f += 2) {
      runs.add(runOf(f, 1));
      runs.add(runOf(f, 0));
      runs.faceDone(f);
    }
  };
  std::thread a(worker, 0), b(worker, 1);
  a.join();
  b.join();
  runs.finishJob();
  ASSERT_EQ(got.size(), 2u * faces);
  for (int f = 0; f < faces; ++f) {
    EXPECT_EQ(got[2 * f], Key(f, 0));
    EXPECT_EQ(got[2 * f + 1], Key(f, 1));
  }
  EXPECT_FALSE(overlapped);
}

// A render encodes runs on its workers and stores the bytes later: the file is the one that
// plain writes of the same runs make.
TEST(VrOrderedRuns, EncodedRunsMakeTheFileThatPlainWritesMake) {
  vrtest::TempDir dir;
  std::vector<VrOutputRun> made;
  made.reserve(3);
  for (int face = 0; face < 3; ++face) {
    made.push_back(runOf(face, 0));
    VrOutputRun& run = made.back();  // the copies below point into these floats
    run.kind = "SplinePrimitive";
    run.prims.resize(2);
    run.floats.resize(run.prims.size() * 16);
    for (size_t i = 0; i < run.floats.size(); ++i) run.floats[i] = 0.25f * static_cast<float>(i % 13) - 1.0f;
    for (size_t p = 0; p < run.prims.size(); ++p) {
      VrOutputPrimitive& prim = run.prims[p];
      prim.face = face;
      prim.id = static_cast<int>(p);
      prim.numCVs = 4;
      prim.cvs = &run.floats[16 * p];
      prim.widths = &run.floats[16 * p + 12];
      prim.randomFloat = 0.5f;
    }
  }
  for (const char* extension : {".jsonl", ".pmt"}) {
    SCOPED_TRACE(extension);
    std::string text[2];
    for (int encoded : {0, 1}) {
      const std::string path = dir.file(std::to_string(encoded) + extension);
      std::unique_ptr<VrPrimitiveOutput> output = VrPrimitiveOutput::create(path, VrOutputSettings());
      ASSERT_TRUE(output && output->begin());
      EXPECT_TRUE(output->encodesRuns());
      for (VrOutputRun run : made) {
        if (encoded) VrEncodeRun(*output, "a \"patch\"", "hair", run);
        EXPECT_EQ(run.isEncoded, encoded == 1);
        ASSERT_TRUE(VrWriteRun(*output, "a \"patch\"", "hair", run));
      }
      ASSERT_TRUE(output->end());
      text[encoded] = vrtest::readText(path);
    }
    EXPECT_FALSE(text[0].empty());
    EXPECT_EQ(text[0], text[1]);
  }
}
