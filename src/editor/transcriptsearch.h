#pragma once

#include "model/paragraph.h"

#include <QList>
#include <QUuid>

namespace kavel {

// One occurrence of the query: the paragraph and the ids of its words that the found
// text touches, in word order. A hit never spans two paragraphs.
struct SearchHit
{
    QUuid paragraphId;
    QList<QUuid> blockIds;

    friend bool operator==(const SearchHit &, const SearchHit &) = default;
};

// Finds `query` (trimmed, case-insensitive, otherwise literal) in each paragraph's text,
// the words joined with nothing between them, so a query can run across word joins.
// Occurrences do not overlap; hits come paragraph by paragraph, left to right.
QList<SearchHit> searchTranscript(const QList<Paragraph> &paragraphs, const QString &query);

} // namespace kavel
