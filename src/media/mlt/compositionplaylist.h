#pragma once

#include "media/mediatypes.h"
#include "soundfilter.h"

#include <QHash>
#include <algorithm>
#include <memory>
#include <vector>

namespace Mlt {
class Playlist;
class Producer;
class Profile;
} // namespace Mlt

namespace kavel::media::mlt {

// One stretch of one source in the playlist: a run of words where each starts on the
// frame where the previous ended, so they play as one cut.
struct PlaylistEntry
{
    // -1 when the source could not be opened: the entry is then blank for its time.
    int source = 0;
    bool playable = true;
    // Source frames, out exclusive.
    int inFrame = 0;
    int outFrame = 0;
    // Where the entry starts in the playlist, in frames.
    int playlistFrame = 0;
    // The stretch's exact source times: they name the entry across edits, while its frames
    // move with the phase of the grid wherever an earlier edit changed the running time.
    double sourceStart = 0.0;
    double sourceEnd = 0.0;

    int frames() const { return outFrame - inFrame; }
};

// An edit list as a live MLT playlist of playlists: entries are grouped in chunks (MLT
// recounts a whole playlist on every change, so a flat one costs O(n²) to build), and a
// new edit list is applied as a diff against the previous one. Entries are laid on the
// profile's frame grid from the map's running times, so playlist frame k plays at exactly
// k / fps of the edited result and no rounding accumulates however many cuts there are.
class CompositionPlaylist
{
public:
    static constexpr int chunkSize = 48;

    explicit CompositionPlaylist(Mlt::Profile &profile);
    ~CompositionPlaylist();
    CompositionPlaylist(const CompositionPlaylist &) = delete;
    CompositionPlaylist &operator=(const CompositionPlaylist &) = delete;

    // Makes the playlist play `editList`. Returns the segments whose source could not be
    // opened; they take their time as blank frames.
    QList<SegmentFailure> apply(const EditList &editList);

    // Opens a source ahead of its first use: opening a long recording reads its whole
    // index, which should happen while sources load, not on the first edit.
    void prepare(const QString &path);

    Mlt::Playlist &playlist() { return *m_top; }
    SoundFilter &sound() { return *m_sound; }
    int frameCount() const;
    double duration() const { return m_duration; }
    const std::vector<PlaylistEntry> &entries() const { return m_entries; }
    // How the last apply() went: entries removed, inserted and resized where the grid's
    // phase moved, or a full rebuild.
    struct Stats
    {
        int removed = 0;
        int inserted = 0;
        int resized = 0;
        bool rebuilt = false;
    };
    const Stats &lastStats() const { return m_stats; }

    timing::Rate rate() const;
    double secondsAtFrame(int frame) const;
    int frameAtSeconds(double seconds) const;

private:
    struct Chunk;
    struct Source;
    int sourceIndex(const QString &path);
    void rebuild(const std::vector<PlaylistEntry> &entries);
    void insertEntry(qsizetype position, const PlaylistEntry &entry);
    void removeEntry(qsizetype position);
    void resizeEntry(qsizetype position, const PlaylistEntry &entry);
    void touch(Chunk &chunk);
    std::pair<qsizetype, int> locate(qsizetype position) const;
    void settleChunks();

    Mlt::Profile &m_profile;
    std::unique_ptr<Mlt::Playlist> m_top;
    std::vector<std::unique_ptr<Chunk>> m_chunks;
    std::vector<Source> m_sources;
    QHash<QString, int> m_sourceByPath;
    std::vector<PlaylistEntry> m_entries;
    std::unique_ptr<SoundFilter> m_sound;
    double m_duration = 0.0;
    Stats m_stats;
};

} // namespace kavel::media::mlt
