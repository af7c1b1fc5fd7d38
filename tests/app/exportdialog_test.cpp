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
        makeExportFlow
            = [this] { return std::make_unique<ExportFlow>(engine, renderer, settings); };
        makeWindow();
    }

    QStringList exported() const
    {
        return QDir(exportDir.path()).entryList(QDir::Files | QDir::Hidden);
    }
};

TEST_F(ExportDialogTest, CtrlEOpensTheDialogThatRunsTheChosenOutputs)
{
    EXPECT_FALSE(main->exportAction()->isEnabled()); // nothing to export yet
    openTranscript({{u"hello"_s, u"there"_s}, {u"second"_s, u"line"_s}});
    main->navigate(NavigationItem::editor);
    activateWindow();
    QTest::keyClick(main.get(), Qt::Key_E, Qt::ControlModifier);
    ExportDialog *dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    EXPECT_TRUE(vm.showExportSheet());
    EXPECT_EQ(dialog->titleField()->text(), u"Widgets"_s);
    // The edited result's length, as the preview plays it.
    ASSERT_GT(vm.playerVM().duration(), 1.0);
    EXPECT_EQ(dialog->durationLabel()->text(),
              ExportFlow::formatDuration(vm.playerVM().duration()));

    dialog->exportButton()->click();
    QTRY_VERIFY(!dialog->isRunning());
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"请选择导出目录"_s);
    folderToPick = exportDir.path();
    dialog->folderButton()->click();
    EXPECT_EQ(dialog->folderLabel()->text(), exportDir.path());
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
    EXPECT_EQ(exported(), QStringList {u"cut.srt"_s});
    EXPECT_TRUE(renderer.requests.isEmpty());
    EXPECT_EQ(settings.lastExportPath(), exportDir.path());
    dialog->reject();
    EXPECT_FALSE(vm.showExportSheet());
}

TEST_F(ExportDialogTest, StopEndsTheRunAsCancelledAndLeavesNoFiles)
{
    openTranscript({{u"hello"_s, u"there"_s}});
    renderer.pollsToFinish = 1000;
    main->editorView()->exportButton()->click();
    ExportDialog *dialog = main->exportDialog();
    ASSERT_NE(dialog, nullptr);
    folderToPick = exportDir.path();
    dialog->folderButton()->click();
    dialog->subtitleToggle()->setChecked(true);
    dialog->exportButton()->click();
    QTRY_VERIFY(!renderer.requests.isEmpty());
    ASSERT_TRUE(dialog->isRunning());
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"正在导出视频…"_s);

    dialog->closeButton()->click();
    EXPECT_TRUE(dialog->isVisible());
    QTRY_VERIFY(!dialog->isRunning());
    EXPECT_EQ(dialog->outcomeLabel()->text(), u"导出已取消"_s);
    EXPECT_EQ(exported(), QStringList {});
    dialog->reject();

    // Without an export flow there is no export to offer.
    makeExportFlow = nullptr;
    makeWindow();
    EXPECT_TRUE(main->editorView()->exportButton()->isHidden());
}

} // namespace
