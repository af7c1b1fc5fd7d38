#pragma once

#include "folderpicker.h"

#include <QDialog>
#include <QUrl>
#include <functional>
#include <memory>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSlider;
class QToolButton;
class QVBoxLayout;

namespace kavel {
class EditorViewModel;
class GuidePlayerViewModel;
namespace service {
class AppState;
class LoginModel;
class Settings;
} // namespace service
} // namespace kavel

namespace kavel::app {

// Lists the files waiting for import; they can be removed, more added, and the import
// started.
class ImportConfirmDialog : public QDialog
{
    Q_OBJECT

public:
    ImportConfirmDialog(EditorViewModel &editor,
                        std::function<QList<QUrl>(const QString &title)> pickMedia,
                        QWidget *parent = nullptr);

    QPushButton *addButton() const { return m_add; }
    QPushButton *startButton() const { return m_start; }
    QPushButton *cancelButton() const { return m_cancel; }
    // The remove button of each row, in list order.
    QList<QPushButton *> removeButtons() const;
    // 识别语言: one entry per offered language, its BCP 47 tag as the item's data.
    QComboBox *languageBox() const { return m_language; }
    // Says why the chosen language cannot be imported; hidden otherwise.
    QLabel *languageNote() const { return m_languageNote; }

    // The recording's language; one not offered yet is added.
    QString language() const;
    void setLanguage(const QString &tag);
    // What the service recognises. Until it has said, every language is offered as it is;
    // afterwards the others are marked, and choosing one explains instead of importing.
    void setServiceLanguages(const QStringList &heard);

Q_SIGNALS:
    // 开始导入 was chosen with these files, spoken in `language`.
    void importConfirmed(const QList<QUrl> &urls, const QString &language);

private:
    void rebuildRows();
    void fillLanguages(const QStringList &tags, const QString &chosen);
    void updateStart();

    EditorViewModel &m_editor;
    std::function<QList<QUrl>(const QString &)> m_pickMedia;
    QWidget *m_rowsHost;
    QVBoxLayout *m_rows;
    QPushButton *m_add;
    QPushButton *m_start;
    QPushButton *m_cancel;
    QComboBox *m_language;
    QLabel *m_languageNote;
    QStringList m_heard;
};

// The default export folder and the interface language.
class SettingsPage : public QWidget
{
    Q_OBJECT

public:
    SettingsPage(service::Settings &settings, FolderPicker pickFolder, QWidget *parent = nullptr);

    QLabel *pathLabel() const { return m_path; }
    QPushButton *chooseButton() const { return m_choose; }
    QPushButton *clearButton() const { return m_clear; }
    QComboBox *languageBox() const { return m_language; }

Q_SIGNALS:
    void closeRequested();

private:
    void refresh();
    void addLanguageChoice(QVBoxLayout *layout);

    service::Settings &m_settings;
    FolderPicker m_pickFolder;
    QLabel *m_path;
    QPushButton *m_choose;
    QPushButton *m_clear;
    QComboBox *m_language = nullptr;
};

// The signed-in account, or the way to sign in.
class AccountPage : public QWidget
{
    Q_OBJECT

public:
    explicit AccountPage(service::AppState &appState, QWidget *parent = nullptr);

    QLabel *statusLabel() const { return m_status; }
    QPushButton *signInButton() const { return m_signIn; }
    QPushButton *signOutButton() const { return m_signOut; }

Q_SIGNALS:
    void signInRequested();

private:
    void refresh();

    service::AppState &m_appState;
    QLabel *m_status;
    QPushButton *m_signIn;
    QPushButton *m_signOut;
};

// The editor destination while no project is open: import media or open a bundle.
class ProjectPlaceholder : public QWidget
{
    Q_OBJECT

public:
    explicit ProjectPlaceholder(QWidget *parent = nullptr);

    QPushButton *importButton() const { return m_import; }
    QPushButton *openButton() const { return m_open; }

Q_SIGNALS:
    void importRequested();
    void openRequested();

private:
    QPushButton *m_import;
    QPushButton *m_open;
};

class VideoSurface;

// Makes the guide's player model and sends the player's frames to `surface`.
using GuidePlayerFactory
    = std::function<std::unique_ptr<GuidePlayerViewModel>(VideoSurface &surface)>;

// The demonstration video with its controls. The player is made when the page is first
// shown, so a session that never opens the guide never loads the clip, and it is paused
// whenever the page is hidden; showing the page plays it unless the user had paused it.
class GuidePage : public QWidget
{
    Q_OBJECT

public:
    explicit GuidePage(GuidePlayerFactory makePlayer, QWidget *parent = nullptr);
    ~GuidePage() override;

    // Null until the page has been shown (or without a factory).
    GuidePlayerViewModel *player() const { return m_player.get(); }
    VideoSurface *surface() const { return m_surface; }
    QToolButton *playButton() const { return m_play; }
    QSlider *volumeSlider() const { return m_volume; }
    QLabel *timeLabel() const { return m_time; }

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void bindPlayer();
    void refreshTime();
    void refreshPlaying();

    GuidePlayerFactory m_makePlayer;
    std::unique_ptr<GuidePlayerViewModel> m_player;
    // Whether showing the page plays: at first, and after hiding a playing video.
    bool m_playOnShow = true;
    VideoSurface *m_surface;
    QToolButton *m_play;
    QSlider *m_volume;
    QLabel *m_time = nullptr;
};

// Signing in with e-mail and password, or phone and SMS code.
class LoginDialog : public QDialog
{
    Q_OBJECT

public:
    LoginDialog(service::LoginModel &login, service::AppState &appState, QWidget *parent = nullptr);

    QLineEdit *accountField() const { return m_account; }
    QLineEdit *secretField() const { return m_secret; }
    QPushButton *sendCodeButton() const { return m_sendCode; }
    QPushButton *submitButton() const { return m_submit; }
    QLabel *errorLabel() const { return m_error; }

private:
    void refresh();

    service::LoginModel &m_login;
    service::AppState &m_appState;
    QLineEdit *m_account;
    QLineEdit *m_secret;
    QPushButton *m_sendCode;
    QPushButton *m_submit;
    QLabel *m_error;
};

} // namespace kavel::app
