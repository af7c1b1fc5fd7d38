// Renders the shell's screens over a sample session to PNGs in $KAVEL_SCREENSHOT_DIR
// (default: the current folder).
#include "app/maineditorview.h"
#include "app/videoplayerview.h"
#include "shellfixture.h"

#include <QLineEdit>
#include <QPainter>

using namespace kavel;
using namespace kavel::app;
using namespace Qt::StringLiterals;

namespace {

QString outputPath(const QString &name)
{
    return QDir(qEnvironmentVariable("KAVEL_SCREENSHOT_DIR", u"."_s)).filePath(name);
}

// A stand-in picture for the video surface: the fake engine decodes nothing.
QImage sampleFrame()
{
    QImage image(1280, 720, QImage::Format_RGB32);
    QPainter p(&image);
    QLinearGradient sky(0, 0, 0, 720);
    sky.setColorAt(0, QColor(70, 120, 190));
    sky.setColorAt(1, QColor(230, 200, 150));
    p.fillRect(image.rect(), sky);
    p.setBrush(QColor(60, 90, 60));
    p.setPen(Qt::NoPen);
    p.drawEllipse(QPoint(640, 900), 900, 400);
    return image;
}

using Screenshots = test::ShellFixture;

} // namespace

TEST_F(Screenshots, Render)
{
    for (const QString &title : {u"产品发布会"_s, u"Interview with Ada"_s, u"周末 vlog"_s,
                                 u"播客第 12 期"_s, u"Lecture notes"_s})
        makeProject(title);
    store.refresh();
    makeWindow();
    main->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(main.get()));
    main->grab().save(outputPath(u"home.png"_s));

    QList<Paragraph> doc = test::transcript({
        {u"大家好"_s, u"，"_s, u"今天"_s, u"我们"_s, u"来"_s, u"聊一聊"_s, u"嗯"_s, u"怎么"_s,
         u"用"_s, u"文字"_s, u"来"_s, u"剪辑"_s, u"视频"_s, u"。"_s},
        {u"So"_s, u"the"_s, u"idea"_s, u"is"_s, u"um"_s, u"that"_s, u"every"_s, u"word"_s,
         u"knows"_s, u"where"_s, u"it"_s, u"was"_s, u"spoken."_s},
        {u"删掉"_s, u"一句话"_s, u"，"_s, u"对应的"_s, u"画面"_s, u"就"_s, u"没了"_s, u"。"_s},
    });
    for (Paragraph &p : doc) {
        for (WordBlock &w : p.wordBlocks)
            w.isFiller = w.text == u"嗯"_s || w.text == u"um"_s;
    }
    openParagraphs(doc);
    vm.selectRange(paragraph(1).id, 4, 5);
    vm.deleteSelectedWords();
    clock.advance(1.0);
    main->navigate(NavigationItem::editor);
    main->editorView()->playerView()->surface()->showFrame(sampleFrame());
    main->editorView()->searchField()->setText(u"the"_s);
    QCoreApplication::processEvents();
    main->grab().save(outputPath(u"editor-screen.png"_s));

    main->editorView()->searchField()->clear();
    main->navigate(NavigationItem::home);
    vm.setPendingImportURLs({QUrl::fromLocalFile(u"/home/me/Videos/发布会.mp4"_s),
                             QUrl::fromLocalFile(u"/home/me/Music/interview.wav"_s)});
    vm.setShowImportConfirm(true);
    ASSERT_NE(main->importConfirm(), nullptr);
    QCoreApplication::processEvents();
    main->importConfirm()->grab().save(outputPath(u"import-confirm.png"_s));
}
