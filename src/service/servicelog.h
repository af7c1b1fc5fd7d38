#pragma once

#include <QString>
#include <functional>

namespace kavel::service {

// Where the service objects write their diagnostic lines. The default writes each line
// to standard output; tests hand in a sink that records the lines instead.
using LogSink = std::function<void(const QString &line)>;

LogSink standardOutputSink();

} // namespace kavel::service
