#pragma once
// Host services: an empty polymorphic base, the service the host implements for its render
// integration, and the process-wide registry from an int id to a service. The library never calls
// the registry itself; it exists for the host. The registry owns and destroys its services.

#include <map>
#include <mutex>

class VrService {
 public:
  virtual ~VrService() = default;
};

/// A service the host implements; the library only defines its identity.
class VrOrloService : public VrService {
 public:
  /// "ORLO" read as a little-endian 32-bit integer.
  static constexpr int sId = 'O' | ('R' << 8) | ('L' << 16) | ('O' << 24);
  virtual void beginBatch() = 0;
  virtual void endBatch() = 0;
  virtual bool isBatch() const = 0;
};

class VrServiceOfServices {
 public:
  static VrServiceOfServices& theOne();

  /// Takes ownership. False for a null service; with an id already present the offered service
  /// is destroyed, the old entry stays, and the answer is false.
  bool registerService(int id, VrService* service);
  /// Destroys and removes the service under `id`; false when there was none.
  bool deregisterService(int id);
  bool exists(int id) const;

  template <class ServiceT>
  ServiceT* find(int id) const {
    return dynamic_cast<ServiceT*>(findService(id));
  }

  ~VrServiceOfServices();

 private:
  VrServiceOfServices() = default;
  VrService* findService(int id) const;

  mutable std::mutex mutex;
  std::map<int, VrService*> services;
};
