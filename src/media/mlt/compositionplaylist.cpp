#include "compositionplaylist.h"

#include "editdiff.h"

#include <Mlt.h>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

namespace {

// A new edit list that differs from the live one in more entries than this is built
// afresh: past this point removing and inserting costs more than appending in bulk.
constexpr int maxDiffEdits = 512;

std::uint64_t entryKey(const PlaylistEntry &e)
{
    return (std::uint64_t(std::uint16_t(e.source)) << 48)
        | (std::uint64_t(std::uint32_t(e.inFrame) & 0xFFFFFF) << 24)
        | (std::uint64_t(std::uint32_t(e.outFrame) & 0xFFFFFF));
}

} // namespace

struct CompositionPlaylist::Chunk
{
    std::unique_ptr<Mlt::Playlist> playlist;
    int count = 0;
    bool dirty = false;
};

struct CompositionPlaylist::Source
{
    QString path;
    std::unique_ptr<Mlt::Producer> producer;
};

CompositionPlaylist::CompositionPlaylist(Mlt::Profile &profile)
    : m_profile(profile)
    , m_top(std::make_unique<Mlt::Playlist>(profile))
    , m_gain(std::make_unique<GainFilter>())
{
    m_top->attach(m_gain->filter());
}

CompositionPlaylist::~CompositionPlaylist()
{
    m_top->detach(m_gain->filter());
}

void CompositionPlaylist::prepare(const QString &path)
{
    sourceIndex(path);
}

int CompositionPlaylist::sourceIndex(const QString &path)
{
    if (const auto it = m_sourceByPath.constFind(path); it != m_sourceByPath.cend())
        return *it;
    Source source;
    source.path = path;
    // Through the loader, not "avformat" directly: the loader adds the normalising
    // filters (resampling, channel layout, rotation) that a bare producer lacks.
    auto producer = std::make_unique<Mlt::Producer>(m_profile, path.toUtf8().constData());
    if (producer->is_valid())
        source.producer = std::move(producer);
    const int index = static_cast<int>(m_sources.size());
    m_sources.push_back(std::move(source));
    m_sourceByPath.insert(path, index);
    return index;
}

