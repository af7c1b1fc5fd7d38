#include "screens.h"

#include "editor/editorviewmodel.h"
#include "playback/guideplayerviewmodel.h"
#include "service/appstate.h"
#include "service/interfacelanguage.h"
#include "service/loginmodel.h"
#include "service/recognitionlanguage.h"
#include "service/settings.h"
#include "symbolicons.h"
#include "videoplayerview.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalBlocker>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>
#include <qcorotask.h>

using namespace Qt::StringLiterals;

namespace kavel::app {

namespace {

QLabel *titleLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont big = label->font();
    big.setPointSizeF(big.pointSizeF() * 1.5);
    big.setBold(true);
    label->setFont(big);
    return label;
}

QLabel *iconLabel(const QString &symbol, int size, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setPixmap(symbolIcon(symbol).pixmap(size, size));
    return label;
}

} // namespace

// --- ImportConfirmDialog ---------------------------------------------------------------

ImportConfirmDialog::ImportConfirmDialog(EditorViewModel &editor,
                                         std::function<QList<QUrl>(const QString &)> pickMedia,
                                         QWidget *parent)
    : QDialog(parent)
    , m_editor(editor)
    , m_pickMedia(std::move(pickMedia))
    , m_rowsHost(new QWidget(this))
    , m_rows(new QVBoxLayout(m_rowsHost))
    , m_add(new QPushButton(symbolIcon(u"plus"_s), tr("继续添加"), this))
    , m_start(new QPushButton(tr("开始导入"), this))
    , m_cancel(new QPushButton(tr("取消"), this))
    , m_language(new QComboBox(this))
    , m_languageNote(new QLabel(this))
{
    setWindowTitle(tr("确认导入"));
    setMinimumWidth(460);
    auto *layout = new QVBoxLayout(this);
    auto *header = new QHBoxLayout;
    header->addWidget(iconLabel(u"film.badge.plus"_s, 28, this));
    header->addWidget(titleLabel(tr("确认导入"), this), 1);
    layout->addLayout(header);
    layout->addWidget(new QLabel(tr("即将导入以下文件："), this));
    m_rows->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_rowsHost);
    layout->addWidget(m_add, 0, Qt::AlignLeft);
    auto *languageRow = new QHBoxLayout;
    auto *languageLabel = new QLabel(tr("识别语言"), this);
    languageLabel->setBuddy(m_language);
    languageRow->addWidget(languageLabel);
    languageRow->addWidget(m_language, 1);
    layout->addLayout(languageRow);
    m_languageNote->setWordWrap(true);
    m_languageNote->setStyleSheet(u"color: #c0392b;"_s);
    m_languageNote->hide();
    layout->addWidget(m_languageNote);
    fillLanguages(service::offeredLanguages(), u"zh"_s);
    auto *notice = new QLabel(
        tr("将创建新项目并开始语音识别。\n识别过程中您可以切换到其他页面，完成后会收到系统通知。"),
        this);
    notice->setWordWrap(true);
    layout->addWidget(notice);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_start);
    m_start->setDefault(true);
    layout->addLayout(buttons);

    connect(m_cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_start, &QPushButton::clicked, this, [this] {
        const QList<QUrl> urls = m_editor.pendingImportURLs();
        const QString chosen = language();
        accept();
        Q_EMIT importConfirmed(urls, chosen);
    });
    connect(m_language, &QComboBox::currentIndexChanged, this, &ImportConfirmDialog::updateStart);
    connect(m_add, &QPushButton::clicked, this, [this] {
        if (!m_pickMedia)
            return;
        const QList<QUrl> more = m_pickMedia(tr("选择要添加的文件"));
        if (!more.isEmpty())
            m_editor.setPendingImportURLs(m_editor.pendingImportURLs() + more);
    });
    connect(&editor, &EditorViewModel::pendingImportURLsChanged, this,
            &ImportConfirmDialog::rebuildRows);
    rebuildRows();
}

QList<QPushButton *> ImportConfirmDialog::removeButtons() const
{
    return m_rowsHost->findChildren<QPushButton *>();
}

