// How well the words kavel-server marks for checking (confidence below 0.6) pick out the words
// PocketSphinx got wrong. Recognises recordings with known text, aligns the recognised
// words to the reference by edit distance, and reports what share of the wrong words
// carry the mark and what share of the marks fall on right words, at the shipped threshold
// and at others around it.
//
//   bench_confidence [--words] [LIBRIVOX_DIR]
//
// The recordings: the LibriVox clips of Debian's pocketsphinx-testdata (read by a person,
// reference text beside them), and passages spoken by espeak-ng and flite (synthetic
// voices, which the model knows less well, so more of their words go wrong).

#include "audiodecoder.h"
#include "pocketsphinxrecognizer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>

using namespace kavel::server;
using namespace Qt::StringLiterals;

namespace {

constexpr const char *model = "/usr/share/pocketsphinx/model/en-us";
constexpr double shippedThreshold = 0.6;

struct Recording
{
    QString name;
    QString audio;
    QStringList reference;
};

struct ScoredWord
{
    std::string text;
    double confidence = 1.0;
    bool wrong = false;
};

QStringList words(const QString &text)
{
    QString plain = text.toLower();
    plain.replace(QRegularExpression(u"[^a-z' ]+"_s), u" "_s);
    return plain.split(u' ', Qt::SkipEmptyParts);
}

// Marks every recognised word that the cheapest alignment to the reference does not pair
// with an equal reference word: substitutions and insertions. Deleted reference words
// have no recognised word to mark and are counted apart.
size_t alignToReference(std::vector<ScoredWord> &recognised, const QStringList &reference)
{
    const size_t n = recognised.size();
    const auto m = static_cast<size_t>(reference.size());
    std::vector<std::vector<size_t>> cost(n + 1, std::vector<size_t>(m + 1));
    for (size_t i = 0; i <= n; ++i)
        cost[i][0] = i;
    for (size_t j = 0; j <= m; ++j)
        cost[0][j] = j;
    const auto same = [&](size_t i, size_t j) {
        return QString::fromStdString(recognised[i].text).toLower() == reference[qsizetype(j)];
    };
    for (size_t i = 1; i <= n; ++i)
        for (size_t j = 1; j <= m; ++j)
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1,
                                   cost[i - 1][j - 1] + (same(i - 1, j - 1) ? 0 : 1)});
    size_t deleted = 0;
    size_t i = n;
    size_t j = m;
    while (i > 0 || j > 0) {
        if (i > 0 && j > 0 && cost[i][j] == cost[i - 1][j - 1] + (same(i - 1, j - 1) ? 0 : 1)) {
            recognised[i - 1].wrong = !same(i - 1, j - 1);
            --i;
            --j;
        } else if (i > 0 && cost[i][j] == cost[i - 1][j] + 1) {
            recognised[--i].wrong = true;
        } else {
            ++deleted;
            --j;
        }
    }
    return deleted;
}

std::vector<Recording> librivox(const QString &dir)
{
    std::vector<Recording> recordings;
    QFile file(dir + u"/transcription"_s);
    if (!file.open(QIODevice::ReadOnly))
        return recordings;
    // "<s> he was not an ill disposed young man </s> (clip-name)"
    static const QRegularExpression line(u"^<s>(.*)</s>\\s*\\((.+)\\)\\s*$"_s);
    for (const QString &text : QString::fromUtf8(file.readAll()).split(u'\n')) {
        const auto match = line.match(text.trimmed());
        if (match.hasMatch())
            recordings.push_back({match.captured(2), dir + u'/' + match.captured(2) + u".wav"_s,
                                  words(match.captured(1))});
    }
    return recordings;
}

const char *const passages[] = {
    "Good morning and welcome to the third lesson. Today we will look at how plants turn "
    "sunlight into food. Every green leaf holds many small parts that catch the light. They "
    "take water from the ground and air from around them, and they make sugar that the plant "
    "can use to grow.",
    "At the end of the day we will walk outside and look at the trees in the park, so please "
    "bring a warm coat and a notebook.",
    "It was a bright cold day in April, and the clocks were striking thirteen. Nobody expected "
    "the meeting to run for three hours.",
    "Please send the report to the whole team before Friday. We will meet again tomorrow "
    "morning at the station.",
};

