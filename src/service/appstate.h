#pragma once

#include "apiclient.h"
#include "authrecords.h"
#include "servicelog.h"
#include "settings.h"

#include <QCoroTask>
#include <QObject>
#include <optional>

namespace kavel::service {

// The signed-in session of the whole application. Restores itself from the stored token
// at start and forgets it on sign-out; the bearer token reaches every request through
// the shared APIClient.
class AppState : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isAuthenticated READ isAuthenticated NOTIFY authenticationChanged)
    Q_PROPERTY(bool showLoginSheet READ showLoginSheet WRITE setShowLoginSheet NOTIFY
                   showLoginSheetChanged)

public:
    AppState(APIClient &apiClient, Settings &settings, LogSink log = standardOutputSink(),
             QObject *parent = nullptr);

    bool isAuthenticated() const { return m_isAuthenticated; }
    const std::optional<User> &currentUser() const { return m_currentUser; }
    bool showLoginSheet() const { return m_showLoginSheet; }
    void setShowLoginSheet(bool show);
    APIClient &apiClient() const { return m_apiClient; }

    // Reads the stored token and, when there is one, fetches the profile with it. Never
    // throws: a rejected token is removed and the session stays signed out.
    QCoro::Task<> restoreSession();
    void signOut();

Q_SIGNALS:
    void authenticationChanged();
    void currentUserChanged();
    void showLoginSheetChanged();

private:
    void setSignedIn(std::optional<User> user);

    APIClient &m_apiClient;
    Settings &m_settings;
    LogSink m_log;
    bool m_isAuthenticated = false;
    std::optional<User> m_currentUser;
    bool m_showLoginSheet = false;
};

} // namespace kavel::service
