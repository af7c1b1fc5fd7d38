// Renders the transcript, the timeline and a few waveform strips of a sample project with
// Chinese and English text to PNGs in $KAVEL_SCREENSHOT_DIR (default: the current folder).
#include "ui/timeline/audiowaveformview.h"
#include "ui/timeline/timelineview.h"
#include "ui/transcript/magnetictextstripview.h"
#include "uifixture.h"

#include <QGridLayout>
#include <QLabel>
#include <QVBoxLayout>

using namespace kavel;
using namespace kavel::ui;
using namespace Qt::StringLiterals;

namespace {

QString outputPath(const QString &name)
{
    const QString dir = qEnvironmentVariable("KAVEL_SCREENSHOT_DIR", u"."_s);
    return QDir(dir).filePath(name);
}

QList<Paragraph> sampleProject()
{
    QList<Paragraph> doc = test::transcript({
        {u"大家好"_s, u"，"_s,   u"今天"_s, u"我们"_s, u"来"_s,   u"聊一聊"_s, u"嗯"_s,
         u"怎么"_s,   u"用"_s,   u"文字"_s, u"来"_s,   u"剪辑"_s, u"视频"_s,   u"。"_s,
         u"其实"_s,   u"非常"_s, u"简单"_s, u"，"_s,   u"删掉"_s, u"一句话"_s, u"，"_s,
         u"对应的"_s, u"画面"_s, u"就"_s,   u"没了"_s, u"。"_s},
        {u"So"_s,      u"the"_s,        u"idea"_s, u"is"_s,    u"um"_s,         u"that"_s,
         u"every"_s,   u"word"_s,       u"in"_s,   u"the"_s,   u"transcript"_s, u"knows"_s,
         u"exactly"_s, u"where"_s,      u"it"_s,   u"was"_s,   u"spoken"_s,     u"in"_s,
         u"the"_s,     u"recording."_s, u"Cut"_s,  u"the"_s,   u"text,"_s,      u"and"_s,
         u"you"_s,     u"cut"_s,        u"the"_s,  u"video."_s},
        {u"那个"_s, u"拖动"_s, u"段落"_s, u"就"_s, u"可以"_s, u"调整"_s, u"顺序"_s, u"，"_s,
         u"时间线"_s, u"上"_s, u"的"_s, u"片段"_s, u"也"_s, u"会"_s, u"跟着"_s, u"一起"_s,
         u"移动"_s, u"。"_s},
        {u"Search"_s, u"finds"_s, u"words"_s, u"across"_s, u"the"_s, u"whole"_s, u"timeline,"_s,
         u"and"_s, u"fillers"_s, u"like"_s, u"uh"_s, u"can"_s, u"go"_s, u"in"_s, u"one"_s,
         u"click."_s},
    });
    const QStringList fillers {u"嗯"_s, u"um"_s, u"那个"_s, u"uh"_s};
    for (qsizetype p = 0; p < doc.size(); ++p) {
        doc[p].speakerLabel = QString::number(p % 2 + 1);
        for (WordBlock &w : doc[p].wordBlocks)
            w.isFiller = fillers.contains(w.text);
    }
    doc[2].wordBlocks[4].isMuted = true;
    return doc;
}

using Screenshots = test::UiFixture;

} // namespace

TEST_F(Screenshots, Render)
{
    openParagraphs(sampleProject());
    auto *layout = new QVBoxLayout(&window);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto *transcript = new MagneticTextStripView(vm, &window);
    auto *timeline = new TimelineView(vm, &window);
    layout->addWidget(transcript, 1);
    layout->addWidget(timeline);
    timeline->setFixedHeight(190);
    showWindow({760, 640});

    // A selection (with the cursor at its end) in the first paragraph, the play head on a
    // word of the second, search hits in the fourth.
    vm.setSearchQuery(u"the"_s);
    vm.performSearch();
    vm.selectRange(paragraph(0).id, 14, 17);
    engine.lastPlayer->playTo(paragraph(1).wordBlocks.at(10).mediaStart + 0.1);
    timeline->setPixelsPerSecond(42.0);
    QCoreApplication::processEvents();

    EXPECT_TRUE(transcript->grab().save(outputPath(u"transcript.png"_s)));
    EXPECT_TRUE(timeline->grab().save(outputPath(u"timeline.png"_s)));
    EXPECT_TRUE(window.grab().save(outputPath(u"editor.png"_s)));

    QWidget strips;
    strips.setStyleSheet(u"background: rgb(28,28,31); color: white;"_s);
    auto *grid = new QGridLayout(&strips);
    const QList<std::pair<QString, WaveformInputs>> cases {
        {u"normal, volume 1.0"_s, {paragraph(0).id, false, false, 1.0f}},
        {u"normal, volume 0.6"_s, {paragraph(0).id, false, false, 0.6f}},
        {u"detached"_s, {paragraph(0).id, true, false, 0.8f}},
        {u"muted"_s, {paragraph(0).id, false, true, 1.0f}},
        {u"another id"_s, {paragraph(1).id, false, false, 1.0f}},
    };
    for (qsizetype row = 0; row < cases.size(); ++row) {
        grid->addWidget(new QLabel(cases.at(row).first), static_cast<int>(row), 0);
        auto *view = new AudioWaveformView;
        view->setInputs(cases.at(row).second);
        view->setFixedSize(240, 40);
        grid->addWidget(view, static_cast<int>(row), 1);
    }
    strips.show();
    QCoreApplication::processEvents();
    EXPECT_TRUE(strips.grab().save(outputPath(u"waveform.png"_s)));
}
