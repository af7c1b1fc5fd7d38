#include "audiodecoder.h"
#include "commandrecognizer.h"
#include "credentials.h"
#include "generatedmedia.h"
#include "parallelrecognizer.h"
#include "pocketsphinxrecognizer.h"
#include "ratelimiter.h"
#include "recognitionworkers.h"
#include "store.h"
#include "support/testenvironment.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <cmath>
#include <gtest/gtest.h>
#include <mutex>
#include <numeric>

using namespace kavel::server;
using namespace kavel::test;
using namespace Qt::StringLiterals;

TEST(Credentials, PasswordsAndTokensAreNeverStoredAsGiven)
{
    credentials::initialise();
    const std::string hash = credentials::hashPassword("s3cret");
    EXPECT_EQ(hash.rfind("$argon2id$", 0), 0u) << hash;
    EXPECT_TRUE(credentials::verifyPassword(hash, "s3cret"));
    EXPECT_FALSE(credentials::verifyPassword(hash, "s3cret "));
    EXPECT_NE(credentials::hashPassword("s3cret"), hash) << "hashes must be salted";

    // Stored tokens are found by their digest, which every sign-in in the service tests
    // relies on; texted codes are read back from the server's log there too.
    const std::string token = credentials::newToken();
    EXPECT_EQ(token.size(), 43u); // 256 bits in unpadded base64
    EXPECT_NE(credentials::newToken(), token);
    EXPECT_NE(credentials::digest(token), credentials::digest(token + "x"));
}

// An IPv6 client picks any address in its /64 network; it guesses as one client there.
TEST(GuessThrottle, AnIpv6NetworkGuessesAsOneClientAndIpv4AddressesEachOnTheirOwn)
{
    GuessThrottle guesses;
    const auto now = GuessThrottle::Clock::now();
    const auto admitted = [&](const std::string &address) {
        return !guesses.admit("e@example.com", address, now).has_value();
    };
    std::string answers;
    for (int i = 1; i <= 7; ++i)
        answers += admitted("2001:db8:1:2::" + std::to_string(i)) ? '+' : '-';
    EXPECT_EQ(answers, "++++++-") << "five free, a sixth that starts the wait, then none";
    EXPECT_FALSE(admitted("2001:db8:1:2:ffff:ffff:ffff:ffff"));
    EXPECT_TRUE(admitted("2001:db8:1:3::1")) << "the next network is someone else";
    guesses.succeeded("e@example.com", "2001:db8:1:2::99");
    EXPECT_TRUE(admitted("2001:db8:1:2::1")) << "a sign-in from the network clears it";

    for (const auto &[address, neighbour] : {std::pair {"192.0.2.1", "192.0.2.2"},
                                             std::pair {"::ffff:192.0.2.1", "::ffff:192.0.2.2"}}) {
        for (int i = 0; i < 7; ++i)
            admitted(address);
        EXPECT_FALSE(admitted(address));
        EXPECT_TRUE(admitted(neighbour)) << neighbour;
    }
    EXPECT_EQ(clientNetwork("2001:DB8:0:0:1::7"), "2001:db8::/64");
    EXPECT_EQ(clientNetwork("not an address"), "not an address");
}

TEST(RecognizedWords, DecoderMarkersAreDroppedAndParagraphsSplitAtLongPauses)
{
    bool filler = true;
    for (const char *notAWord : {"<s>", "</s>", "<sil>", "[NOISE]", "[SPEECH]", "++UM++"})
        EXPECT_EQ(PocketSphinxRecognizer::cleanWord(notAWord, &filler), "") << notAWord;
    for (const auto &[decoded, word, isFiller] :
         {std::tuple {"read(2)", "read", false}, std::tuple {"um", "um", true},
          std::tuple {"uh(2)", "uh", true}}) {
        EXPECT_EQ(PocketSphinxRecognizer::cleanWord(decoded, &filler), word);
        EXPECT_EQ(filler, isFiller) << decoded;
    }

    // 2.4 s of silence before "again". Doubt goes out with three decimals and only when
    // there is some: "so" rounds to certain.
    const std::string json = paragraphsJson({{"so", 0.1, 0.3, false, 0.9997},
                                             {"um", 0.3, 0.6, true},
                                             {"again", 3.0, 3.4, false, 0.25049}});
    const QJsonArray paragraphs = QJsonDocument::fromJson(QByteArray::fromStdString(json)).array();
    ASSERT_EQ(paragraphs.size(), 2);
    EXPECT_EQ(paragraphs[0][u"word_blocks"_s][1].toObject(),
              (QJsonObject {{u"text"_s, u"um"_s},
                            {u"media_start"_s, 0.3},
                            {u"media_end"_s, 0.6},
                            {u"is_filler"_s, true},
                            {u"sort_order"_s, 1}}));
    EXPECT_FALSE(paragraphs[0][u"word_blocks"_s][0].toObject().contains(u"confidence"_s));
    EXPECT_EQ(paragraphs[1][u"word_blocks"_s][0][u"confidence"_s], 0.25);
    EXPECT_EQ(paragraphs[1][u"word_blocks"_s].toArray().size(), 1);
    EXPECT_NE(paragraphs[0][u"paragraph_id"_s], paragraphs[1][u"paragraph_id"_s]);
    EXPECT_EQ(paragraphsJson({}), "[]");
}

