#include "app/exportdialog.h"
#include "app/maineditorview.h"
#include "app/screens.h"
#include "app/videoplayerview.h"
#include "export/exportflow.h"
#include "export/fakerenderer.h"
#include "model/recoveryjournal.h"
#include "playback/guideplayerviewmodel.h"
#include "shellfixture.h"

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QSlider>
#include <QToolButton>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

// The window with a guide clip on disk for the guide to play and exports to a fake renderer.
class MainWindowTest : public test::ShellFixture
{
protected:
    int guidePlayersMade = 0;
    VideoSurface *guideFramesGoTo = nullptr;
    test::FakeRenderer renderer;
    QTemporaryDir exportDir;

    void SetUp() override
    {
        makeExportFlow
            = [this] { return std::make_unique<ExportFlow>(engine, renderer, settings); };
        const QString clip = QDir(dir.path()).filePath(u"demo.MOV"_s);
        test::writeFile(clip, QByteArray(1000, 'd'));
        makeGuidePlayer = [this, clip](VideoSurface &surface) {
            ++guidePlayersMade;
            guideFramesGoTo = &surface;
            return std::make_unique<GuidePlayerViewModel>(engine, clip, [](const QString &) {});
        };
        makeWindow();
    }

    GuidePage *showGuide()
    {
        main->sidebarButton(NavigationItem::guide)->click();
        return qobject_cast<GuidePage *>(main->currentScreen());
    }
};

TEST_F(MainWindowTest, SignedOutImportAsksForASignInAndOpenTakesABundleOrExplainsWhyNot)
{
    // A project that cannot be opened is explained once.
    const QString garbled = makeProject(u"Garbled"_s);
    test::writeFile(QDir(garbled).filePath(u"project.json"_s), "{\"title\": ");
    const std::pair<QString, QString> failures[] = {
        {QDir(dir.path()).filePath(u"missing.kavel"_s), u"打开项目失败: 项目文件不存在"_s},
        {garbled,
         u"打开项目失败: 数据格式不正确：JSON 无法解析（位于 %1/project.json）"_s.arg(garbled)},
    };
    for (const auto &[bundle, message] : failures) {
        main->openProject(QUrl::fromLocalFile(bundle));
        EXPECT_EQ(main->navigationSelection(), NavigationItem::home);
        answerAlert(message, u"确定"_s);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_EQ(main->currentAlert(), nullptr);
    }

    activateWindow();
    main->navigate(NavigationItem::editor);
    ProjectPlaceholder *placeholder = main->projectPlaceholder();
    EXPECT_EQ(main->currentScreen(), placeholder);

    // From the button or Ctrl+I the import explains why it cannot start; 取消 leaves it
    // there, Return (去登录) takes the way to sign in. No file is asked for either way.
    filesToPick = {QUrl::fromLocalFile(u"/media/new.mp4"_s)};
    placeholder->importButton()->click();
    answerAlert(u"上传视频需要登录账户，请先登录。"_s, u"取消"_s);
    EXPECT_FALSE(vm.showLoginRequired() || appState.showLoginSheet());
    QTest::keyClick(main.get(), Qt::Key_I, Qt::ControlModifier);
    ASSERT_NE(main->currentAlert(), nullptr);
    QTest::keyClick(main->currentAlert(), Qt::Key_Return);
    EXPECT_EQ(mediaPicks, 0);
    EXPECT_FALSE(vm.showImportConfirm() || vm.showLoginRequired());
    ASSERT_TRUE(appState.showLoginSheet() && main->loginDialog());
    main->loginDialog()->reject();

    // The placeholder's button and Ctrl+O both ask for a bundle in the projects folder.
    const auto openWith = [&](const QString &title, const std::function<void()> &ask) {
        folderToPick = makeProject(title);
        ask();
        EXPECT_EQ(main->currentScreen(), main->editorView());
        EXPECT_EQ(vm.project() ? vm.project()->bundlePath() : QString(), folderToPick);
    };
    openWith(u"Reopened"_s, [&] { placeholder->openButton()->click(); });
    openWith(u"Keyed"_s, [&] { QTest::keyClick(main.get(), Qt::Key_O, Qt::ControlModifier); });
    EXPECT_EQ(pickerStarts, QStringList({store.directory(), store.directory()}));

    // Undo and redo of the edit menu reach the editor.
    openTranscript({{u"one"_s, u"two"_s, u"three"_s}});
    vm.deleteParagraph(paragraph(0).id);
    main->undoAction()->trigger();
    EXPECT_EQ(text(), u"one two three"_s);
    main->redoAction()->trigger();
    EXPECT_EQ(text(), QString());
}