std::vector<Recording> synthetic(const QTemporaryDir &dir)
{
    std::vector<Recording> recordings;
    int index = 0;
    for (const char *passage : passages) {
        const QString text = QString::fromUtf8(passage);
        const QString espeak = dir.filePath(u"espeak%1.wav"_s.arg(index));
        if (QProcess::execute(u"espeak-ng"_s, {u"-s"_s, u"150"_s, u"-w"_s, espeak, text}) == 0)
            recordings.push_back({u"espeak-ng %1"_s.arg(index), espeak, words(text)});
        const QString flite = dir.filePath(u"flite%1.wav"_s.arg(index));
        if (QProcess::execute(u"flite"_s, {u"-t"_s, text, u"-o"_s, flite}) == 0)
            recordings.push_back({u"flite %1"_s.arg(index), flite, words(text)});
        ++index;
    }
    return recordings;
}

struct Tally
{
    size_t words = 0;
    size_t wrong = 0;
    size_t deleted = 0;
    std::vector<ScoredWord> scored;

    void report(const char *title, bool sweep) const
    {
        std::printf("%s: %zu words recognised, %zu wrong, %zu reference words missed\n", title,
                    words, wrong, deleted);
        std::vector<double> thresholds {shippedThreshold};
        if (sweep)
            thresholds = {0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9};
        for (const double threshold : thresholds) {
            size_t marked = 0;
            size_t markedWrong = 0;
            for (const ScoredWord &word : scored) {
                if (word.confidence < threshold) {
                    ++marked;
                    markedWrong += word.wrong ? 1 : 0;
                }
            }
            std::printf("  below %.1f: %zu marked, %zu of %zu wrong words marked (%.0f %%), "
                        "%zu of the marks on right words (%.0f %%)\n",
                        threshold, marked, markedWrong, wrong,
                        wrong ? 100.0 * double(markedWrong) / double(wrong) : 0.0,
                        marked - markedWrong,
                        marked ? 100.0 * double(marked - markedWrong) / double(marked) : 0.0);
        }
    }
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    bool listWords = false;
    QString librivoxDir = u"/usr/share/pocketsphinx/test/data/librivox"_s;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--words") == 0)
            listWords = true;
        else
            librivoxDir = QString::fromLocal8Bit(argv[i]);
    }
    QTemporaryDir dir;
    const std::vector<Recording> read = librivox(librivoxDir);
    if (read.empty())
        std::fprintf(stderr, "no LibriVox clips in %s (Debian package pocketsphinx-testdata)\n",
                     qPrintable(librivoxDir));
    const std::vector<Recording> spoken = synthetic(dir);

    PocketSphinxRecognizer recognizer(model);
    const std::atomic<bool> cancel = false;
    std::map<bool, Tally> tallies; // false: LibriVox, true: synthetic voices
    for (const auto &[isSynthetic, recordings] : {std::pair {false, &read}, {true, &spoken}}) {
        for (const Recording &recording : *recordings) {
            const auto samples = decodeAudioForRecognition(recording.audio.toStdString());
            std::vector<ScoredWord> scored;
            for (const RecognizedWord &word : recognizer.recognize(samples, cancel))
                scored.push_back({word.text, word.confidence});
            Tally &tally = tallies[isSynthetic];
            tally.deleted += alignToReference(scored, recording.reference);
            if (listWords) {
                std::printf("%s:", qPrintable(recording.name));
                for (const ScoredWord &word : scored)
                    std::printf(" %s%s/%.2f", word.wrong ? "*" : "", word.text.c_str(),
                                word.confidence);
                std::printf("\n");
            }
            for (const ScoredWord &word : scored) {
                ++tally.words;
                tally.wrong += word.wrong ? 1 : 0;
                tally.scored.push_back(word);
            }
        }
    }
    tallies[false].report("LibriVox clips (pocketsphinx-testdata)", true);
    tallies[true].report("espeak-ng and flite passages", true);
    Tally all = tallies[false];
    const Tally &other = tallies[true];
    all.words += other.words;
    all.wrong += other.wrong;
    all.deleted += other.deleted;
    all.scored.insert(all.scored.end(), other.scored.begin(), other.scored.end());
    all.report("all recordings", false);
    return 0;
}
