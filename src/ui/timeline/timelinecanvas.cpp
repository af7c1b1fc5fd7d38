#include "timelinecanvas.h"

#include "audiowaveformview.h"
#include "editor/editorviewmodel.h"
#include "timelinescale.h"
#include "ui/transcript/paragraphsection.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace kavel::ui {

namespace {

const QColor backgroundColor(28, 28, 31);
const QColor rulerColor(34, 34, 38);
const QColor playheadColor(255, 69, 58);

} // namespace

TimelineCanvas::TimelineCanvas(EditorViewModel &editor, QWidget *parent)
    : QWidget(parent)
    , m_editor(editor)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMouseTracking(true);
    connect(&m_editor, &EditorViewModel::paragraphsChanged, this, &TimelineCanvas::rebuildClips);
    for (auto signal : {&EditorViewModel::selectedParagraphIdChanged,
                        &EditorViewModel::trackFlagsChanged, &EditorViewModel::playerStateChanged})
        connect(&m_editor, signal, this, qOverload<>(&QWidget::update));
    // A rebuild lays the map anew when the sources load or the pause setting changes.
    connect(&m_editor.playerVM(), &VideoPlayerViewModel::compositionMapChanged, this,
            &TimelineCanvas::rebuildClips);
    connect(&m_editor.playerVM(), &VideoPlayerViewModel::durationChanged, this,
            &TimelineCanvas::updateSize);
    rebuildClips();
}

void TimelineCanvas::rebuildClips()
{
    // Clips are laid by the preview's own rules, pauses included, so they end where the
    // player's duration says; laid now rather than by the debounced rebuild, so a clip
    // dragged along the track is under the pointer at once.
    const QList<Paragraph> &paragraphs = m_editor.paragraphs();
    const CompositionPlan plan = m_editor.playerVM().planFor(flattenParagraphs(paragraphs));
    const QList<ParagraphSpan> spans = paragraphSpans(paragraphs, plan.map);
    m_clipStarts.clear();
    for (const ParagraphSpan &span : spans)
        m_clipStarts.append(span.start);
    m_clipStarts.append(plan.duration);
    updateSize();
    update();
}

void TimelineCanvas::setPixelsPerSecond(double pixelsPerSecond)
{
    if (pixelsPerSecond == m_pixelsPerSecond)
        return;
    m_pixelsPerSecond = pixelsPerSecond;
    updateSize();
    update();
}

double TimelineCanvas::contentDuration() const
{
    return std::max(m_editor.playerVM().duration(),
                    m_clipStarts.isEmpty() ? 0.0 : m_clipStarts.last());
}

QSize TimelineCanvas::sizeHint() const
{
    const int width
        = std::max(static_cast<int>(std::ceil(timeToX(contentDuration()))) + trailingSpace,
                   m_minimumContentWidth);
    return {width, rulerHeight + videoTrackHeight + audioTrackHeight + 2 * trackGap};
}

void TimelineCanvas::setMinimumContentWidth(int width)
{
    if (width == m_minimumContentWidth)
        return;
    m_minimumContentWidth = width;
    updateSize();
}

void TimelineCanvas::updateSize()
{
    const QSize size = sizeHint();
    if (size.width() != width()) {
        setMinimumWidth(size.width());
        resize(size.width(), std::max(height(), size.height()));
        Q_EMIT contentWidthChanged();
    }
}

QRectF TimelineCanvas::trackRect(TrackType track) const
{
    const qreal top = track == TrackType::video
        ? rulerHeight + trackGap
        : rulerHeight + trackGap + videoTrackHeight + trackGap;
    const qreal h = track == TrackType::video ? videoTrackHeight : audioTrackHeight;
    return {0.0, top, static_cast<qreal>(width()), h};
}

QRectF TimelineCanvas::clipRect(TrackType track, qsizetype paragraphIndex) const
{
    const QRectF row = trackRect(track);
    const double start = timeToX(m_clipStarts.at(paragraphIndex));
    const double end = timeToX(m_clipStarts.at(paragraphIndex + 1));
    return {start, row.top(), end - start, row.height()};
}

qsizetype TimelineCanvas::paragraphAtX(double x) const
{
    const double t = xToTime(x);
    if (m_clipStarts.size() < 2 || t < 0.0)
        return -1;
    const auto it = std::upper_bound(m_clipStarts.cbegin(), m_clipStarts.cend(), t);
    const qsizetype index = (it - m_clipStarts.cbegin()) - 1;
    return index >= 0 && index < m_clipStarts.size() - 1 ? index : -1;
}

double TimelineCanvas::playheadX() const
{
    return timeToX(m_editor.playerVM().currentTime());
}

bool TimelineCanvas::isLocked(TrackType track) const
{
    return track == TrackType::video ? m_editor.isVideoTrackLocked()
                                     : m_editor.isAudioTrackLocked();
}

// --- painting ----------------------------------------------------------------------

