#pragma once

#include <map>
#include <set>
#include <string>

namespace kavel::server {

// The file a system service keeps its settings in, and that `add-user` run by root
// reads to find the service's database.
inline constexpr const char *systemConfigFile = "/etc/kavel-server.conf";

// Adds the settings of a configuration file to `options` (long option names, "--port"
// and so on, mapped to their values) without replacing any already there, so that the
// command line wins. The file holds "key = value" lines, keys being option names without
// their dashes; '#' starts a comment, and a flag takes yes or no. With `strict`, a key
// that is not in `known` is an error; without it, such keys are left to other commands.
// Returns an empty string, or the reason the file cannot be used, naming it and the line.
std::string mergeConfigFile(const std::string &path, std::map<std::string, std::string> &options,
                            const std::set<std::string> &known, const std::set<std::string> &flags,
                            bool strict);

// For `add-user` run by root against a SQLite file: takes on the identity of the owner
// of the folder that holds it, so that the file (and the journal SQLite keeps beside it)
// stays the service's own. Returns an empty string, or why that failed.
std::string becomeOwnerOf(const std::string &databasePath);

// Tells the service manager, when there is one, that the service answers requests now,
// or that it is stopping.
void notifyReady();
void notifyStopping();

} // namespace kavel::server
