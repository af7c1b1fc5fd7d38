#include "httpstub.h"
#include "support/servicefixture.h"
#include "support/taskwait.h"
#include "support/testenvironment.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>

using namespace kavel;
using namespace kavel::service;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

// The HTTP status a request failed with, or 0 when it did not fail that way.
template<typename T> int statusOf(TaskOutcome<T> outcome)
{
    const auto error = outcome.template errorAs<APIError>();
    return error ? error->statusCode() : 0;
}

int postStatus(APIClient &client, const QString &path, const QJsonObject &body)
{
    return statusOf(runTask(client.post<wire::EmptyResponse>(path, body)));
}

} // namespace

using APIClientAgainstServer = RealServerSuite;

TEST_F(APIClientAgainstServer, SignedInClientsReachOnlyTheirOwnTasksAndLogNoSecrets)
{
    LogRecorder log;
    auto client = makeClient(log);
    const QJsonObject login {{u"email"_s, email}, {u"password"_s, password}};
    const AuthTokens tokens = runTask(client->post<AuthTokens>(u"/auth/login"_s, login)).get();
    client->setAccessToken(tokens.accessToken);
    EXPECT_EQ(runTask(client->get<User>(u"/auth/me"_s)).get().email, email);

    // Each request and its answer are logged, but nothing a stranger reading the log
    // could sign in with.
    ASSERT_EQ(log.lines->size(), 4) << log.lines->join(u'\n').toStdString();
    EXPECT_EQ(log.lines->at(2), u"[APIClient] GET "_s + server->apiBaseUrl().path() + u"/auth/me");
    for (const QString &secret : {password, tokens.accessToken, tokens.refreshToken})
        EXPECT_FALSE(log.lines->join(u'\n').contains(secret));

    // The server explains a refusal, but a JSON POST does not read failed bodies. Wrong
    // passwords and stale tokens are refused in the session tests.
    EXPECT_EQ(postStatus(*client, u"/auth/login"_s, {{u"email"_s, email}}), 401);
    EXPECT_EQ(log.lines->constLast(), u"[APIClient] Error: 服务器错误 (401)");
    EXPECT_EQ(postStatus(*client, u"/auth/login"_s, {{u"user"_s, email}}), 422);
    EXPECT_EQ(postStatus(*client, u"/auth/sms-code"_s, {}), 422);

    QTemporaryDir dir;
    // Not audio at all, but the upload is accepted: recognition fails later, on the worker
    // (the import's end-to-end tests follow such a task to its failure).
    const QString notAudio = dir.filePath(u"notes.M4A"_s);
    writeFile(notAudio, "this is not an audio file");
    const TranscribeResponse accepted = runTask(client->transcribe(notAudio)).get();
    // PocketSphinx recognises English only: an upload in English is taken, one in Chinese
    // refused with a reason the user can read.
    EXPECT_EQ(runTask(client->recognitionLanguages()).get(),
              (RecognitionLanguages {{u"en"_s}, u"en"_s}));
    EXPECT_FALSE(runTask(client->transcribe(notAudio, u"en-GB"_s)).get().taskId.isEmpty());
    const auto chinese = runTask(client->transcribe(notAudio, u"zh"_s)).errorAs<APIError>();
    ASSERT_TRUE(chinese);
    EXPECT_EQ(chinese->statusCode(), 422);
    EXPECT_EQ(chinese->detail(), u"此服务暂不支持识别中文，请联系管理员配置中文识别"_s);
    EXPECT_EQ(runTask(client->getTranscriptionResult(accepted.taskId)).get().taskId,
              accepted.taskId);

    // Someone else's task is as unknown as one that never existed. A phone number signs in
    // through the same field as an e-mail address.
    auto stranger = makeClient();
    signIn(*stranger, phone, u"phone pass"_s);
    for (const QString &task : {accepted.taskId, u"no-such-task"_s}) {
        EXPECT_EQ(statusOf(runTask(stranger->getTranscriptionResult(task))), 404)
            << task.toStdString();
    }

    // The upload reads the service's reason for a rejection.
    const QString empty = dir.filePath(u"empty.wav"_s);
    writeFile(empty, {});
    const auto rejected = runTask(client->transcribe(empty)).errorAs<APIError>();
    ASSERT_TRUE(rejected);
    EXPECT_EQ(rejected->code(), APIError::Code::httpErrorWithDetail);
    EXPECT_EQ(rejected->description(), u"服务器错误 (422): "_s + rejected->detail());
    EXPECT_EQ(postStatus(*client, u"/media/transcribe"_s, {}), 422) << "JSON is not an upload";
    EXPECT_TRUE(runTask(client->transcribe(dir.filePath(u"absent.wav"_s))).errorAs<FileError>());

    client->setAccessToken(std::nullopt);
    EXPECT_EQ(statusOf(runTask(client->transcribe(notAudio))), 401);
}