QList<SegmentFailure> CompositionPlaylist::apply(const EditList &editList)
{
    const double fps = m_profile.fps();
    QList<SegmentFailure> failures;
    std::vector<PlaylistEntry> entries;
    entries.reserve(static_cast<size_t>(editList.segments.size()));
    auto gain = std::make_shared<GainMap>();
    gain->fps = fps;
    gain->segments.reserve(static_cast<size_t>(editList.segments.size()));

    std::vector<SegmentTime> segmentTimes;
    segmentTimes.reserve(static_cast<size_t>(editList.segments.size()));
    for (qsizetype i = 0; i < editList.segments.size(); ++i) {
        const EditSegment &segment = editList.segments.at(i);
        const int source = sourceIndex(segment.sourcePath);
        if (!m_sources[size_t(source)].producer)
            failures.append({i, u"无法打开媒体文件 "_s + segment.sourcePath});
        gain->segments.push_back({segment.sourceStart, segment.sourceEnd, segment.audio});
        if (segment.audio != SegmentAudio {})
            gain->unityGain = false;
        const int inFrame = static_cast<int>(std::lround(segment.sourceStart * fps));
        const int outFrame = static_cast<int>(std::lround(segment.sourceEnd * fps));

        // A word that starts on the frame where the previous one of the same source
        // ended joins its entry: separate cuts would play exactly the same frames, and
        // words that are truly contiguous must share their boundary frame or it would be
        // played twice. Fewer entries also mean less memory and faster edits.
        if (!entries.empty()) {
            PlaylistEntry &open = entries.back();
            if (open.source == source && inFrame == open.outFrame) {
                open.outFrame = std::max(open.outFrame, outFrame);
                ++open.segmentCount;
                segmentTimes.push_back({segment.compositionStart, segment.sourceStart,
                                        segment.length(), qsizetype(entries.size()) - 1});
                continue;
            }
        }
        PlaylistEntry entry;
        entry.source = source;
        entry.playable = m_sources[size_t(source)].producer != nullptr;
        entry.inFrame = inFrame;
        entry.outFrame = outFrame;
        entry.firstSegment = i;
        entry.segmentCount = 1;
        entries.push_back(entry);
        segmentTimes.push_back({segment.compositionStart, segment.sourceStart, segment.length(),
                                qsizetype(entries.size()) - 1});
    }
    // Only what MLT can play takes frames in its playlist.
    int playlistFrame = 0;
    for (PlaylistEntry &e : entries) {
        e.playlistFrame = playlistFrame;
        playlistFrame += e.playFrames();
    }
    gain->entries.reserve(entries.size());
    for (const PlaylistEntry &e : entries)
        gain->entries.push_back(
            {e.playlistFrame, e.playFrames(), e.inFrame, e.firstSegment, e.segmentCount});

    // Entries too short to cover a frame, and entries of sources that cannot be opened,
    // have no place in MLT's playlist; the key of such an entry never matches a live one.
    std::vector<std::uint64_t> oldKeys, newKeys;
    std::vector<PlaylistEntry> playable;
    for (const PlaylistEntry &e : entries)
        if (e.playFrames() > 0)
            playable.push_back(e);
    std::vector<PlaylistEntry> live;
    for (const PlaylistEntry &e : m_entries)
        if (e.playFrames() > 0)
            live.push_back(e);
    oldKeys.reserve(live.size());
    for (const PlaylistEntry &e : live)
        oldKeys.push_back(entryKey(e));
    newKeys.reserve(playable.size());
    for (const PlaylistEntry &e : playable)
        newKeys.push_back(entryKey(e));

    m_stats = {};
    mlt_service_lock(m_top->get_service());
    const auto steps = live.empty() ? std::nullopt : diffKeys(oldKeys, newKeys, maxDiffEdits);
    if (!steps) {
        rebuild(playable);
        m_stats.rebuilt = true;
    } else {
        qsizetype cursor = 0;
        for (const DiffStep &step : *steps) {
            switch (step.kind) {
            case DiffStep::keep:
                ++cursor;
                break;
            case DiffStep::remove:
                removeEntry(cursor);
                ++m_stats.removed;
                break;
            case DiffStep::insert:
                insertEntry(cursor, playable[size_t(step.newIndex)]);
                ++cursor;
                ++m_stats.inserted;
                break;
            }
        }
        settleChunks();
    }
    mlt_service_unlock(m_top->get_service());

    m_entries = std::move(entries);
    m_segmentTimes = std::move(segmentTimes);
    m_duration = editList.duration();
    m_gain->setMap(std::move(gain));
    return failures;
}

void CompositionPlaylist::rebuild(const std::vector<PlaylistEntry> &entries)
{
    m_top->clear();
    m_chunks.clear();
    // Each new cut would announce itself to everything that shares its source; nothing
    // plays this playlist's new entries before the build is complete.
    for (Source &source : m_sources)
        if (source.producer)
            source.producer->block();
    for (size_t start = 0; start < entries.size(); start += chunkSize) {
        auto chunk = std::make_unique<Chunk>();
        chunk->playlist = std::make_unique<Mlt::Playlist>(m_profile);
        chunk->playlist->block();
        const size_t end = std::min(entries.size(), start + chunkSize);
        for (size_t i = start; i < end; ++i) {
            const PlaylistEntry &e = entries[i];
            chunk->playlist->append(*m_sources[size_t(e.source)].producer, e.inFrame,
                                    e.outFrame - 1);
        }
        chunk->playlist->unblock();
        chunk->count = static_cast<int>(end - start);
        m_top->append(*chunk->playlist);
        m_chunks.push_back(std::move(chunk));
    }
    for (Source &source : m_sources)
        if (source.producer)
            source.producer->unblock();
}

std::pair<qsizetype, int> CompositionPlaylist::locate(qsizetype position) const
{
    qsizetype remaining = position;
    for (size_t c = 0; c < m_chunks.size(); ++c) {
        if (remaining < m_chunks[c]->count)
            return {qsizetype(c), int(remaining)};
        remaining -= m_chunks[c]->count;
    }
    return {qsizetype(m_chunks.size()), 0};
}

// While a batch edits a chunk, its changes are not announced: the parent would recount
// itself after every single insertion and removal. settleChunks() announces them once.
void CompositionPlaylist::touch(Chunk &chunk)
{
    if (chunk.dirty)
        return;
    chunk.dirty = true;
    chunk.playlist->block();
}

