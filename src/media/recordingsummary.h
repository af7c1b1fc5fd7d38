#pragma once

#include "mediaengine.h"
#include "model/projectstore.h"

namespace kavel::media {

// Answers the project list's questions about a recording with `engine`: its length, and
// a card-sized picture from a second in (none for sound alone or an unreadable file).
// The engine must outlive the returned function.
RecordingSummarizer recordingSummarizer(MediaEngine &engine);

} // namespace kavel::media
