#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace kavel::server {

// One upload on its way to disk: written in pieces as it arrives, under a temporary
// name, and renamed when complete, so that a worker on another machine never reads half
// a file. Readable by the service's own user only; removed unless committed.
class UploadFile
{
public:
    UploadFile(const std::string &directory, const std::string &fileName);
    ~UploadFile();
    UploadFile(const UploadFile &) = delete;
    UploadFile &operator=(const UploadFile &) = delete;

    bool isOpen() const { return m_fd >= 0; }
    bool write(const char *data, size_t size);
    // Flushes to the disk and gives the file its final name.
    bool commit();

private:
    bool drain();

    std::string m_final;
    std::string m_partial;
    int m_fd = -1;
    std::string m_buffer;
    bool m_committed = false;
};

// What each user may have waiting for recognition: so many uploads, so many bytes in
// all. Uploads already stored are counted by the caller (they are shared by every node);
// the ones being received are counted here. A body being received holds a request
// thread, so only a few are received at once: two per user, and `maxReceiving` in all.
class UploadLedger
{
public:
    static constexpr int maxReceivingPerUser = 2;

    UploadLedger(int maxUploads, std::uint64_t maxBytes, int maxReceiving)
        : m_maxUploads(maxUploads)
        , m_maxBytes(maxBytes)
        , m_maxReceiving(maxReceiving)
    { }

    struct Admission
    {
        bool tooMany = false;
        // Too many arriving at once, of this user's or in all.
        bool busy = false;
        // Bytes this upload may take, given the others.
        std::uint64_t room = 0;
    };

    // Registers an upload of `declared` bytes (0 when its size is not known) by a user
    // who has `storedUploads` of `storedBytes` waiting. Unless it is refused as too
    // many or busy, finish() must follow.
    Admission begin(const std::string &user, int storedUploads, std::uint64_t storedBytes,
                    std::uint64_t declared);
    void finish(const std::string &user, std::uint64_t declared);

private:
    struct Receiving
    {
        int uploads = 0;
        std::uint64_t bytes = 0;
    };
    int m_maxUploads;
    std::uint64_t m_maxBytes;
    int m_maxReceiving;
    int m_receivingInAll = 0;
    std::mutex m_mutex;
    std::map<std::string, Receiving> m_receiving;
};

} // namespace kavel::server
