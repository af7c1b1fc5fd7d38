#include "fakerenderer.h"

#include <QFile>

using namespace Qt::StringLiterals;

namespace kavel::test {

namespace {

class FakeJob final : public media::RenderJob
{
public:
    FakeJob(const FakeRenderer &owner, QString path)
        : m_owner(owner)
        , m_pollsLeft(owner.pollsToFinish)
        , m_path(std::move(path))
    { }

    media::RenderState poll() override
    {
        if (m_state != media::RenderState::running || --m_pollsLeft > 0)
            return m_state;
        QFile file(m_path);
        if (!m_owner.failing && file.open(QIODevice::WriteOnly))
            file.write(m_owner.bytes);
        m_state = m_owner.failing ? media::RenderState::failed : media::RenderState::completed;
        return m_state;
    }
    double progress() const override { return m_pollsLeft > 1 ? 0.5 : 1.0; }
    QString errorText() const override
    {
        return m_state == media::RenderState::failed ? u"磁盘已满"_s : QString();
    }
    void cancel() override
    {
        if (m_state == media::RenderState::running)
            m_state = media::RenderState::cancelled;
    }

private:
    const FakeRenderer &m_owner;
    int m_pollsLeft;
    QString m_path;
    media::RenderState m_state = media::RenderState::running;
};

} // namespace

std::unique_ptr<media::RenderJob> FakeRenderer::start(const media::RenderRequest &request)
{
    requests.append(request);
    if (refuseToStart)
        throw media::MediaError(u"no encoder"_s);
    return std::make_unique<FakeJob>(*this, request.outputPath);
}

bool FakeRenderer::canEncode(media::RenderFormat) const
{
    return true;
}

} // namespace kavel::test
