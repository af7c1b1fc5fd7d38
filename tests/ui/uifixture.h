#pragma once

#include "editor/editorviewmodel.h"
#include "model/kavelproject.h"
#include "support/fakeclock.h"
#include "support/fakemediaengine.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <QWidget>
#include <gtest/gtest.h>

namespace kavel::test {

// A real editor on the fake engine and clock, with a project on disk whose one source
// the engine knows as a long video with sound, and a top-level window to put widgets in.
class UiFixture : public ::testing::Test
{
protected:
    QTemporaryDir dir;
    FakeMediaEngine engine;
    FakeClock clock;
    EditorViewModel vm {engine, clock};
    QWidget window;

    void openTranscript(const QList<QStringList> &words) { openParagraphs(transcript(words)); }

    void openParagraphs(QList<Paragraph> paragraphs)
    {
        auto project = KavelProject::create(QStringLiteral("Widgets"), dir.path());
        const QString media = QDir(dir.path()).filePath(QStringLiteral("clip.mp4"));
        writeFile(media, QByteArray(64, 'v'));
        const SourceFile source = project->addSourceFile(QUrl::fromLocalFile(media));
        engine.addMedia(project->sourceFileURL(source.id)->toLocalFile(),
                        FakeMediaEngine::videoWithAudio(3600.0));
        for (Paragraph &p : paragraphs) {
            for (WordBlock &b : p.wordBlocks)
                b.sourceFileId = source.id;
        }
        project->setParagraphs(paragraphs);
        project->saveTimeline();
        vm.openProject(project->bundleURL());
        clock.advance(0.0); // the player loads its sources and builds the composition
    }

    void showWindow(QSize size)
    {
        window.resize(size);
        window.show();
        QApplication::setActiveWindow(&window);
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }

    QUuid id(const QString &text) const { return wordId(vm.paragraphs(), text); }
    QString text() const { return documentText(vm.paragraphs()); }
    const Paragraph &paragraph(qsizetype i) const { return vm.paragraphs().at(i); }
    QSet<QUuid> ids(const QStringList &texts) const
    {
        QSet<QUuid> set;
        for (const QString &t : texts)
            set.insert(id(t));
        return set;
    }
};

} // namespace kavel::test
