#pragma once

#include <QWidget>

class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

namespace kavel {
class EditorViewModel;
class ImportPipeline;
} // namespace kavel
namespace kavel::ui {
class MagneticTextStripView;
class TimelineView;
} // namespace kavel::ui

namespace kavel::app {

class ProjectTitle;
class ImportCover;
class PauseLimitBox;
class VideoPlayerView;

// The editor screen: the top bar, the editing toolbar with search, the preview beside the
// transcript, the timeline underneath, and a cover while the open project is imported.
class MainEditorView : public QWidget
{
    Q_OBJECT

public:
    explicit MainEditorView(EditorViewModel &editor, QWidget *parent = nullptr);
    // The imports whose progress the cover shows, for the open project only.
    void setImports(ImportPipeline *imports);

    QToolButton *backButton() const { return m_back; }
    QToolButton *exportButton() const { return m_export; }
    ProjectTitle *projectTitle() const { return m_title; }
    // The toolbar button whose tooltip starts with `tooltip`; null when there is none.
    QToolButton *toolButton(const QString &tooltip) const;
    // Shown while the editor confirms a save.
    QWidget *savedIndicator() const { return m_savedBox; }
    QLabel *savedLabel() const { return m_saved; }
    // A short word on what the last toolbar action did, such as how many fillers went.
    QLabel *noticeLabel() const { return m_notice; }
    static constexpr int noticeMilliseconds = 4000;
    QLineEdit *searchField() const { return m_search; }
    QLabel *searchCounter() const { return m_counter; }
    QToolButton *previousMatchButton() const { return m_previous; }
    QToolButton *nextMatchButton() const { return m_next; }
    // Covers the editor below the top bar while the open project is imported, and
    // afterwards with how it failed until closed.
    ImportCover *processingOverlay() const { return m_overlay; }
    VideoPlayerView *playerView() const { return m_player; }
    ui::MagneticTextStripView *transcriptView() const { return m_transcript; }
    ui::TimelineView *timelineView() const { return m_timeline; }

Q_SIGNALS:
    void backRequested();
    void renameRequested(const QString &title);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QToolButton *addToolButton(QWidget *bar, const QString &symbol, const QString &tooltip);
    void showNotice(const QString &text);
    void refreshUndoButtons();
    void refreshSearchCounter();

    EditorViewModel &m_editor;
    QToolButton *m_back;
    QToolButton *m_export;
    ProjectTitle *m_title;
    QList<QToolButton *> m_tools;
    QCheckBox *m_keepPauses;
    PauseLimitBox *m_pauseLimit;
    QWidget *m_savedBox;
    QLabel *m_saved;
    QLabel *m_notice;
    QLineEdit *m_search;
    QLabel *m_counter;
    QToolButton *m_previous;
    QToolButton *m_next;
    VideoPlayerView *m_player;
    ui::MagneticTextStripView *m_transcript;
    ui::TimelineView *m_timeline;
    ImportCover *m_overlay;
};

} // namespace kavel::app
