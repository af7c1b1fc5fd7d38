#pragma once

#include <QString>

namespace kavel {

// Where bundles live: Documents/"Kavel", or the folder named by KAVEL_PROJECTS_DIR
// when that is set (for scripted use and for keeping test runs away from real
// projects). The folder is not created here.
QString projectsDirectory();

// Bundle names are "<title>.kavel".
inline constexpr QLatin1StringView bundleExtension {"kavel"};

// A title must be usable as one file-name component: not empty, not "." or "..",
// and without "/" or NUL. Returns the reason in the user's words, or an empty string.
QString invalidTitleReason(const QString &title);

// The title of a new project made from the media file at `mediaPath`: the file's name
// without its extension ("lesson-3" for "lesson-3.mp4"), made usable as a bundle name,
// with " 2", " 3"… added when `directory` already has a project of that name.
QString titleForMedia(const QString &mediaPath, const QString &directory);

} // namespace kavel
