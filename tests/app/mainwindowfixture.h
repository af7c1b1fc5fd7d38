// The main window with a guide clip on disk for the guide to play and exports to a fake
// renderer.
#pragma once

#include "app/screens.h"
#include "export/exportflow.h"
#include "export/fakerenderer.h"
#include "playback/guideplayerviewmodel.h"
#include "shellfixture.h"
#include "support/testenvironment.h"

#include <QDir>
#include <QTemporaryDir>
#include <QToolButton>

namespace kavel::app {

using namespace Qt::StringLiterals;

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

} // namespace kavel::app
