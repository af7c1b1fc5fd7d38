#include "rendererror.h"

#include <QCoreApplication>

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
        return QCoreApplication::translate("kavel::export", "视频中没有可用的轨道");
    case Code::exportSessionFailed:
        return QCoreApplication::translate("kavel::export", "无法创建导出会话");
    case Code::exportFailed:
        return QCoreApplication::translate("kavel::export", "导出失败");
    }
    return {};
}

} // namespace kavel
