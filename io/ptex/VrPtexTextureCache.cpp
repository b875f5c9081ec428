// The texture cache of one thread.

#include "io/ptex/VrPtexTextureCache.h"

#include <algorithm>
#include <vector>

std::shared_ptr<VrPtexTexture> VrPtexTextureCache::get(const std::string& path, std::string& error, bool& firstFailure) {
  firstFailure = false;
  auto found = entries.find(path);
  if (found != entries.end()) {
    Entry& e = found->second;
    e.lastUse = ++clock;
    if (!e.texture) error = e.error;
    // Textures grow as their faces are inflated: the budget is checked now and then.
    if ((clock & 1023) == 0) trim(path);
    return e.texture;
  }
  Entry e;
  e.texture = VrPtexTexture::open(path, e.error);
  e.lastUse = ++clock;
  firstFailure = !e.texture;
  error = e.error;
  std::shared_ptr<VrPtexTexture> texture = e.texture;
  entries.emplace(path, std::move(e));
  trim(path);
  return texture;
}

size_t VrPtexTextureCache::memoryUsed() const {
  size_t total = 0;
  for (const auto& entry : entries)
    if (entry.second.texture) total += entry.second.texture->memoryUsed();
  return total;
}

void VrPtexTextureCache::trim(const std::string& keep) {
  if (static_cast<int>(entries.size()) <= maxFiles && memoryUsed() <= maxMemory) return;
  // Oldest first; the file just asked for stays.
  std::vector<std::pair<uint64_t, std::string>> order;
  for (const auto& entry : entries)
    if (entry.first != keep) order.emplace_back(entry.second.lastUse, entry.first);
  std::sort(order.begin(), order.end());
  for (const auto& item : order) {
    if (static_cast<int>(entries.size()) > maxFiles) {
      entries.erase(item.second);
      continue;
    }
    if (memoryUsed() <= maxMemory) break;
    const Entry& e = entries[item.second];
    if (e.texture) e.texture->purgeData();
  }
  if (memoryUsed() > maxMemory) {
    const Entry& e = entries[keep];
    if (e.texture) e.texture->purgeData();
  }
}
