#include "paragraphedits.h"

#include <algorithm>

namespace kavel::edits {

void renumber(QList<Paragraph> &paragraphs)
{
    for (qsizetype i = 0; i < paragraphs.size(); ++i) {
        // Only touch paragraphs whose number changes, so unchanged ones stay shared.
        if (paragraphs.at(i).sortOrder != i)
            paragraphs[i].sortOrder = i;
    }
}

QList<Paragraph> removeWords(const QList<Paragraph> &paragraphs, const QSet<QUuid> &ids)
{
    QList<Paragraph> result;
    result.reserve(paragraphs.size());
    for (const Paragraph &paragraph : paragraphs) {
        const auto hit = [&](const WordBlock &b) { return ids.contains(b.id); };
        if (std::none_of(paragraph.wordBlocks.cbegin(), paragraph.wordBlocks.cend(), hit)) {
            if (!paragraph.wordBlocks.isEmpty())
                result.append(paragraph);
            continue;
        }
        Paragraph kept = paragraph;
        kept.wordBlocks.removeIf(hit);
        if (!kept.wordBlocks.isEmpty())
            result.append(std::move(kept));
    }
    renumber(result);
    return result;
}

QList<Paragraph> removeParagraph(const QList<Paragraph> &paragraphs, const QUuid &paragraphId)
{
    QList<Paragraph> result = paragraphs;
    result.removeIf([&](const Paragraph &p) { return p.id == paragraphId; });
    renumber(result);
    return result;
}

QList<Paragraph> moveParagraphs(const QList<Paragraph> &paragraphs,
                                const QList<qsizetype> &fromOffsets, qsizetype toOffset)
{
    const qsizetype count = paragraphs.size();
    QList<bool> moving(count, false);
    for (qsizetype offset : fromOffsets) {
        if (offset >= 0 && offset < count)
            moving[offset] = true;
    }
    toOffset = std::clamp<qsizetype>(toOffset, 0, count);

    QList<Paragraph> result;
    result.reserve(count);
    auto appendMoved = [&] {
        for (qsizetype i = 0; i < count; ++i) {
            if (moving[i])
                result.append(paragraphs[i]);
        }
    };
    for (qsizetype i = 0; i < count; ++i) {
        if (i == toOffset)
            appendMoved();
        if (!moving[i])
            result.append(paragraphs[i]);
    }
    if (toOffset == count)
        appendMoved();
    renumber(result);
    return result;
}

QList<QUuid> insertWords(QList<Paragraph> &paragraphs, const QUuid &paragraphId, qsizetype gap,
                         const QList<WordBlock> &words)
{
    const qsizetype index = indexOfParagraph(paragraphs, paragraphId);
    if (index < 0 || words.isEmpty())
        return {};
    QList<WordBlock> &target = paragraphs[index].wordBlocks;
    gap = std::clamp<qsizetype>(gap, 0, target.size());
    QList<QUuid> ids;
    ids.reserve(words.size());
    for (WordBlock word : words) {
        word.id = QUuid::createUuid();
        ids.append(word.id);
        target.insert(gap++, std::move(word));
    }
    return ids;
}

std::optional<QUuid> splitParagraph(QList<Paragraph> &paragraphs, const QUuid &paragraphId,
                                    qsizetype gap)
{
    const qsizetype index = indexOfParagraph(paragraphs, paragraphId);
    if (index < 0 || gap <= 0 || gap >= paragraphs.at(index).wordBlocks.size())
        return std::nullopt;
    Paragraph tail;
    tail.id = QUuid::createUuid();
    tail.speakerLabel = paragraphs.at(index).speakerLabel;
    tail.wordBlocks = paragraphs.at(index).wordBlocks.mid(gap);
    paragraphs[index].wordBlocks.resize(gap);
    paragraphs.insert(index + 1, std::move(tail));
    renumber(paragraphs);
    return paragraphs.at(index + 1).id;
}

qsizetype joinWithPrevious(QList<Paragraph> &paragraphs, qsizetype index)
{
    if (index <= 0 || index >= paragraphs.size())
        return -1;
    const qsizetype gap = paragraphs.at(index - 1).wordBlocks.size();
    paragraphs[index - 1].wordBlocks.append(paragraphs.at(index).wordBlocks);
    paragraphs.removeAt(index);
    renumber(paragraphs);
    return gap;
}

QSet<QUuid> wordIdsBetween(const QList<Paragraph> &paragraphs, qsizetype first, qsizetype start,
                           qsizetype last, qsizetype end)
{
    QSet<QUuid> ids;
    for (qsizetype p = std::max<qsizetype>(first, 0); p <= last && p < paragraphs.size(); ++p) {
        const QList<WordBlock> &words = paragraphs.at(p).wordBlocks;
        const qsizetype from = p == first ? std::max<qsizetype>(start, 0) : 0;
        const qsizetype to = p == last ? std::min(end, words.size()) : words.size();
        for (qsizetype w = from; w < to; ++w)
            ids.insert(words.at(w).id);
    }
    return ids;
}

qsizetype indexOfParagraph(const QList<Paragraph> &paragraphs, const QUuid &paragraphId)
{
    for (qsizetype i = 0; i < paragraphs.size(); ++i) {
        if (paragraphs[i].id == paragraphId)
            return i;
    }
    return -1;
}

WordLocation locateWord(const QList<Paragraph> &paragraphs, const QUuid &blockId)
{
    for (qsizetype p = 0; p < paragraphs.size(); ++p) {
        const QList<WordBlock> &words = paragraphs[p].wordBlocks;
        for (qsizetype w = 0; w < words.size(); ++w) {
            if (words[w].id == blockId)
                return {p, w};
        }
    }
    return {};
}

QString wordsAsText(const QList<WordBlock> &words)
{
    QString text;
    for (const WordBlock &word : words) {
        if (word.text.isEmpty())
            continue;
        const bool latin = !text.isEmpty() && text.back().unicode() < 0x2E80
            && word.text.front().unicode() < 0x2E80;
        if (latin)
            text += u' ';
        text += word.text;
    }
    return text;
}

QSet<QUuid> fillerWordIds(const QList<Paragraph> &paragraphs)
{
    QSet<QUuid> ids;
    for (const Paragraph &paragraph : paragraphs) {
        for (const WordBlock &block : paragraph.wordBlocks) {
            if (block.isFiller)
                ids.insert(block.id);
        }
    }
    return ids;
}

std::optional<QUuid> replaceText(QList<Paragraph> &paragraphs, const QSet<QUuid> &ids,
                                 const QString &text)
{
    const QString corrected = text.simplified();
    if (ids.isEmpty() || corrected.isEmpty())
        return std::nullopt;
    const WordLocation first = [&] {
        for (qsizetype p = 0; p < paragraphs.size(); ++p)
            for (qsizetype w = 0; w < paragraphs.at(p).wordBlocks.size(); ++w)
                if (ids.contains(paragraphs.at(p).wordBlocks.at(w).id))
                    return WordLocation {p, w};
        return WordLocation {};
    }();
    if (!first.isValid())
        return std::nullopt;
    const QList<WordBlock> &words = paragraphs.at(first.paragraph).wordBlocks;
    const qsizetype last = first.word + ids.size() - 1;
    if (last >= words.size())
        return std::nullopt;
    for (qsizetype w = first.word; w <= last; ++w) {
        const WordBlock &word = words.at(w);
        if (!ids.contains(word.id) || word.sourceFileId != words.at(first.word).sourceFileId)
            return std::nullopt;
        if (w > first.word && word.mediaStart < words.at(w - 1).mediaEnd - 1e-6)
            return std::nullopt;
    }

    WordBlock merged = words.at(first.word);
    const WordBlock &end = words.at(last);
    merged.text = corrected;
    merged.mediaEnd = end.mediaEnd;
    merged.fadeOutDuration = end.fadeOutDuration;
    merged.pauseAfter = end.pauseAfter;
    // The user has said what was spoken; the recogniser's filler mark and doubt no longer hold.
    merged.isFiller = false;
    merged.confidence = 1.0;
    QList<WordBlock> &edited = paragraphs[first.paragraph].wordBlocks;
    edited.remove(first.word + 1, last - first.word);
    edited[first.word] = merged;
    return merged.id;
}

} // namespace kavel::edits