void ImportConfirmDialog::rebuildRows()
{
    // Rows are rebuilt later than the click that removed one of them.
    for (QWidget *row : m_rowsHost->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
        row->hide();
        row->setParent(nullptr);
        row->deleteLater();
    }
    const QList<QUrl> urls = m_editor.pendingImportURLs();
    for (qsizetype i = 0; i < urls.size(); ++i) {
        auto *row = new QWidget(m_rowsHost);
        auto *line = new QHBoxLayout(row);
        line->setContentsMargins(0, 2, 0, 2);
        line->addWidget(iconLabel(u"doc.fill"_s, 16, row));
        line->addWidget(new QLabel(QFileInfo(urls.at(i).toLocalFile()).fileName(), row), 1);
        auto *remove = new QPushButton(row);
        remove->setIcon(symbolIcon(u"xmark.circle.fill"_s));
        remove->setToolTip(tr("移除此文件"));
        remove->setFlat(true);
        line->addWidget(remove);
        const QUrl url = urls.at(i);
        connect(remove, &QPushButton::clicked, this, [this, url] {
            QList<QUrl> rest = m_editor.pendingImportURLs();
            rest.removeOne(url);
            m_editor.setPendingImportURLs(rest);
        });
        m_rows->addWidget(row);
    }
    updateStart();
}

QString ImportConfirmDialog::language() const
{
    return m_language->currentData().toString();
}

void ImportConfirmDialog::setLanguage(const QString &tag)
{
    QStringList tags = service::offeredLanguages(m_heard);
    if (!tags.contains(tag))
        tags << tag;
    fillLanguages(tags, tag);
}

void ImportConfirmDialog::setServiceLanguages(const QStringList &heard)
{
    m_heard = heard;
    QStringList tags = service::offeredLanguages(heard);
    if (!tags.contains(language()))
        tags << language();
    fillLanguages(tags, language());
}

void ImportConfirmDialog::fillLanguages(const QStringList &tags, const QString &chosen)
{
    const QSignalBlocker quiet(m_language);
    m_language->clear();
    for (const QString &tag : tags) {
        const bool heard = m_heard.isEmpty() || service::hearsLanguage(m_heard, tag);
        m_language->addItem(heard ? service::languageName(tag)
                                  : tr("%1（此服务暂不支持）").arg(service::languageName(tag)),
                            tag);
    }
    m_language->setCurrentIndex(std::max(0, static_cast<int>(tags.indexOf(chosen))));
    updateStart();
}

void ImportConfirmDialog::updateStart()
{
    const bool heard = m_heard.isEmpty() || service::hearsLanguage(m_heard, language());
    m_languageNote->setText(heard ? QString() : service::unsupportedLanguageMessage(language()));
    m_languageNote->setVisible(!heard);
    m_start->setEnabled(heard && !m_editor.pendingImportURLs().isEmpty());
    // The language is what has to change; and Return must not fall to 取消 when 开始导入
    // cannot take it.
    if (!heard)
        m_language->setFocus();
}

// --- SettingsPage ----------------------------------------------------------------------

