#pragma once

#include "editor/usernotifier.h"

#include <QList>
#include <QPair>

namespace kavel::test {

struct RecordingNotifier final : UserNotifier
{
    void deliver(const QString &title, const QString &body) override
    {
        delivered.append({title, body});
    }
    QList<QPair<QString, QString>> delivered;
};

} // namespace kavel::test