TEST(AudioDecoding, AnyCommonFormatBecomes16kHzMono)
{
    QTemporaryDir dir;
    // 1.5 s of a 440 Hz tone in stereo at 44.1 kHz, the right channel silent, so a
    // down-mix that drops or doubles a channel shows in the level.
    const QString source = dir.filePath(u"tone.wav"_s);
    ASSERT_NO_FATAL_FAILURE(
        runFfmpeg(u"-f lavfi -i sine=frequency=440:sample_rate=44100:duration=1.5 "
                  "-af pan=stereo|c0=c0|c1=0*c0 -c:a pcm_s16le"_s.split(u' ')
                  << source));
    for (const char *extension : {"wav", "m4a", "mp3", "flac"}) {
        const QString file = dir.filePath(u"tone."_s + QString::fromLatin1(extension));
        if (file != source) {
            ASSERT_NO_FATAL_FAILURE(runFfmpeg({u"-i"_s, source, file})) << extension;
        }
        const std::vector<std::int16_t> samples = decodeAudioForRecognition(file.toStdString());
        // Lossy encoders pad a little at either end.
        EXPECT_NEAR(static_cast<double>(samples.size()) / recognitionSampleRate, 1.5, 0.1)
            << extension;
        const double rms
            = std::sqrt(std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0)
                        / static_cast<double>(samples.size()));
        // ffmpeg's sine is at 1/8 full scale (RMS ~2900); half of it survives a mono mix.
        EXPECT_NEAR(rms, 2900.0 / 2.0, 400.0) << extension;
    }

    const QString garbage = dir.filePath(u"garbage.m4a"_s);
    writeFile(garbage, "definitely not audio");
    EXPECT_THROW(decodeAudioForRecognition(garbage.toStdString()), AudioDecodeError);
    EXPECT_THROW(decodeAudioForRecognition(dir.filePath(u"absent.wav"_s).toStdString()),
                 AudioDecodeError);
}

namespace {

// A recognizer command written as a shell script in `dir`.
std::string script(const QTemporaryDir &dir, const char *name, const std::string &body)
{
    const QString file = dir.filePath(QString::fromLatin1(name));
    writeFile(file, QByteArray::fromStdString("#!/bin/sh\n" + body + "\n"));
    QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return file.toStdString();
}

// Words with their times to the microsecond, a * on fillers and ~ with the confidence of
// uncertain ones, to compare in one go.
QString shown(const std::vector<RecognizedWord> &words)
{
    QStringList shown;
    for (const RecognizedWord &word : words)
        shown << QString::fromStdString(word.text) + u'@' + QString::number(word.start, 'f', 6)
                + u'-' + QString::number(word.end, 'f', 6) + (word.isFiller ? u"*"_s : QString())
                + (word.confidence < 1.0 ? u"~"_s + QString::number(word.confidence) : QString());
    return shown.join(u' ');
}

// 70 s of a quiet hum with silence around 30 s and 60 s: three stretches.
std::vector<std::int16_t> humWithPauses()
{
    std::vector<std::int16_t> samples(70 * 16000);
    for (size_t i = 0; i < samples.size(); ++i) {
        const double second = static_cast<double>(i) / 16000.0;
        const bool silent = std::abs(second - 30.0) < 0.3 || std::abs(second - 60.0) < 0.3;
        samples[i] = silent ? 0 : static_cast<std::int16_t>(1000.0 * std::sin(i * 0.05));
    }
    return samples;
}

} // namespace