SettingsPage::SettingsPage(service::Settings &settings, FolderPicker pickFolder, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_pickFolder(std::move(pickFolder))
    , m_path(new QLabel(this))
    , m_choose(new QPushButton(tr("选择文件夹"), this))
    , m_clear(new QPushButton(tr("清除"), this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(40, 32, 40, 32);
    layout->addWidget(titleLabel(tr("偏好设置"), this));
    layout->addSpacing(12);
    layout->addWidget(new QLabel(tr("默认导出位置"), this));
    auto *row = new QHBoxLayout;
    m_path->setTextInteractionFlags(Qt::TextSelectableByMouse);
    row->addWidget(m_path, 1);
    row->addWidget(m_choose);
    row->addWidget(m_clear);
    layout->addLayout(row);
    addLanguageChoice(layout);
    layout->addStretch(1);

    connect(m_choose, &QPushButton::clicked, this, [this] {
        if (!m_pickFolder)
            return;
        const QString folder = m_pickFolder(tr("选择默认导出目录"), m_settings.defaultExportPath());
        if (folder.isEmpty())
            return;
        m_settings.setDefaultExportPath(folder);
        refresh();
    });
    connect(m_clear, &QPushButton::clicked, this, [this] {
        m_settings.setDefaultExportPath(QString());
        refresh();
    });
    refresh();
}

void SettingsPage::addLanguageChoice(QVBoxLayout *layout)
{
    layout->addSpacing(16);
    layout->addWidget(new QLabel(tr("界面语言 / Language"), this));
    auto *row = new QHBoxLayout;
    m_language = new QComboBox(this);
    m_language->setAccessibleName(tr("界面语言"));
    // Each language is named in its own words, so that a reader of either finds it.
    m_language->addItem(tr("跟随系统"), i18n::toRaw(i18n::LanguagePreference::system));
    m_language->addItem(u"中文"_s, i18n::toRaw(i18n::LanguagePreference::chinese));
    m_language->addItem(u"English"_s, i18n::toRaw(i18n::LanguagePreference::english));
    const QString stored = i18n::toRaw(i18n::preferenceFromRaw(m_settings.interfaceLanguage()));
    m_language->setCurrentIndex(m_language->findData(stored));
    row->addWidget(m_language);
    auto *note = new QLabel(tr("重新启动 Kavel 后生效"), this);
    note->setForegroundRole(QPalette::PlaceholderText);
    row->addWidget(note, 1);
    layout->addLayout(row);
    connect(m_language, &QComboBox::currentIndexChanged, this,
            [this] { m_settings.setInterfaceLanguage(m_language->currentData().toString()); });
}

void SettingsPage::refresh()
{
    const QString path = m_settings.defaultExportPath();
    m_path->setText(path.isEmpty() ? tr("未设置（每次导出时选择）") : path);
    m_clear->setEnabled(!path.isEmpty());
}

// --- AccountPage -----------------------------------------------------------------------

AccountPage::AccountPage(service::AppState &appState, QWidget *parent)
    : QWidget(parent)
    , m_appState(appState)
    , m_status(new QLabel(this))
    , m_signIn(new QPushButton(tr("登录"), this))
    , m_signOut(new QPushButton(tr("退出登录"), this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(40, 32, 40, 32);
    layout->addWidget(titleLabel(tr("我的"), this));
    layout->addSpacing(12);
    layout->addWidget(m_status);
    auto *row = new QHBoxLayout;
    row->addWidget(m_signIn);
    row->addWidget(m_signOut);
    row->addStretch(1);
    layout->addLayout(row);
    layout->addStretch(1);

    connect(m_signIn, &QPushButton::clicked, this, &AccountPage::signInRequested);
    connect(m_signOut, &QPushButton::clicked, this, [this] { m_appState.signOut(); });
    connect(&appState, &service::AppState::authenticationChanged, this, &AccountPage::refresh);
    connect(&appState, &service::AppState::currentUserChanged, this, &AccountPage::refresh);
    refresh();
}

void AccountPage::refresh()
{
    const bool signedIn = m_appState.isAuthenticated();
    QString who;
    if (const auto &user = m_appState.currentUser())
        who = user->nickname.value_or(user->email.value_or(user->phone.value_or(QString())));
    m_status->setText(signedIn ? tr("已登录：%1").arg(who) : tr("未登录"));
    m_signIn->setVisible(!signedIn);
    m_signOut->setVisible(signedIn);
}

// --- ProjectPlaceholder --------------------------------------------------------------

ProjectPlaceholder::ProjectPlaceholder(QWidget *parent)
    : QWidget(parent)
    , m_import(new QPushButton(tr("导入新视频"), this))
    , m_open(new QPushButton(tr("打开项目"), this))
{
    auto *layout = new QVBoxLayout(this);
    layout->addStretch(1);
    auto *icon = iconLabel(u"film"_s, 64, this);
    icon->setAlignment(Qt::AlignCenter);
    layout->addWidget(icon);
    auto *line = new QLabel(tr("导入视频以开始编辑"), this);
    line->setAlignment(Qt::AlignCenter);
    layout->addWidget(line);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(m_import);
    buttons->addWidget(m_open);
    buttons->addStretch(1);
    layout->addLayout(buttons);
    layout->addStretch(1);
    connect(m_import, &QPushButton::clicked, this, &ProjectPlaceholder::importRequested);
    connect(m_open, &QPushButton::clicked, this, &ProjectPlaceholder::openRequested);
}

// --- GuidePage -------------------------------------------------------------------------

GuidePage::GuidePage(GuidePlayerFactory makePlayer, QWidget *parent)
    : QWidget(parent)
    , m_makePlayer(std::move(makePlayer))
    , m_surface(new VideoSurface(this))
    , m_play(new QToolButton(this))
    , m_volume(new QSlider(Qt::Horizontal, this))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(40, 32, 40, 32);
    layout->addWidget(titleLabel(tr("使用指南"), this));
    layout->addWidget(new QLabel(tr("观看演示视频，快速了解 Kavel AI 的使用方法"), this));
    // Made after the heading: the heading is the page's first label.
    m_time = new QLabel(this);
    layout->addSpacing(16);
    m_surface->setMinimumSize(480, 270);
    layout->addWidget(m_surface, 1);

    auto *controls = new QHBoxLayout;
    controls->addWidget(m_play);
    controls->addWidget(m_time);
    controls->addStretch(1);
    controls->addWidget(iconLabel(u"speaker.wave.2.fill"_s, 16, this));
    controls->addWidget(m_volume);
    layout->addLayout(controls);

    m_play->setAutoRaise(true);
    m_volume->setRange(0, 100);
    m_volume->setMaximumWidth(120);
    m_volume->setToolTip(tr("音量"));
    m_time->setMinimumWidth(110);

    connect(m_play, &QToolButton::clicked, this, [this] {
        if (m_player)
            m_player->togglePlayPause();
    });
    connect(m_volume, &QSlider::valueChanged, this, [this](int value) {
        if (m_player)
            m_player->setVolume(float(value) / 100.0f);
    });
    refreshTime();
    refreshPlaying();
}

GuidePage::~GuidePage() = default;

void GuidePage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (!m_player && m_makePlayer) {
        m_player = m_makePlayer(*m_surface);
        bindPlayer();
    }
    if (m_player && m_playOnShow)
        m_player->play();
}

void GuidePage::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    if (!m_player)
        return;
    m_playOnShow = m_player->isPlaying();
    m_player->pause();
}

