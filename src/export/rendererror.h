#pragma once

#include "model/errors.h"

namespace kavel {

class RenderError : public Error
{
public:
    enum class Code {
        noTracks,
        exportSessionFailed,
        exportFailed,
    };

    explicit RenderError(Code code);

    Code code() const noexcept { return m_code; }
    static QString descriptionOf(Code code);

private:
    Code m_code;
};

} // namespace kavel
