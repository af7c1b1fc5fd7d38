#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>
#include <memory>
#include <optional>

namespace kavel {

class KavelProject;

// One import: files made into a new project, transcribed by the service. Its project
// exists from the moment the import is asked for, so that it has its card and can be
// opened while the import waits or runs; everything about the import's progress is
// here, and the editor of another project never sees it.
class ImportJob : public QObject
{
    Q_OBJECT

public:
    enum class State { waiting, running, finished, failed };

    // `language` is the recording's (a BCP 47 tag); empty leaves it to the service.
    ImportJob(QList<QUrl> urls, std::shared_ptr<KavelProject> project, QString language = {},
              QObject *parent = nullptr);
    ~ImportJob() override;

    const QList<QUrl> &urls() const { return m_urls; }
    const QString &language() const { return m_language; }
    // The project while the import runs. Afterwards only while something else (the editor)
    // still has it open: a finished import keeps no claim on its bundle, which can then be
    // renamed, deleted or edited by another program like any other.
    std::shared_ptr<KavelProject> project() const;
    // Where the project was made.
    const QString &bundlePath() const { return m_bundlePath; }

    State state() const { return m_state; }
    // Waiting for its turn or running.
    bool isActive() const { return m_state == State::waiting || m_state == State::running; }
    // "提取音频", "上传音频", "语音识别中", or empty.
    const QString &step() const { return m_step; }
    // The status line; after a failure, why.
    const QString &status() const { return m_status; }
    // How much of the current step is done, 0 to 1, when that is known.
    std::optional<double> progress() const { return m_progress; }
    // The service's estimate of the recognition still to come, in whole seconds.
    std::optional<int> remainingSeconds() const { return m_remaining; }
    // One short line for the project's card: "等待导入", "语音识别中 40% · 剩余 00:12", ….
    QString summary() const;

    // The pipeline's side.
    void setState(State state);
    void setStep(const QString &step, const QString &status);
    void setStatus(const QString &status);
    void setProgress(std::optional<double> progress);
    void setRemainingSeconds(std::optional<int> seconds);

Q_SIGNALS:
    // Any of the above changed.
    void changed();
    // The import finished or failed.
    void ended();

private:
    const QList<QUrl> m_urls;
    std::shared_ptr<KavelProject> m_project;
    std::weak_ptr<KavelProject> m_endedProject;
    const QString m_bundlePath;
    const QString m_language;
    State m_state = State::waiting;
    QString m_step;
    QString m_status;
    std::optional<double> m_progress;
    std::optional<int> m_remaining;
};

// "(预计剩余 01:05)" for the status line and the card.
QString remainingText(int seconds);

} // namespace kavel
