#include "app/exportdialog.h"
#include "app/maineditorview.h"
#include "export/exportflow.h"
#include "export/fakerenderer.h"
#include "shellfixture.h"

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QToolButton>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

class ExportDialogTest : public test::ShellFixture
{
protected:
    test::FakeRenderer renderer;
    QTemporaryDir exportDir;

    void SetUp() override
    {
        openTranscript({{u"hello"_s, u"there"_s}, {u"second"_s, u"line"_s}});
        makeWindow();
    }

    void makeWindowWithExport()
    {
        app::ShellServices services;
        services.editor = &vm;
        services.appState = &appState;
        services.settings = &settings;
        services.store = &store;
        services.pickFolder = [this](const QString &title) {
            pickerTitles.append(title);
            return folderToPick;
        };
        services.makeExportFlow
            = [this] { return std::make_unique<ExportFlow>(engine, renderer, settings); };
        main = std::make_unique<app::MainWindow>(services);
    }
};

class ExportMenuTest : public ExportDialogTest
{
protected:
    void SetUp() override { makeWindowWithExport(); }
};

TEST_F(ExportMenuTest, ExportCommandWaitsForAProjectThenOpensTheDialog)
{
    EXPECT_EQ(main->exportAction()->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_E));
    EXPECT_FALSE(main->exportAction()->isEnabled());

    openTranscript({{u"hello"_s, u"there"_s}});
    EXPECT_TRUE(main->exportAction()->isEnabled());
    main->navigate(NavigationItem::editor);
    main->show();
    QApplication::setActiveWindow(main.get());
    ASSERT_TRUE(QTest::qWaitForWindowActive(main.get()));
    QTest::keyClick(main.get(), Qt::Key_E, Qt::ControlModifier);
    ExportDialog *dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(vm.showExportSheet());
    EXPECT_EQ(dialog->titleField()->text(), u"Widgets"_s);
    dialog->reject();
}

TEST_F(ExportDialogTest, ExportButtonIsOnlyOfferedWithAnExportFlow)
{
    EXPECT_TRUE(main->editorView()->exportButton()->isHidden());
    makeWindowWithExport();
    EXPECT_FALSE(main->editorView()->exportButton()->isHidden());
    EXPECT_EQ(main->editorView()->exportButton()->text(), u"导出"_s);
}

TEST_F(ExportDialogTest, RunsTheChosenOutputsAndReportsTheOutcome)
{
    makeWindowWithExport();
    main->editorView()->exportButton()->click();
    ExportDialog *dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(vm.showExportSheet());
    EXPECT_EQ(dialog->titleField()->text(), u"Widgets"_s);
    EXPECT_EQ(dialog->titleField()->placeholderText(), u"输入导出标题"_s);

    dialog->exportButton()->click();
    QTRY_VERIFY(!dialog->isRunning());
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"请选择导出目录"_s);

    folderToPick = exportDir.path();
    dialog->folderButton()->click();
    EXPECT_EQ(pickerTitles.last(), u"选择导出目录"_s);
    EXPECT_EQ(dialog->folderLabel()->text(), exportDir.path());

    dialog->videoToggle()->setChecked(false);
    dialog->subtitleToggle()->setChecked(true);
    dialog->titleField()->clear();
    QTest::keyClicks(dialog->titleField(), u"cut"_s);
    dialog->exportButton()->click();
    QTRY_VERIFY(!dialog->isRunning());
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"导出完成"_s);
    EXPECT_TRUE(QFileInfo::exists(QDir(exportDir.path()).filePath(u"cut.srt"_s)));
    EXPECT_TRUE(renderer.requests.isEmpty());

    dialog->reject();
    EXPECT_FALSE(vm.showExportSheet());
}

TEST_F(ExportDialogTest, ClosingDuringAnExportStopsItFirst)
{
    makeWindowWithExport();
    renderer.pollsToFinish = 1000;
    main->editorView()->exportButton()->click();
    ExportDialog *dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    folderToPick = exportDir.path();
    dialog->folderButton()->click();
    dialog->exportButton()->click();
    QTRY_VERIFY(!renderer.requests.isEmpty());
    ASSERT_TRUE(dialog->isRunning());
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"正在导出视频…"_s);

    dialog->reject();
    EXPECT_TRUE(dialog->isVisible());
    QTRY_VERIFY(!dialog->isRunning());
    EXPECT_TRUE(dialog->outcomeLabel()->text().startsWith(u"视频导出失败"_s))
        << dialog->outcomeLabel()->text().toStdString();
    dialog->reject();
    EXPECT_FALSE(vm.showExportSheet());
}

} // namespace
