#include "settings.h"

namespace kavel::service {

Settings::Settings()
    : m_store(std::make_unique<QSettings>(QStringLiteral("Kavel"), QStringLiteral("Kavel")))
{ }

Settings::Settings(std::unique_ptr<QSettings> store)
    : m_store(std::move(store))
{
    Q_ASSERT(m_store);
}

Settings::~Settings() = default;

std::optional<QString> Settings::string(const char *key) const
{
    const QVariant value = m_store->value(QLatin1StringView(key));
    if (!value.isValid())
        return std::nullopt;
    return value.toString();
}

std::optional<QString> Settings::accessToken() const
{
    return string(accessTokenKey);
}

std::optional<QString> Settings::refreshToken() const
{
    return string(refreshTokenKey);
}

void Settings::storeTokens(const QString &accessToken, const QString &refreshToken)
{
    m_store->setValue(QLatin1StringView(accessTokenKey), accessToken);
    m_store->setValue(QLatin1StringView(refreshTokenKey), refreshToken);
    m_store->sync();
}

void Settings::removeTokens()
{
    m_store->remove(QLatin1StringView(accessTokenKey));
    m_store->remove(QLatin1StringView(refreshTokenKey));
    m_store->sync();
}

QUrl Settings::apiBaseUrl() const
{
    const QString fromEnvironment = qEnvironmentVariable(baseUrlEnvironmentVariable);
    if (!fromEnvironment.isEmpty())
        return QUrl(fromEnvironment, QUrl::StrictMode);
    if (auto stored = string(apiBaseUrlKey); stored && !stored->isEmpty())
        return QUrl(*stored, QUrl::StrictMode);
    return defaultApiBaseUrl();
}

void Settings::setApiBaseUrl(const QString &url)
{
    m_store->setValue(QLatin1StringView(apiBaseUrlKey), url);
}

QUrl Settings::defaultApiBaseUrl()
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1/api").arg(defaultServerPort));
}

QString Settings::defaultExportPath() const
{
    return string(defaultExportPathKey).value_or(QString());
}

void Settings::setDefaultExportPath(const QString &path)
{
    m_store->setValue(QLatin1StringView(defaultExportPathKey), path);
    m_store->sync();
}

QString Settings::lastExportPath() const
{
    return string(lastExportPathKey).value_or(QString());
}

void Settings::setLastExportPath(const QString &path)
{
    m_store->setValue(QLatin1StringView(lastExportPathKey), path);
    m_store->sync();
}

QString Settings::lastRecognitionLanguage() const
{
    return string(lastRecognitionLanguageKey).value_or(QString());
}

void Settings::setLastRecognitionLanguage(const QString &tag)
{
    m_store->setValue(QLatin1StringView(lastRecognitionLanguageKey), tag);
    m_store->sync();
}

QString Settings::interfaceLanguage() const
{
    return string(interfaceLanguageKey).value_or(QStringLiteral("system"));
}

void Settings::setInterfaceLanguage(const QString &raw)
{
    m_store->setValue(QLatin1StringView(interfaceLanguageKey), raw);
    m_store->sync();
}

} // namespace kavel::service
