#include "generatedmedia.h"
#include "support/servicefixture.h"
#include "support/speechcheck.h"
#include "support/taskwait.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace kavel;
using namespace kavel::service;
using namespace kavel::test;
using namespace Qt::StringLiterals;

// Real recognition of a short spoken sentence, through the editor's whole import, is
// followed in importendtoend_test; here, what only long recordings and restarts show.
TEST(Recognition, LongRecordingsSurviveARestartAndKeepTheirTimes)
{
    ServerProcess server;
    QString error;
    ASSERT_TRUE(server.addUser(u"r@example.com"_s, {}, u"pw"_s) && server.start(&error))
        << error.toStdString();
    // The sentence at 0 s, 20 s and 40 s of a 46 s recording: long enough to be decoded
    // in more than one stretch, with speech on both sides of every cut.
    QTemporaryDir dir;
    const QString speech = dir.filePath(u"speech.wav"_s);
    const QString recording = dir.filePath(u"long.wav"_s);
    ASSERT_EQ(QProcess::execute(u"flite"_s, {u"-t"_s, spokenSentence, u"-o"_s, speech}), 0);
    ASSERT_NO_FATAL_FAILURE(
        runFfmpeg({u"-i"_s, speech, u"-i"_s, speech, u"-i"_s, speech, u"-filter_complex"_s,
                   u"[1]adelay=20000[b];[2]adelay=40000[c];[0][b][c]amix=inputs=3:"
                   "normalize=0,apad=whole_dur=46"_s,
                   u"-ar"_s, u"16000"_s, recording}));

    auto client = std::make_unique<APIClient>(server.apiBaseUrl(), SessionTimeouts {}, LogSink {});
    RealServerSuite::signIn(*client, u"r@example.com"_s, u"pw"_s);
    const QString token = client->accessToken().value_or(QString());
    const QString first = runTask(client->transcribe(recording)).get().taskId;
    const QString second = runTask(client->transcribe(recording)).get().taskId;
    ASSERT_TRUE(server.waitForLog(QRegularExpression(u"task "_s + second + u" queued"_s)));

    // Stopping gives the work in hand back to the queue instead of finishing it first.
    server.stop();
    ASSERT_TRUE(server.start(&error)) << error.toStdString();
    // Sessions and tasks survive the restart with the database.
    client = std::make_unique<APIClient>(server.apiBaseUrl(), SessionTimeouts {}, LogSink {});
    client->setAccessToken(token);
    for (const QString &task : {first, second}) {
        // The first is asked as the editor asks, waiting on the server for news, which
        // comes as a progress that only rises; the second as an older client asks, and
        // answered at once every time.
        const bool waits = task == first;
        TranscriptionResult result;
        QList<double> progress;
        int polls = 0;
        QElapsedTimer longest;
        qint64 quickest = std::numeric_limits<qint64>::max();
        for (; polls < 600 && !result.isCompleted() && !result.isFailed(); ++polls) {
            longest.start();
            result = runTask(client->getTranscriptionResult(task, waits ? 25 : 0),
                             std::chrono::seconds(40))
                         .get();
            quickest = std::min(quickest, longest.elapsed());
            ASSERT_TRUE(result.progress) << "every answer tells the progress";
            progress.append(*result.progress);
            if (!waits)
                QTest::qWait(200);
        }
        ASSERT_TRUE(result.isCompleted())
            << result.errorMessage.value_or(result.status).toStdString();
        EXPECT_TRUE(std::is_sorted(progress.cbegin(), progress.cend()));
        EXPECT_EQ(progress.constLast(), 1.0);
        if (waits) {
            // The 46 s are cut into several stretches, each reported when done.
            EXPECT_TRUE(std::any_of(progress.cbegin(), progress.cend(),
                                    [](double p) { return p > 0.0 && p < 1.0; }));
            EXPECT_LE(polls, 12);
        } else {
            EXPECT_LT(quickest, 2000);
        }
        // Twenty seconds of silence between the copies split them into paragraphs.
        EXPECT_GE(result.paragraphs->size(), 3);
        // PocketSphinx's doubt reaches the client: some words below certain, none outside 0–1.
        qsizetype doubted = 0;
        for (const ParagraphPayload &paragraph : *result.paragraphs)
            for (const WordBlockPayload &word : paragraph.wordBlocks) {
                EXPECT_TRUE(word.confidence >= 0.0 && word.confidence <= 1.0) << word.confidence;
                doubted += word.confidence < 1.0 ? 1 : 0;
            }
        EXPECT_GT(doubted, 0);
        const QStringList expected = spokenWords();
        for (double offset : {0.0, 20.0, 40.0}) {
            QStringList texts;
            for (const ParagraphPayload &paragraph : *result.paragraphs)
                for (const WordBlockPayload &word : paragraph.wordBlocks)
                    if (word.mediaStart >= offset && word.mediaEnd <= offset + 6.0)
                        texts.append(word.text);
            EXPECT_GE(wordsInOrder(expected, texts), expected.size() / 2)
                << "at " << offset << " s: " << texts.join(u' ').toStdString();
        }
    }
}
