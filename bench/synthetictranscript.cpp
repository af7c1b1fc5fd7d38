#include "synthetictranscript.h"

#include <QRandomGenerator>

using namespace Qt::StringLiterals;

namespace kavel::bench {

QList<Paragraph> syntheticTranscript(int paragraphs, int wordsPerParagraph, quint32 seed)
{
    static const QStringList vocabulary {
        u"我们"_s,      u"今天"_s,      u"讨论"_s,    u"一下"_s, u"这个"_s,     u"问题"_s,
        u"其实"_s,      u"非常"_s,      u"重要"_s,    u"因为"_s, u"大家"_s,     u"都"_s,
        u"知道"_s,      u"the"_s,       u"project"_s, u"and"_s,  u"timeline"_s, u"editing"_s,
        u"interview"_s, u"recording"_s, u"然后"_s,    u"就是"_s, u"所以"_s,     u"可以"_s,
        u"看到"_s,      u"视频"_s,      u"音频"_s,    u"字幕"_s};
    static const QStringList fillers {u"嗯"_s, u"啊"_s, u"那个"_s, u"um"_s};

    QRandomGenerator random(seed);
    const QUuid source = QUuid::createUuid();
    QList<Paragraph> list;
    list.reserve(paragraphs);
    double t = 0.3;
    qint64 order = 0;
    for (int p = 0; p < paragraphs; ++p) {
        Paragraph paragraph;
        paragraph.id = QUuid::createUuid();
        paragraph.sortOrder = p;
        paragraph.speakerLabel = QString::number(p % 2 + 1);
        paragraph.wordBlocks.reserve(wordsPerParagraph);
        for (int w = 0; w < wordsPerParagraph; ++w) {
            WordBlock b;
            b.id = QUuid::createUuid();
            b.isFiller = random.bounded(20) == 0;
            b.text = b.isFiller ? fillers[random.bounded(fillers.size())]
                                : vocabulary[random.bounded(vocabulary.size())];
            b.speakerLabel = paragraph.speakerLabel;
            b.sourceFileId = source;
            b.mediaStart = t;
            b.mediaEnd = t + 0.12 + random.bounded(0.3);
            b.sortOrder = order++;
            t = b.mediaEnd + random.bounded(0.08);
            paragraph.wordBlocks.append(b);
        }
        t += 0.6 + random.bounded(1.2);
        list.append(paragraph);
    }
    return list;
}

} // namespace kavel::bench
