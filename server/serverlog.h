#pragma once

#include <string_view>

namespace kavel::server {

// One diagnostic line on standard output, prefixed "[kavel-server] ". Safe to call from
// the request threads and the recognition worker at once.
void logLine(std::string_view line);

} // namespace kavel::server
