#pragma once

#include "model/paragraph.h"

#include <QList>
#include <optional>

namespace kavel {

// The difference between two paragraph lists, kept as only the part that differs: the run
// of paragraphs between their common start and common end and, where those paragraphs
// kept their places, only the run of words that differs inside each. Both sides are kept,
// so it turns either list into the other. An undo history of such changes costs what the
// edits touched, not a document per step.
class ParagraphChange
{
public:
    ParagraphChange() = default;
    ParagraphChange(const QList<Paragraph> &from, const QList<Paragraph> &to);

    // `from` must be the list the change was made from; gives the `to` list.
    QList<Paragraph> apply(QList<Paragraph> from) const;
    // `to` must be the list the change was made to; gives the `from` list.
    QList<Paragraph> revert(QList<Paragraph> to) const;
    bool isEmpty() const
    {
        return m_fromParagraphs.isEmpty() && m_toParagraphs.isEmpty() && m_edits.isEmpty();
    }

private:
    // One paragraph that kept its id and place; words [firstWord, firstWord + n) differ.
    struct Side
    {
        qint64 sortOrder = 0;
        std::optional<QString> speakerLabel;
        QList<WordBlock> words;
    };
    struct InPlace
    {
        qsizetype index = 0;
        qsizetype firstWord = 0;
        Side from, to;
    };

    static QList<Paragraph> swap(QList<Paragraph> list, qsizetype first,
                                 const QList<Paragraph> &out, const QList<Paragraph> &in);
    static void swap(Paragraph &paragraph, qsizetype firstWord, const Side &out, const Side &in);

    qsizetype m_first = 0;
    // Either whole paragraphs replaced at m_first (moves, insertions, removals) …
    QList<Paragraph> m_fromParagraphs, m_toParagraphs;
    // … or paragraphs edited where they stand.
    QList<InPlace> m_edits;
};

} // namespace kavel
