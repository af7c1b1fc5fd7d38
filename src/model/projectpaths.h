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

} // namespace kavel