void TimelineCanvas::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    const QRectF exposed = event->rect();
    painter.fillRect(exposed, backgroundColor);
    paintClips(painter, exposed);
    paintRuler(painter, exposed);

    const double x = playheadX();
    if (x >= exposed.left() - 8 && x <= exposed.right() + 8) {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(playheadColor, 1.5));
        painter.drawLine(QPointF(x, rulerHeight - 6), QPointF(x, height()));
        // Narrow enough that a label beside the tick it stands on stays readable.
        const double half = playheadKnobHalfWidth;
        QPainterPath knob;
        knob.moveTo(x - half, 2);
        knob.lineTo(x + half, 2);
        knob.lineTo(x + half, rulerHeight - 10);
        knob.lineTo(x, rulerHeight - 4);
        knob.lineTo(x - half, rulerHeight - 10);
        knob.closeSubpath();
        painter.setPen(Qt::NoPen);
        painter.setBrush(playheadColor);
        painter.drawPath(knob);
    }
}

void TimelineCanvas::paintRuler(QPainter &painter, const QRectF &exposed)
{
    const QRectF ruler(exposed.left(), 0, exposed.width(), rulerHeight);
    if (!ruler.intersects(exposed))
        return;
    painter.fillRect(ruler, rulerColor);
    QFont font = painter.font();
    font.setPixelSize(8);
    painter.setFont(font);
    const QFontMetricsF metrics(font);
    // Labels start right of their tick, so one that begins left of the exposed band
    // may still reach into it.
    const double labelReach = 40.0;
    // Ticks are laid out from time 0 at x 0; the canvas starts time 0 further right.
    painter.save();
    painter.translate(leadingSpace, 0);
    for (const RulerTick &tick :
         rulerTicks(m_pixelsPerSecond, m_editor.playerVM().duration(),
                    exposed.left() - leadingSpace - labelReach, exposed.right() - leadingSpace)) {
        const qreal length = tick.major ? 10.0 : 5.0;
        painter.setPen(QPen(QColor::fromRgbF(1, 1, 1, 0.3f), 0.5));
        painter.drawLine(QPointF(tick.x, rulerHeight - length), QPointF(tick.x, rulerHeight));
        if (tick.major) {
            painter.setPen(QColor::fromRgbF(1, 1, 1, 0.5f));
            painter.drawText(QPointF(tick.x + 4.0, rulerHeight - 10.0 - metrics.descent()),
                             tick.label);
        }
    }
    painter.restore();
}

void TimelineCanvas::paintClips(QPainter &painter, const QRectF &exposed)
{
    const QList<Paragraph> &paragraphs = m_editor.paragraphs();
    if (paragraphs.isEmpty() || m_clipStarts.size() != paragraphs.size() + 1)
        return;
    painter.setRenderHint(QPainter::Antialiasing);
    QFont font = painter.font();
    font.setPixelSize(11);
    painter.setFont(font);
    const QFontMetricsF metrics(font);
    const auto selected = m_editor.selectedParagraphId();

    qsizetype first = std::max<qsizetype>(paragraphAtX(exposed.left()), 0);
    for (qsizetype i = first; i < paragraphs.size(); ++i) {
        const QRectF video = clipRect(TrackType::video, i);
        if (video.left() > exposed.right())
            break;
        const Paragraph &p = paragraphs.at(i);
        const bool isSelected = selected == p.id;
        const bool isDragged = m_draggedParagraphId == p.id;
        const QRectF videoBox = video.adjusted(0.5, 0.5, -0.5, -0.5);
        const QRectF audioBox = clipRect(TrackType::audio, i).adjusted(0.5, 0.5, -0.5, -0.5);

        // Video clip: the speaker and the opening words.
        QColor videoFill = m_editor.isVideoTrackMuted() ? QColor(70, 74, 84) : QColor(48, 92, 150);
        if (isDragged)
            videoFill = videoFill.lighter(130);
        painter.setPen(isSelected ? QPen(QColor(255, 255, 255, 220), 1.5)
                                  : QPen(QColor(255, 255, 255, 40), 1.0));
        painter.setBrush(videoFill);
        painter.drawRoundedRect(videoBox, 4, 4);
        if (videoBox.width() > 16) {
            painter.save();
            painter.setClipRect(videoBox.adjusted(5, 0, -4, 0));
            QString words;
            for (const WordBlock &w : p.wordBlocks) {
                words += w.text;
                if (words.size() > 80)
                    break;
                if (!w.text.isEmpty() && w.text.back().unicode() < 0x2E80)
                    words += u' ';
            }
            painter.setPen(QColor(255, 255, 255, 150));
            painter.drawText(QPointF(videoBox.left() + 6, videoBox.top() + 4 + metrics.ascent()),
                             speakerTitle(p.speakerLabel));
            painter.setPen(QColor(255, 255, 255, 230));
            painter.drawText(
                QPointF(videoBox.left() + 6, videoBox.top() + 20 + metrics.ascent()),
                metrics.elidedText(words.trimmed(), Qt::ElideRight, videoBox.width() - 10));
            painter.restore();
        }

        // Audio clip with its strip; a paragraph is muted when the track or all its
        // words are, detached when all its words are.
        bool allMuted = !p.wordBlocks.isEmpty();
        bool allDetached = !p.wordBlocks.isEmpty();
        float volume = 0.0f;
        for (const WordBlock &w : p.wordBlocks) {
            allMuted = allMuted && w.isMuted;
            allDetached = allDetached && w.isAudioDetached;
            volume += w.volumeLevel;
        }
        WaveformInputs inputs;
        inputs.blockId = p.id;
        inputs.isMuted = m_editor.isAudioTrackMuted() || allMuted;
        inputs.isDetached = allDetached;
        inputs.volumeLevel = p.wordBlocks.isEmpty()
            ? 1.0f
            : std::clamp(volume / static_cast<float>(p.wordBlocks.size()), 0.0f, 1.0f);
        painter.setPen(isSelected ? QPen(QColor(255, 255, 255, 220), 1.5)
                                  : QPen(QColor(255, 255, 255, 30), 1.0));
        painter.setBrush(isDragged ? QColor(44, 70, 52) : QColor(32, 52, 40));
        painter.drawRoundedRect(audioBox, 4, 4);
        painter.save();
        painter.setClipRect(audioBox.adjusted(2, 2, -2, -2));
        paintWaveform(painter, audioBox.adjusted(3, 4, -2, -4), inputs);
        painter.restore();
    }
}

