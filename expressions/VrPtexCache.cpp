// Per-thread texture caches and the list that reaches them all.

#include "expressions/VrPtexCache.h"

#include "base/VrMessage.h"
#include "base/VrTaskManager.h"

#include <algorithm>
#include <mutex>
#include <vector>

namespace {

std::mutex& listMutex() {
  static std::mutex* mutex = new std::mutex;  // used by thread exits until the process ends
  return *mutex;
}

std::vector<VrPtexCache*>& cacheList() {
  static std::vector<VrPtexCache*>* list = new std::vector<VrPtexCache*>;
  return *list;
}

constexpr int MaxOpenFiles = 500;

}  // namespace

VrPtexCache::~VrPtexCache() { drop(); }

void VrPtexCache::drop() {
  if (!cache) return;
  std::lock_guard<std::mutex> guard(listMutex());
  std::vector<VrPtexCache*>& list = cacheList();
  list.erase(std::remove(list.begin(), list.end(), this), list.end());
  cache.reset();
}

VrPtexCache& VrPtexCache::forThisThread() {
  static thread_local VrPtexCache local;
  return local;
}

std::shared_ptr<VrPtexTexture> VrPtexCache::get(const std::string& path) {
  if (!cache) {
    cache.reset(new VrPtexTextureCache(MaxOpenFiles, VrTaskManager::ptexCacheSize()));
    std::lock_guard<std::mutex> guard(listMutex());
    cacheList().push_back(this);
  }
  std::string error;
  bool firstFailure = false;
  std::shared_ptr<VrPtexTexture> texture = cache->get(path, error, firstFailure);
  if (firstFailure) VR_ERROR("Failed to open " + path + ".\n" + "             Error: " + error);
  return texture;
}

void VrPtexCache::clearAll() {
  std::lock_guard<std::mutex> guard(listMutex());
  for (VrPtexCache* each : cacheList()) each->cache.reset();
  cacheList().clear();
}

void VrPtexCache::clearThisThread() { forThisThread().drop(); }
