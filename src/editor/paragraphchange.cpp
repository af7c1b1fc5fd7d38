#include "paragraphchange.h"

#include <algorithm>

namespace kavel {

ParagraphChange::ParagraphChange(const QList<Paragraph> &from, const QList<Paragraph> &to)
{
    // Unchanged paragraphs share their word lists with the other side, so each of these
    // comparisons stops at the shared data.
    const qsizetype shorter = std::min(from.size(), to.size());
    qsizetype first = 0;
    while (first < shorter && from.at(first) == to.at(first))
        ++first;
    qsizetype last = 0;
    while (last < shorter - first && from.at(from.size() - 1 - last) == to.at(to.size() - 1 - last))
        ++last;
    const qsizetype fromCount = from.size() - first - last, toCount = to.size() - first - last;
    m_first = first;

    bool inPlace = fromCount == toCount;
    for (qsizetype i = 0; inPlace && i < fromCount; ++i)
        inPlace = from.at(first + i).id == to.at(first + i).id;
    if (!inPlace) {
        m_fromParagraphs = from.mid(first, fromCount);
        m_toParagraphs = to.mid(first, toCount);
        return;
    }
    for (qsizetype i = first; i < first + fromCount; ++i) {
        const Paragraph &a = from.at(i), &b = to.at(i);
        if (a == b)
            continue;
        const QList<WordBlock> &x = a.wordBlocks, &y = b.wordBlocks;
        const qsizetype fewer = std::min(x.size(), y.size());
        qsizetype head = 0, tail = 0;
        while (head < fewer && x.at(head) == y.at(head))
            ++head;
        while (tail < fewer - head && x.at(x.size() - 1 - tail) == y.at(y.size() - 1 - tail))
            ++tail;
        m_edits.append({i,
                        head,
                        {a.sortOrder, a.speakerLabel, x.mid(head, x.size() - head - tail)},
                        {b.sortOrder, b.speakerLabel, y.mid(head, y.size() - head - tail)}});
    }
}

QList<Paragraph> ParagraphChange::swap(QList<Paragraph> list, qsizetype first,
                                       const QList<Paragraph> &out, const QList<Paragraph> &in)
{
    list.remove(first, out.size());
    for (qsizetype i = 0; i < in.size(); ++i)
        list.insert(first + i, in.at(i));
    return list;
}

void ParagraphChange::swap(Paragraph &paragraph, qsizetype firstWord, const Side &out,
                           const Side &in)
{
    paragraph.sortOrder = in.sortOrder;
    paragraph.speakerLabel = in.speakerLabel;
    QList<WordBlock> &words = paragraph.wordBlocks;
    words.remove(firstWord, out.words.size());
    for (qsizetype i = 0; i < in.words.size(); ++i)
        words.insert(firstWord + i, in.words.at(i));
}

QList<Paragraph> ParagraphChange::apply(QList<Paragraph> from) const
{
    if (m_edits.isEmpty())
        return swap(std::move(from), m_first, m_fromParagraphs, m_toParagraphs);
    for (const InPlace &edit : m_edits)
        swap(from[edit.index], edit.firstWord, edit.from, edit.to);
    return from;
}

QList<Paragraph> ParagraphChange::revert(QList<Paragraph> to) const
{
    if (m_edits.isEmpty())
        return swap(std::move(to), m_first, m_toParagraphs, m_fromParagraphs);
    for (const InPlace &edit : m_edits)
        swap(to[edit.index], edit.firstWord, edit.to, edit.from);
    return to;
}

} // namespace kavel
