#include "transcriptbuilder.h"

namespace kavel::test {

QList<Paragraph> transcript(const QList<QStringList> &paragraphs)
{
    QList<Paragraph> list;
    double t = 0.0;
    qint64 order = 0;
    for (const QStringList &words : paragraphs) {
        Paragraph p;
        p.id = QUuid::createUuid();
        p.sortOrder = list.size();
        for (const QString &text : words) {
            p.wordBlocks.append(timedWord(t, t + 0.4, order++, {}, text));
            t += 0.5;
        }
        list.append(p);
    }
    return list;
}

WordBlock timedWord(double start, double end, qint64 sortOrder, const QUuid &source,
                    const QString &text)
{
    WordBlock b;
    b.id = QUuid::createUuid();
    b.text = text;
    b.sourceFileId = source;
    b.mediaStart = start;
    b.mediaEnd = end;
    b.sortOrder = sortOrder;
    return b;
}

QUuid wordId(const QList<Paragraph> &paragraphs, const QString &text)
{
    for (const Paragraph &p : paragraphs) {
        for (const WordBlock &b : p.wordBlocks) {
            if (b.text == text)
                return b.id;
        }
    }
    return {};
}

QStringList wordTexts(const Paragraph &paragraph)
{
    QStringList texts;
    for (const WordBlock &b : paragraph.wordBlocks)
        texts << b.text;
    return texts;
}

QString documentText(const QList<Paragraph> &paragraphs)
{
    QStringList parts;
    for (const Paragraph &p : paragraphs)
        parts << wordTexts(p).join(QLatin1Char(' '));
    return parts.join(QLatin1String(" | "));
}

} // namespace kavel::test

namespace kavel {

void PrintTo(const Paragraph &paragraph, std::ostream *out)
{
    *out << "Paragraph(" << paragraph.sortOrder << ": "
         << test::wordTexts(paragraph).join(QLatin1Char(' ')).toStdString() << ')';
}

void PrintTo(const WordBlock &block, std::ostream *out)
{
    *out << '"' << block.text.toStdString() << "\"@" << block.mediaStart << '-' << block.mediaEnd
         << '#' << block.sortOrder;
}

} // namespace kavel
