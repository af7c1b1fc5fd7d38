#include "transcriptsearch.h"

#include <algorithm>

namespace kavel {

QList<SearchHit> searchTranscript(const QList<Paragraph> &paragraphs, const QString &query)
{
    const QString needle = query.trimmed().toLower();
    QList<SearchHit> hits;
    if (needle.isEmpty())
        return hits;

    QString text;
    QList<qsizetype> ends; // ends[i]: where word i's text stops in `text`
    for (const Paragraph &paragraph : paragraphs) {
        text.clear();
        ends.clear();
        // Lower-casing word by word keeps every span exact even where lower-casing
        // changes a string's length.
        for (const WordBlock &block : paragraph.wordBlocks) {
            text += block.text.toLower();
            ends.append(text.size());
        }

        qsizetype from = 0;
        while (true) {
            const qsizetype lo = text.indexOf(needle, from);
            if (lo < 0)
                break;
            const qsizetype hi = lo + needle.size();
            from = hi;

            SearchHit hit;
            hit.paragraphId = paragraph.id;
            // The first word that ends after lo; walk on while words start before hi.
            auto it = std::upper_bound(ends.cbegin(), ends.cend(), lo);
            for (; it != ends.cend(); ++it) {
                const qsizetype index = it - ends.cbegin();
                const qsizetype start = index == 0 ? 0 : ends[index - 1];
                if (start >= hi)
                    break;
                if (start == *it)
                    continue; // an empty word occupies no text and cannot be touched
                hit.blockIds.append(paragraph.wordBlocks[index].id);
            }
            if (!hit.blockIds.isEmpty())
                hits.append(std::move(hit));
        }
    }
    return hits;
}

} // namespace kavel
