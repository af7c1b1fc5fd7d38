#include "smssender.h"

#include "serverlog.h"

namespace kavel::server {

void LogSmsSender::send(const std::string &phone, const std::string &code)
{
    logLine("SMS code for " + phone + ": " + code);
}

} // namespace kavel::server
