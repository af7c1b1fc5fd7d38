#include "serverlog.h"

#include <cstdio>
#include <mutex>

namespace kavel::server {

void logLine(std::string_view line)
{
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    std::fputs("[kavel-server] ", stdout);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    // Tests and supervisors read the log through a pipe, where stdout would otherwise be
    // block-buffered and lines would arrive late.
    std::fflush(stdout);
}

} // namespace kavel::server
