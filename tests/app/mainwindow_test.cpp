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

TEST_F(MainWindowTest, SignedOutImportAsksForASignInAndOpenTakesABundleOrExplainsWhyNot)
{
    // A project that cannot be opened is explained once.
    const QString garbled = makeProject(u"Garbled"_s);
    test::writeFile(QDir(garbled).filePath(u"project.json"_s), "{\"title\": ");
    // One that another window has open is refused, naming it and who has it.
    const QString taken = makeProject(u"Taken"_s);
    QProcess holder;
    holder.start(u"sleep"_s, {u"60"_s});
    ASSERT_TRUE(holder.waitForStarted());
    test::claimBundleFor(taken, holder.processId(), u"sleep"_s);
    const std::pair<QString, QString> failures[] = {
        {taken,
         u"打开项目失败: 项目“Taken”已在另一个 Kavel 窗口或程序中打开（sleep，进程 %1），请先在那里关闭它。"_s
             .arg(holder.processId())},
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

TEST_F(MainWindowTest, ADamagedTranscriptIsReportedOnEveryOpenAndTheTitleRenamesTheProject)
{
    const QString broken = makeProject(u"Lesson"_s);
    const QString timeline = QDir(broken).filePath(u"timeline.json"_s);
    test::writeFile(timeline, QByteArray("{\"paragraphs\": [{\"id\": \"").leftJustified(3000, ' '));
    QString backup;
    for (int open = 0; open < 2; ++open) {
        main->openProject(QUrl::fromLocalFile(broken));
        EXPECT_EQ(main->currentScreen(), main->editorView());
        QMessageBox *box = main->currentAlert();
        ASSERT_NE(box, nullptr);
        const QStringList copies
            = QDir(broken + u"/cache"_s).entryList({u"timeline-damaged-*.json"_s});
        ASSERT_EQ(copies.size(), 1);
        backup = broken + u"/cache/"_s + copies.first();
        EXPECT_EQ(
            box->text(),
            u"项目“Lesson”的转写稿无法读取，项目打开时没有文字。\n\n损坏的转写稿已备份到：\n"_s
                + backup);
        box->accept();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        // The cover says it too, the long path wrapped rather than cut off at its edges.
        const QLabel *said = main->editorView()->processingOverlay()->statusLabel();
        EXPECT_FALSE(main->editorView()->processingOverlay()->isHidden());
        EXPECT_TRUE(said->text().remove(QChar(0x200B)).endsWith(backup));
        EXPECT_LT(said->minimumSizeHint().width(), said->fontMetrics().horizontalAdvance(backup));
        main->navigate(NavigationItem::home);
    }

    // A double click on the title edits it; Enter renames the open project's bundle, a
    // name that cannot be a folder's is explained and changes nothing.
    main->openProject(QUrl::fromLocalFile(broken));
    main->currentAlert()->accept();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ProjectTitle *title = main->editorView()->projectTitle();
    EXPECT_EQ(title->title(), u"Lesson"_s);
    const auto renameTo = [&](const QString &name) {
        QTest::mouseDClick(title->label(), Qt::LeftButton);
        ASSERT_TRUE(title->isEditing());
        title->field()->setText(name);
        QTest::keyClick(title->field(), Qt::Key_Return);
        EXPECT_FALSE(title->isEditing());
    };
    renameTo(u"a/b"_s);
    answerAlert(u"无法重命名：项目名称不能包含“/”。"_s, u"确定"_s);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(vm.project()->bundlePath(), broken);
    renameTo(u"第三课"_s);
    EXPECT_EQ(main->currentAlert(), nullptr);
    const QString renamed = projectsDir.filePath(u"第三课.kavel"_s);
    EXPECT_EQ(vm.project()->bundlePath(), renamed);
    EXPECT_EQ(title->title(), u"第三课"_s);
    EXPECT_FALSE(QFileInfo::exists(broken));
    EXPECT_TRUE(QFileInfo::exists(renamed + u"/cache/"_s + QFileInfo(backup).fileName()));
    EXPECT_EQ(store.projects().first().title, u"第三课"_s);
}

TEST_F(MainWindowTest, ASecondStartHandsItsFilesToTheRunningWindowAndEnds)
{
    // This process is the running Kavel; a real second `kavel` finds it in the runtime
    // folder, hands over its (relative) path and ends without opening a window.
    QTemporaryDir runtime;
    const QString socket = QDir(runtime.path()).filePath(u"kavel-%1.socket"_s.arg(::getuid()));
    SingleInstance running(socket);
    ASSERT_EQ(running.handOverOrListen({}), SingleInstance::Role::first);
    QObject::connect(&running, &SingleInstance::filesReceived, main.get(), &MainWindow::openFiles);
    QSignalSpy received(&running, &SingleInstance::filesReceived);
    const QString bundle = makeProject(u"Handed"_s);

    QProcess second;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_RUNTIME_DIR"_s, runtime.path());
    environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    second.setProcessEnvironment(environment);
    second.setWorkingDirectory(projectsDir.path());
    second.start(test::programPath(u"kavel"_s), {u"Handed.kavel"_s});
    // The answer comes from this process's event loop, so it must run meanwhile.
    ASSERT_TRUE(QTest::qWaitFor([&] { return second.state() == QProcess::NotRunning; }, 30000));
    EXPECT_EQ(second.exitCode(), 0) << second.readAllStandardError().toStdString();
    ASSERT_TRUE(received.count() == 1 || received.wait(5000));
    EXPECT_EQ(received.first().first().toStringList(), QStringList {bundle});
    EXPECT_EQ(vm.project() ? vm.project()->bundlePath() : QString(), bundle);
    EXPECT_EQ(main->currentScreen(), main->editorView());
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

    // A journal copied from another project, or one whose words cut from a recording this
    // project does not have, is set aside in cache/ and never offered.
    const auto offered = [&] {
        EditorViewModel nextRun {engine, clock};
        nextRun.openProject(bundle);
        return nextRun.recoverableEdits().has_value();
    };
    const QString own = journal::path(*vm.project());
    auto other = KavelProject::create(u"Other"_s, projectsDir.path());
    journal::write(*other, saved);
    test::writeFile(own, fileio::readFile(journal::path(*other)));
    EXPECT_FALSE(offered());
    QList<Paragraph> stranger = saved;
    stranger[0].wordBlocks[0].sourceFileId = QUuid::createUuid();
    journal::write(*vm.project(), stranger);
    EXPECT_FALSE(offered());
    EXPECT_FALSE(QFileInfo::exists(own));
    EXPECT_EQ(QDir(vm.project()->cacheDirectory())
                  .entryList({u"unsaved-edits-set-aside-*.json"_s}, QDir::Files)
                  .size(),
              2);
    journal::write(*vm.project(), saved);
    EXPECT_TRUE(offered());

    // Deleting the open project from the home page leaves it first, as opening another would:
    // the unsaved edits are asked about (取消 deletes nothing), then nothing works on the
    // trashed bundle any more; 撤销 brings it back to be opened as before.
    main->sidebarButton(NavigationItem::home)->click();
    const auto deleteFromCard = [&] {
        ProjectReference reference;
        reference.title = vm.project()->metadata().title;
        reference.bundlePath = bundle.toLocalFile();
        main->homePage()->deleteProject(reference);
    };
    for (const QString &choice : {u"取消"_s, u"不保存"_s}) {
        deleteFromCard();
        answerAlert(u"项目有未保存的修改，是否保存？"_s, choice);
        QCoreApplication::processEvents();
        EXPECT_EQ(QFileInfo::exists(bundle.toLocalFile()), choice == u"取消"_s);
        EXPECT_EQ(vm.project() != nullptr, choice == u"取消"_s);
    }
    EXPECT_FALSE(main->homePage()->undoBar()->isHidden());
    EXPECT_FALSE(main->exportAction()->isEnabled());
    EXPECT_TRUE(vm.paragraphs().isEmpty());
    clock.advance(0.0);
    EXPECT_EQ(vm.playerVM().duration(), 0.0);
    main->navigate(NavigationItem::editor);
    EXPECT_EQ(main->currentScreen(), main->projectPlaceholder());
    main->homePage()->undoButton()->click();
    main->openProject(bundle);
    QCoreApplication::processEvents();
    ASSERT_NE(vm.project(), nullptr);
    EXPECT_EQ(main->currentAlert(), nullptr) << "the edits not saved were let go";
    EXPECT_EQ(vm.paragraphs(), edited);
    EXPECT_EQ(main->currentScreen(), main->editorView());
}

// An import covers its own project only: the card on the home page and the cover in its
// editor tell its step and progress, every other project stays editable, and quitting
// while it runs asks first.
TEST_F(MainWindowTest, AnImportCoversOnlyItsOwnProjectAndQuittingAsksFirst)
{
    activateWindow();
    openTranscript({{u"one"_s, u"two"_s}, {u"three"_s}});
    const QUrl earlier = vm.project()->bundleURL();
    const QString media = QDir(dir.path()).filePath(u"talk.wav"_s);
    test::writeFile(media, "sound");

    main->startImport({QUrl::fromLocalFile(media)});
    ImportJob *job = imports.jobs().constLast();
    ASSERT_EQ(vm.project(), job->project().get()) << "the new project opens at once";
    EXPECT_EQ(main->currentScreen(), main->editorView());
    app::ImportCover *cover = main->editorView()->processingOverlay();
    converter.current().setProgress(0.3);
    clock.advance(AudioExtractor::progressInterval);
    EXPECT_TRUE(cover->isVisible());
    EXPECT_EQ(cover->statusLabel()->text(), u"正在提取音频... 30%"_s);
    EXPECT_EQ(cover->progressBar()->value(), 30);
    QStringList current;
    for (QLabel *label : cover->stepLabels())
        if (label->isVisible() && label->isEnabled())
            current.append(label->text());
    EXPECT_EQ(current, QStringList {u"提取音频"_s});
    // 返回首页 is not covered: the home page's card tells the same.
    QToolButton *back = main->editorView()->backButton();
    EXPECT_GE(cover->geometry().top(),
              back->mapTo(main->editorView(), QPoint(0, back->height())).y());
    back->click();
    EXPECT_EQ(main->currentScreen(), main->homePage());
    QString told;
    for (app::ProjectCard *card : main->homePage()->cards()) {
        if (card->reference().bundlePath == job->bundlePath())
            told = card->findChild<app::ImportBadge *>()->label()->text();
    }
    EXPECT_EQ(told, u"提取音频 30%"_s);
    // Nor is it deleted from its card while its import writes into the folder.
    for (app::ProjectCard *card : main->homePage()->cards()) {
        if (card->reference().bundlePath == job->bundlePath())
            card->createContextMenu()->actions().at(3)->trigger();
    }
    ASSERT_NE(main->homePage()->alert(), nullptr);
    EXPECT_EQ(
        main->homePage()->alert()->text(),
        u"无法删除：项目“%1”正在导入中，请等导入完成。"_s.arg(job->project()->metadata().title));
    main->homePage()->alert()->accept();
    EXPECT_TRUE(QFileInfo::exists(job->bundlePath() + u"/project.json"_s));

    // Another project is edited meanwhile, uncovered.
    main->openProject(earlier);
    EXPECT_FALSE(cover->isVisible());
    vm.deleteParagraph(paragraph(0).id);
    EXPECT_EQ(text(), u"three"_s);
    vm.save();
    clock.advance(0.0);
    ASSERT_GT(vm.playerVM().duration(), 0.0);

    // An import queued behind the running one opens on its own, still empty, project: none
    // of the last project's length or play head is shown under its cover.
    main->startImport({QUrl::fromLocalFile(media)});
    ImportJob *queued = imports.jobs().constLast();
    ASSERT_EQ(vm.project(), queued->project().get());
    EXPECT_EQ(queued->state(), ImportJob::State::waiting);
    clock.advance(0.0);
    QCoreApplication::processEvents();
    EXPECT_EQ(vm.playerVM().duration(), 0.0);
    EXPECT_EQ(main->editorView()->playerView()->timeLabel()->text(), u"00:00 / 00:00"_s);
    main->openProject(earlier);

    // Back in the importing project, the cover is there again; its failure stays until
    // closed.
    main->openProject(job->project()->bundleURL());
    EXPECT_TRUE(cover->isVisible());
    converter.current().finish(media::ConversionStatus::failed);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !job->isActive(); }));
    EXPECT_TRUE(cover->isVisible() && cover->dismissButton()->isVisible());
    // The sound went up as it was, and nothing listens where the service should be.
    EXPECT_EQ(cover->statusLabel()->text(), u"语音识别失败: 无法连接到服务器"_s);
    cover->dismissButton()->click();
    EXPECT_FALSE(cover->isVisible());
    // The queued import has its turn now.
    EXPECT_TRUE(QTest::qWaitFor([&] { return queued->state() == ImportJob::State::running; }));
    converter.current().finish(media::ConversionStatus::failed);
    EXPECT_TRUE(QTest::qWaitFor([&] { return !queued->isActive(); }));

    // Quitting with an import running asks; 取消 keeps it going, 退出 ends it as failed.
    main->startImport({QUrl::fromLocalFile(media)});
    ImportJob *second = imports.jobs().constLast();
    for (const QString &choice : {u"取消"_s, u"退出"_s}) {
        main->close();
        answerAlert(
            u"还有 1 个项目正在导入。现在退出会中断导入，这些项目将标记为导入失败。确定退出吗？"_s,
            choice);
        QCoreApplication::processEvents();
        EXPECT_EQ(main->isVisible(), choice == u"取消"_s);
        EXPECT_EQ(second->isActive(), choice == u"取消"_s);
    }
    EXPECT_EQ(ImportPipeline::failureOf(second->bundlePath()),
              u"导入被中断（应用已退出），请重新导入。"_s);

    // The next run shows why when that project is opened, until closed.
    ImportPipeline nextRun {clock, ImportServices {}};
    main->show();
    main->editorView()->setImports(&nextRun);
    vm.openProject(QUrl::fromLocalFile(second->bundlePath()));
    EXPECT_TRUE(cover->isVisible());
    EXPECT_EQ(cover->statusLabel()->text(), u"导入被中断（应用已退出），请重新导入。"_s);
    cover->dismissButton()->click();
    EXPECT_FALSE(cover->isVisible());
    main->editorView()->setImports(&imports);
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

    // The sound's finish is chosen with the movie or the sound file, and kept with them.
    dialog->videoToggle()->setChecked(true);
    ASSERT_TRUE(dialog->loudnessChoice()->isEnabled());
    QTest::keyClick(dialog->loudnessChoice(), Qt::Key_Down);
    QTest::keyClick(dialog->loudnessChoice(), Qt::Key_Down);
    QTest::keyClick(dialog->denoiseChoice(), Qt::Key_Down);
    EXPECT_EQ(dialog->loudnessChoice()->currentText(), u"-16 LUFS（播客）"_s);

    // Nothing to write: nothing to start.
    for (QCheckBox *box : {dialog->videoToggle(), dialog->audioToggle(), dialog->subtitleToggle()})
        box->setChecked(false);
    EXPECT_FALSE(dialog->exportButton()->isEnabled());
    EXPECT_FALSE(dialog->loudnessChoice()->isEnabled() || dialog->denoiseChoice()->isEnabled());
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
    // Closed means gone; the next Ctrl+E makes a new one.
    QTRY_VERIFY(main->exportDialog() == nullptr);
    // The next dialog for this project offers the same choices.
    main->exportAction()->trigger();
    dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(dialog->subtitleToggle()->isChecked());
    EXPECT_FALSE(dialog->videoToggle()->isChecked() || dialog->audioToggle()->isChecked());
    EXPECT_EQ(dialog->folderLabel()->text(), exportDir.path());
    EXPECT_EQ(dialog->loudnessChoice()->currentText(), u"-16 LUFS（播客）"_s);
    EXPECT_EQ(dialog->denoiseChoice()->currentText(), u"轻"_s);
    EXPECT_FALSE(dialog->revealButton()->isVisible());

    // Captions burned in go with the movie: the toggle waits for it, the size for the toggle.
    EXPECT_FALSE(dialog->burnInToggle()->isEnabled());
    dialog->videoToggle()->setChecked(true);
    ASSERT_TRUE(dialog->burnInToggle()->isEnabled());
    EXPECT_FALSE(dialog->captionSizeChoice()->isEnabled());
    dialog->burnInToggle()->setChecked(true);
    ASSERT_TRUE(dialog->captionSizeChoice()->isEnabled());
    EXPECT_EQ(dialog->captionSizeChoice()->currentText(), u"中"_s);
    const int large = dialog->captionSizeChoice()->findText(u"大"_s);
    dialog->captionSizeChoice()->setCurrentIndex(large);
    Q_EMIT dialog->captionSizeChoice()->activated(large);
    dialog->exportButton()->click();
    QTRY_VERIFY(!dialog->isRunning());
    ASSERT_EQ(renderer.requests.size(), 1);
    EXPECT_EQ(renderer.requests[0].captions.size(), 1);
    EXPECT_EQ(renderer.requests[0].captions.value(0).text, u"hello there second line"_s);
    EXPECT_GT(renderer.requests[0].captionHeight, media::RenderRequest {}.captionHeight);
    dialog->reject();
}

} // namespace
