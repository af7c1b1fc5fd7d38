#include "rendererror.h"

using namespace Qt::StringLiterals;

namespace kavel {

RenderError::RenderError(Code code)
    : Error(descriptionOf(code))
    , m_code(code)
{ }

QString RenderError::descriptionOf(Code code)
{
    switch (code) {
    case Code::noTracks:
        return u"视频中没有可用的轨道"_s;
    case Code::exportSessionFailed:
        return u"无法创建导出会话"_s;
    case Code::exportFailed:
        return u"导出失败"_s;
    }
    return {};
}

} // namespace kavel
