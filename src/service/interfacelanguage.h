#pragma once

#include <QString>
#include <QTranslator>

class QCoreApplication;

namespace kavel::i18n {

// The texts are written in Chinese; English is the one translation. Other languages
// fall back to English, since a reader of French is likelier to read English than
// Chinese.
enum class Language { chinese, english };

// What the user chose on the settings screen.
enum class LanguagePreference { system, chinese, english };

QString toRaw(LanguagePreference preference);
// Unknown or empty text means "follow the system".
LanguagePreference preferenceFromRaw(const QString &raw);

// The language the environment asks for: the first of LANGUAGE, LC_ALL, LC_MESSAGES and
// LANG that is set. None, or the C/POSIX locale, keeps the original Chinese texts.
Language systemLanguage();
Language resolve(LanguagePreference preference);

// The compiled translation of our own texts and Qt's for its dialogs and buttons,
// installed on the running application for as long as this object lives. Chinese
// installs Qt's Chinese texts only, since ours are already Chinese.
class Translations
{
public:
    explicit Translations(Language language);
    ~Translations();
    Translations(const Translations &) = delete;
    Translations &operator=(const Translations &) = delete;

    Language language() const { return m_language; }
    // False when the embedded translation of our texts could not be loaded.
    bool complete() const { return m_ownLoaded; }

private:
    Language m_language;
    QTranslator m_own;
    QTranslator m_qt;
    bool m_ownLoaded = false;
    bool m_qtLoaded = false;
};

} // namespace kavel::i18n