// --- mouse -------------------------------------------------------------------------

void TimelineCanvas::seekTo(double x)
{
    // The player seeks by word: take the word whose stretch of the edited timeline
    // holds the time under the pointer.
    VideoPlayerViewModel &player = m_editor.playerVM();
    const double t = std::max(0.0, xToTime(x));
    const QList<CompositionEntry> &map = player.compositionMap();
    if (map.isEmpty())
        return;
    const auto it
        = std::upper_bound(map.cbegin(), map.cend(), t, [](double time, const CompositionEntry &e) {
              return time < e.compositionStart;
          });
    const CompositionEntry &entry = it == map.cbegin() ? map.first() : *(it - 1);
    player.seekToBlock(entry.block);
}

void TimelineCanvas::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    const QPointF pos = event->position();
    m_pressPos = pos;
    if (pos.y() < rulerHeight) {
        m_isDraggingPlayhead = true;
        seekTo(pos.x());
        return;
    }
    const qsizetype index = paragraphAtX(pos.x());
    if (index < 0)
        return;
    const TrackType track = trackRect(TrackType::video).contains(QPointF(1.0, pos.y()))
        ? TrackType::video
        : TrackType::audio;
    if (isLocked(track))
        return;
    m_pressedParagraphId = m_editor.paragraphs().at(index).id;
}

void TimelineCanvas::mouseMoveEvent(QMouseEvent *event)
{
    const QPointF pos = event->position();
    if (m_isDraggingPlayhead) {
        seekTo(pos.x());
        return;
    }
    if (!m_pressedParagraphId)
        return;
    if (!m_draggedParagraphId) {
        if ((pos - m_pressPos).manhattanLength() < QApplication::startDragDistance())
            return;
        m_draggedParagraphId = m_pressedParagraphId;
        m_movedInThisDrag = false;
        setCursor(Qt::ClosedHandCursor);
        Q_EMIT draggedParagraphIdChanged();
    }
    const qsizetype target = paragraphAtX(pos.x());
    if (target == m_dropTarget)
        return;
    m_dropTarget = target;
    const QList<Paragraph> &paragraphs = m_editor.paragraphs();
    if (target < 0 || paragraphs.at(target).id == *m_draggedParagraphId)
        return;
    qsizetype from = -1;
    for (qsizetype i = 0; i < paragraphs.size(); ++i) {
        if (paragraphs.at(i).id == *m_draggedParagraphId)
            from = i;
    }
    if (from < 0 || from == target)
        return;
    m_editor.moveParagraphs({from}, from < target ? target + 1 : target, m_movedInThisDrag);
    m_movedInThisDrag = true;
    // The dragged clip now lies under the pointer; moving on within it changes nothing.
    m_dropTarget = paragraphAtX(pos.x());
}

void TimelineCanvas::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    if (m_isDraggingPlayhead) {
        m_isDraggingPlayhead = false;
    } else if (m_draggedParagraphId) {
        m_draggedParagraphId.reset();
        unsetCursor();
        Q_EMIT draggedParagraphIdChanged();
        update();
    } else if (m_pressedParagraphId) {
        for (const Paragraph &p : m_editor.paragraphs()) {
            if (p.id == *m_pressedParagraphId) {
                m_editor.selectParagraph(p);
                break;
            }
        }
    }
    m_pressedParagraphId.reset();
    m_dropTarget = -1;
}

} // namespace kavel::ui
