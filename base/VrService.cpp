#include "base/VrService.h"

VrServiceOfServices& VrServiceOfServices::theOne() {
  static VrServiceOfServices registry;
  return registry;
}

VrServiceOfServices::~VrServiceOfServices() {
  for (auto& entry : services) delete entry.second;
}

bool VrServiceOfServices::registerService(int id, VrService* service) {
  if (!service) return false;
  std::lock_guard<std::mutex> lock(mutex);
  if (!services.emplace(id, service).second) {
    delete service;
    return false;
  }
  return true;
}

bool VrServiceOfServices::deregisterService(int id) {
  std::lock_guard<std::mutex> lock(mutex);
  auto found = services.find(id);
  if (found == services.end()) return false;
  delete found->second;
  services.erase(found);
  return true;
}

bool VrServiceOfServices::exists(int id) const {
  std::lock_guard<std::mutex> lock(mutex);
  return services.count(id) != 0;
}

VrService* VrServiceOfServices::findService(int id) const {
  std::lock_guard<std::mutex> lock(mutex);
  auto found = services.find(id);
  return found == services.end() ? nullptr : found->second;
}
