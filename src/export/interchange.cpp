#include "interchange.h"

#include <QFileInfo>
#include <QUrl>
#include <QXmlStreamWriter>
#include <cmath>
#include <numeric>

using namespace Qt::StringLiterals;

namespace kavel::interchange {

namespace {

qsizetype sourceIndex(const QList<Source> &sources, const QString &path)
{
    for (qsizetype i = 0; i < sources.size(); ++i)
        if (sources.at(i).path == path)
            return i;
    return -1;
}

timing::Rate rateOf(const Source &source, timing::Rate timeline)
{
    return source.hasVideo && source.rate.num > 0 && source.rate.den > 0 ? source.rate : timeline;
}

// "k*den/num s" reduced, as FCPXML writes times.
QString rational(std::int64_t frames, timing::Rate rate)
{
    std::int64_t num = frames * rate.den, den = rate.num;
    const std::int64_t divisor = std::gcd(num, den);
    if (divisor > 1) {
        num /= divisor;
        den /= divisor;
    }
    return den == 1 ? u"%1s"_s.arg(num) : u"%1/%2s"_s.arg(num).arg(den);
}

// The first picture's size; a project of sound alone gets a full-HD frame.
QSize frameSize(const QList<Source> &sources)
{
    for (const Source &source : sources)
        if (source.hasVideo && source.size.isValid())
            return source.size;
    return {1920, 1080};
}

QString clipName(const Source &source)
{
    return QFileInfo(source.path).fileName();
}

QByteArray mltDocument(const QList<Cut> &cuts, const QList<Source> &sources, timing::Rate rate,
                       const QString &title)
{
    QByteArray out;
    QXmlStreamWriter xml(&out);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(u"mlt"_s);
    xml.writeAttribute(u"LC_NUMERIC"_s, u"C"_s);
    xml.writeAttribute(u"title"_s, title);
    xml.writeAttribute(u"producer"_s, u"main"_s);

    const QSize size = frameSize(sources);
    const std::int64_t divisor = std::gcd(size.width(), size.height());
    xml.writeStartElement(u"profile"_s);
    xml.writeAttribute(u"width"_s, QString::number(size.width()));
    xml.writeAttribute(u"height"_s, QString::number(size.height()));
    xml.writeAttribute(u"progressive"_s, u"1"_s);
    xml.writeAttribute(u"sample_aspect_num"_s, u"1"_s);
    xml.writeAttribute(u"sample_aspect_den"_s, u"1"_s);
    xml.writeAttribute(u"display_aspect_num"_s, QString::number(size.width() / divisor));
    xml.writeAttribute(u"display_aspect_den"_s, QString::number(size.height() / divisor));
    xml.writeAttribute(u"frame_rate_num"_s, QString::number(rate.num));
    xml.writeAttribute(u"frame_rate_den"_s, QString::number(rate.den));
    xml.writeEndElement();

    for (qsizetype i = 0; i < sources.size(); ++i) {
        const Source &source = sources.at(i);
        xml.writeStartElement(u"producer"_s);
        xml.writeAttribute(u"id"_s, u"source%1"_s.arg(i));
        xml.writeAttribute(u"in"_s, u"0"_s);
        const std::int64_t frames
            = std::max<std::int64_t>(1, timing::firstFrameAtOrAfter(source.duration, rate));
        xml.writeAttribute(u"out"_s, QString::number(frames - 1));
        xml.writeStartElement(u"property"_s);
        xml.writeAttribute(u"name"_s, u"resource"_s);
        xml.writeCharacters(source.path);
        xml.writeEndElement();
        xml.writeEndElement();
    }
    xml.writeStartElement(u"playlist"_s);
    xml.writeAttribute(u"id"_s, u"main"_s);
    for (const Cut &cut : cuts) {
        // MLT counts every producer's frames at the profile's rate.
        xml.writeEmptyElement(u"entry"_s);
        xml.writeAttribute(u"producer"_s, u"source%1"_s.arg(cut.source));
        const std::int64_t in = timing::nearestIndex(cut.sourceStart, rate);
        xml.writeAttribute(u"in"_s, QString::number(in));
        xml.writeAttribute(u"out"_s, QString::number(in + cut.length() - 1));
    }
    xml.writeEndElement();
    xml.writeEndElement();
    xml.writeEndDocument();
    return out;
}

QByteArray edlDocument(const QList<Cut> &cuts, const QList<Source> &sources, timing::Rate rate,
                       const QString &title)
{
    // Record time starts at one hour, as broadcast timelines do.
    const std::int64_t recordStart = std::int64_t(3600) * ((rate.num + rate.den - 1) / rate.den);
    QString text = u"TITLE: %1\nFCM: NON-DROP FRAME\n"_s.arg(title.left(70));
    int event = 0;
    for (const Cut &cut : cuts) {
        const Source &source = sources.at(cut.source);
        const timing::Rate sourceRate = rateOf(source, rate);
        ++event;
        text += u"\n%1  AX       %2  C        %3 %4 %5 %6\n"_s.arg(event, 3, 10, QChar(u'0'))
                    .arg(source.hasVideo ? u"B   "_s : u"AA  "_s)
                    .arg(timecode(cut.sourceIn, sourceRate),
                         timecode(cut.sourceIn + cut.length(), sourceRate),
                         timecode(recordStart + cut.recordIn, rate),
                         timecode(recordStart + cut.recordOut, rate));
        text += u"* FROM CLIP NAME: %1\n* SOURCE FILE: %2\n"_s.arg(clipName(source), source.path);
    }
    return text.toUtf8();
}

QByteArray fcpxmlDocument(const QList<Cut> &cuts, const QList<Source> &sources, timing::Rate rate,
                          const QString &title)
{
    QByteArray out;
    QXmlStreamWriter xml(&out);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeDTD(u"<!DOCTYPE fcpxml>"_s);
    xml.writeStartElement(u"fcpxml"_s);
    xml.writeAttribute(u"version"_s, u"1.9"_s);
    xml.writeStartElement(u"resources"_s);
    const QSize size = frameSize(sources);
    const auto writeFormat = [&](const QString &id, timing::Rate r, QSize s) {
        xml.writeEmptyElement(u"format"_s);
        xml.writeAttribute(u"id"_s, id);
        xml.writeAttribute(u"frameDuration"_s, rational(1, r));
        xml.writeAttribute(u"width"_s, QString::number(s.width()));
        xml.writeAttribute(u"height"_s, QString::number(s.height()));
    };
    writeFormat(u"timeline"_s, rate, size);
    for (qsizetype i = 0; i < sources.size(); ++i) {
        const Source &source = sources.at(i);
        const timing::Rate sourceRate = rateOf(source, rate);
        if (source.hasVideo)
            writeFormat(u"format%1"_s.arg(i), sourceRate, source.size);
        xml.writeStartElement(u"asset"_s);
        xml.writeAttribute(u"id"_s, u"asset%1"_s.arg(i));
        xml.writeAttribute(u"name"_s, clipName(source));
        xml.writeAttribute(u"start"_s, u"0s"_s);
        xml.writeAttribute(
            u"duration"_s,
            rational(timing::firstFrameAtOrAfter(source.duration, sourceRate), sourceRate));
        xml.writeAttribute(u"hasVideo"_s, source.hasVideo ? u"1"_s : u"0"_s);
        xml.writeAttribute(u"hasAudio"_s, source.hasAudio ? u"1"_s : u"0"_s);
        if (source.hasVideo)
            xml.writeAttribute(u"format"_s, u"format%1"_s.arg(i));
        xml.writeEmptyElement(u"media-rep"_s);
        xml.writeAttribute(u"kind"_s, u"original-media"_s);
        xml.writeAttribute(u"src"_s, QUrl::fromLocalFile(source.path).toString(QUrl::FullyEncoded));
        xml.writeEndElement();
    }
    xml.writeEndElement();

    std::int64_t total = cuts.isEmpty() ? 0 : cuts.last().recordOut;
    xml.writeStartElement(u"library"_s);
    xml.writeStartElement(u"event"_s);
    xml.writeAttribute(u"name"_s, title);
    xml.writeStartElement(u"project"_s);
    xml.writeAttribute(u"name"_s, title);
    xml.writeStartElement(u"sequence"_s);
    xml.writeAttribute(u"format"_s, u"timeline"_s);
    xml.writeAttribute(u"duration"_s, rational(total, rate));
    xml.writeAttribute(u"tcStart"_s, u"0s"_s);
    xml.writeAttribute(u"tcFormat"_s, u"NDF"_s);
    xml.writeStartElement(u"spine"_s);
    for (const Cut &cut : cuts) {
        const Source &source = sources.at(cut.source);
        const timing::Rate sourceRate = rateOf(source, rate);
        xml.writeEmptyElement(u"asset-clip"_s);
        xml.writeAttribute(u"ref"_s, u"asset%1"_s.arg(cut.source));
        xml.writeAttribute(u"name"_s, clipName(source));
        xml.writeAttribute(u"offset"_s, rational(cut.recordIn, rate));
        xml.writeAttribute(u"start"_s, rational(cut.sourceIn, sourceRate));
        xml.writeAttribute(u"duration"_s, rational(cut.length(), rate));
        xml.writeAttribute(u"tcFormat"_s, u"NDF"_s);
    }
    xml.writeEndDocument();
    return out;
}

} // namespace

timing::Rate rateFromFramesPerSecond(double fps)
{
    if (!(fps > 0) || !std::isfinite(fps))
        return {30, 1};
    for (const int base : {24, 30, 48, 60, 120}) {
        if (std::abs(fps - base * 1000.0 / 1001.0) < 0.005)
            return {base * 1000, 1001};
    }
    if (std::abs(fps - std::round(fps)) < 0.005)
        return {int(std::lround(fps)), 1};
    return {int(std::lround(fps * 1000.0)), 1000};
}

timing::Rate timelineRate(const QList<Source> &sources)
{
    for (const Source &source : sources)
        if (source.hasVideo && source.rate.num > 0 && source.rate.den > 0)
            return source.rate;
    return {30, 1};
}

QList<Cut> cutList(const EditList &edit, const QList<Source> &sources)
{
    const timing::Rate rate = timelineRate(sources);
    QList<Cut> cuts;
    for (const EditSegment &segment : edit.segments) {
        const qsizetype source = sourceIndex(sources, segment.sourcePath);
        if (source < 0)
            continue;
        const timing::Span frames = timing::outputFrames(segment, rate);
        if (frames.count() <= 0)
            continue;
        const timing::Rate sourceRate = rateOf(sources.at(source), rate);
        const std::int64_t sourceIn = timing::nearestIndex(
            timing::sourceTimeAtFrame(segment, frames.begin, rate), sourceRate);
        if (!cuts.isEmpty()) {
            Cut &last = cuts.last();
            if (last.source == source && last.recordOut == frames.begin
                && last.sourceIn + last.length() == sourceIn) {
                last.recordOut = frames.end;
                continue;
            }
        }
        cuts.append({source, frames.begin, frames.end, sourceIn,
                     timing::sourceTimeAtFrame(segment, frames.begin, rate)});
    }
    return cuts;
}

QString toRawValue(Format format)
{
    switch (format) {
    case Format::mlt:
        return u"mlt"_s;
    case Format::edl:
        return u"edl"_s;
    case Format::fcpxml:
        return u"fcpxml"_s;
    }
    return {};
}

std::optional<Format> formatFromRaw(QStringView raw)
{
    for (const Format format : {Format::mlt, Format::edl, Format::fcpxml})
        if (raw == toRawValue(format))
            return format;
    return std::nullopt;
}

QByteArray document(Format format, const EditList &edit, const QList<Source> &sources,
                    const QString &title)
{
    const QList<Cut> cuts = cutList(edit, sources);
    const timing::Rate rate = timelineRate(sources);
    switch (format) {
    case Format::mlt:
        return mltDocument(cuts, sources, rate, title);
    case Format::edl:
        return edlDocument(cuts, sources, rate, title);
    case Format::fcpxml:
        return fcpxmlDocument(cuts, sources, rate, title);
    }
    return {};
}

QString timecode(std::int64_t frame, timing::Rate rate)
{
    const std::int64_t perSecond = std::max<std::int64_t>(1, std::llround(rate.perSecond()));
    const std::int64_t seconds = frame / perSecond;
    return QString::asprintf("%02lld:%02lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                             static_cast<long long>(seconds / 60 % 60),
                             static_cast<long long>(seconds % 60),
                             static_cast<long long>(frame % perSecond));
}

} // namespace kavel::interchange
