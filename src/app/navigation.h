#pragma once

namespace kavel::app {

// The shell's destinations. editor, projects and settings are reached from the screens,
// not from the sidebar.
enum class NavigationItem { home, editor, projects, guide, settings, account };

} // namespace kavel::app
