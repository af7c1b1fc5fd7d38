#pragma once

#include <QSettings>
#include <QUrl>
#include <memory>
#include <optional>

namespace kavel::service {

// Typed access to the few preferences the cloud client keeps. The store is handed in so
// that tests can point it at a temporary file; the application uses the user's store
// (organisation "Kavel", application "Kavel").
class Settings
{
public:
    static constexpr auto accessTokenKey = "com.kavel.app.access_token";
    static constexpr auto refreshTokenKey = "com.kavel.app.refresh_token";
    static constexpr auto apiBaseUrlKey = "apiBaseURL";
    static constexpr auto defaultExportPathKey = "defaultExportPath";
    static constexpr auto lastExportPathKey = "lastExportPath";
    static constexpr auto lastRecognitionLanguageKey = "lastRecognitionLanguage";
    static constexpr auto interfaceLanguageKey = "interfaceLanguage";
    static constexpr auto baseUrlEnvironmentVariable = "KAVEL_API_BASE_URL";
    static constexpr int defaultServerPort = 8417;

    // The user's preferences store.
    Settings();
    explicit Settings(std::unique_ptr<QSettings> store);
    ~Settings();

    std::optional<QString> accessToken() const;
    std::optional<QString> refreshToken() const;
    void storeTokens(const QString &accessToken, const QString &refreshToken);
    void removeTokens();

    // The API root: the environment variable wins over the stored setting, which wins
    // over the local kavel-server's default address.
    QUrl apiBaseUrl() const;
    void setApiBaseUrl(const QString &url);

    static QUrl defaultApiBaseUrl();

    // The export folder chosen on the settings screen; empty when none.
    QString defaultExportPath() const;
    void setDefaultExportPath(const QString &path);
    // The folder the last export went to; empty before the first.
    QString lastExportPath() const;
    void setLastExportPath(const QString &path);
    // The language the last import was recognised in (a BCP 47 tag); empty before the first.
    QString lastRecognitionLanguage() const;
    void setLastRecognitionLanguage(const QString &tag);
    // The interface language chosen on the settings screen: "system", "zh" or "en".
    QString interfaceLanguage() const;
    void setInterfaceLanguage(const QString &raw);

private:
    std::optional<QString> string(const char *key) const;

    std::unique_ptr<QSettings> m_store;
};

} // namespace kavel::service
