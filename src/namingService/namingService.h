// The directory of services: identifier -> service, in memory, under one lock.
#ifndef QV_NAMING_SERVICE_H
#define QV_NAMING_SERVICE_H

#include <map>
#include <mutex>
#include <shared_mutex>

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

    // A message of all services, in ascending order of their identifiers, each with both fields
    // present; its size is cached. Any number of threads may hold it at once, and should let it go
    // soon: the first listing after a change waits for them, and holds the directory meanwhile.
    class Listing {
      public:
        const ServiceInfoArray& operator*() const { return services; }

      private:
        friend class NamingService;

        Listing(const ServiceInfoArray& services, std::shared_mutex& mutex)
            : services(services), hold(mutex) {}

        const ServiceInfoArray& services;
        const std::shared_lock<std::shared_mutex> hold;
    };
    Listing getServices();

  private:
    void load();
    void save();
    void makeListing();

    // Keyed by the service's identifier. Guarded by `mutex`.
    std::map<int, ServiceInfo> serviceMap;
    // Whether a registration changed the map and has not come to its end, for want of memory, so
    // that the next one has to save what it did. Guarded by `mutex`.
    bool unsaved = false;
    // What the last listing gave, and whether the map changed since. It is kept because to make it
    // anew each time would take several times as long as to serialise it; it takes the memory of
    // one more directory, and at most some 128 bytes a service besides. Guarded by `mutex`; who
    // reads it without holds `listingMutex`, which is always locked second.
    ServiceInfoArray listing;
    bool unlisted = true;
    std::shared_mutex listingMutex;
    // Declared last, so that it is destroyed before the map it guards.
    Mutex mutex;
};

}  // namespace qor::kevra

#endif  // QV_NAMING_SERVICE_H
