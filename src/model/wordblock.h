#pragma once

#include <QHashFunctions>
#include <QString>
#include <QUuid>
#include <functional>
#include <optional>

namespace kavel {

// One transcribed word and the stretch of source media it stands for. A flat value:
// besides the two strings it owns no heap memory, because whole transcripts of these
// are copied on every edit and undo snapshot.
struct WordBlock
{
    QUuid id;
    QString text;
    std::optional<QString> speakerLabel;
    QUuid sourceFileId;
    double mediaStart = 0.0;
    double mediaEnd = 0.0;
    bool isDeleted = false;
    bool isFiller = false;
    qint64 sortOrder = 0;
    float volumeLevel = 1.0f;
    bool isMuted = false;
    bool isAudioDetached = false;
    double fadeInDuration = 0.0;
    double fadeOutDuration = 0.0;
    // The silence the recogniser heard between this word and the next one of the same
    // recording, 0 when none followed. Kept through edits, it tells whether two words
    // that now play one after the other were neighbours in the recording.
    double pauseAfter = 0.0;
    // How sure the recogniser was of the word, 0 to 1; 1 when it did not say or when the
    // user has corrected the word.
    double confidence = 1.0;

    double duration() const { return mediaEnd - mediaStart; }
    // The recogniser doubted the word enough that the user should listen to it again.
    bool needsCheck() const { return confidence < checkThreshold; }
    static constexpr double checkThreshold = 0.6;

    // Memberwise in declaration order; floats compare numerically (0.0 == -0.0, NaN is
    // never equal), which is what the defaulted operator does.
    friend bool operator==(const WordBlock &, const WordBlock &) = default;
};

size_t qHash(const WordBlock &block, size_t seed = 0) noexcept;

class JsonWriter;

// Every field is written, defaults included, except a nil speaker, a pause of 0 and a
// confidence of 1. Keys are in
// alphabetical order, the order of the timeline file.
void writeJson(JsonWriter &writer, const WordBlock &block);
QByteArray encodeWordBlock(const WordBlock &block);

// Throws DecodeError. Only "id", "text", "mediaStart" and "mediaEnd" are required; the
// rest fall back to their defaults, and a missing "sourceFileId" becomes a fresh random
// id on every decode so that such a word matches no source until it is reassigned.
WordBlock decodeWordBlock(QByteArrayView json);

namespace detail {
// Hash helpers shared by the record types: -0.0 hashes like 0.0, an optional hashes a
// presence marker before its value.
size_t hashDouble(double value, size_t seed) noexcept;
size_t hashOptionalString(const std::optional<QString> &value, size_t seed) noexcept;
} // namespace detail

} // namespace kavel

template<> struct std::hash<kavel::WordBlock>
{
    size_t operator()(const kavel::WordBlock &block) const noexcept { return kavel::qHash(block); }
};
