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
    Q_PROPERTY(bool exportCancelled READ exportCancelled NOTIFY exportCancelledChanged)
    Q_PROPERTY(QStringList writtenFiles READ writtenFiles NOTIFY writtenFilesChanged)

public:
    // The starting output directory is the default export folder when one is set, else
    // the folder the last export went to (see exportStarted()).
    ExportFlow(media::MediaEngine &engine, media::Renderer &renderer,
               const service::Settings &settings, QObject *parent = nullptr);
    ~ExportFlow() override;

    const ExportSettings &settings() const { return m_settings; }
    void setSettings(const ExportSettings &settings);
    const std::optional<QString> &exportError() const { return m_exportError; }
    bool exportComplete() const { return m_exportComplete; }
    const std::optional<QString> &exportNotice() const { return m_exportNotice; }
    // The last run was stopped with cancel(). What it had finished is kept, in
    // writtenFiles(); only the file under way when it stopped is gone.
    bool exportCancelled() const { return m_exportCancelled; }
    // The files the last run wrote, each checked to exist and to hold something.
    const QStringList &writtenFiles() const { return m_writtenFiles; }
    // The file a stopped run was writing and did not finish; empty when the stop came
    // between steps or the run was not stopped.
    const QString &interruptedFile() const { return m_interruptedFile; }
    bool isExporting() const { return m_isExporting; }
    // The loudness of the last run's sound, measured before and after its gain; none when
    // no loudness target was chosen or nothing with sound was written. Set before the run
    // reports itself complete.
    const std::optional<media::LoudnessReport> &loudnessReport() const { return m_loudness; }
    const QString &defaultExportPath() const { return m_defaultExportPath; }

    LocalRenderService &renderService() { return m_renderService; }

    // Checks the input, then writes subtitles, audio and video in that order; a step that
    // fails does not stop the next. Resolves when the run is over; the outcome is in the
    // properties, never thrown.
    QCoro::Task<> startExport(ExportSubject subject);
    // Stops the running export as a whole: the step under way ends and its partial file
    // is removed, no later step runs, and the files finished before are kept.
    void cancel();

    // Sets the choices a new dialog starts from for this subject: those of the project's
    // last export when there was one, else the movie at the size of the recording; never
    // the movie for a project of sound alone. From then on every run that passes its
    // checks keeps its choices in the project for the next dialog.
    void offerChoicesFor(const ExportSubject &subject);
    // Where a project keeps the choices of its last export.
    static QString choicesPath(const KavelProject &project);
    // The size class of the first recording with a picture; none for sound alone.
    std::optional<Resolution> sourceResolution(const ExportSubject &subject);

    // Seconds the edited result lasts: what the movie and the sound will last.
    double editedDuration(const ExportSubject &subject);

    // Where each output goes for the current settings.
    QString subtitlePath() const;
    QString interchangePath() const;
    QString audioPath() const;
    QString videoPath() const;

    // "12分05秒", or "1小时02分05秒" from an hour on; seconds are truncated.
    static QString formatDuration(double seconds);

Q_SIGNALS:
    void settingsChanged();
    void exportErrorChanged();
    void exportCompleteChanged();
    void exportNoticeChanged();
    void exportCancelledChanged();
    void writtenFilesChanged();
    // A run passed its checks and writes into `folder`: the folder to remember as the
    // last one used.
    void exportStarted(const QString &folder);
    // One line per step as it begins: "subtitles", "audio" or "video".
    void stepStarted(const QString &step);

private:
    QString outputFile(const QString &extension) const;
    bool isAudioMaterial(const QList<PlaybackSource> &sources);
    void rememberChoices(const KavelProject &project, ExportSettings settings);
    // Whether a step's file is really there: a step may end without an error and without
    // having written anything.
    bool keepWritten(const QString &path);
    void endCancelled();
    void setExportError(std::optional<QString> error);
    void setExportComplete(bool complete);
    void setExportNotice(std::optional<QString> notice);
    void setExportCancelled(bool cancelled);
    void setWrittenFiles(const QStringList &files);

    media::MediaEngine &m_engine;
    LocalRenderService m_renderService;
    QString m_defaultExportPath;
    ExportSettings m_settings;
    QString m_projectTitle;
    std::optional<QString> m_exportError;
    bool m_exportComplete = false;
    std::optional<QString> m_exportNotice;
    bool m_exportCancelled = false;
    QStringList m_writtenFiles;
    QString m_interruptedFile;
    bool m_isExporting = false;
    bool m_cancelRequested = false;
    bool m_remembersChoices = false;
    std::optional<media::LoudnessReport> m_loudness;
};

} // namespace kavel
