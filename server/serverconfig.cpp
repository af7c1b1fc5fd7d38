#include "serverconfig.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace kavel::server {

namespace {

std::string trimmed(const std::string &text)
{
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

} // namespace

std::string mergeConfigFile(const std::string &path, std::map<std::string, std::string> &options,
                            const std::set<std::string> &known, const std::set<std::string> &flags,
                            bool strict)
{
    std::ifstream file(path);
    if (!file)
        return "cannot read the configuration file " + path + ": " + std::strerror(errno);
    std::map<std::string, std::string> found;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        const std::string where = path + ":" + std::to_string(number) + ": ";
        const std::string content = trimmed(line.substr(0, line.find('#')));
        if (content.empty())
            continue;
        const auto equals = content.find('=');
        if (equals == std::string::npos)
            return where + "expected key = value";
        const std::string key = "--" + trimmed(content.substr(0, equals));
        const std::string value = trimmed(content.substr(equals + 1));
        if (!known.contains(key)) {
            if (strict)
                return where + "unknown setting " + key.substr(2);
            continue;
        }
        if (flags.contains(key)) {
            if (value != "yes" && value != "no")
                return where + key.substr(2) + " takes yes or no";
            if (value == "no")
                continue;
        } else if (value.empty()) {
            return where + key.substr(2) + " needs a value";
        }
        if (found.contains(key))
            return where + key.substr(2) + " is set twice";
        found[key] = value;
    }
    // The command line has the last word.
    options.merge(found);
    return {};
}

std::string becomeOwnerOf(const std::string &databasePath)
{
    if (::geteuid() != 0)
        return {};
    const std::filesystem::path folder = std::filesystem::absolute(databasePath).parent_path();
    struct stat owner
    {
    };
    if (::stat(folder.c_str(), &owner) != 0)
        return "cannot find the database folder " + folder.string() + ": " + std::strerror(errno)
            + " (the service makes it when it first starts)";
    if (owner.st_uid == 0)
        return {};
    if (::setgroups(0, nullptr) != 0 || ::setgid(owner.st_gid) != 0 || ::setuid(owner.st_uid) != 0)
        return "cannot take on the identity of the owner of " + folder.string() + ": "
            + std::strerror(errno);
    return {};
}

void notifyReady()
{
    sd_notify(0, "READY=1");
}

void notifyStopping()
{
    sd_notify(0, "STOPPING=1");
}

} // namespace kavel::server
