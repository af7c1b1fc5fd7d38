#pragma once

#include "apiclient.h"
#include "appstate.h"
#include "repeatingtimer.h"
#include "settings.h"

#include <QCoroTask>
#include <QObject>
#include <memory>
#include <optional>

namespace kavel::service {

enum class LoginMode {
    email,
    phone,
};

// What the login screen does, without the screen: the form's fields, the SMS code
// request with its resend countdown, and the two ways of signing in. Every failure is
// reduced to a fixed text; the service's own wording is never shown here.
class LoginModel : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(bool smsSent READ smsSent NOTIFY smsSentChanged)
    Q_PROPERTY(int smsCountdown READ smsCountdown NOTIFY smsCountdownChanged)

public:
    static constexpr int resendSeconds = 60;

    LoginModel(APIClient &apiClient, Settings &settings, AppState &appState,
               std::unique_ptr<RepeatingTimer> countdownTimer
               = std::make_unique<QtRepeatingTimer>(),
               QObject *parent = nullptr);
    ~LoginModel() override;

    LoginMode loginMode() const { return m_loginMode; }
    void setLoginMode(LoginMode mode) { m_loginMode = mode; }
    QString phone;
    QString smsCode;
    QString email;
    QString password;

    bool isLoading() const { return m_isLoading; }
    const std::optional<QString> &errorMessage() const { return m_errorMessage; }
    bool smsSent() const { return m_smsSent; }
    int smsCountdown() const { return m_smsCountdown; }
    bool isCountdownRunning() const { return m_countdownTimer->isActive(); }

    // The service's sign-up page: the site the API root belongs to, at "/signup".
    QUrl signUpUrl() const;
    // Opens the sign-up page with `openUrl` (the desktop's browser in the application);
    // when that fails, says so in errorMessage.
    void openSignUpPage(const std::function<bool(const QUrl &)> &openUrl);

    // Asks the service to text a code to `phone`; on success starts the countdown.
    QCoro::Task<> sendCode();
    // Signs in with the current mode's two fields; on success stores the tokens and
    // lets the session fetch the profile.
    QCoro::Task<> signIn();

Q_SIGNALS:
    void isLoadingChanged();
    void errorMessageChanged();
    void smsSentChanged();
    void smsCountdownChanged();

private:
    void setLoading(bool loading);
    void setErrorMessage(std::optional<QString> message);
    void setCountdown(int seconds);
    void tick();

    APIClient &m_apiClient;
    Settings &m_settings;
    AppState &m_appState;
    std::unique_ptr<RepeatingTimer> m_countdownTimer;
    LoginMode m_loginMode = LoginMode::email;
    bool m_isLoading = false;
    std::optional<QString> m_errorMessage;
    bool m_smsSent = false;
    int m_smsCountdown = 0;
};

} // namespace kavel::service
