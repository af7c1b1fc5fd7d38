#pragma once

#include <QByteArray>
#include <QString>
#include <exception>

namespace kavel {

// Every error Kavel throws carries the text the user is shown. Callers that only
// report failures catch this base and show description().
class Error : public std::exception
{
public:
    explicit Error(QString description);

    const QString &description() const noexcept { return m_description; }
    const char *what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_description;
    QByteArray m_utf8;
};

// A file-system operation that failed, described the way the desktop describes such
// failures: what was attempted, on which file, and the system's reason.
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

    FileError(Kind kind, QString path, QString reason = {});

    Kind kind() const noexcept { return m_kind; }
    const QString &path() const noexcept { return m_path; }

private:
    Kind m_kind;
    QString m_path;
};

// A JSON document that does not have the expected shape. `where` is the path of the
// offending value inside the document ("paragraphs[2].wordBlocks[0].mediaEnd").
class DecodeError : public Error
{
public:
    DecodeError(QString where, QString reason);

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