void GuidePage::bindPlayer()
{
    if (!m_player)
        return;
    connect(m_player.get(), &GuidePlayerViewModel::currentTimeChanged, this,
            &GuidePage::refreshTime);
    connect(m_player.get(), &GuidePlayerViewModel::durationChanged, this, &GuidePage::refreshTime);
    connect(m_player.get(), &GuidePlayerViewModel::isPlayingChanged, this,
            &GuidePage::refreshPlaying);
    connect(m_player.get(), &GuidePlayerViewModel::volumeChanged, this, [this] {
        const QSignalBlocker block(m_volume);
        m_volume->setValue(int(std::lround(m_player->volume() * 100.0f)));
    });
    const QSignalBlocker block(m_volume);
    m_volume->setValue(int(std::lround(m_player->volume() * 100.0f)));
    refreshTime();
    refreshPlaying();
}

void GuidePage::refreshTime()
{
    const double now = m_player ? m_player->currentTime() : 0.0;
    const double total = m_player ? m_player->duration() : 0.0;
    m_time->setText(playerTimeText(now) + u" / "_s + playerTimeText(total));
}

void GuidePage::refreshPlaying()
{
    const bool playing = m_player && m_player->isPlaying();
    m_play->setIcon(symbolIcon(playing ? u"pause.fill"_s : u"play.fill"_s));
    m_play->setToolTip(playing ? tr("暂停") : tr("播放"));
    // Without a clip there is nothing to play.
    const bool playable = m_player && !m_player->videoPath().isEmpty();
    m_play->setEnabled(playable);
    m_volume->setEnabled(playable);
}

// --- LoginDialog -----------------------------------------------------------------------

