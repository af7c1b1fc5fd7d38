#include "symbolicons.h"

#include <QApplication>
#include <QHash>
#include <QStandardPaths>
#include <QStyle>

using namespace Qt::StringLiterals;

namespace kavel::app {

namespace {

struct IconChoice
{
    QString themeName;
    QStyle::StandardPixmap fallback;
};

const QHash<QString, IconChoice> &iconTable()
{
    static const QHash<QString, IconChoice> table {
        {u"house.fill"_s, {u"go-home"_s, QStyle::SP_DirHomeIcon}},
        {u"book.fill"_s, {u"help-contents"_s, QStyle::SP_DialogHelpButton}},
        {u"person.fill"_s, {u"user-identity"_s, QStyle::SP_DirHomeIcon}},
        {u"chevron.left"_s, {u"go-previous"_s, QStyle::SP_ArrowBack}},
        {u"chevron.up"_s, {u"go-up"_s, QStyle::SP_ArrowUp}},
        {u"chevron.down"_s, {u"go-down"_s, QStyle::SP_ArrowDown}},
        {u"square.and.arrow.up"_s, {u"cloud-upload"_s, QStyle::SP_ArrowUp}},
        {u"arrow.uturn.backward"_s, {u"edit-undo"_s, QStyle::SP_ArrowBack}},
        {u"arrow.uturn.forward"_s, {u"edit-redo"_s, QStyle::SP_ArrowForward}},
        {u"scissors"_s, {u"edit-cut"_s, QStyle::SP_DialogResetButton}},
        {u"doc.on.doc"_s, {u"edit-copy"_s, QStyle::SP_FileIcon}},
        {u"doc.on.clipboard"_s, {u"edit-paste"_s, QStyle::SP_FileDialogContentsView}},
        {u"trash"_s, {u"edit-delete"_s, QStyle::SP_TrashIcon}},
        {u"wand.and.stars"_s, {u"tools-wizard"_s, QStyle::SP_DialogApplyButton}},
        {u"pencil"_s, {u"document-edit"_s, QStyle::SP_FileDialogDetailedView}},
        {u"checkmark.circle.fill"_s, {u"dialog-ok-apply"_s, QStyle::SP_DialogApplyButton}},
        {u"magnifyingglass"_s, {u"edit-find"_s, QStyle::SP_FileDialogContentsView}},
        {u"square.and.arrow.down"_s, {u"document-save"_s, QStyle::SP_DialogSaveButton}},
        {u"play.fill"_s, {u"media-playback-start"_s, QStyle::SP_MediaPlay}},
        {u"pause.fill"_s, {u"media-playback-pause"_s, QStyle::SP_MediaPause}},
        {u"rotate.right"_s, {u"object-rotate-right"_s, QStyle::SP_BrowserReload}},
        {u"speaker.wave.2.fill"_s, {u"audio-volume-high"_s, QStyle::SP_MediaVolume}},
        {u"square.grid.2x2"_s, {u"view-grid"_s, QStyle::SP_FileDialogContentsView}},
        {u"list.bullet"_s, {u"view-list-details"_s, QStyle::SP_FileDialogDetailedView}},
        {u"film"_s, {u"video-x-generic"_s, QStyle::SP_FileIcon}},
        {u"film.fill"_s, {u"video-x-generic"_s, QStyle::SP_FileIcon}},
        {u"doc.fill"_s, {u"text-x-generic"_s, QStyle::SP_FileIcon}},
        {u"film.badge.plus"_s, {u"video-x-generic"_s, QStyle::SP_FileDialogNewFolder}},
        {u"xmark.circle.fill"_s, {u"window-close"_s, QStyle::SP_DialogCloseButton}},
        {u"folder"_s, {u"folder"_s, QStyle::SP_DirIcon}},
        {u"waveform"_s, {u"audio-x-generic"_s, QStyle::SP_MediaVolume}},
        {u"captions.bubble"_s, {u"text-x-generic"_s, QStyle::SP_FileDialogInfoView}},
        {u"arrow.up.left.and.arrow.down.right"_s,
         {u"view-fullscreen"_s, QStyle::SP_TitleBarMaxButton}},
        {u"arrow.down.right.and.arrow.up.left"_s,
         {u"view-restore"_s, QStyle::SP_TitleBarNormalButton}},
        {u"plus"_s, {u"list-add"_s, QStyle::SP_FileDialogNewFolder}},
    };
    return table;
}

} // namespace

QString themeIconName(const QString &symbolName)
{
    return iconTable().value(symbolName).themeName;
}

QIcon symbolIcon(const QString &symbolName)
{
    // Names the desktop's own theme lacks (or all of them, on a machine without one) come
    // from Breeze, which scripts/setup installs; the style pixmaps are the last resort.
    // Without a desktop platform theme Qt neither searches the system icon folders nor
    // names a theme, so both are filled in here.
    static const bool fallbackSet = [] {
        QStringList paths = QIcon::themeSearchPaths();
        const QStringList systemFolders = QStandardPaths::locateAll(
            QStandardPaths::GenericDataLocation, u"icons"_s, QStandardPaths::LocateDirectory);
        for (const QString &folder : systemFolders) {
            if (!paths.contains(folder))
                paths.append(folder);
        }
        QIcon::setThemeSearchPaths(paths);
        if (QIcon::themeName().isEmpty())
            QIcon::setThemeName(u"breeze"_s);
        else if (QIcon::fallbackThemeName().isEmpty() || QIcon::fallbackThemeName() == u"hicolor"_s)
            QIcon::setFallbackThemeName(u"breeze"_s);
        return true;
    }();
    Q_UNUSED(fallbackSet);
    const auto it = iconTable().constFind(symbolName);
    if (it == iconTable().constEnd())
        return QApplication::style()->standardIcon(QStyle::SP_FileIcon);
    if (QIcon::hasThemeIcon(it->themeName))
        return QIcon::fromTheme(it->themeName);
    return QApplication::style()->standardIcon(it->fallback);
}

} // namespace kavel::app
