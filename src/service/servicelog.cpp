#include "servicelog.h"

#include <cstdio>

namespace kavel::service {

LogSink standardOutputSink()
{
    return [](const QString &line) {
        const QByteArray utf8 = line.toUtf8();
        std::fwrite(utf8.constData(), 1, static_cast<size_t>(utf8.size()), stdout);
        std::fputc('\n', stdout);
        // Lines from the network and the session interleave with other components';
        // flushing keeps them in the order they happened when stdout is a pipe.
        std::fflush(stdout);
    };
}

} // namespace kavel::service
