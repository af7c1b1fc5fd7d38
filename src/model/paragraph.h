#pragma once

#include "wordblock.h"

#include <QList>

namespace kavel {

// Consecutive words of one speaker. The word list is implicitly shared, so copying a
// paragraph (or a whole list of them for an undo snapshot) copies no words.
struct Paragraph
{
    QUuid id;
    QList<WordBlock> wordBlocks;
    qint64 sortOrder = 0;
    std::optional<QString> speakerLabel;

    // Sum of the words' media lengths, words marked deleted included; the width of the
    // paragraph's clip on the timeline.
    double totalDuration() const;

    friend bool operator==(const Paragraph &, const Paragraph &) = default;
};

size_t qHash(const Paragraph &paragraph, size_t seed = 0) noexcept;

// Keys in alphabetical order; a nil speaker is left out.
void writeJson(JsonWriter &writer, const Paragraph &paragraph);
QByteArray encodeParagraph(const Paragraph &paragraph);
// Throws DecodeError; every key but "speakerLabel" is required.
Paragraph decodeParagraph(QByteArrayView json);

} // namespace kavel

template<> struct std::hash<kavel::Paragraph>
{
    size_t operator()(const kavel::Paragraph &p) const noexcept { return kavel::qHash(p); }
};
