#include "clisupport.h"
#include "editcommands.h"
#include "exportcommand.h"
#include "importcommand.h"
#include "mediacommands.h"
#include "model/errors.h"
#include "projectcommands.h"
#include "service/interfacelanguage.h"
#include "service/settings.h"

#include <QGuiApplication>
#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

using namespace Qt::StringLiterals;
using namespace kavel::cli;

namespace {

struct Command
{
    QString name;
    QString usage;
    QString summary;
    std::function<int(const QStringList &)> run;
};

const QList<Command> &commands()
{
    static const QList<Command> table {
        {u"new"_s, u"TITLE"_s, u"create an empty project in the projects folder, print its path"_s,
         runNew},
        {u"add-media"_s, u"BUNDLE FILE..."_s, u"copy media files into a project"_s, runAddMedia},
        {u"info"_s, u"BUNDLE [--json]"_s,
         u"show title, dates, sources, counts and the words with their times"_s, runInfo},
        {u"edit"_s,
         u"BUNDLE [--replace-text OLD=NEW] [--keep-pauses S|whole] [--delete-fillers] "
         "[--delete-text PHRASE] [--delete-paragraph N] [--move-paragraph FROM:TO] [--dry-run]"_s,
         u"edit the transcript in a batch and save it"_s, runEdit},
        {u"search"_s, u"BUNDLE TEXT [--json]"_s,
         u"find text in the transcript, print each hit with its paragraph and times"_s, runSearch},
        {u"list"_s, u"[--json]"_s,
         u"list the projects, newest first, as the home page shows them"_s, runList},
        {u"thumbnail"_s, u"BUNDLE OUT.png"_s, u"write a project's card thumbnail"_s, runThumbnail},
        {u"composition"_s, u"BUNDLE"_s,
         u"print where each word plays in the preview, the duration and the cut stretches"_s,
         runComposition},
        {u"import"_s,
         u"FILE... [--server URL] [--email E --password P] [--language CODE] [--timeout SECONDS] [--no-refine]"_s,
         u"make a project from media files, transcribe it, print the bundle path"_s, runImport},
        {u"export"_s,
         u"BUNDLE --out DIR [--title T] [--video mp4|mov] [--codec h264|hevc] "
         "[--resolution 720p|1080p|4k] [--audio wav|aac|mp3] [--srt|--vtt] "
         "[--subtitles words|phrases] [--interchange mlt|edl|fcpxml] "
         "[--burn-subtitles [--caption-size small|medium|large]]"
         " [--loudness -14|-16|-23] [--denoise light|strong]"_s,
         u"write the edited result as a movie, sound and subtitles"_s, runExport},
    };
    return table;
}

void printHelp()
{
    out() << u"Usage: kavel-cli COMMAND [ARGUMENTS]\n\n"
             u"Kavel edits recordings by editing their transcript. This tool works on the\n"
             u"project bundles the editor uses, without a window.\n\nCommands:\n"_s;
    for (const Command &command : commands())
        out() << QStringLiteral("  %1 %2\n      %3\n")
                     .arg(command.name, command.usage, command.summary);
    out() << u"\nRun kavel-cli COMMAND --help for a command's options.\n"_s;
    out().flush();
}

} // namespace

int main(int argc, char *argv[])
{
    // Captions burned into a movie are drawn with Qt's fonts, which need the GUI side of
    // Qt. Only that run pays for it; it never shows a window, so it runs on the
    // display-less platform with fontconfig's fonts whatever the desktop asks of Qt
    // programs, and works without a display.
    const bool drawsText = argc > 1 && std::strcmp(argv[1], "export") == 0
        && std::any_of(argv + 2, argv + argc,
                       [](const char *a) { return std::strcmp(a, "--burn-subtitles") == 0; });
    if (drawsText)
        qputenv("QT_QPA_PLATFORM", "minimal:enable_fonts");
    const std::unique_ptr<QCoreApplication> app(drawsText ? new QGuiApplication(argc, argv)
                                                          : new QCoreApplication(argc, argv));
    QCoreApplication::setOrganizationName(u"Kavel"_s);
    QCoreApplication::setApplicationName(u"Kavel"_s);
    // The same language as the window: the settings screen's choice, else the system's.
    const kavel::i18n::Translations translations(kavel::i18n::resolve(
        kavel::i18n::preferenceFromRaw(kavel::service::Settings().interfaceLanguage())));

    QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.isEmpty() || arguments.first() == "--help"_L1 || arguments.first() == "-h"_L1
        || arguments.first() == "help"_L1) {
        printHelp();
        return arguments.isEmpty() ? 2 : 0;
    }

    const QString name = arguments.takeFirst();
    for (const Command &command : commands()) {
        if (command.name != name)
            continue;
        try {
            return command.run(arguments);
        } catch (const CommandFailure &failure) {
            err() << u"kavel-cli: "_s << failure.message << Qt::endl;
            return failure.exitCode;
        } catch (const kavel::Error &error) {
            err() << u"kavel-cli: "_s << error.description() << Qt::endl;
            return 1;
        }
    }
    err() << QCoreApplication::translate("kavel::cli",
                                         "kavel-cli: 没有“%1”这个命令（见 kavel-cli --help）")
                 .arg(name)
          << Qt::endl;
    return 2;
}
