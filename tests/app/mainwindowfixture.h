// The main window with a guide clip on disk for the guide to play and exports to a fake
// renderer.
#pragma once

#include "export/exportflow.h"
#include "export/fakerenderer.h"
#include "playback/guideplayerviewmodel.h"
#include "shellfixture.h"
#include "support/testenvironment.h"

#include <QDir>
#include <QTemporaryDir>

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

    } // namespace kavel::app