// Faults the real server never commits.
class APIClientFaults : public ::testing::Test
{
protected:
    std::unique_ptr<APIClient> makeClient(SessionTimeouts timeouts = {})
    {
        return std::make_unique<APIClient>(stub.apiBaseUrl(), timeouts, log.sink());
    }

    HttpStub stub;
    LogRecorder log;
};

TEST_F(APIClientFaults, SuccessIsExactlyTheTwoHundredsAndBadBodiesSayWhere)
{
    auto client = makeClient();
    for (const int status : {200, 201, 204, 299, 300, 404, 500}) {
        stub.setReply(status, status == 204 ? QByteArray() : QByteArray("{}"));
        for (const bool post : {false, true}) {
            const auto outcome = post ? runTask(client->post<wire::EmptyResponse>(u"/x"_s, {}))
                                      : runTask(client->get<wire::EmptyResponse>(u"/x"_s));
            const auto error = outcome.errorAs<APIError>();
            ASSERT_EQ(error.has_value(), status >= 300) << status << " post " << post;
            EXPECT_EQ(error ? error->statusCode() : status, status);
            // 204 is a success too; its empty body then fails to decode like any non-object.
            EXPECT_EQ(outcome.errorAs<DecodeError>().has_value(), status == 204) << status;
        }
    }
    // Bodies are logged by their size alone.
    stub.setReply(500, QByteArray("\xff\xfe", 2));
    runTask(client->get<wire::EmptyResponse>(u"/x"_s));
    EXPECT_TRUE(log.lines->contains(u"[APIClient] GET Response: 500 (2 bytes)"_s));

    stub.setReply(200, "{\"task_id\": ");
    const auto truncated = runTask(client->getTranscriptionResult(u"T"_s));
    EXPECT_TRUE(truncated.errorAs<DecodeError>());
    EXPECT_TRUE(log.lines->constLast().startsWith(u"[APIClient] GET Error: "_s));

    stub.setReply(200, R"({"task_id":"t","status":"completed","paragraphs":[{"word_blocks":[
        {"text":"a","media_start":0,"media_end":1,"is_filler":false,"sort_order":0},
        {"text":"b","media_start":"x","media_end":1,"is_filler":false,"sort_order":1}]}]})");
    const auto badWord = runTask(client->getTranscriptionResult(u"T"_s)).errorAs<DecodeError>();
    ASSERT_TRUE(badWord);
    EXPECT_EQ(badWord->where(), u"paragraphs[0].wordBlocks[1].mediaStart");
    EXPECT_EQ(APIError::decodingError(*badWord).description(),
              u"数据解析错误: "_s + badWord->description());

    // The recogniser's doubt is optional: absent is certain, past either end is clamped,
    // and it reaches the editor's words.
    stub.setReply(200, R"({"task_id":"t","status":"completed","paragraphs":[{"word_blocks":[
        {"text":"a","media_start":0,"media_end":1,"is_filler":false,"sort_order":0,"confidence":0.42},
        {"text":"b","media_start":1,"media_end":2,"is_filler":false,"sort_order":1},
        {"text":"c","media_start":2,"media_end":3,"is_filler":false,"sort_order":2,"confidence":3},
        {"text":"d","media_start":3,"media_end":4,"is_filler":false,"sort_order":3,"confidence":-1}]}]})");
    const auto doubted = runTask(client->getTranscriptionResult(u"T"_s)).get();
    const QList<Paragraph> blocks = paragraphsFromPayload(*doubted.paragraphs, QUuid(), 0);
    ASSERT_EQ(blocks.size(), 1);
    QList<double> confidences;
    for (const WordBlock &block : blocks[0].wordBlocks)
        confidences << block.confidence;
    EXPECT_EQ(confidences, (QList<double> {0.42, 1.0, 1.0, 0.0}));
    EXPECT_EQ(doubted.paragraphs->at(0).wordBlocks.at(0).toJson().value(u"confidence"_s), 0.42);
    EXPECT_FALSE(doubted.paragraphs->at(0).wordBlocks.at(1).toJson().contains(u"confidence"_s));
    stub.setReply(200, R"({"task_id":"t","status":"completed","paragraphs":[{"word_blocks":[
        {"text":"a","media_start":0,"media_end":1,"is_filler":false,"sort_order":0,"confidence":"high"}]}]})");
    const auto badDoubt = runTask(client->getTranscriptionResult(u"T"_s)).errorAs<DecodeError>();
    ASSERT_TRUE(badDoubt);
    EXPECT_EQ(badDoubt->where(), u"paragraphs[0].wordBlocks[0].confidence");
}