TEST(RecognizerCommand, StretchesAreWavsWhoseWordsShiftToTheirPlaceAndFailuresGiveTheReason)
{
    QTemporaryDir dir;
    // Names the WAV file's size and format and the language it was told in both ways, so
    // the test sees what the command was given.
    const std::string command
        = script(
              dir, "bytes.sh",
              R"sh(printf '{"words":[{"text":"%s","start":0.5,"end":0.75},{"text":"Um","start":1,"end":1.5,"confidence":0.25}]}' \
             "$(stat -c %s "$2")-$(head -c 4 "$2")-$(od -An -tu4 -j24 -N4 "$2" | tr -d ' ')-$KAVEL_LANGUAGE$1")sh")
        + " /{language}";
    const auto make = [&command] {
        auto recognizer = std::make_unique<CommandRecognizer>(command, std::chrono::seconds(20));
        recognizer->setLanguage("en");
        return recognizer;
    };
    const std::vector<std::int16_t> samples = humWithPauses();
    const std::atomic<bool> cancel = false;
    const auto zh = make();
    zh->setLanguage("zh");
    const std::vector<RecognizedWord> words = zh->recognize(samples, cancel);
    // What one recognizer hears working through the stretches cut at `cuts`, in turn.
    const auto heardIn = [](const std::vector<size_t> &cuts, const std::string &language) {
        QStringList expected;
        for (size_t stretch = 0; stretch + 1 < cuts.size(); ++stretch) {
            const double offset = static_cast<double>(cuts[stretch]) / 16000.0;
            const auto bytes = std::to_string(44 + 2 * (cuts[stretch + 1] - cuts[stretch]));
            expected << shown({{bytes + "-RIFF-16000-" + language + "/" + language, offset + 0.5,
                                offset + 0.75, false},
                               {"Um", offset + 1.0, offset + 1.5, true, 0.25}});
        }
        return expected.join(u' ');
    };
    ASSERT_EQ(stretchBoundaries(samples).size(), 4u);
    EXPECT_EQ(shown(words), heardIn(stretchBoundaries(samples), "zh"));

    // Stretches recognised at once come back as if one recognizer had worked through the
    // same stretches in turn. They are shorter the more threads there are, so that a short
    // recording keeps every one busy, but never shorter than a few seconds.
    std::vector<size_t> previousCuts;
    for (int threads : {1, 2, 3, 8, 64}) {
        const std::vector<size_t> cuts = ParallelRecognizer::boundaries(samples, threads);
        EXPECT_GE(cuts.size() - 1, std::min<size_t>(threads, 70 / 5)) << threads;
        EXPECT_GE(cuts.size(), previousCuts.size()) << threads;
        for (size_t i = 0; i + 2 < cuts.size(); ++i)
            EXPECT_GE(cuts[i + 1] - cuts[i], 3 * 16000u) << threads << " threads, stretch " << i;
        previousCuts = cuts;
        ParallelRecognizer parallel(make, threads);
        parallel.setLanguage("ja");
        std::vector<double> told;
        std::mutex toldMutex;
        parallel.setProgressSink([&](double done) {
            const std::lock_guard lock(toldMutex);
            told.push_back(done);
        });
        EXPECT_EQ(shown(parallel.recognize(samples, cancel)), heardIn(cuts, "ja"))
            << threads << " threads";
        // One report per stretch, the last one for the whole recording.
        EXPECT_EQ(told.size(), cuts.size() - 1) << threads;
        EXPECT_TRUE(!told.empty() && told.back() == 1.0) << threads;
    }

    const struct
    {
        const char *body;
        const char *reason;
    } cases[] = {
        {"echo 'loading model' >&2; echo 'no model in /srv/asr' >&2; exit 3",
         "failed with exit status 3: no model in /srv/asr"},
        {"echo 'hello world'", "did not print {\"words\""},
        {R"sh(echo '{"words":[{"text":"a","start":2,"end":1}]}')sh", "did not print"},
        {R"sh(echo '{"words":[{"text":"a","start":1,"end":2,"confidence":1.5}]}')sh",
         "did not print"},
        {"exec sleep 30", "took longer than 1 s"},
    };
    for (const auto &[body, reason] : cases) {
        const std::string failing = script(dir, "fails.sh", body);
        const auto makeFailing = [&] {
            return std::make_unique<CommandRecognizer>(failing, std::chrono::seconds(1),
                                                       dir.path().toStdString());
        };
        // One failed stretch fails the whole recording, also among several at once.
        for (const bool parallel : {false, true}) {
            const std::unique_ptr<SpeechRecognizer> recognizer = parallel
                ? std::make_unique<ParallelRecognizer>(makeFailing, 2)
                : std::unique_ptr<SpeechRecognizer>(makeFailing());
            try {
                recognizer->recognize(samples, cancel);
                ADD_FAILURE() << body;
            } catch (const RecognitionError &error) {
                EXPECT_NE(std::string(error.what()).find(reason), std::string::npos)
                    << body << " -> " << error.what();
            }
        }
    }
    EXPECT_TRUE(QDir(dir.path()).entryList({u"kavel-stretch-*"_s}).isEmpty())
        << "temporary WAV files are removed";
}

