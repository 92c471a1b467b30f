// SPDX-License-Identifier: Apache-2.0

// The directory of services: identifier -> service, in memory, under one lock.
#ifndef QV_NAMING_SERVICE_H
#define QV_NAMING_SERVICE_H

#include <map>

#include "QvConfig.h"
#include "QvLock.h"
#include "namingService.pb.h"

// The configuration that the directory is loaded from and saved to. Exists from
// QvPluginInitialize() to QvPluginFinalize(); null otherwise. It locks nothing itself: the
// directory's lock protects it.
extern qor::kevra::QvConfig<qor::kevra::NullMutex>* g_cfg;

namespace qor::kevra {

// One directory exists at a time, from QvPluginInitialize() to QvPluginFinalize().
//
// Several threads may call the public operations at once. Each operation holds the lock from its
// first access of the directory to its last one. Construction and destruction take no lock and must
// not overlap any operation.
//
// Every operation throws the std::string "fail to get the lock" if the lock cannot be taken, and
// then changes nothing (compatibility C10). An operation that runs out of memory throws
// std::bad_alloc; each entry of the directory is then as before or as requested.
class NamingService {
  public:
    // Loads the services that were saved. `g_cfg` must exist as long as the directory does. Throws
    // the std::string "fail to pthread_mutex_init".
    NamingService();

    // Stores each service of the request whose identifier is new or whose address differs, in the
    // request's order. Of several entries with one identifier the last one wins. Saves the whole
    // directory if anything changed. A save that fails is not reported (compatibility C21).
    void registerServices(const ServiceInfoArray& request);

    // Removes the services with the listed identifiers and ignores unknown identifiers. A removal
    // is not saved: the file keeps the service until a registration saves the directory again
    // (compatibility C7).
    void unregisterServices(const ServiceInfoArray& request);

    // Replaces the answer's contents with all services in ascending order of their identifiers.
    // Both fields of each service are present.
    void getServices(ServiceInfoArray& answer);

  private:
    // Runs before other threads can reach the directory, so it takes no lock.
    void load() QV_NO_THREAD_SAFETY_ANALYSIS;
    void save() QV_REQUIRES(mutex);

    // Maps each identifier to its service.
    std::map<int, ServiceInfo> serviceMap QV_GUARDED_BY(mutex);
    // Declared after the map, so that it is destroyed first.
    Mutex mutex;
};

}  // namespace qor::kevra

#endif  // QV_NAMING_SERVICE_H