TEST_F(APIClientFaults, UploadSendsOneFilePartAndReadsOnlyAStringDetail)
{
    auto client = makeClient();
    client->setAccessToken(u"t0k"_s);
    stub.setReply(200, R"({"task_id":"T1","status":"pending"})");
    QTemporaryDir dir;
    const QString path = dir.filePath(u"Clip.M4A"_s);
    const QByteArray audio("\x00\xff\r\n--binary", 12);
    writeFile(path, audio);
    EXPECT_EQ(runTask(client->transcribe(path)).get().taskId, u"T1");
    EXPECT_TRUE(log.lines->isEmpty()) << "the upload logs nothing";

    // The method, path and token are checked by every upload to the real server.
    const QByteArray head = stub.lastHead();
    static const QRegularExpression contentType(
        u"\r\nContent-Type: multipart/form-data; boundary=([0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-"
        "[0-9A-F]{4}-[0-9A-F]{12})\r\n"_s);
    const auto match = contentType.match(QString::fromLatin1(head));
    ASSERT_TRUE(match.hasMatch()) << head.toStdString();
    const QByteArray boundary = match.captured(1).toLatin1();
    EXPECT_EQ(stub.lastBody(),
              "--" + boundary
                  + "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"Clip.M4A\"\r\n"
                    "Content-Type: audio/mp4\r\n\r\n"
                  + audio + "\r\n--" + boundary + "--\r\n");

    const auto uploadError = [&](int status, const QByteArray &body) {
        stub.setReply(status, body);
        return runTask(client->transcribe(path)).errorAs<APIError>().value();
    };
    EXPECT_EQ(uploadError(413, R"({"detail":"too large"})").description(),
              u"服务器错误 (413): too large");
    EXPECT_FALSE(stub.lastHead().contains(boundary)) << "each upload has a boundary of its own";
    for (const QByteArray body : {R"({"detail":""})", R"({"detail":42})", R"({"other":"x"})",
                                  R"(["detail"])", "<html>oops</html>", ""}) {
        const APIError error = uploadError(422, body);
        EXPECT_EQ(error.code(), APIError::Code::httpError) << body.toStdString();
        EXPECT_EQ(error.description(), u"服务器错误 (422)");
    }
}

