#pragma once

#include <QPointer>
#include <QWidget>

class QLabel;
class QProgressBar;

namespace kavel {
class ImportPipeline;
}

namespace kavel::app {

// What a project's card tells of its import: the step and how far it has come, that it
// waits for another import, or that it failed and why (in its tooltip). Hidden when there
// is nothing to tell.
class ImportBadge : public QWidget
{
    Q_OBJECT

public:
    ImportBadge(ImportPipeline &imports, QString bundlePath, QWidget *parent = nullptr);

    // Puts a badge at the end of the card's layout.
    static ImportBadge *attach(QWidget *card, const QString &bundlePath, ImportPipeline &imports);

    QLabel *label() const { return m_label; }
    QProgressBar *progressBar() const { return m_bar; }

private:
    void refresh();

    QPointer<ImportPipeline> m_imports;
    const QString m_bundlePath;
    QLabel *m_label;
    QProgressBar *m_bar;
};

} // namespace kavel::app
