#pragma once

#include "exportsettings.h"
#include "localrenderservice.h"
#include "model/paragraph.h"

#include <QCoroTask>
#include <QObject>
#include <optional>

namespace kavel {

class KavelProject;

namespace service {
class Settings;
}

// What one export works from: the open project and the document as the editor holds it.
struct ExportSubject
{
    const KavelProject *project = nullptr;
    QList<Paragraph> paragraphs;
    bool isAudioTrackMuted = false;
};

// The export dialog without its widgets: the options being edited, the checks before a
// run, the run of the enabled outputs and its outcome. One render service per flow, as
// one per dialog.
class ExportFlow : public QObject
{
    Q_OBJECT
    Q_PROPERTY(
        kavel::ExportSettings settings READ settings WRITE setSettings NOTIFY settingsChanged)
    Q_PROPERTY(std::optional<QString> exportError READ exportError NOTIFY exportErrorChanged)
    Q_PROPERTY(bool exportComplete READ exportComplete NOTIFY exportCompleteChanged)
    Q_PROPERTY(std::optional<QString> exportNotice READ exportNotice NOTIFY exportNoticeChanged)

public:
    // The default export folder, when one is set, is the starting output directory.
    ExportFlow(media::MediaEngine &engine, media::Renderer &renderer,
               const service::Settings &settings, QObject *parent = nullptr);
    ~ExportFlow() override;

    const ExportSettings &settings() const { return m_settings; }
    void setSettings(const ExportSettings &settings);
    const std::optional<QString> &exportError() const { return m_exportError; }
    bool exportComplete() const { return m_exportComplete; }
    const std::optional<QString> &exportNotice() const { return m_exportNotice; }
    const QString &defaultExportPath() const { return m_defaultExportPath; }

    LocalRenderService &renderService() { return m_renderService; }

    // Checks the input, then writes subtitles, audio and video in that order; a step that
    // fails does not stop the next. Resolves when the run is over; the outcome is in the
    // properties, never thrown.
    QCoro::Task<> startExport(ExportSubject subject);

    // Where each output goes for the current settings.
    QString subtitlePath() const;
    QString audioPath() const;
    QString videoPath() const;

    // "12分05秒", or "1小时02分05秒" from an hour on; seconds are truncated.
    static QString formatDuration(double seconds);

Q_SIGNALS:
    void settingsChanged();
    void exportErrorChanged();
    void exportCompleteChanged();
    void exportNoticeChanged();
    // One line per step as it begins: "subtitles", "audio" or "video".
    void stepStarted(const QString &step);

private:
    QString outputFile(const QString &extension) const;
    bool isAudioMaterial(const QList<PlaybackSource> &sources);
    void setExportError(std::optional<QString> error);
    void setExportComplete(bool complete);
    void setExportNotice(std::optional<QString> notice);

    media::MediaEngine &m_engine;
    LocalRenderService m_renderService;
    QString m_defaultExportPath;
    ExportSettings m_settings;
    QString m_projectTitle;
    std::optional<QString> m_exportError;
    bool m_exportComplete = false;
    std::optional<QString> m_exportNotice;
};

} // namespace kavel
