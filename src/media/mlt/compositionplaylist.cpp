#include "compositionplaylist.h"

#include "editdiff.h"

#include <Mlt.h>
#include <algorithm>
#include <bit>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::media::mlt {

namespace {

// A new edit list that differs from the live one in more entries than this is built
// afresh: past this point removing and inserting costs more than appending in bulk.
constexpr int maxDiffEdits = 512;

std::uint64_t mix(std::uint64_t h, std::uint64_t v)
{
    h ^= v + 0x9E3779B97F4A7C15ull + (h << 6) + (h >> 2);
    return h * 0xFF51AFD7ED558CCDull;
}

// Keyed by what the entry plays, not by its frames: deleting one word shifts every later
// entry's frames by a fraction, and keying on frames would make that a rebuild of all of
// them. Kept entries whose frames moved are resized in place instead.
std::uint64_t entryKey(const PlaylistEntry &e)
{
    return mix(
        mix(std::uint64_t(std::uint32_t(e.source)), std::bit_cast<std::uint64_t>(e.sourceStart)),
        std::bit_cast<std::uint64_t>(e.sourceEnd));
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
    , m_sound(std::make_unique<SoundFilter>())
{
    m_top->attach(m_sound->filter());
}

CompositionPlaylist::~CompositionPlaylist()
{
    m_top->detach(m_sound->filter());
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

timing::Rate CompositionPlaylist::rate() const
{
    return {m_profile.frame_rate_num(), m_profile.frame_rate_den()};
}

QList<SegmentFailure> CompositionPlaylist::apply(const EditList &editList)
{
    const timing::Rate grid = rate();
    QList<SegmentFailure> failures;
    std::vector<PlaylistEntry> entries;
    entries.reserve(static_cast<size_t>(editList.segments.size()));

    for (qsizetype i = 0; i < editList.segments.size(); ++i) {
        const EditSegment &segment = editList.segments.at(i);
        const int source = sourceIndex(segment.sourcePath);
        const bool playable = m_sources[size_t(source)].producer != nullptr;
        if (!playable)
            failures.append({i, u"无法打开媒体文件 "_s + segment.sourcePath});
        // The segment owns the playlist frames whose times fall inside it (taken from the
        // running composition time, so no rounding adds up) and plays the source frames
        // nearest to what the map puts there, one after another.
        const timing::Span frames = timing::outputFrames(segment, grid);
        if (frames.count() <= 0)
            continue;
        const auto inFrame = static_cast<int>(
            timing::nearestIndex(timing::sourceTimeAtFrame(segment, frames.begin, grid), grid));
        const auto outFrame = inFrame + static_cast<int>(frames.count());

        // A stretch that goes on in the source where the previous one of the same source
        // ended joins its entry: the two are one cut, and sharing the entry keeps their
        // boundary frame from being played twice. Continuity is judged on source times,
        // not frames, so that an edit elsewhere, which moves the grid's phase, does not
        // split or join entries all down the list.
        if (!entries.empty()) {
            PlaylistEntry &open = entries.back();
            if (playable && open.playable && open.source == source
                && std::abs(segment.sourceStart - open.sourceEnd) < 1e-9) {
                open.outFrame += static_cast<int>(frames.count());
                open.sourceEnd = segment.sourceEnd;
                continue;
            }
        }
        PlaylistEntry entry;
        entry.source = playable ? source : -1;
        entry.playable = playable;
        entry.inFrame = playable ? inFrame : 0;
        entry.outFrame = playable ? outFrame : int(frames.count());
        entry.playlistFrame = static_cast<int>(frames.begin);
        entry.sourceStart = segment.sourceStart;
        entry.sourceEnd = segment.sourceEnd;
        entries.push_back(entry);
    }

    std::vector<std::uint64_t> oldKeys, newKeys;
    const std::vector<PlaylistEntry> &playable = entries;
    const std::vector<PlaylistEntry> &live = m_entries;
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
        size_t oldIndex = 0;
        for (const DiffStep &step : *steps) {
            switch (step.kind) {
            case DiffStep::keep: {
                const PlaylistEntry &was = live[oldIndex++];
                const PlaylistEntry &now = playable[size_t(cursor)];
                if (was.inFrame != now.inFrame || was.outFrame != now.outFrame) {
                    resizeEntry(cursor, now);
                    ++m_stats.resized;
                }
                ++cursor;
                break;
            }
            case DiffStep::remove:
                removeEntry(cursor);
                ++oldIndex;
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
    m_duration = editList.duration();
    m_sound->setEdit(editList, grid.perSecond());
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
            if (e.playable)
                chunk->playlist->append(*m_sources[size_t(e.source)].producer, e.inFrame,
                                        e.outFrame - 1);
            else
                chunk->playlist->blank(e.frames() - 1);
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
    if (entry.playable)
        chunk.playlist->insert(*m_sources[size_t(entry.source)].producer, offset, entry.inFrame,
                               entry.outFrame - 1);
    else
        chunk.playlist->insert_blank(offset, entry.frames() - 1);
    ++chunk.count;
}

void CompositionPlaylist::resizeEntry(qsizetype position, const PlaylistEntry &entry)
{
    const auto [c, offset] = locate(position);
    if (c == qsizetype(m_chunks.size()))
        return;
    Chunk &chunk = *m_chunks[size_t(c)];
    touch(chunk);
    if (entry.playable)
        chunk.playlist->resize_clip(offset, entry.inFrame, entry.outFrame - 1);
    else
        chunk.playlist->resize_clip(offset, 0, entry.frames() - 1);
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
            // The parent's cut copied the chunk's length when it was made and clamps any
            // resize to it, so a chunk that grew would be cut short there.
            const int playtime = chunk.playlist->get_playtime();
            const std::unique_ptr<Mlt::Producer> cut(m_top->get_clip(c));
            if (cut && cut->get_length() < playtime)
                cut->set("length", playtime);
            m_top->resize_clip(c, 0, playtime - 1);
        }
    }
}

int CompositionPlaylist::frameCount() const
{
    return m_entries.empty() ? 0 : m_entries.back().playlistFrame + m_entries.back().frames();
}

// Playlist frame k plays from k / fps on the edited timeline: the entries were laid on that
// grid from the map's own running times.
double CompositionPlaylist::secondsAtFrame(int frame) const
{
    return std::clamp(rate().secondsAt(frame), 0.0, m_duration);
}

int CompositionPlaylist::frameAtSeconds(double seconds) const
{
    const int last = std::max(frameCount() - 1, 0);
    // The nearest frame: a seek to a word starts it at most half a frame early or late.
    return static_cast<int>(
        std::clamp<std::int64_t>(timing::nearestIndex(seconds, rate()), 0, last));
}

} // namespace kavel::media::mlt
