#include "io/output/VrOrderedRuns.h"

#include "base/vrutilSort.h"

#include <algorithm>

namespace {

// Points the primitives at the strings of the run where it lies now.
void pointIntoRun(const std::string& description, VrOutputRun& run) {
  const bool archive = run.kind == "ArchivePrimitive";
  for (size_t p = 0; p < run.prims.size(); ++p) {
    VrOutputPrimitive& out = run.prims[p];
    out.kind = run.kind.c_str();
    out.description = description.c_str();
    for (size_t slot = 0; archive && slot < 4; ++slot) out.archiveFiles[slot] = run.files[4 * p + slot].c_str();
  }
}

// Puts runs in (face, first id) order, keeping the order of equal runs.
void sortRuns(std::vector<VrOutputRun>& runs) {
  vrutil::stableSortUnlessSorted(runs.begin(), runs.end(), [](const VrOutputRun& a, const VrOutputRun& b) {
    return a.face != b.face ? a.face < b.face : a.firstId < b.firstId;
  });
}

}  // namespace

bool VrWriteRun(VrPrimitiveOutput& output, const std::string& patch, const std::string& description,
                VrOutputRun& run) {
  pointIntoRun(description, run);
  if (run.isEncoded) return output.writeEncoded(patch, run.prims.data(), run.prims.size(), run.encoded);
  return output.write(patch, run.prims.data(), run.prims.size());
}

void VrEncodeRun(const VrPrimitiveOutput& output, const std::string& patch, const std::string& description,
                 VrOutputRun& run) {
  if (!output.encodesRuns()) return;
  pointIntoRun(description, run);
  run.encoded.clear();
  output.encode(patch, run.prims.data(), run.prims.size(), run.encoded);
  run.isEncoded = true;
}

void VrOrderedRuns::startJob(size_t newJob, const std::vector<unsigned>& faces) {
  std::vector<unsigned> sorted = faces;
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  std::lock_guard<std::mutex> hold(lock);
  job = newJob;
  ordinal.clear();
  for (size_t i = 0; i < sorted.size(); ++i) ordinal[static_cast<int>(sorted[i])] = i;
  slots.assign(sorted.size(), Slot());
  strays.clear();
  head = 0;
}

void VrOrderedRuns::add(VrOutputRun run) {
  if (prepare) prepare(run);
  std::lock_guard<std::mutex> hold(lock);
  heldBytes += run.bytes();
  mostBytes = std::max(mostBytes, heldBytes);
  const auto found = ordinal.find(run.face);
  if (found == ordinal.end() || found->second < head)
    strays.push_back(std::move(run));
  else
    slots[found->second].runs.push_back(std::move(run));
}

void VrOrderedRuns::faceDone(int face) {
  std::unique_lock<std::mutex> hold(lock);
  const auto found = ordinal.find(face);
  if (found == ordinal.end()) return;
  slots[found->second].done = true;
  if (!delivering && found->second == head) drain(hold, false);
}

void VrOrderedRuns::finishJob() {
  // Called once the render is over: no worker is delivering any more.
  std::unique_lock<std::mutex> hold(lock);
  drain(hold, true);
  std::vector<VrOutputRun> rest;
  rest.swap(strays);
  sortRuns(rest);
  for (VrOutputRun& run : rest) {
    heldBytes -= run.bytes();
    if (!broken && !deliver(run)) broken = true;
  }
}

void VrOrderedRuns::drain(std::unique_lock<std::mutex>& hold, bool everything) {
  delivering = true;
  while (head < slots.size() && (everything || slots[head].done)) {
    ready.clear();
    for (; head < slots.size() && (everything || slots[head].done); ++head)
      for (VrOutputRun& run : slots[head].runs) ready.push_back(std::move(run));
    const bool skip = broken;
    hold.unlock();
    // A face flushed in several batches may bring its runs in any order.
    sortRuns(ready);
    size_t written = 0;
    bool ok = !skip;
    for (VrOutputRun& run : ready) {
      written += run.bytes();
      if (ok && !deliver(run)) ok = false;
    }
    hold.lock();
    heldBytes -= written;
    if (!ok) broken = true;
  }
  ready.clear();  // the delivered runs' buffers go now; the array is kept for the next drain
  delivering = false;
}

bool VrOrderedRuns::failed() const {
  std::lock_guard<std::mutex> hold(lock);
  return broken;
}

size_t VrOrderedRuns::peakBytes() const {
  std::lock_guard<std::mutex> hold(lock);
  return mostBytes;
}

