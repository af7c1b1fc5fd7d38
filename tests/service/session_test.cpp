#include "service/appstate.h"
#include "service/interfacelanguage.h"
#include "service/loginmodel.h"
#include "service/settings.h"
#include "support/servicefixture.h"
#include "support/taskwait.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>

using namespace kavel;
using namespace kavel::service;
using namespace kavel::test;
using namespace Qt::StringLiterals;

namespace {

// Ticks only when the test calls `tick`.
struct ManualTimer final : RepeatingTimer
{
    void start(std::chrono::milliseconds every, std::function<void()> onTick) override
    {
        interval = every;
        tick = std::move(onTick);
        active = true;
    }
    void stop() override { active = false; }
    bool isActive() const override { return active; }

    bool active = false;
    std::chrono::milliseconds interval {0};
    std::function<void()> tick;
};

std::unique_ptr<Settings> settingsIn(const QTemporaryDir &dir)
{
    return std::make_unique<Settings>(
        std::make_unique<QSettings>(dir.filePath(u"settings.ini"_s), QSettings::IniFormat));
}

} // namespace

TEST(SettingsStore, KeepsTokensUnderTheirKeysAndResolvesTheBaseUrl)
{
    QTemporaryDir dir;
    settingsIn(dir)->storeTokens(u"A"_s, u"R"_s);
    // Earlier versions read these keys: a sign-in must survive an update.
    QSettings raw(dir.filePath(u"settings.ini"_s), QSettings::IniFormat);
    EXPECT_EQ(raw.value(u"com.kavel.app.access_token"_s).toString(), u"A");
    EXPECT_EQ(raw.value(u"com.kavel.app.refresh_token"_s).toString(), u"R");

    // The environment wins over the stored address, which wins over the default.
    auto settings = settingsIn(dir);
    qunsetenv("KAVEL_API_BASE_URL");
    EXPECT_EQ(settings->apiBaseUrl(), QUrl(u"http://127.0.0.1:8417/api"_s));
    settings->setApiBaseUrl(u"https://kavel.example/api"_s);
    EXPECT_EQ(settings->apiBaseUrl(), QUrl(u"https://kavel.example/api"_s));
    qputenv("KAVEL_API_BASE_URL", "http://127.0.0.1:5555/api");
    EXPECT_EQ(settings->apiBaseUrl(), QUrl(u"http://127.0.0.1:5555/api"_s));
    qunsetenv("KAVEL_API_BASE_URL");
}

TEST(SettingsStore, ChoosesTheInterfaceLanguageFromTheSettingElseTheEnvironment)
{
    using namespace kavel::i18n;
    const QByteArray saved[]
        = {qgetenv("LANGUAGE"), qgetenv("LC_ALL"), qgetenv("LC_MESSAGES"), qgetenv("LANG")};
    const char *names[] = {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};
    // LANGUAGE, LC_ALL, LC_MESSAGES, LANG: the first one set decides.
    struct Case
    {
        const char *values[4];
        Language expected;
    };
    const Case cases[] = {
        {{"", "", "", ""}, Language::chinese},
        {{"", "", "", "C.UTF-8"}, Language::chinese},
        {{"", "", "", "POSIX"}, Language::chinese},
        {{"", "", "", "en_US.UTF-8"}, Language::english},
        {{"", "", "", "zh_CN.UTF-8"}, Language::chinese},
        {{"", "", "zh_TW.UTF-8", "en_US.UTF-8"}, Language::chinese},
        {{"", "de_DE.UTF-8", "zh_CN.UTF-8", "zh_CN.UTF-8"}, Language::english},
        {{"zh_CN:en", "en_US.UTF-8", "", "en_US.UTF-8"}, Language::chinese},
        {{"fr:zh_CN", "zh_CN.UTF-8", "", ""}, Language::english},
        {{"", "C", "", "en_GB.UTF-8"}, Language::chinese},
    };
    for (const Case &c : cases) {
        for (int i = 0; i < 4; ++i)
            qputenv(names[i], c.values[i]);
        EXPECT_EQ(systemLanguage(), c.expected)
            << c.values[0] << "|" << c.values[1] << "|" << c.values[2] << "|" << c.values[3];
        EXPECT_EQ(resolve(LanguagePreference::system), c.expected);
        EXPECT_EQ(resolve(LanguagePreference::chinese), Language::chinese);
        EXPECT_EQ(resolve(LanguagePreference::english), Language::english);
    }
    for (int i = 0; i < 4; ++i)
        qputenv(names[i], saved[i]);

    // The choice is kept as a short word; anything unknown follows the system.
    QTemporaryDir dir;
    EXPECT_EQ(preferenceFromRaw(settingsIn(dir)->interfaceLanguage()), LanguagePreference::system);
    for (auto preference :
         {LanguagePreference::english, LanguagePreference::chinese, LanguagePreference::system}) {
        settingsIn(dir)->setInterfaceLanguage(toRaw(preference));
        EXPECT_EQ(preferenceFromRaw(settingsIn(dir)->interfaceLanguage()), preference);
    }
    EXPECT_EQ(preferenceFromRaw(u"klingon"_s), LanguagePreference::system);

    // The English texts are compiled in and speak while installed, and only then; the
    // duration and date patterns travel with them.
    const auto text = [] { return QCoreApplication::translate("kavel::export", "导出失败"); };
    {
        const Translations english(Language::english);
        EXPECT_TRUE(english.complete());
        EXPECT_EQ(text(), u"Export failed");
        EXPECT_EQ(QCoreApplication::translate("kavel::ExportFlow", "%1分%2秒"), u"%1:%2");
    }
    EXPECT_EQ(text(), u"导出失败");
    {
        const Translations chinese(Language::chinese);
        EXPECT_EQ(text(), u"导出失败");
    }
}

