#include "recognitionlanguage.h"

#include <QCoreApplication>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace kavel::service {

namespace {

struct NamedLanguage
{
    const char *tag;
    const char *name;
};

// The ones Kavel's users record in most; a service that hears others adds them.
constexpr NamedLanguage named[] = {
    {"zh", QT_TRANSLATE_NOOP("RecognitionLanguage", "中文")},
    {"en", QT_TRANSLATE_NOOP("RecognitionLanguage", "英文")},
    {"ja", QT_TRANSLATE_NOOP("RecognitionLanguage", "日文")},
    {"ko", QT_TRANSLATE_NOOP("RecognitionLanguage", "韩文")},
    {"yue", QT_TRANSLATE_NOOP("RecognitionLanguage", "粤语")},
    {"fr", QT_TRANSLATE_NOOP("RecognitionLanguage", "法文")},
    {"de", QT_TRANSLATE_NOOP("RecognitionLanguage", "德文")},
    {"es", QT_TRANSLATE_NOOP("RecognitionLanguage", "西班牙文")},
    {"ru", QT_TRANSLATE_NOOP("RecognitionLanguage", "俄文")},
    {"pt", QT_TRANSLATE_NOOP("RecognitionLanguage", "葡萄牙文")},
    {"it", QT_TRANSLATE_NOOP("RecognitionLanguage", "意大利文")},
};

QString primary(const QString &tag)
{
    return tag.section(u'-', 0, 0).toLower();
}

} // namespace

QStringList offeredLanguages(const QStringList &serviceLanguages)
{
    QStringList offered;
    for (const NamedLanguage &language : named)
        offered << QString::fromLatin1(language.tag);
    for (const QString &tag : serviceLanguages) {
        if (!hearsLanguage(offered, tag))
            offered << tag;
    }
    return offered;
}

QString languageName(const QString &tag)
{
    for (const NamedLanguage &language : named) {
        if (primary(tag) == QLatin1StringView(language.tag))
            return QCoreApplication::translate("RecognitionLanguage", language.name);
    }
    return tag;
}

bool isLanguageTag(const QString &text)
{
    static const QRegularExpression tag(u"^[A-Za-z]{2,3}(-[A-Za-z0-9]+)*$"_s);
    return text.size() <= 35 && tag.match(text).hasMatch();
}

bool hearsLanguage(const QStringList &supported, const QString &tag)
{
    for (const QString &heard : supported) {
        if (heard.compare(tag, Qt::CaseInsensitive) == 0 || primary(heard) == primary(tag))
            return true;
    }
    return false;
}

QString initialLanguage(const QString &lastUsed, const QString &interfaceLocale)
{
    if (isLanguageTag(lastUsed))
        return lastUsed;
    // "zh_CN" and "en_GB" as locales name them; "C" and the like say nothing.
    const QString spoken = primary(QString(interfaceLocale).replace(u'_', u'-'));
    return isLanguageTag(spoken) && spoken != u"c"_s ? spoken : u"zh"_s;
}

QString unsupportedLanguageMessage(const QString &tag)
{
    return QCoreApplication::translate("RecognitionLanguage",
                                       "此服务暂不支持识别%1，请联系管理员配置%1识别")
        .arg(languageName(tag));
}

} // namespace kavel::service