LoginDialog::LoginDialog(service::LoginModel &login, service::AppState &appState, QWidget *parent)
    : QDialog(parent)
    , m_login(login)
    , m_appState(appState)
    , m_account(new QLineEdit(this))
    , m_secret(new QLineEdit(this))
    , m_sendCode(new QPushButton(tr("获取验证码"), this))
    , m_submit(new QPushButton(tr("登录"), this))
    , m_error(new QLabel(this))
{
    setWindowTitle(tr("登录"));
    setMinimumWidth(380);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(titleLabel(tr("登录 Kavel"), this));
    m_account->setPlaceholderText(tr("用户名 / 邮箱 / 手机号"));
    layout->addWidget(m_account);
    auto *secretRow = new QHBoxLayout;
    m_secret->setPlaceholderText(tr("密码 / 验证码"));
    m_secret->setEchoMode(QLineEdit::Password);
    secretRow->addWidget(m_secret, 1);
    secretRow->addWidget(m_sendCode);
    layout->addLayout(secretRow);
    QPalette red = m_error->palette();
    red.setColor(QPalette::WindowText, Qt::red);
    m_error->setPalette(red);
    m_error->setWordWrap(true);
    layout->addWidget(m_error);
    auto *signUp = new QLabel(tr("<a href=\"signup\">没有账户？前往官网注册</a>"), this);
    layout->addWidget(signUp);
    auto *buttons = new QHBoxLayout;
    auto *cancel = new QPushButton(tr("取消"), this);
    buttons->addStretch(1);
    buttons->addWidget(cancel);
    buttons->addWidget(m_submit);
    m_submit->setDefault(true);
    layout->addLayout(buttons);

    // A phone number has only digits (and perhaps a leading +); anything else is an e-mail
    // account, and the second field then is its password.
    const auto isPhone = [this] {
        const QString text = m_account->text().trimmed();
        static const QRegularExpression digits(u"^\\+?[0-9]{6,}$"_s);
        return digits.match(text).hasMatch();
    };
    const auto fillModel = [this, isPhone] {
        const QString account = m_account->text().trimmed();
        if (isPhone()) {
            m_login.setLoginMode(service::LoginMode::phone);
            m_login.phone = account;
            m_login.smsCode = m_secret->text();
        } else {
            m_login.setLoginMode(service::LoginMode::email);
            m_login.email = account;
            m_login.password = m_secret->text();
        }
    };
    connect(m_account, &QLineEdit::textChanged, this, [this, isPhone] {
        m_sendCode->setVisible(isPhone());
        m_secret->setEchoMode(isPhone() ? QLineEdit::Normal : QLineEdit::Password);
    });
    connect(m_sendCode, &QPushButton::clicked, this, [this, fillModel] {
        fillModel();
        QCoro::connect(m_login.sendCode(), this, [] {});
    });
    connect(m_submit, &QPushButton::clicked, this, [this, fillModel] {
        fillModel();
        QCoro::connect(m_login.signIn(), this, [] {});
    });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(signUp, &QLabel::linkActivated, this, [this] {
        m_login.openSignUpPage([](const QUrl &url) { return QDesktopServices::openUrl(url); });
    });
    connect(&login, &service::LoginModel::isLoadingChanged, this, &LoginDialog::refresh);
    connect(&login, &service::LoginModel::errorMessageChanged, this, &LoginDialog::refresh);
    connect(&login, &service::LoginModel::smsCountdownChanged, this, &LoginDialog::refresh);
    connect(&appState, &service::AppState::authenticationChanged, this, [this] {
        if (m_appState.isAuthenticated())
            accept();
    });
    m_sendCode->setVisible(false);
    refresh();
}

void LoginDialog::refresh()
{
    m_submit->setEnabled(!m_login.isLoading());
    m_error->setText(m_login.errorMessage().value_or(QString()));
    m_error->setVisible(m_login.errorMessage().has_value());
    const int countdown = m_login.smsCountdown();
    m_sendCode->setEnabled(countdown <= 0);
    m_sendCode->setText(countdown > 0 ? tr("%1 秒后重发").arg(countdown) : tr("获取验证码"));
}

} // namespace kavel::app
