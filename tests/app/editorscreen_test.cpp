#include "app/maineditorview.h"
#include "ui/uifixture.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

class EditorScreenTest : public test::UiFixture
{
protected:
    std::unique_ptr<MainEditorView> view;

    void SetUp() override
    {
        QList<Paragraph> doc = test::transcript(
            {{u"嗯"_s, u"we"_s, u"go"_s, u"go"_s}, {u"then"_s, u"呃"_s, u"stop"_s}});
        doc[0].wordBlocks[0].isFiller = true;
        doc[1].wordBlocks[1].isFiller = true;
        openParagraphs(doc);
        view = std::make_unique<MainEditorView>(vm);
    }

    QToolButton *tool(const QString &tooltip) const
    {
        QToolButton *button = view->toolButton(tooltip);
        EXPECT_NE(button, nullptr) << tooltip.toStdString();
        return button;
    }
};

TEST_F(EditorScreenTest, ToolbarButtonsReachTheEditor)
{
    EXPECT_FALSE(tool(u"撤销"_s)->isEnabled());
    tool(u"删除语气词"_s)->click();
    EXPECT_EQ(text(), u"we go go | then stop"_s);
    tool(u"撤销"_s)->click();
    EXPECT_EQ(text(), u"嗯 we go go | then 呃 stop"_s);
    tool(u"重做"_s)->click();
    EXPECT_EQ(text(), u"we go go | then stop"_s);
    tool(u"撤销"_s)->click();

    vm.selectRange(paragraph(0).id, 1, 3);
    tool(u"拷贝"_s)->click();
    EXPECT_EQ(QApplication::clipboard()->text(), u"wego"_s);
    tool(u"剪切"_s)->click();
    EXPECT_EQ(text(), u"嗯 go | then 呃 stop"_s);
    vm.setCursor(paragraph(1).id, 3);
    tool(u"粘贴"_s)->click();
    EXPECT_EQ(text(), u"嗯 go | then 呃 stop we go"_s);
    vm.selectRange(paragraph(1).id, 0, 1);
    tool(u"删除 (Delete)"_s)->click();
    EXPECT_EQ(text(), u"嗯 go | 呃 stop we go"_s);

    // Saving shows its confirmation for a while.
    EXPECT_TRUE(view->savedIndicator()->isHidden());
    tool(u"保存"_s)->click();
    EXPECT_FALSE(view->savedIndicator()->isHidden());
    clock.advance(EditorViewModel::saveConfirmationSeconds + 0.1);
    EXPECT_TRUE(view->savedIndicator()->isHidden());
}

TEST_F(EditorScreenTest, SearchCountsAndStepsThroughMatches)
{
    // Ctrl+F asks for the search bar: the field takes the cursor with its text selected,
    // each time it is asked again after the cursor went elsewhere.
    view->show();
    QApplication::setActiveWindow(view.get());
    ASSERT_TRUE(QTest::qWaitForWindowActive(view.get()));
    view->searchField()->setText(u"old"_s);
    for (int round = 0; round < 2; ++round) {
        view->exportButton()->setFocus();
        ASSERT_FALSE(vm.showSearchBar());
        vm.setShowSearchBar(true);
        EXPECT_EQ(QApplication::focusWidget(), view->searchField()) << round;
        EXPECT_EQ(view->searchField()->selectedText(), u"old"_s);
    }
    QTest::keyClick(view->searchField(), Qt::Key_Escape);
    EXPECT_NE(QApplication::focusWidget(), view->searchField());
    EXPECT_FALSE(vm.showSearchBar());

    view->searchField()->setText(u"go"_s);
    EXPECT_EQ(view->searchCounter()->text(), u"1/2"_s);
    view->nextMatchButton()->click();
    EXPECT_EQ(view->searchCounter()->text(), u"2/2"_s);
    view->previousMatchButton()->click();
    EXPECT_EQ(view->searchCounter()->text(), u"1/2"_s);

    view->searchField()->setText(u"absent"_s);
    EXPECT_EQ(view->searchCounter()->text(), u"0/0"_s);
    EXPECT_FALSE(view->nextMatchButton()->isEnabled());
    EXPECT_FALSE(view->previousMatchButton()->isEnabled());
}

// The import pipeline is the only writer of the processing state; a subclass stands in,
// changing it in the pipeline's order.
class ProcessingEditor : public EditorViewModel
{
public:
    using EditorViewModel::EditorViewModel;
    void run(const QString &step, const QString &status)
    {
        setIsProcessing(true);
        setTranscriptionStep(step);
        setProcessingStatus(status);
    }
    void end(const QString &status)
    {
        setIsProcessing(false);
        setProcessingStatus(status);
        setTranscriptionStep({});
    }
};

TEST(EditorScreenOverlay, ShowsTheStepWhileProcessingAndAFailureUntilClosed)
{
    test::FakeMediaEngine engine;
    test::FakeClock clock;
    ProcessingEditor editor(engine, clock);
    MainEditorView view(editor);
    view.resize(900, 600);
    view.show();
    QWidget *cover = view.processingOverlay();
    const auto shown = [&](const QString &status, const QString &step, bool closable) {
        QStringList current;
        for (QLabel *label : view.stepLabels())
            if (label->isVisible() && label->isEnabled())
                current.append(label->text());
        return cover->isVisible() && view.processingLabel()->text() == status
            && current == (step.isEmpty() ? QStringList() : QStringList {step})
            && view.dismissButton()->isVisible() == closable;
    };
    EXPECT_FALSE(cover->isVisible());
    for (const QString &step : {u"提取音频"_s, u"上传音频"_s, u"语音识别中"_s}) {
        editor.run(step, u"正在识别…"_s);
        EXPECT_TRUE(shown(u"正在识别…"_s, step, false)) << step.toStdString();
    }
    EXPECT_EQ(cover->geometry(), view.rect());

    // Ending well leaves nothing; a failure stays until closed or until the next import.
    editor.end({});
    EXPECT_FALSE(cover->isVisible());
    for (const bool closeIt : {true, false}) {
        editor.run(u"语音识别中"_s, u"正在识别…"_s);
        editor.end(u"语音识别失败: 未知错误"_s);
        EXPECT_TRUE(shown(u"语音识别失败: 未知错误"_s, {}, true));
        if (closeIt) {
            view.dismissButton()->click();
            EXPECT_FALSE(cover->isVisible());
        }
    }
    editor.run(u"提取音频"_s, u"正在提取音频..."_s);
    EXPECT_TRUE(shown(u"正在提取音频..."_s, u"提取音频"_s, false));
}

} // namespace
