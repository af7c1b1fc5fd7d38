#include "app/filemanager.h"
#include "app/screens.h"
#include "service/recognitionlanguage.h"
#include "shellfixture.h"
#include "support/privatebus.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QToolButton>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

class HomePageTest : public test::ShellFixture
{
protected:
    std::unique_ptr<HomePage> home;
    bool signedIn = true;

    void SetUp() override
    {
        makeProject(u"Beach day"_s);
        makeProject(u"Interview"_s);
        makeProject(u"beach walk"_s);
        store.refresh();
        home = std::make_unique<HomePage>(vm, store, pickMedia, [this] { return signedIn; });
    }

    QStringList cardTitles() const
    {
        QStringList out;
        for (ProjectCard *card : home->cards())
            out.append(card->reference().title);
        out.sort();
        return out;
    }

    void deliverDrop(const QList<QUrl> &urls)
    {
        QMimeData data;
        data.setUrls(urls);
        const QPointF at = home->uploadZone()->rect().center();
        QDragEnterEvent enter(at.toPoint(), Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(home->uploadZone(), &enter);
        EXPECT_TRUE(home->uploadZone()->isDragOver());
        QDropEvent drop(at, Qt::CopyAction, &data, Qt::LeftButton, {});
        QCoreApplication::sendEvent(home->uploadZone(), &drop);
        EXPECT_FALSE(home->uploadZone()->isDragOver());
    }
};

TEST_F(HomePageTest, CardsAreFoundByNameAndTheirMenuRenamesDeletesWithUndoOrOpens)
{
    // Trimmed and case-blind, the query is matched as typed: inner spaces count.
    const std::pair<QString, QStringList> searches[] = {
        {u"  BEACH "_s, {u"Beach day"_s, u"beach walk"_s}},
        {u"beach  day"_s, {}},
        {u"   "_s, {u"Beach day"_s, u"Interview"_s, u"beach walk"_s}},
    };
    for (const auto &[query, shown] : searches) {
        home->searchField()->setText(query);
        EXPECT_EQ(cardTitles(), shown) << query.toStdString();
    }

    // Rows are flatter than cards (the thumbnail sits beside the title) and keep the search.
    const int gridCardHeight = home->cards().first()->sizeHint().height();
    home->searchField()->setText(u" INTER"_s);
    home->listButton()->click();
    EXPECT_EQ(cardTitles(), QStringList({u"Interview"_s}));
    EXPECT_LT(home->cards().first()->sizeHint().height(), gridCardHeight);
    home->gridButton()->click();
    EXPECT_EQ(home->cards().first()->sizeHint().height(), gridCardHeight);

    // The card's menu renames its project (refusals are said and change nothing), and the
    // search finds it by its new name.
    home->searchField()->clear();
    const auto menuOf = [this](const QString &title) {
        for (ProjectCard *card : home->cards()) {
            if (card->reference().title == title)
                return card->createContextMenu()->actions();
        }
        return QList<QAction *> {};
    };
    const auto renameTo = [this](const QString &title) {
        QInputDialog *dialog = home->renameDialog();
        ASSERT_NE(dialog, nullptr);
        dialog->setTextValue(title);
        dialog->accept();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    };
    QList<QAction *> actions = menuOf(u"Interview"_s);
    ASSERT_EQ(actions.size(), 4); // open, rename, reveal, delete
    const std::pair<QString, QString> refusals[] = {
        {u"Beach day"_s, u"无法重命名：已有名为“Beach day”的项目。"_s},
        {u""_s, u"无法重命名：项目名称不能为空。"_s},
        {u"2024/03"_s, u"无法重命名：项目名称不能包含“/”。"_s},
    };
    for (const auto &[title, message] : refusals) {
        actions.at(1)->trigger();
        EXPECT_EQ(home->renameDialog()->textValue(), u"Interview"_s);
        renameTo(title);
        ASSERT_NE(home->alert(), nullptr);
        EXPECT_EQ(home->alert()->text(), message);
        home->alert()->accept();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    actions.at(1)->trigger();
    renameTo(u"lesson-3"_s);
    EXPECT_TRUE(QFileInfo::exists(projectsDir.filePath(u"lesson-3.kavel/project.json"_s)));
    EXPECT_FALSE(QFileInfo::exists(projectsDir.filePath(u"Interview.kavel"_s)));
    home->searchField()->setText(u"LESSON"_s);
    EXPECT_EQ(cardTitles(), QStringList({u"lesson-3"_s}));
    home->searchField()->clear();

    // Its menu deletes it to the trash, and 撤销 brings it back while the offer stands.
    const QString bundle = projectsDir.filePath(u"lesson-3.kavel"_s);
    menuOf(u"lesson-3"_s).at(3)->trigger();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(QFileInfo::exists(bundle));
    EXPECT_TRUE(
        QFileInfo::exists(QDir::homePath() + u"/.local/share/Trash/files/lesson-3.kavel"_s));
    EXPECT_EQ(cardTitles(), QStringList({u"Beach day"_s, u"beach walk"_s}));
    EXPECT_FALSE(home->undoBar()->isHidden());
    EXPECT_EQ(home->undoLabel()->text(), u"已将“lesson-3”移到回收站"_s);
    home->undoButton()->click();
    EXPECT_TRUE(home->undoBar()->isHidden());
    EXPECT_TRUE(QFileInfo::exists(bundle + u"/project.json"_s));
    EXPECT_EQ(cardTitles(), QStringList({u"Beach day"_s, u"beach walk"_s, u"lesson-3"_s}));
    // A later deletion makes its own offer.
    menuOf(u"lesson-3"_s).at(3)->trigger();
    EXPECT_FALSE(QFileInfo::exists(bundle));
    EXPECT_FALSE(home->undoBar()->isHidden());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(cardTitles(), QStringList({u"Beach day"_s, u"beach walk"_s}));

    makeWindow();
    ProjectCard *first = main->homePage()->cards().first();
    first->createContextMenu()->actions().first()->trigger();
    EXPECT_EQ(main->navigationSelection(), NavigationItem::editor);
    EXPECT_EQ(vm.project() ? vm.project()->bundlePath() : QString(), first->reference().bundlePath);
}

TEST_F(HomePageTest, ClickedOrDroppedFilesWaitForASignInAndThenForTheConfirmation)
{
    // Signed out, neither a click nor a drop asks for or takes files. A sign-in that did
    // not happen drops the dropped ones; one that did takes them on.
    const QList<QUrl> files {QUrl::fromLocalFile(u"/media/one.mp4"_s),
                             QUrl::fromLocalFile(u"/media/two.mp3"_s)};
    signedIn = false;
    for (const bool drop : {false, true}) {
        vm.setShowLoginRequired(false);
        drop ? deliverDrop(files) : QTest::mouseClick(home->uploadZone(), Qt::LeftButton);
        EXPECT_TRUE(vm.showLoginRequired()) << drop;
    }
    EXPECT_EQ(mediaPicks, 0);
    EXPECT_TRUE(vm.pendingImportURLs().isEmpty());
    home->finishImportAfterSignIn();
    signedIn = true;
    home->finishImportAfterSignIn();
    EXPECT_FALSE(vm.showImportConfirm());
    signedIn = false;
    deliverDrop(files);
    signedIn = true;
    home->finishImportAfterSignIn();
    EXPECT_EQ(vm.pendingImportURLs(), files);
    EXPECT_TRUE(vm.showImportConfirm());

    // Signed in, a click asks for files and a drop brings its own, which the window's
    // confirmation then edits. It offers the language used last.
    settings.setLastRecognitionLanguage(u"ja"_s);
    makeWindow();
    vm.setShowImportConfirm(false);
    QTest::mouseClick(home->uploadZone(), Qt::LeftButton);
    EXPECT_EQ(mediaPicks, 1);
    EXPECT_FALSE(vm.showImportConfirm()); // cancelled
    filesToPick = {QUrl::fromLocalFile(u"/media/three.mov"_s)};
    QTest::mouseClick(home->uploadZone(), Qt::LeftButton);
    EXPECT_EQ(vm.pendingImportURLs(), filesToPick);
    EXPECT_TRUE(vm.showImportConfirm());
    deliverDrop(files);
    EXPECT_EQ(vm.pendingImportURLs(), files);
    ImportConfirmDialog *confirm = main->importConfirm();
    ASSERT_NE(confirm, nullptr);
    confirm->removeButtons().first()->click();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_EQ(vm.pendingImportURLs(), files.mid(1));
    EXPECT_EQ(confirm->removeButtons().size(), 1);
    confirm->addButton()->click();
    EXPECT_EQ(vm.pendingImportURLs(), files.mid(1) + filesToPick);

    // 识别语言: every language as it is until the service has said what it recognises;
    // then the others are marked, and choosing one explains instead of importing.
    const auto offered = [confirm] {
        QStringList items;
        for (int i = 0; i < confirm->languageBox()->count(); ++i)
            items << confirm->languageBox()->itemText(i);
        return items.mid(0, 3).join(u' ');
    };
    EXPECT_EQ(confirm->language(), u"ja"_s);
    EXPECT_EQ(offered(), u"中文 英文 日文"_s);
    EXPECT_TRUE(confirm->startButton()->isEnabled());
    confirm->setServiceLanguages({u"en"_s});
    EXPECT_EQ(offered(), u"中文（此服务暂不支持） 英文 日文（此服务暂不支持）"_s);
    EXPECT_EQ(confirm->language(), u"ja"_s);
    EXPECT_FALSE(confirm->startButton()->isEnabled());
    EXPECT_FALSE(confirm->languageNote()->isHidden());
    EXPECT_EQ(confirm->languageNote()->text(),
              u"此服务暂不支持识别日文，请联系管理员配置日文识别"_s);
    confirm->languageBox()->setCurrentIndex(1);
    EXPECT_TRUE(confirm->languageNote()->isHidden());
    ASSERT_TRUE(confirm->startButton()->isEnabled());
    // The choice goes with the import and is offered first next time.
    confirm->startButton()->click();
    EXPECT_FALSE(vm.showImportConfirm());
    ASSERT_FALSE(imports.jobs().isEmpty());
    EXPECT_EQ(imports.jobs().constLast()->language(), u"en"_s);
    EXPECT_EQ(settings.lastRecognitionLanguage(), u"en"_s);
    // Before any import: the interface's language, Chinese when it says nothing.
    EXPECT_EQ(service::initialLanguage({}, u"en_GB"_s), u"en"_s);
    EXPECT_EQ(service::initialLanguage({}, u"zh_TW"_s), u"zh"_s);
    EXPECT_EQ(service::initialLanguage({}, u"C"_s), u"zh"_s);
}

// Stands for the desktop's file manager on the bus.
class FakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QList<QStringList> shown;

public Q_SLOTS:
    void ShowItems(const QStringList &uris, const QString &) { shown.append(uris); }
};

using RevealTest = test::PrivateBus;

TEST_F(RevealTest, TheFileManagerShowsTheBundleOrElseItsFolderOpens)
{
    const QString bundle = u"/tmp/projects/Demo clip.kavel"_s;
    QList<QUrl> opened;
    const auto open = [&opened](const QUrl &url) { return opened.append(url), true; };
    QDBusConnection serverSide = connect(u"file-manager"_s);
    FakeFileManager fileManager;
    ASSERT_TRUE(serverSide.registerObject(u"/org/freedesktop/FileManager1"_s, &fileManager,
                                          QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(serverSide.registerService(u"org.freedesktop.FileManager1"_s));
    QDBusConnection client = connect(u"client"_s);
    revealInFileManager(bundle, client, open);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !fileManager.shown.isEmpty(); }, 5000));
    EXPECT_EQ(fileManager.shown.first(), QStringList {u"file:///tmp/projects/Demo clip.kavel"_s});
    // An export's files are shown together.
    revealInFileManager(QStringList {u"/tmp/out/a.srt"_s, u"/tmp/out/a.mp4"_s}, client, open);
    ASSERT_TRUE(QTest::qWaitFor([&] { return fileManager.shown.size() == 2; }, 5000));
    EXPECT_EQ(fileManager.shown.last(),
              (QStringList {u"file:///tmp/out/a.srt"_s, u"file:///tmp/out/a.mp4"_s}));

    // Without a file manager on the bus, or without a bus, the folder holding the bundle
    // opens. The answers come in order, so the one shown above did not open it too.
    ASSERT_TRUE(serverSide.unregisterService(u"org.freedesktop.FileManager1"_s));
    revealInFileManager(bundle, client, open);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !opened.isEmpty(); }, 5000));
    revealInFileManager(bundle, QDBusConnection(u"never-connected"_s), open);
    EXPECT_EQ(opened, QList<QUrl>(2, QUrl::fromLocalFile(u"/tmp/projects"_s)));
    EXPECT_EQ(fileManager.shown.size(), 2);
}

} // namespace

#include "homepage_test.moc"
