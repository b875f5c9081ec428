#include "tools/orderedRuns.h"

#include <algorithm>

namespace vorncli {

void OrderedRuns::startJob(size_t newJob, const std::vector<unsigned>& faces) {
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

void OrderedRuns::add(Run run) {
  std::lock_guard<std::mutex> hold(lock);
  heldBytes += run.bytes();
  mostBytes = std::max(mostBytes, heldBytes);
  const auto found = ordinal.find(run.face);
  if (found == ordinal.end() || found->second < head)
    strays.push_back(std::move(run));
  else
    slots[found->second].runs.push_back(std::move(run));
}

void OrderedRuns::faceDone(int face) {
  std::unique_lock<std::mutex> hold(lock);
  const auto found = ordinal.find(face);
  if (found == ordinal.end()) return;
  slots[found->second].done = true;
  if (!delivering && found->second == head) drain(hold, false);
}

void OrderedRuns::finishJob() {
  // Called once the render is over: no worker is delivering any more.
  std::unique_lock<std::mutex> hold(lock);
  drain(hold, true);
  std::vector<Run> rest;
  rest.swap(strays);
  std::stable_sort(rest.begin(), rest.end(), [](const Run& a, const Run& b) {
    return a.face != b.face ? a.face < b.face : a.firstId < b.firstId;
  });
  for (Run& run : rest) {
    heldBytes -= run.bytes();
    if (!broken && !deliver(run)) broken = true;
  }
}

void OrderedRuns::drain(std::unique_lock<std::mutex>& hold, bool everything) {
  delivering = true;
  std::vector<Run> ready;
  while (head < slots.size() && (everything || slots[head].done)) {
    ready.clear();
    for (; head < slots.size() && (everything || slots[head].done); ++head)
      for (Run& run : slots[head].runs) ready.push_back(std::move(run));
    const bool skip = broken;
    hold.unlock();
    // A face flushed in several batches may bring its runs in any order.
    std::stable_sort(ready.begin(), ready.end(), [](const Run& a, const Run& b) {
      return a.face != b.face ? a.face < b.face : a.firstId < b.firstId;
    });
    size_t written = 0;
    bool ok = !skip;
    for (Run& run : ready) {
      written += run.bytes();
      if (ok && !deliver(run)) ok = false;
    }
    hold.lock();
    heldBytes -= written;
    if (!ok) broken = true;
  }
  delivering = false;
}

bool OrderedRuns::failed() const {
  std::lock_guard<std::mutex> hold(lock);
  return broken;
}

size_t OrderedRuns::peakBytes() const {
  std::lock_guard<std::mutex> hold(lock);
  return mostBytes;
}

}  // namespace vorncli
