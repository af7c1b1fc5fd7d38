#pragma once

// Readers of model records out of an already parsed document; internal to the model.
#include "jsonreader.h"
#include "paragraph.h"

namespace kavel::detail {

WordBlock readWordBlock(jsonread::Element element);
Paragraph readParagraph(jsonread::Element element);

// Runs `read` and, if it throws a DecodeError, rethrows it with `where(index)` in front of
// the error's location ("paragraphs[3]" + "wordBlocks[1].text").
template<typename Read, typename Where> auto locate(Read &&read, Where &&where) -> decltype(read())
{
    try {
        return read();
    } catch (const DecodeError &error) {
        throw error.nested(where());
    }
}

} // namespace kavel::detail
