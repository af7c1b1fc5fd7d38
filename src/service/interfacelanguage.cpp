#include "interfacelanguage.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>

using namespace Qt::StringLiterals;

namespace kavel::i18n {

QString toRaw(LanguagePreference preference)
{
    switch (preference) {
    case LanguagePreference::chinese:
        return u"zh"_s;
    case LanguagePreference::english:
        return u"en"_s;
    case LanguagePreference::system:
        break;
    }
    return u"system"_s;
}

LanguagePreference preferenceFromRaw(const QString &raw)
{
    if (raw == "zh"_L1)
        return LanguagePreference::chinese;
    if (raw == "en"_L1)
        return LanguagePreference::english;
    return LanguagePreference::system;
}

Language systemLanguage()
{
    for (const char *name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
        // LANGUAGE may list several, "de:en"; the first is the one wanted most.
        const QString value = qEnvironmentVariable(name).section(u':', 0, 0).trimmed();
        if (value.isEmpty())
            continue;
        const QString language = value.section(u'.', 0, 0).section(u'@', 0, 0);
        if (language == "C"_L1 || language == "POSIX"_L1 || language.startsWith("zh"_L1))
            return Language::chinese;
        return Language::english;
    }
    return Language::chinese;
}

Language resolve(LanguagePreference preference)
{
    switch (preference) {
    case LanguagePreference::chinese:
        return Language::chinese;
    case LanguagePreference::english:
        return Language::english;
    case LanguagePreference::system:
        break;
    }
    return systemLanguage();
}

Translations::Translations(Language language)
    : m_language(language)
{
    const QString qtFolder = QLibraryInfo::path(QLibraryInfo::TranslationsPath);
    if (language == Language::english) {
        m_ownLoaded = m_own.load(u":/i18n/kavel_en.qm"_s);
        if (m_ownLoaded)
            QCoreApplication::installTranslator(&m_own);
        m_qtLoaded = m_qt.load(u"qtbase_en"_s, qtFolder);
    } else {
        m_ownLoaded = true;
        m_qtLoaded = m_qt.load(u"qtbase_zh_CN"_s, qtFolder);
    }
    if (m_qtLoaded)
        QCoreApplication::installTranslator(&m_qt);
}

Translations::~Translations()
{
    if (m_qtLoaded)
        QCoreApplication::removeTranslator(&m_qt);
    if (m_language == Language::english && m_ownLoaded)
        QCoreApplication::removeTranslator(&m_own);
}

} // namespace kavel::i18n
