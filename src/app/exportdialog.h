#pragma once

#include "folderpicker.h"

#include <QDialog>
#include <functional>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;

namespace kavel {
class EditorViewModel;
class ExportFlow;
struct ExportSubject;
} // namespace kavel

namespace kavel::app {

// Edits the export options of the flow and runs it over the editor's document; the
// outcome (error, notice, completion, the files written) is shown in the dialog itself.
class ExportDialog : public QDialog
{
    Q_OBJECT

public:
    ExportDialog(ExportFlow &flow, EditorViewModel &editor, FolderPicker pickFolder,
                 QWidget *parent = nullptr);

    QLineEdit *titleField() const { return m_title; }
    QPushButton *folderButton() const { return m_folder; }
    QLabel *folderLabel() const { return m_folderLabel; }
    // How long the edited result lasts.
    QLabel *durationLabel() const { return m_duration; }
    QPushButton *closeButton() const { return m_close; }
    QCheckBox *videoToggle() const { return m_video; }
    QCheckBox *audioToggle() const { return m_audio; }
    QCheckBox *subtitleToggle() const { return m_subtitles; }
    QCheckBox *interchangeToggle() const { return m_interchange; }
    // "字幕烧录" and its size (小, 中, 大).
    QCheckBox *burnInToggle() const { return m_burnIn; }
    QComboBox *captionSizeChoice() const { return m_captionSize; }
    QPushButton *exportButton() const { return m_start; }
    QLabel *outcomeLabel() const { return m_outcome; }
    // "响度标准化" and "降噪": what is done to the sound of the movie and the sound file.
    QComboBox *loudnessChoice() const { return m_loudness; }
    QComboBox *denoiseChoice() const { return m_denoise; }
    // "打开所在文件夹": shown once a run has written something.
    QPushButton *revealButton() const { return m_reveal; }
    // How the written files are shown; the desktop's file manager unless set.
    void setRevealFiles(std::function<void(const QStringList &)> reveal)
    {
        m_revealFiles = std::move(reveal);
    }
    bool isRunning() const { return m_running; }

    // While an export runs, closing (Escape, 停止) stops it and stays: the run still uses
    // the flow the dialog owns, and its end is shown.
    void reject() override;

private:
    ExportSubject subject() const;
    void showSettings();
    void applyControls();
    void showOutcome();
    void setRunning(bool running);

    ExportFlow &m_flow;
    EditorViewModel &m_editor;
    FolderPicker m_pickFolder;
    QLineEdit *m_title;
    QPushButton *m_folder;
    QLabel *m_folderLabel;
    QLabel *m_duration;
    QCheckBox *m_video;
    QComboBox *m_videoFormat;
    QComboBox *m_resolution;
    QComboBox *m_codec;
    QCheckBox *m_audio;
    QComboBox *m_audioFormat;
    QCheckBox *m_subtitles;
    QComboBox *m_subtitleFormat;
    QComboBox *m_subtitleStyle;
    QCheckBox *m_interchange;
    QComboBox *m_interchangeFormat;
    QCheckBox *m_burnIn;
    QComboBox *m_captionSize;
    QProgressBar *m_progress;
    QLabel *m_outcome;
    QPushButton *m_reveal;
    QPushButton *m_start;
    QPushButton *m_close;
    QComboBox *m_loudness;
    QComboBox *m_denoise;
    std::function<void(const QStringList &)> m_revealFiles;
    bool m_running = false;
};

} // namespace kavel::app