TEST_F(APIClientFaults, PeersThatAreSilentForeignOrNotHttpEndInErrors)
{
    // A service that accepts the request and never answers runs into the idle limit.
    auto impatient = makeClient({std::chrono::milliseconds(300)});
    stub.setBehaviour(HttpStub::Behaviour::stayQuiet);
    const auto silent = runTask(impatient->post<wire::EmptyResponse>(u"/x"_s, {}));
    EXPECT_TRUE(silent.errorAs<TransportError>());
    EXPECT_TRUE(log.lines->constLast().startsWith(u"[APIClient] Error: "_s));

    // The overall limit ends a transfer even when the idle limit would wait longer.
    auto bounded = makeClient(
        {std::chrono::seconds(30), std::chrono::seconds(30), std::chrono::milliseconds(300)});
    QElapsedTimer elapsed;
    elapsed.start();
    EXPECT_TRUE(runTask(bounded->get<wire::EmptyResponse>(u"/x"_s)).errorAs<TransportError>());
    EXPECT_LT(elapsed.elapsed(), 10000);

    // An answer trickled a byte at a time is never idle, yet is no answer: the limit on
    // the reply ends it, with the words of a time-out.
    stub.setBehaviour(HttpStub::Behaviour::trickle);
    stub.setReply(200, "{}");
    SessionTimeouts answerWithin;
    answerWithin.answer = std::chrono::milliseconds(1500);
    elapsed.restart();
    const auto trickled = runTask(makeClient(answerWithin)->get<wire::EmptyResponse>(u"/x"_s));
    ASSERT_TRUE(trickled.errorAs<TransportError>());
    EXPECT_EQ(trickled.errorAs<TransportError>()->description(), u"连接服务器超时"_s);
    EXPECT_LT(elapsed.elapsed(), 10000);

    // A peer that speaks something else: Qt reports it as a closed connection.
    stub.setBehaviour(HttpStub::Behaviour::reply);
    stub.setRawReply("SSH-2.0-OpenSSH_9.2\r\n");
    EXPECT_TRUE(runTask(makeClient()->get<wire::EmptyResponse>(u"/x"_s)).errorAs<TransportError>());

    // A local-file root answers every request, but never with an HTTP status.
    QTemporaryDir dir;
    const QString answer = dir.filePath(u"api/media/transcribe/T"_s);
    writeFile(answer, "{}");
    APIClient local(QUrl::fromLocalFile(dir.filePath(u"api"_s)), {}, log.sink());
    EXPECT_EQ(runTask(local.getTranscriptionResult(u"T"_s)).errorAs<APIError>().value().code(),
              APIError::Code::invalidResponse);
    EXPECT_EQ(log.lines->constLast(), u"[APIClient] GET Error: 无效的服务器响应");
    EXPECT_EQ(runTask(local.transcribe(answer)).errorAs<APIError>().value().code(),
              APIError::Code::invalidResponse);
}

// Keys and whole records are decoded on every test against the real server and the
// import's stand-in service; here, what those never send.
TEST(WireCoding, DatesMediaTypesAndEndpointsOutsideWhatTheServerSends)
{
    const QDateTime expected(QDate(2024, 1, 2), QTime(3, 4, 5), Qt::UTC);
    const auto date = [](const char *text) {
        return wire::decodeDate(QJsonValue(QString::fromLatin1(text)), u"createdAt"_s);
    };
    EXPECT_EQ(date("2024-01-02T03:04:05.678Z"), expected.addMSecs(678));
    EXPECT_EQ(date("2024-01-02T03:04:05Z"), expected);
    EXPECT_EQ(date("2024-01-02T11:04:05+08:00"), expected);
    for (const char *bad : {"2024-01-02", "2024-01-02T03:04:05", "2024-13-02T03:04:05Z", ""})
        EXPECT_THROW(date(bad), DecodeError) << bad;

    // Upper-case extensions are common on cameras; what is not known goes as bytes.
    using Row = std::pair<const char *, const char *>;
    for (const auto &[name, type] :
         {Row {"a.MP4", "audio/mp4"}, Row {"a.Aif", "audio/aiff"}, Row {"a.flac", "audio/flac"},
          Row {"a.mp3", "audio/mpeg"}, Row {"a.opus", "application/octet-stream"},
          Row {"noextension", "application/octet-stream"}})
        EXPECT_EQ(APIClient::mediaTypeForFile(QString::fromLatin1(name)), QLatin1StringView(type))
            << name;

    // The real server tests use a root without a slash; a user may well type one.
    APIClient withSlash(QUrl(u"http://127.0.0.1:9/api/"_s), {}, {});
    for (const QString &path : {u"/auth/me"_s, u"auth/me"_s})
        EXPECT_EQ(withSlash.endpoint(path), QUrl(u"http://127.0.0.1:9/api/auth/me"_s));
    EXPECT_THROW(APIClient(QUrl(u"not a url"_s)), std::invalid_argument);
}
