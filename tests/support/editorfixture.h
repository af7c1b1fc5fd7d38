#pragma once

#include "editor/editorviewmodel.h"
#include "model/timeline.h"
#include "support/fakeclock.h"
#include "support/fakemediaengine.h"
#include "support/testenvironment.h"
#include "support/transcriptbuilder.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace kavel::test {

// An editor on a fake engine and a fake clock, with a real project bundle on disk whose
// one source the fake engine knows as a video with sound of `mediaSeconds`.
class EditorFixture : public ::testing::Test
{
protected:
    QTemporaryDir dir;
    FakeMediaEngine engine;
    FakeClock clock;
    EditorViewModel vm {engine, clock};
    double mediaSeconds = 60.0;
    QString projectTitle = QStringLiteral("Edit");

    // Creates and opens a project holding `words` (timed by transcript()).
    void openTranscript(const QList<QStringList> &words) { openParagraphs(transcript(words)); }

    void openParagraphs(QList<Paragraph> paragraphs)
    {
        auto project = KavelProject::create(projectTitle, dir.path());
        const QString media = QDir(dir.path()).filePath(QStringLiteral("clip.mp4"));
        writeFile(media, QByteArray(64, 'v'));
        const SourceFile source = project->addSourceFile(QUrl::fromLocalFile(media));
        engine.addMedia(project->sourceFileURL(source.id)->toLocalFile(),
                        FakeMediaEngine::videoWithAudio(mediaSeconds));
        for (Paragraph &p : paragraphs) {
            for (WordBlock &b : p.wordBlocks)
                b.sourceFileId = source.id;
        }
        project->setParagraphs(paragraphs);
        project->saveTimeline();
        vm.openProject(project->bundleURL());
        clock.advance(0.0); // let the player load its sources
    }

    QUuid id(const QString &text) const { return wordId(vm.paragraphs(), text); }
    QSet<QUuid> ids(const QStringList &texts) const
    {
        QSet<QUuid> set;
        for (const QString &t : texts)
            set.insert(id(t));
        return set;
    }
    QString text() const { return documentText(vm.paragraphs()); }
    const Paragraph &paragraph(qsizetype i) const { return vm.paragraphs().at(i); }

    void expectPlayerHasDocument() const
    {
        EXPECT_EQ(const_cast<EditorViewModel &>(vm).playerVM().wordBlocks(),
                  flattenParagraphs(vm.paragraphs()));
    }
};

} // namespace kavel::test
