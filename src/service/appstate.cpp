#include "appstate.h"

#include <QPointer>

namespace kavel::service {

using namespace Qt::StringLiterals;

AppState::AppState(APIClient &apiClient, Settings &settings, LogSink log, QObject *parent)
    : QObject(parent)
    , m_apiClient(apiClient)
    , m_settings(settings)
    , m_log(std::move(log))
{
    if (!m_log)
        m_log = [](const QString &) {};
}

void AppState::setShowLoginSheet(bool show)
{
    if (m_showLoginSheet == show)
        return;
    m_showLoginSheet = show;
    Q_EMIT showLoginSheetChanged();
}

void AppState::setSignedIn(std::optional<User> user)
{
    const bool authenticated = user.has_value();
    const bool userChanged = m_currentUser != user;
    m_currentUser = std::move(user);
    if (userChanged)
        Q_EMIT currentUserChanged();
    if (m_isAuthenticated != authenticated) {
        m_isAuthenticated = authenticated;
        Q_EMIT authenticationChanged();
    }
}

QCoro::Task<> AppState::restoreSession()
{
    const std::optional<QString> token = m_settings.accessToken();
    if (!token) {
        // The token used to live in the keychain; the line keeps its old wording so that
        // searches through old logs still match.
        m_log(u"[AppState] No access token in keychain"_s);
        co_return;
    }
    m_log(u"[AppState] Found token, restoring session..."_s);
    m_apiClient.setAccessToken(*token);
    QPointer<AppState> self(this);
    std::optional<User> user;
    QString failure;
    try {
        user = co_await m_apiClient.get<User>(u"/auth/me"_s);
    } catch (const Error &error) {
        failure = error.description();
    }
    if (!self)
        co_return;
    if (!user) {
        m_log(u"[AppState] Session restore failed: "_s + failure);
        m_settings.removeTokens();
        // A token the service refused must not ride along on the next request.
        m_apiClient.setAccessToken(std::nullopt);
        co_return;
    }
    m_log(u"[AppState] Session restored, user: "_s + user->email.value_or(u"no email"_s));
    setSignedIn(std::move(user));
}

void AppState::signOut()
{
    m_settings.removeTokens();
    m_apiClient.setAccessToken(std::nullopt);
    setSignedIn(std::nullopt);
}

} // namespace kavel::service