TEST_F(MainWindowTest, UnsavedEditsAreJournalledRecoveredAndAskedAboutBeforeLeaving)
{
    EXPECT_EQ(main->currentScreen(), main->homePage());
    openTranscript({{u"one"_s, u"two"_s}, {u"three"_s}});
    const QUrl bundle = vm.project()->bundleURL();
    const QList<Paragraph> saved = vm.paragraphs();
    vm.setNavigateToEditor(true);
    EXPECT_EQ(main->currentScreen(), main->editorView());
    EXPECT_FALSE(vm.navigateToEditor()); // consumed, so the next import can raise it again
    vm.deleteParagraph(paragraph(1).id);
    const QList<Paragraph> edited = vm.paragraphs();
    clock.advance(EditorViewModel::journalDelaySeconds);

    // The process dies here. The next run finds the edit and can take it back.
    {
        EditorViewModel nextRun {engine, clock};
        nextRun.openProject(bundle);
        clock.advance(EditorViewModel::journalDelaySeconds);
        ASSERT_TRUE(nextRun.recoverableEdits());
        EXPECT_TRUE(QFileInfo::exists(journal::path(*nextRun.project())))
            << "kept until the user has answered";
        nextRun.restoreRecoverableEdits();
        EXPECT_EQ(nextRun.paragraphs(), edited);
    }

    // Leaving asks first: 取消 stays, 保存 writes the file, drops the journal and goes home.
    for (const QString &choice : {u"取消"_s, u"保存"_s}) {
        main->editorView()->backButton()->click();
        answerAlert(u"项目有未保存的修改，是否保存？"_s, choice);
        QCoreApplication::processEvents();
        EXPECT_EQ(main->navigationSelection(),
                  choice == u"取消"_s ? NavigationItem::editor : NavigationItem::home);
    }
    EXPECT_TRUE(main->sidebarButton(NavigationItem::home)->isChecked());
    EXPECT_EQ(KavelProject::load(bundle)->paragraphs(), edited);
    EXPECT_FALSE(QFileInfo::exists(journal::path(*vm.project())));

    // A journal newer than the file is offered when the project opens.
    journal::write(*vm.project(), saved);
    main->openProject(bundle);
    answerAlert(u"恢复未保存的修改？"_s, u"恢复"_s);
    QCoreApplication::processEvents();
    EXPECT_EQ(vm.paragraphs(), saved);
    EXPECT_TRUE(vm.hasUnsavedChanges());
}

// A walk through the sidebar's other screens: the guide, the settings and the account.
TEST_F(MainWindowTest, TheGuideSettingsAndAccountScreensDoTheirJobs)
{
    main->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(main.get()));
    EXPECT_EQ(guidePlayersMade, 0); // nothing is loaded before the guide is opened
    GuidePage *guide = showGuide();
    ASSERT_TRUE(guide && guide->player());
    EXPECT_EQ(guideFramesGoTo, guide->surface());
    test::FakePlayer *player = engine.lastPlayer;
    player->makeSourceReady(3725.0);
    player->reportTime(61.7);
    EXPECT_EQ(guide->timeLabel()->text(), u"01:01 / 1:02:05"_s);
    guide->volumeSlider()->setValue(30);
    EXPECT_FLOAT_EQ(player->volume(), 0.3f);

    // Leaving pauses; coming back plays on, with the same player.
    main->sidebarButton(NavigationItem::home)->click();
    EXPECT_EQ(player->rate(), 0.0);
    showGuide();
    EXPECT_EQ(player->rate(), 1.0);
    EXPECT_EQ(guidePlayersMade, 1);

    // Paused by the user, it stays paused across a visit to the settings, which keep the
    // default export folder (the second choice is cancelled).
    guide->playButton()->click();
    main->navigate(NavigationItem::settings);
    auto *page = qobject_cast<SettingsPage *>(main->currentScreen());
    ASSERT_NE(page, nullptr);
    for (const QString &picked : {u"/exports/here"_s, QString()}) {
        folderToPick = picked;
        page->chooseButton()->click();
        EXPECT_EQ(settings.defaultExportPath(), u"/exports/here"_s);
        EXPECT_EQ(page->pathLabel()->text(), u"/exports/here"_s);
    }
    EXPECT_EQ(pickerStarts.last(), u"/exports/here"_s);
    page->clearButton()->click();
    EXPECT_EQ(settings.defaultExportPath(), QString());
    showGuide();
    EXPECT_EQ(player->rate(), 0.0);

    // The account's sign-in sheet asks a phone number for a texted code, anything else for
    // a password. Nothing listens at the session's address, so the sign-in fails.
    main->sidebarButton(NavigationItem::account)->click();
    qobject_cast<AccountPage *>(main->currentScreen())->signInButton()->click();
    LoginDialog *sheet = main->loginDialog();
    ASSERT_NE(sheet, nullptr);
    const std::pair<QString, bool> accounts[] = {{u"13800138000"_s, true}, {u"me@x.com"_s, false}};
    for (const auto &[account, texted] : accounts) {
        sheet->accountField()->setText(account);
        EXPECT_EQ(sheet->sendCodeButton()->isHidden(), !texted);
        EXPECT_EQ(sheet->secretField()->echoMode(),
                  texted ? QLineEdit::Normal : QLineEdit::Password);
    }
    sheet->secretField()->setText(u"secret"_s);
    sheet->submitButton()->click();
    QTRY_COMPARE(sheet->errorLabel()->text(), u"登录失败：用户名或密码错误"_s);
    EXPECT_TRUE(sheet->submitButton()->isEnabled() && sheet->isVisible());
    EXPECT_FALSE(appState.isAuthenticated());
}

