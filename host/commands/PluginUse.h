// The plug-in as the command line's options say.
#ifndef QVHOST_PLUGIN_USE_H
#define QVHOST_PLUGIN_USE_H

#include <memory>

#include "CommandLine.h"
#include "Plugin.h"

namespace qv::host {

// Tells the plug-in its directories by the environment, before it is loaded.
void setDirectories(const CommonOptions& options);

// The same, and throws UsageError when the configuration's is missing: the plug-in makes none, and
// does not say when it cannot save.
void setExistingDirectories(const CommonOptions& options);

// Throws PluginError.
std::unique_ptr<Plugin> loadPlugin(const CommonOptions& options);

// Initialises it, and warns on standard error where it works on without a log, or without a file to
// keep the services in, of which it says nothing.
void initializePlugin(Plugin& plugin, const CommonOptions& options);

}  // namespace qv::host

#endif  // QVHOST_PLUGIN_USE_H
