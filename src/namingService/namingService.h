// The directory of services: identifier -> service, in memory, under one lock.
#ifndef QV_NAMING_SERVICE_H
#define QV_NAMING_SERVICE_H

#include <map>

#include "QvLock.h"
#include "namingService.pb.h"

namespace qor::kevra {

// Safe to use from several threads at once, construction and destruction apart. Every operation may
// throw the std::string "fail to get the lock", with nothing changed, and std::bad_alloc, with each
// entry of the directory as it was or as requested.
class NamingService {
  public:
    // Starts with the services that were saved. Throws "fail to pthread_mutex_init". The
    // configuration (configuration.h) is there as long as the object is.
    NamingService();

    // Adds new services and replaces those whose address differs, in the request's order, so that
    // the last of several entries with one identifier wins. Saves when anything changed.
    void registerServices(const ServiceInfoArray& request);

    // Removes the services with the listed identifiers; an identifier that is not registered is
    // passed over. Memory only: what is saved keeps them until a registration saves again.
    void unregisterServices(const ServiceInfoArray& request);

    // Replaces the answer's contents with all services, in ascending order of their identifiers,
    // each with both fields present.
    void getServices(ServiceInfoArray& answer);

  private:
    void load();
    void save();

    // Keyed by the service's identifier. Guarded by `mutex`.
    std::map<int, ServiceInfo> serviceMap;
    // Whether a registration changed the map and has not come to its end, for want of memory, so
    // that the next one has to save what it did. Guarded by `mutex`.
    bool unsaved = false;
    // Declared last, so that it is destroyed before the map it guards.
    Mutex mutex;
};

}  // namespace qor::kevra

#endif  // QV_NAMING_SERVICE_H
