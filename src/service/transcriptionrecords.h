#pragma once

#include "model/paragraph.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <optional>

// The wire records of speech recognition: the upload's reply, the poll's reply and the
// transcript inside it. Field names are the camelCase forms of the wire keys.
namespace kavel::service {

struct TranscribeResponse
{
    QString taskId;
    QString status;

    static TranscribeResponse fromJson(const QJsonObject &object);
    QJsonObject toJson() const;
    friend bool operator==(const TranscribeResponse &, const TranscribeResponse &) = default;
};

// What the service's recogniser hears (BCP 47 tags) and what it assumes for an upload
// that names no language.
struct RecognitionLanguages
{
    QStringList languages;
    QString defaultLanguage;

    static RecognitionLanguages fromJson(const QJsonObject &object);
    QJsonObject toJson() const;
    friend bool operator==(const RecognitionLanguages &, const RecognitionLanguages &) = default;
};

struct WordBlockPayload
{
    QString text;
    std::optional<QString> speakerLabel;
    double mediaStart = 0.0;
    double mediaEnd = 0.0;
    bool isFiller = false;
    qint64 sortOrder = 0;
    // Left out on the wire when the recogniser is sure (or does not say).
    double confidence = 1.0;

    static WordBlockPayload fromJson(const QJsonObject &object);
    QJsonObject toJson() const;
    friend bool operator==(const WordBlockPayload &, const WordBlockPayload &) = default;
};

struct ParagraphPayload
{
    std::optional<QString> paragraphId;
    std::optional<QString> speakerLabel;
    QList<WordBlockPayload> wordBlocks;

    static ParagraphPayload fromJson(const QJsonObject &object);
    QJsonObject toJson() const;
    friend bool operator==(const ParagraphPayload &, const ParagraphPayload &) = default;
};

size_t qHash(const WordBlockPayload &word, size_t seed = 0) noexcept;
size_t qHash(const ParagraphPayload &paragraph, size_t seed = 0) noexcept;

struct TranscriptionResult
{
    static constexpr auto completed = "completed";
    static constexpr auto failed = "failed";

    QString taskId;
    // "completed", "failed", or anything else while the task is still running.
    QString status;
    std::optional<QList<ParagraphPayload>> paragraphs;
    std::optional<QString> errorMessage;
    // How much of the recording the service has recognised, 0 to 1; services that do not
    // tell leave it out.
    std::optional<double> progress;

    bool isCompleted() const { return status == QLatin1StringView(completed); }
    bool isFailed() const { return status == QLatin1StringView(failed); }

    static TranscriptionResult fromJson(const QJsonObject &object);
    QJsonObject toJson() const;
};

struct TimelineSegment
{
    double mediaStart = 0.0;
    double mediaEnd = 0.0;

    static TimelineSegment fromJson(const QJsonObject &object);
    QJsonObject toJson() const;
    friend bool operator==(const TimelineSegment &, const TimelineSegment &) = default;
};

// Turns a recognition result into editor paragraphs appended after `existingParagraphs`
// others: fresh ids everywhere, paragraphs numbered on from that count, words numbered
// from 0 within each paragraph, and every word attributed to `sourceFileId` with its
// times as the service gave them.
QList<Paragraph> paragraphsFromPayload(const QList<ParagraphPayload> &payload,
                                       const QUuid &sourceFileId, qint64 existingParagraphs);

} // namespace kavel::service
