#include "mediatools.h"
#include "support/servicefixture.h"
#include "support/speechcheck.h"
#include "support/taskwait.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace kavel;
using namespace kavel::service;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace { } // namespace

class Recognition : public RealServerSuite
{
protected:
    void SetUp() override
    {
        RealServerSuite::SetUp();
        client = makeClient();
        client->setAccessToken(
            runTask(
                client->post<AuthTokens>(
                    u"/auth/login"_s, QJsonObject {{u"email"_s, email}, {u"password"_s, password}}))
                .get()
                .accessToken);
        ASSERT_TRUE(runTool(u"flite"_s, {u"-t"_s, spokenSentence, u"-o"_s, speech()}));
    }

    QString speech() const { return dir.filePath(u"speech.wav"_s); }

    TranscriptionResult transcribe(const QString &file)
    {
        const TranscribeResponse task = runTask(client->transcribe(file)).get();
        TranscriptionResult result;
        QStringList states;
        for (int poll = 0; poll < 600; ++poll) {
            result = runTask(client->getTranscriptionResult(task.taskId)).get();
            if (!states.contains(result.status))
                states.append(result.status);
            if (result.isCompleted() || result.isFailed())
                break;
            QTest::qWait(200);
        }
        for (const QString &state : states)
            EXPECT_TRUE(
                QStringList({u"pending"_s, u"processing"_s, u"completed"_s}).contains(state))
                << state.toStdString();
        return result;
    }

    static QList<WordBlockPayload> words(const TranscriptionResult &result)
    {
        QList<WordBlockPayload> all;
        for (const ParagraphPayload &paragraph :
             result.paragraphs.value_or(QList<ParagraphPayload> {}))
            all += paragraph.wordBlocks;
        return all;
    }

    QTemporaryDir dir;
    std::unique_ptr<APIClient> client;
};

TEST_F(Recognition, SpokenSentenceComesBackAsTimedWords)
{
    const QString m4a = dir.filePath(u"Speech.M4A"_s);
    ASSERT_TRUE(ffmpeg({u"-i"_s, speech(), u"-ar"_s, u"44100"_s, u"-c:a"_s, u"aac"_s, m4a}));
    const TranscriptionResult result = transcribe(m4a);
    ASSERT_TRUE(result.isCompleted()) << result.errorMessage.value_or(result.status).toStdString();

    const QList<WordBlockPayload> heard = words(result);
    QStringList texts;
    for (const WordBlockPayload &word : heard)
        texts.append(word.text);
    const QStringList expected = spokenWords();
    EXPECT_GE(wordsInOrder(expected, texts), expected.size() * 6 / 10)
        << texts.join(u' ').toStdString();

    double previousEnd = 0.0;
    for (const WordBlockPayload &word : heard) {
        EXPECT_GE(word.mediaStart, previousEnd - 1e-9) << word.text.toStdString();
        EXPECT_GT(word.mediaEnd, word.mediaStart) << word.text.toStdString();
        EXPECT_LT(word.mediaEnd, 6.0) << "flite says this in about five seconds";
        EXPECT_FALSE(word.text.startsWith(u'<') || word.text.startsWith(u'['));
        previousEnd = word.mediaEnd;
    }

    // What the editor makes of it.
    const QUuid source = QUuid::createUuid();
    const QList<Paragraph> paragraphs = paragraphsFromPayload(result.paragraphs.value(), source, 0);
    ASSERT_FALSE(paragraphs.isEmpty());
    EXPECT_EQ(paragraphs.front().wordBlocks.front().sourceFileId, source);
}

TEST_F(Recognition, LongRecordingKeepsItsTimesAcrossDecodingStretches)
{
    // The sentence at 0 s, 20 s and 40 s of a 46 s recording: long enough to be decoded
    // in more than one stretch, with speech on both sides of every cut.
    const QString recording = dir.filePath(u"long.wav"_s);
    ASSERT_TRUE(
        ffmpeg({u"-i"_s, speech(), u"-i"_s, speech(), u"-i"_s, speech(), u"-filter_complex"_s,
                u"[1]adelay=20000[b];[2]adelay=40000[c];[0][b][c]amix=inputs=3:"
                "normalize=0,apad=whole_dur=46"_s,
                u"-ar"_s, u"16000"_s, recording}));
    const TranscriptionResult result = transcribe(recording);
    ASSERT_TRUE(result.isCompleted()) << result.errorMessage.value_or(result.status).toStdString();
    // Twenty seconds of silence between the copies split them into paragraphs.
    EXPECT_GE(result.paragraphs->size(), 3);

    const QStringList expected = spokenWords();
    for (double offset : {0.0, 20.0, 40.0}) {
        QStringList texts;
        for (const WordBlockPayload &word : words(result)) {
            if (word.mediaStart >= offset && word.mediaEnd <= offset + 6.0)
                texts.append(word.text);
        }
        EXPECT_GE(wordsInOrder(expected, texts), expected.size() / 2)
            << "at " << offset << " s: " << texts.join(u' ').toStdString();
    }
}

TEST(RecognitionAcrossRestarts, UnfinishedTasksResumeWhenTheServerComesBack)
{
    ServerProcess server;
    ASSERT_TRUE(server.addUser(u"r@example.com"_s, {}, u"pw"_s));
    QString error;
    ASSERT_TRUE(server.start(&error)) << error.toStdString();
    QTemporaryDir dir;
    const QString speech = dir.filePath(u"speech.wav"_s);
    const QString recording = dir.filePath(u"long.wav"_s);
    ASSERT_TRUE(runTool(u"flite"_s, {u"-t"_s, spokenSentence, u"-o"_s, speech}));
    ASSERT_TRUE(ffmpeg({u"-i"_s, speech, u"-af"_s, u"apad=whole_dur=40"_s, recording}));

    auto client = std::make_unique<APIClient>(server.apiBaseUrl(), SessionTimeouts {}, LogSink {});
    const AuthTokens tokens
        = runTask(client->post<AuthTokens>(
                      u"/auth/login"_s,
                      QJsonObject {{u"email"_s, u"r@example.com"_s}, {u"password"_s, u"pw"_s}}))
              .get();
    client->setAccessToken(tokens.accessToken);
    const QString first = runTask(client->transcribe(recording)).get().taskId;
    const QString second = runTask(client->transcribe(recording)).get().taskId;
    ASSERT_TRUE(server.waitForLog(QRegularExpression(u"task "_s + second + u" queued"_s)));

    // Stopping gives the work in hand back to the queue instead of finishing it first.
    server.stop();
    ASSERT_TRUE(server.start(&error)) << error.toStdString();
    // Sessions and tasks survive the restart with the database.
    client = std::make_unique<APIClient>(server.apiBaseUrl(), SessionTimeouts {}, LogSink {});
    client->setAccessToken(tokens.accessToken);
    for (const QString &task : {first, second}) {
        TranscriptionResult result;
        for (int poll = 0; poll < 600 && !result.isCompleted() && !result.isFailed(); ++poll) {
            result = runTask(client->getTranscriptionResult(task)).get();
            QTest::qWait(200);
        }
        EXPECT_TRUE(result.isCompleted())
            << result.errorMessage.value_or(result.status).toStdString();
    }
}