void CompositionPlaylist::insertEntry(qsizetype position, const PlaylistEntry &entry)
{
    auto [c, offset] = locate(position);
    if (c == qsizetype(m_chunks.size())) {
        // Past the end: append to the last chunk, or start one.
        if (m_chunks.empty() || m_chunks.back()->count >= 2 * chunkSize) {
            auto chunk = std::make_unique<Chunk>();
            chunk->playlist = std::make_unique<Mlt::Playlist>(m_profile);
            m_chunks.push_back(std::move(chunk));
        }
        c = qsizetype(m_chunks.size()) - 1;
        offset = m_chunks.back()->count;
    }
    Chunk &chunk = *m_chunks[size_t(c)];
    touch(chunk);
    chunk.playlist->insert(*m_sources[size_t(entry.source)].producer, offset, entry.inFrame,
                           entry.outFrame - 1);
    ++chunk.count;
}

void CompositionPlaylist::removeEntry(qsizetype position)
{
    const auto [c, offset] = locate(position);
    if (c == qsizetype(m_chunks.size()))
        return;
    Chunk &chunk = *m_chunks[size_t(c)];
    touch(chunk);
    chunk.playlist->remove(offset);
    --chunk.count;
}

// Brings the parent in line with the chunks it holds: a chunk that changed length must
// be resized in the parent, which otherwise keeps playing the old length.
void CompositionPlaylist::settleChunks()
{
    // Chunks match the parent's entries by position. New chunks only ever come at the
    // end; empty ones are dropped from the back forwards so earlier positions hold.
    const int inParent = m_top->count();
    for (size_t c = size_t(inParent); c < m_chunks.size(); ++c) {
        if (m_chunks[c]->dirty)
            m_chunks[c]->playlist->unblock();
        m_chunks[c]->dirty = false;
        m_top->append(*m_chunks[c]->playlist);
    }
    for (int c = std::min(inParent, int(m_chunks.size())) - 1; c >= 0; --c) {
        Chunk &chunk = *m_chunks[size_t(c)];
        if (!chunk.dirty)
            continue;
        chunk.dirty = false;
        chunk.playlist->unblock();
        if (chunk.count == 0) {
            m_top->remove(c);
            m_chunks.erase(m_chunks.begin() + c);
        } else {
            m_top->resize_clip(c, 0, chunk.playlist->get_playtime() - 1);
        }
    }
}

int CompositionPlaylist::frameCount() const
{
    return m_entries.empty() ? 0 : m_entries.back().playlistFrame + m_entries.back().playFrames();
}

double CompositionPlaylist::secondsAtFrame(int frame) const
{
    if (m_entries.empty() || frame <= 0)
        return 0.0;
    if (frame >= frameCount())
        return m_duration;
    const auto it
        = std::upper_bound(m_entries.cbegin(), m_entries.cend(), frame,
                           [](int f, const PlaylistEntry &e) { return f < e.playlistFrame; });
    const PlaylistEntry &e = *(it - 1);
    // The frame's own source time, placed on the word it falls in; a frame in the gap
    // between two words of one entry belongs to the end of the earlier word.
    const double source = (e.inFrame + (frame - e.playlistFrame)) / m_profile.fps();
    const auto first = m_segmentTimes.cbegin() + e.firstSegment;
    const auto last = first + e.segmentCount;
    auto segment = std::upper_bound(
        first, last, source, [](double s, const SegmentTime &t) { return s < t.sourceStart; });
    if (segment != first)
        --segment;
    return segment->compositionStart
        + std::clamp(source - segment->sourceStart, 0.0, segment->length);
}

int CompositionPlaylist::frameAtSeconds(double seconds) const
{
    if (m_entries.empty() || seconds <= 0)
        return 0;
    if (seconds >= m_duration)
        return frameCount();
    const auto it
        = std::upper_bound(m_segmentTimes.cbegin(), m_segmentTimes.cend(), seconds,
                           [](double t, const SegmentTime &s) { return t < s.compositionStart; });
    const SegmentTime &segment = *(it - 1);
    const PlaylistEntry &e = m_entries[size_t(segment.entry)];
    const int sourceFrame = static_cast<int>(std::lround(
        (segment.sourceStart + (seconds - segment.compositionStart)) * m_profile.fps()));
    const int frame = e.playlistFrame + sourceFrame - e.inFrame;
    return std::clamp(frame, e.playlistFrame, e.playlistFrame + std::max(e.playFrames() - 1, 0));
}

} // namespace kavel::media::mlt
