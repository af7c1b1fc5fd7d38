#pragma once

#include <QByteArray>
#include <QString>
#include <exception>

namespace kavel {

// Every error Kavel throws carries the text the user is shown. Callers that only
// report failures catch this base and show description(). What the system, a parser or
// a library said about it is detail(): for the log line, never for the user, since it
// is in their words (and mostly in English), not ours.
class Error : public std::exception
{
public:
    explicit Error(QString description, QString detail = {});

    const QString &description() const noexcept { return m_description; }
    const QString &detail() const noexcept { return m_detail; }
    const char *what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_description;
    QString m_detail;
    QByteArray m_utf8;
};

// A file-system operation that failed: what was attempted on which file, and our own
// `reason` when there is one ("这是一个文件夹"). The system's reason is the detail.
class FileError : public Error
{
public:
    enum class Kind {
        notFound,
        readFailed,
        writeFailed,
        copyFailed,
        createDirectoryFailed,
        invalidName,
    };

    FileError(Kind kind, QString path, QString reason = {}, QString detail = {});

    Kind kind() const noexcept { return m_kind; }
    const QString &path() const noexcept { return m_path; }

private:
    Kind m_kind;
    QString m_path;
};

// A JSON document that does not have the expected shape. `where` is the path of the
// offending value inside the document ("paragraphs[2].wordBlocks[0].mediaEnd"); the
// parser's own message, if any, is the detail.
class DecodeError : public Error
{
public:
    DecodeError(QString where, QString reason, QString detail = {});

    const QString &where() const noexcept { return m_where; }
    const QString &reason() const noexcept { return m_reason; }

    // The same error one level further out: "wordBlocks[3]" + "text".
    DecodeError nested(const QString &outer) const;

private:
    QString m_where;
    QString m_reason;
};

class KavelProjectError : public Error
{
public:
    enum class Code {
        noSourceVideo,
        noAudioTrack,
        audioExtractionFailed,
        bundleNotFound,
    };

    explicit KavelProjectError(Code code);

    Code code() const noexcept { return m_code; }
    static QString descriptionOf(Code code);

private:
    Code m_code;
};

} // namespace kavel