// whisper.cpp's tokens become words: a character each in Chinese, sharing a token's time,
// a character split over two tokens put back together; sub-word pieces joined in English;
// punctuation on the word before; markers dropped; times inside the stretch and in order.
TEST(RecognizerCommand, WhisperTokensBecomeWordsThroughTheBridge)
{
    QTemporaryDir dir;
    const QString model = dir.filePath(u"ggml-small.bin"_s);
    writeFile(model, "ggml");
    const std::string bridge = programPath(u"kavel-whisper-bridge"_s).toStdString() + " --whisper "
        + programPath(u"whisper-standin"_s).toStdString() + " --model ";
    const std::vector<std::int16_t> fiveSeconds(5 * 16000, 0);
    const std::atomic<bool> cancel = false;
    const auto heard = [&](const std::string &command, const std::string &language) {
        CommandRecognizer recognizer(command, std::chrono::seconds(20));
        recognizer.setLanguage(language);
        return shown(recognizer.recognize(fiveSeconds, cancel));
    };
    EXPECT_EQ(heard(bridge + model.toStdString(), "zh"),
              u"大@0.400000-0.700000~0.95 家@0.700000-1.000000~0.95 好，@1.000000-1.300000~0.9 "
              "今@1.600000-1.800000~0.97 天@1.800000-2.000000~0.97 讲@2.000000-2.200000~0.42 "
              "剪@2.200000-2.400000~0.8 辑。@2.400000-2.600000~0.8 谢@2.600000-2.975000~0.97 "
              "谢@2.975000-3.400000~0.97 再@3.600000-4.800000~0.97 见@4.800000-5.000000~0.97"_s);
    EXPECT_EQ(heard(bridge + model.toStdString(), "en-GB"),
              u"Hello,@0.300000-0.700000~0.97 world.@0.900000-1.300000~0.97 "
              "It's@1.800000-2.150000~0.97 Kavel!@2.200000-2.700000~0.3"_s);
    try {
        heard(bridge + "/no/such/model.bin", "zh");
        ADD_FAILURE() << "a missing model fails the task";
    } catch (const RecognitionError &error) {
        EXPECT_NE(std::string(error.what()).find("no whisper.cpp model at /no/such/model.bin"),
                  std::string::npos)
            << error.what();
    }
}

// A decoder must not carry anything from one recording to the next: the same lesson heard
// twice gives the same words.
TEST(PocketSphinxWords, ARecordingGivesTheSameWordsWhateverWasHeardBefore)
{
    QTemporaryDir dir;
    const QString lesson = dir.filePath(u"lesson.wav"_s);
    const std::string lessonText
        = "Good morning and welcome to the second lesson. Today we look at how an interview is "
          "edited. First we listen to the whole recording once, without stopping. Then we mark "
          "the places where the speaker repeats a thought, or pauses for a long time. Most "
          "editors cut those places first, because they are easy to find. After that we read "
          "the transcript and remove the sentences that do not help the story. Remember that "
          "every cut changes the rhythm of speech.";
    ASSERT_EQ(QProcess::execute(u"flite"_s,
                                {u"-t"_s, QString::fromStdString(lessonText), u"-o"_s, lesson}),
              0);
    PocketSphinxRecognizer recognizer("/usr/share/pocketsphinx/model/en-us");
    const std::vector<std::int16_t> samples = decodeAudioForRecognition(lesson.toStdString());
    const std::atomic<bool> cancel = false;
    // The lattice's doubt is part of what is heard, and it has to mean something: the words
    // of the lesson that came back are surer, on the whole, than those that were misheard.
    const QStringList spoken = QString::fromStdString(lessonText)
                                   .toLower()
                                   .remove(u'.')
                                   .remove(u',')
                                   .split(u' ', Qt::SkipEmptyParts);
    const auto heard = [&] {
        std::string text;
        double right = 0, wrong = 0;
        int rightCount = 0, wrongCount = 0;
        for (const RecognizedWord &word : recognizer.recognize(samples, cancel)) {
            text += word.text + '/' + std::to_string(word.confidence) + ' ';
            EXPECT_TRUE(word.confidence >= 0.0 && word.confidence <= 1.0) << word.confidence;
            const bool isRight = spoken.contains(QString::fromStdString(word.text));
            (isRight ? right : wrong) += word.confidence;
            ++(isRight ? rightCount : wrongCount);
        }
        EXPECT_GT(rightCount, 0);
        EXPECT_GT(wrongCount, 0) << text;
        EXPECT_GT(right / rightCount, wrong / std::max(wrongCount, 1) + 0.1) << text;
        return text;
    };
    const std::string first = heard();
    EXPECT_NE(first.find("/0."), std::string::npos) << "some words are in doubt: " << first;
    EXPECT_EQ(heard(), first);
}
