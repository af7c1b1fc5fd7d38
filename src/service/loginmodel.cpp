#include "loginmodel.h"

#include <QPointer>

namespace kavel::service {

using namespace Qt::StringLiterals;

namespace {

// Built outside the coroutines: GCC 12 cannot keep a braced JSON initializer alive
// across a suspension point.
QJsonObject fields(const QString &firstKey, const QString &first, const QString &secondKey = {},
                   const QString &second = {})
{
    QJsonObject object {{firstKey, first}};
    if (!secondKey.isEmpty())
        object.insert(secondKey, second);
    return object;
}

} // namespace

LoginModel::LoginModel(APIClient &apiClient, Settings &settings, AppState &appState,
                       std::unique_ptr<RepeatingTimer> countdownTimer, QObject *parent)
    : QObject(parent)
    , m_apiClient(apiClient)
    , m_settings(settings)
    , m_appState(appState)
    , m_countdownTimer(std::move(countdownTimer))
{
    Q_ASSERT(m_countdownTimer);
}

LoginModel::~LoginModel()
{
    m_countdownTimer->stop();
}

void LoginModel::setLoading(bool loading)
{
    if (m_isLoading == loading)
        return;
    m_isLoading = loading;
    Q_EMIT isLoadingChanged();
}

void LoginModel::setErrorMessage(std::optional<QString> message)
{
    if (m_errorMessage == message)
        return;
    m_errorMessage = std::move(message);
    Q_EMIT errorMessageChanged();
}

void LoginModel::setCountdown(int seconds)
{
    if (m_smsCountdown == seconds)
        return;
    m_smsCountdown = seconds;
    Q_EMIT smsCountdownChanged();
}

void LoginModel::tick()
{
    if (m_smsCountdown >= 1)
        setCountdown(m_smsCountdown - 1);
    if (m_smsCountdown == 0)
        m_countdownTimer->stop();
}

QUrl LoginModel::signUpUrl() const
{
    QUrl url = m_apiClient.baseURL();
    QString path = url.path();
    while (path.endsWith(u'/'))
        path.chop(1);
    if (path.endsWith(u"/api"))
        path.chop(4);
    url.setPath(path + u"/signup"_s);
    return url;
}

void LoginModel::openSignUpPage(const std::function<bool(const QUrl &)> &openUrl)
{
    if (!openUrl(signUpUrl()))
        setErrorMessage(tr("无法打开官网注册页"));
}

QCoro::Task<> LoginModel::sendCode()
{
    QPointer<LoginModel> self(this);
    setErrorMessage(std::nullopt);
    try {
        const QJsonObject body = fields(u"phone"_s, phone);
        co_await m_apiClient.post<wire::EmptyResponse>(u"/auth/sms-code"_s, body);
    } catch (const Error &) {
        if (self)
            setErrorMessage(tr("发送验证码失败"));
        co_return;
    }
    if (!self)
        co_return;
    if (!m_smsSent) {
        m_smsSent = true;
        Q_EMIT smsSentChanged();
    }
    setCountdown(resendSeconds);
    m_countdownTimer->start(std::chrono::seconds(1), [this] { tick(); });
}

QCoro::Task<> LoginModel::signIn()
{
    QPointer<LoginModel> self(this);
    const LoginMode mode = m_loginMode;
    setErrorMessage(std::nullopt);
    setLoading(true);
    const QJsonObject body = mode == LoginMode::email
        ? fields(u"email"_s, email, u"password"_s, password)
        : fields(u"phone"_s, phone, u"code"_s, smsCode);
    std::optional<AuthTokens> tokens;
    try {
        tokens = co_await m_apiClient.post<AuthTokens>(u"/auth/login"_s, body);
    } catch (const Error &) { }
    if (!self)
        co_return;
    if (!tokens) {
        setLoading(false);
        setErrorMessage(mode == LoginMode::email ? tr("登录失败：用户名或密码错误")
                                                 : tr("登录失败"));
        co_return;
    }
    m_settings.storeTokens(tokens->accessToken, tokens->refreshToken);
    m_apiClient.setAccessToken(tokens->accessToken);
    co_await m_appState.restoreSession();
    if (self)
        setLoading(false);
}

} // namespace kavel::service
