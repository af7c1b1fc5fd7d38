#include "app/exportdialog.h"
#include "app/homepage.h"
#include "app/importbadge.h"
#include "app/importcover.h"
#include "app/maineditorview.h"
#include "app/projecttitle.h"
#include "app/screens.h"
#include "app/singleinstance.h"
#include "app/videoplayerview.h"
#include "editor/audioextraction.h"
#include "export/exportflow.h"
#include "export/fakerenderer.h"
#include "mainwindowfixture.h"
#include "model/fileio.h"
#include "model/recoveryjournal.h"
#include "playback/guideplayerviewmodel.h"
#include "service/interfacelanguage.h"
#include "support/testenvironment.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QLocalServer>
#include <QMenuBar>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSlider>
#include <QToolButton>
#include <unistd.h>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

// Every text a user reads on `root` and its visible children (labels, buttons, fields'
// hints, tool tips, window titles, menu entries) that holds a Chinese character, each
// with the class of the widget that shows it.
QStringList chineseTexts(QWidget *root)
{
    static const QRegularExpression cjk(
        u"[\\x{3000}-\\x{303f}\\x{4e00}-\\x{9fff}\\x{ff00}-\\x{ffef}]"_s);
    QStringList found;
    const auto check = [&](const QObject *owner, const QString &text) {
        if (text.contains(cjk))
            found.append(QString::fromLatin1(owner->metaObject()->className()) + u": "_s + text);
    };
    QList<QWidget *> widgets = root->findChildren<QWidget *>();
    widgets.prepend(root);
    for (QWidget *w : widgets) {
        if (!w->isVisible())
            continue;
        check(w, w->toolTip());
        check(w, w->accessibleName());
        if (w->isWindow())
            check(w, w->windowTitle());
        if (auto *label = qobject_cast<QLabel *>(w))
            check(w, label->text());
        if (auto *button = qobject_cast<QAbstractButton *>(w))
            check(w, button->text());
        if (auto *field = qobject_cast<QLineEdit *>(w))
            check(w, field->placeholderText());
        if (auto *combo = qobject_cast<QComboBox *>(w))
            check(w, combo->currentText());
        for (QAction *action : w->actions())
            check(action, action->text() + action->toolTip());
    }
    return found;
}

} // namespace

TEST_F(MainWindowTest, InEnglishNoScreenShowsAChineseText)
{
    makeProject(u"Interview"_s);
    main.reset();
    const i18n::Translations english(i18n::Language::english);
    ASSERT_TRUE(english.complete());
    makeWindow();
    main->resize(1200, 800);
    activateWindow();
    QStringList seen;
    const auto walk = [&](const QString &where, QWidget *root) {
        QCoreApplication::processEvents();
        for (const QString &text : chineseTexts(root))
            seen.append(where + u" > "_s + text);
    };
    QTRY_COMPARE(main->homePage()->cards().size(), 1);
    walk(u"home"_s, main.get());
    QStringList menuTexts;
    for (QAction *menu : main->menuBar()->actions()) {
        menuTexts.append(menu->text());
        for (QAction *entry : menu->menu()->actions())
            menuTexts.append(entry->text());
    }
    EXPECT_TRUE(menuTexts.contains(u"Import New Video\u2026"_s))
        << menuTexts.join(u'|').toStdString();
    for (const QString &text : menuTexts)
        EXPECT_FALSE(text.contains(QRegularExpression(u"[\\x{4e00}-\\x{9fff}]"_s)))
            << text.toStdString();

    // An alert of the model's own (the bundle is gone) and the sign-in it asks for.
    main->openProject(QUrl::fromLocalFile(QDir(dir.path()).filePath(u"gone.kavel"_s)));
    ASSERT_NE(main->currentAlert(), nullptr);
    EXPECT_EQ(main->currentAlert()->text(),
              u"Could not open the project: The project file does not exist"_s);
    walk(u"alert"_s, main->currentAlert());
    answerAlert(main->currentAlert()->text(), u"OK"_s);
    main->navigate(NavigationItem::editor);
    walk(u"placeholder"_s, main.get());
    main->projectPlaceholder()->importButton()->click();
    ASSERT_NE(main->currentAlert(), nullptr);
    walk(u"sign-in alert"_s, main->currentAlert());
    answerAlert(u"Uploading a video needs an account. Please sign in first."_s, u"Cancel"_s);

    main->navigate(NavigationItem::settings);
    auto *settingsPage = qobject_cast<SettingsPage *>(main->currentScreen());
    ASSERT_NE(settingsPage, nullptr);
    walk(u"settings"_s, main.get());
    // The choice is stored for the next start.
    settingsPage->languageBox()->setCurrentIndex(settingsPage->languageBox()->findData(u"zh"_s));
    EXPECT_EQ(settings.interfaceLanguage(), u"zh"_s);
    settingsPage->languageBox()->setCurrentIndex(0);
    EXPECT_EQ(settings.interfaceLanguage(), u"system"_s);
    showGuide();
    walk(u"guide"_s, main.get());
    main->sidebarButton(NavigationItem::account)->click();
    walk(u"account"_s, main.get());
    qobject_cast<AccountPage *>(main->currentScreen())->signInButton()->click();
    ASSERT_NE(main->loginDialog(), nullptr);
    walk(u"sign-in"_s, main->loginDialog());
    main->loginDialog()->reject();

    vm.setPendingImportURLs({QUrl::fromLocalFile(u"/media/talk.mp4"_s)});
    vm.setShowImportConfirm(true);
    ASSERT_NE(main->importConfirm(), nullptr);
    walk(u"import confirmation"_s, main->importConfirm());
    main->importConfirm()->cancelButton()->click();

    // The editor, its export dialog and the words of an export that has no folder.
    openTranscript({{u"hello"_s, u"there"_s}, {u"second"_s, u"line"_s}});
    main->navigate(NavigationItem::editor);
    activateWindow();
    walk(u"editor"_s, main.get());
    QTest::keyClick(main.get(), Qt::Key_E, Qt::ControlModifier);
    ExportDialog *dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    walk(u"export"_s, dialog);
    EXPECT_TRUE(dialog->durationLabel()->text().contains(QRegularExpression(u"^\\d+:\\d\\d$"_s)))
        << dialog->durationLabel()->text().toStdString();
    dialog->exportButton()->click();
    QTRY_VERIFY(!dialog->isRunning());
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"Please choose an export folder"_s);
    walk(u"export outcome"_s, dialog);

    EXPECT_TRUE(seen.isEmpty()) << seen.join(u'\n').toStdString();
    main.reset(); // built with the English texts, it goes before they do
}