TEST_F(MainWindowTest, CtrlEOpensTheDialogThatRunsTheChosenOutputs)
{
    EXPECT_FALSE(main->exportAction()->isEnabled()); // nothing to export yet
    openTranscript({{u"hello"_s, u"there"_s}, {u"second"_s, u"line"_s}});
    main->navigate(NavigationItem::editor);
    activateWindow();
    QTest::keyClick(main.get(), Qt::Key_E, Qt::ControlModifier);
    ExportDialog *dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(dialog->titleField()->text(), u"Widgets"_s);
    // The edited result's length, as the preview plays it.
    ASSERT_GT(vm.playerVM().duration(), 1.0);
    EXPECT_EQ(dialog->durationLabel()->text(),
              ExportFlow::formatDuration(vm.playerVM().duration()));

    dialog->exportButton()->click();
    QTRY_VERIFY(!dialog->isRunning());
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"请选择导出目录"_s);
    EXPECT_FALSE(dialog->revealButton()->isVisible());
    folderToPick = exportDir.path();
    dialog->folderButton()->click();
    EXPECT_EQ(dialog->folderLabel()->text(), exportDir.path());
    EXPECT_EQ(dialog->outcomeLabel()->text(), QString()); // the red complaint is answered
    dialog->folderButton()->click(); // opens where the last choice was
    EXPECT_EQ(pickerStarts, QStringList({QString(), exportDir.path()}));

    // Nothing to write: nothing to start.
    for (QCheckBox *box : {dialog->videoToggle(), dialog->audioToggle(), dialog->subtitleToggle()})
        box->setChecked(false);
    EXPECT_FALSE(dialog->exportButton()->isEnabled());
    dialog->subtitleToggle()->setChecked(true);
    dialog->titleField()->clear();
    QTest::keyClicks(dialog->titleField(), u"cut"_s);
    dialog->exportButton()->click();
    QTRY_VERIFY(!dialog->isRunning());
    // Only this run's outcome: the folder error of the last one is gone.
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"导出完成\n已写出 cut.srt"_s);
    EXPECT_EQ(QDir(exportDir.path()).entryList(QDir::Files | QDir::Hidden),
              QStringList {u"cut.srt"_s});
    EXPECT_TRUE(renderer.requests.isEmpty());
    EXPECT_EQ(settings.lastExportPath(), exportDir.path());
    // The files are shown where they are.
    QList<QStringList> revealed;
    dialog->setRevealFiles([&](const QStringList &files) { revealed.append(files); });
    ASSERT_TRUE(dialog->revealButton()->isVisible());
    dialog->revealButton()->click();
    EXPECT_EQ(revealed, QList<QStringList> {{QDir(exportDir.path()).filePath(u"cut.srt"_s)}});

    dialog->reject();
    EXPECT_FALSE(vm.showExportSheet());
    // The next dialog for this project offers the same choices.
    QTest::keyClick(main.get(), Qt::Key_E, Qt::ControlModifier);
    dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(dialog->subtitleToggle()->isChecked());
    EXPECT_FALSE(dialog->videoToggle()->isChecked() || dialog->audioToggle()->isChecked());
    EXPECT_EQ(dialog->folderLabel()->text(), exportDir.path());
    EXPECT_FALSE(dialog->revealButton()->isVisible());
    dialog->reject();
}

} // namespace
