#include "uploadspool.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace kavel::server {

namespace {

// Pieces arrive a few KiB at a time; the disk gets them a MiB at a time.
constexpr size_t writeBuffer = 1 << 20;

} // namespace

UploadFile::UploadFile(const std::string &directory, const std::string &fileName)
    : m_final(directory + "/" + fileName)
    , m_partial(directory + "/." + fileName + ".part")
    , m_fd(::open(m_partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600))
{
    m_buffer.reserve(writeBuffer);
}

UploadFile::~UploadFile()
{
    if (m_fd >= 0)
        ::close(m_fd);
    if (!m_committed)
        ::unlink(m_partial.c_str());
}

bool UploadFile::write(const char *data, size_t size)
{
    if (m_fd < 0)
        return false;
    m_buffer.append(data, size);
    return m_buffer.size() < writeBuffer || drain();
}

bool UploadFile::drain()
{
    size_t written = 0;
    while (written < m_buffer.size()) {
        const ssize_t n = ::write(m_fd, m_buffer.data() + written, m_buffer.size() - written);
        if (n <= 0)
            return false;
        written += static_cast<size_t>(n);
    }
    m_buffer.clear();
    return true;
}

bool UploadFile::commit()
{
    if (m_fd < 0 || !drain() || ::fsync(m_fd) != 0)
        return false;
    ::close(m_fd);
    m_fd = -1;
    m_committed = ::rename(m_partial.c_str(), m_final.c_str()) == 0;
    return m_committed;
}

UploadLedger::Admission UploadLedger::begin(const std::string &user, int storedUploads,
                                            std::uint64_t storedBytes, std::uint64_t declared)
{
    const std::lock_guard lock(m_mutex);
    Receiving &receiving = m_receiving[user];
    Admission admission;
    admission.busy = receiving.uploads >= maxReceivingPerUser || m_receivingInAll >= m_maxReceiving;
    admission.tooMany = storedUploads + receiving.uploads >= m_maxUploads;
    if (admission.busy || admission.tooMany) {
        if (receiving.uploads == 0)
            m_receiving.erase(user);
        return admission;
    }
    ++m_receivingInAll;
    const std::uint64_t taken = storedBytes + receiving.bytes;
    admission.room = taken < m_maxBytes ? m_maxBytes - taken : 0;
    ++receiving.uploads;
    receiving.bytes += declared;
    return admission;
}

void UploadLedger::finish(const std::string &user, std::uint64_t declared)
{
    const std::lock_guard lock(m_mutex);
    const auto it = m_receiving.find(user);
    if (it == m_receiving.end())
        return;
    it->second.bytes -= std::min(it->second.bytes, declared);
    --m_receivingInAll;
    if (--it->second.uploads <= 0)
        m_receiving.erase(it);
}

} // namespace kavel::server
