#pragma once

#include <QString>

namespace kavel::trash {

// Where a deleted file or folder went, and what it takes to bring it back.
struct TrashedItem
{
    QString originalPath;
    // The item inside the trash's "files" folder, and its record in "info".
    QString trashedPath;
    QString infoPath;
};

// The desktop's trash, as file managers share it: the user's home trash when the item is
// on the same device, otherwise the trash at the top of the item's volume
// (".Trash/<uid>" when the administrator made one, else ".Trash-<uid>", made here).
// Throws Error with the reason in the user's words when no trash can take the item; it
// is then left where it was.
TrashedItem moveToTrash(const QString &path);

// Puts a trashed item back and forgets its record. Throws Error when its place has been
// taken in the meantime or it is no longer in the trash.
void restore(const TrashedItem &item);

} // namespace kavel::trash
