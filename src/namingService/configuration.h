// The plug-in's configuration file.
#ifndef QV_NAMING_SERVICE_CONFIGURATION_H
#define QV_NAMING_SERVICE_CONFIGURATION_H

#include "QvConfig.h"

// The one object for it: there from QvPluginInitialize() to QvPluginFinalize(), null otherwise. It
// locks nothing itself, the directory's lock protects it.
extern qor::kevra::QvConfig<qor::kevra::NullMutex>* g_cfg;

namespace qor::kevra {

constexpr const char* kConfigurationName = "namingService.conf.plist";

// Makes the object, which reads the file. What its constructor throws passes through, and there is
// none then.
void openConfiguration();

// Ends it, if it is there. It does not save.
void closeConfiguration();

}  // namespace qor::kevra

#endif  // QV_NAMING_SERVICE_CONFIGURATION_H
