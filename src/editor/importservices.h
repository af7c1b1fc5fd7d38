#pragma once

#include "service/servicelog.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <functional>
#include <vector>

namespace kavel {

namespace media {
class AudioConverter;
}
namespace service {
class APIClient;
class AppState;
} // namespace service
class UserNotifier;

// What the file picker for an import is asked to show. Content types are MIME names in
// the order the picker lists them; "video/*" and "audio/*" stand for any movie or sound.
struct ImportPickerRequest
{
    QString message;
    QStringList contentTypes;
    bool allowsMultipleSelection = true;
    bool canChooseDirectories = false;
};

// What imports work with, handed in by the composition root: the editor uses the session
// and the picker, the import pipeline the rest. A pipeline made without the service or
// the converter ends every import with an error.
struct ImportServices
{
    service::APIClient *apiClient = nullptr;
    // The session; openFilePickerForImport() asks it whether the user is signed in.
    const service::AppState *appState = nullptr;
    media::AudioConverter *audioConverter = nullptr;
    UserNotifier *notifier = nullptr;
    // Shows the modal picker and returns the chosen files; empty when cancelled.
    std::function<QList<QUrl>(const ImportPickerRequest &)> pickFiles;
    // Where new bundles go; empty means the user's projects folder.
    QString projectsDirectory;
    service::LogSink log = service::standardOutputSink();
    // Mean power per millisecond of a recording; when given, the edges of arriving words
    // are moved into the quiet beside them. Runs off the main thread. Throws Error.
    std::function<std::vector<float>(const QString &path)> measureLoudness;
};

} // namespace kavel
