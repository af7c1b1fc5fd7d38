#pragma once

#include <QStringList>

// Commands that edit or search a bundle's transcript, for batch clean-up in scripts.
// Paragraph numbers are 1-based, as `info` and `search` print them.
namespace kavel::cli {

int runEdit(const QStringList &arguments);
int runSearch(const QStringList &arguments);

} // namespace kavel::cli
