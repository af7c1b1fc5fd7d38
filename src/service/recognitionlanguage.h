#pragma once

#include <QString>
#include <QStringList>

// The language a recording is recognised in: a BCP 47 tag ("zh", "en", "zh-CN") that the
// upload names and the service's recogniser must hear.
namespace kavel::service {

// The languages an import offers, most asked for first: the ones people here record in,
// and the service's own when it names others.
QStringList offeredLanguages(const QStringList &serviceLanguages = {});

// "中文", "英文", … in the interface's language; the tag itself for one without a name.
QString languageName(const QString &tag);

// Letters, digits and hyphens, starting with two or three letters: what the service takes.
bool isLanguageTag(const QString &text);

// True when a recogniser that hears `supported` hears `tag`: the same tag or the same
// primary language ("zh-CN" and "zh").
bool hearsLanguage(const QStringList &supported, const QString &tag);

// The language an import starts with: the one used last, else the interface's.
QString initialLanguage(const QString &lastUsed, const QString &interfaceLocale);

// What the user is told when the service cannot recognise `tag`, in the service's words.
QString unsupportedLanguageMessage(const QString &tag);

} // namespace kavel::service