class Session : public RealServerSuite
{
protected:
    void signInWith(LoginMode mode, const QString &secret, const QString &failure = {})
    {
        login.setLoginMode(mode);
        (mode == LoginMode::email ? login.password : login.smsCode) = secret;
        runTask(login.signIn()).get();
        EXPECT_EQ(login.errorMessage().value_or(QString()), failure);
        EXPECT_EQ(appState.isAuthenticated(), failure.isEmpty());
    }

    void expectSignedOut()
    {
        EXPECT_FALSE(appState.isAuthenticated() || client->accessToken() || settings->accessToken()
                     || settings->refreshToken());
    }

    QTemporaryDir dir;
    std::unique_ptr<Settings> settings = settingsIn(dir);
    LogRecorder clientLog;
    std::unique_ptr<APIClient> client = makeClient(clientLog);
    LogRecorder appLog;
    AppState appState {*client, *settings, appLog.sink()};
    ManualTimer *timer = new ManualTimer; // owned by the login model
    LoginModel login {*client, *settings, appState, std::unique_ptr<RepeatingTimer>(timer)};
};

TEST_F(Session, EmailSignInIsKeptAcrossStartsUntilSignOutOrRejection)
{
    // Nothing stored: nothing is asked.
    runTask(appState.restoreSession()).get();
    EXPECT_FALSE(appState.isAuthenticated());
    EXPECT_TRUE(clientLog.lines->isEmpty()) << "no request may be made";

    login.email = email;
    signInWith(LoginMode::email, u"wrong"_s, u"登录失败：用户名或密码错误"_s);
    expectSignedOut();
    signInWith(LoginMode::email, password);
    EXPECT_FALSE(login.isLoading());
    EXPECT_EQ(appState.currentUser().value().email, email);

    // A new start restores the same session from the store alone.
    APIClient freshClient(server->apiBaseUrl(), {}, {});
    AppState restarted(freshClient, *settings, {});
    runTask(restarted.restoreSession()).get();
    EXPECT_TRUE(restarted.isAuthenticated());

    appState.signOut();
    expectSignedOut();

    // A token the service no longer accepts is forgotten, quietly.
    settings->storeTokens(u"expired"_s, u"refresh"_s);
    QSignalSpy authenticated(&appState, &AppState::authenticationChanged);
    runTask(appState.restoreSession()).get();
    EXPECT_EQ(authenticated.count(), 0);
    expectSignedOut();
}

TEST_F(Session, PhoneSignInWithTextedCodeResendCountdownAndSignUpPage)
{
    // A number without an account is answered as any other; asking again within the
    // minute is refused, and says so.
    login.phone = u"19999999999"_s;
    runTask(login.sendCode()).get();
    EXPECT_FALSE(login.errorMessage());
    runTask(login.sendCode()).get();
    EXPECT_EQ(login.errorMessage(), u"发送验证码失败"_s);
    EXPECT_FALSE(server->log().contains(u"SMS code for 19999999999"_s)) << "no text is sent";

    login.phone = phone;
    const qsizetype logFrom = server->log().size();
    runTask(login.sendCode()).get();
    ASSERT_FALSE(login.errorMessage()) << login.errorMessage()->toStdString();
    EXPECT_TRUE(login.smsSent());
    EXPECT_EQ(timer->interval, std::chrono::seconds(1));
    QSignalSpy countdown(&login, &LoginModel::smsCountdownChanged);
    for (int left = 60; left > 0 && timer->isActive(); --left, timer->tick())
        ASSERT_EQ(login.smsCountdown(), left);
    EXPECT_EQ(login.smsCountdown(), 0);
    EXPECT_FALSE(timer->isActive());
    EXPECT_EQ(countdown.count(), 60);
    // The service has its own minute: asking again sooner is refused, and texts nothing.
    runTask(login.sendCode()).get();
    EXPECT_EQ(login.errorMessage(), u"发送验证码失败"_s);

    const auto sms = server->waitForLog(
        QRegularExpression(u"SMS code for "_s + phone + u": (\\d{6})"_s), logFrom);
    ASSERT_TRUE(sms) << server->log().toStdString();
    EXPECT_EQ(server->log().mid(logFrom).count(u"SMS code for "_s), 1);
    signInWith(LoginMode::phone, sms->captured(1));
    appState.signOut();
    signInWith(LoginMode::phone, sms->captured(1), u"登录失败"_s); // the code is spent

    // The sign-up link leads to the service's own page, which is really there.
    QUrl opened;
    login.openSignUpPage([&](const QUrl &url) { return (opened = url).isValid(); });
    EXPECT_EQ(opened, login.signUpUrl());
    LogRecorder pageLog;
    APIClient site(opened.adjusted(QUrl::RemoveFilename), {}, pageLog.sink());
    runTask(site.get<wire::EmptyResponse>(u"/signup"_s));
    EXPECT_TRUE(pageLog.lines->value(1).startsWith(u"[APIClient] GET Response: 200 ("_s))
        << pageLog.lines->join(u'\n').toStdString();
    login.openSignUpPage([](const QUrl &) { return false; });
    EXPECT_EQ(login.errorMessage(), u"无法打开官网注册页"_s);
}
