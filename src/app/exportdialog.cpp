#include "exportdialog.h"

#include "editor/editorviewmodel.h"
#include "export/exportflow.h"
#include "export/localrenderservice.h"
#include "filemanager.h"
#include "model/kavelproject.h"
#include "symbolicons.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>
#include <qcorotask.h>

using namespace Qt::StringLiterals;

namespace kavel::app {

namespace {

template<typename E> void fillCombo(QComboBox *box, const std::function<QString(E)> &text)
{
    for (E value : allCases<E>())
        box->addItem(text(value), QVariant::fromValue(int(value)));
}

template<typename E> void selectIn(QComboBox *box, E value)
{
    box->setCurrentIndex(box->findData(int(value)));
}

template<typename E> E selectedIn(QComboBox *box)
{
    return E(box->currentData().toInt());
}

// The flow names its steps for programs; the dialog tells the user in words.
QString stepText(const QString &step)
{
    if (step == u"subtitles"_s)
        return ExportDialog::tr("正在导出字幕…");
    if (step == u"audio"_s)
        return ExportDialog::tr("正在导出音频…");
    if (step == u"video"_s)
        return ExportDialog::tr("正在导出视频…");
    if (step == u"interchange"_s)
        return ExportDialog::tr("正在导出项目交换文件…");
    return step;
}

} // namespace

ExportDialog::ExportDialog(ExportFlow &flow, EditorViewModel &editor, FolderPicker pickFolder,
                           QWidget *parent)
    : QDialog(parent)
    , m_flow(flow)
    , m_editor(editor)
    , m_pickFolder(std::move(pickFolder))
    , m_title(new QLineEdit(this))
    , m_folder(new QPushButton(symbolIcon(u"folder"_s), tr("选择…"), this))
    , m_folderLabel(new QLabel(this))
    , m_duration(new QLabel(this))
    , m_video(new QCheckBox(tr("视频"), this))
    , m_videoFormat(new QComboBox(this))
    , m_resolution(new QComboBox(this))
    , m_codec(new QComboBox(this))
    , m_audio(new QCheckBox(tr("音频"), this))
    , m_audioFormat(new QComboBox(this))
    , m_subtitles(new QCheckBox(tr("字幕"), this))
    , m_subtitleFormat(new QComboBox(this))
    , m_subtitleStyle(new QComboBox(this))
    , m_interchange(new QCheckBox(tr("项目交换文件"), this))
    , m_interchangeFormat(new QComboBox(this))
    , m_burnIn(new QCheckBox(tr("字幕烧录"), this))
    , m_captionSize(new QComboBox(this))
    , m_progress(new QProgressBar(this))
    , m_outcome(new QLabel(this))
    , m_reveal(new QPushButton(symbolIcon(u"folder"_s), tr("打开所在文件夹"), this))
    , m_start(new QPushButton(symbolIcon(u"square.and.arrow.up"_s), tr("导出"), this))
    , m_close(new QPushButton(tr("取消"), this))
    , m_loudness(new QComboBox(this))
    , m_denoise(new QComboBox(this))
{
    setWindowTitle(tr("导出"));
    setMinimumWidth(480);
    m_title->setPlaceholderText(tr("输入导出标题"));
    m_video->setIcon(symbolIcon(u"film"_s));
    m_audio->setIcon(symbolIcon(u"waveform"_s));
    m_subtitles->setIcon(symbolIcon(u"captions.bubble"_s));
    fillCombo<VideoFormat>(m_videoFormat, [](VideoFormat f) { return toRawValue(f).toUpper(); });
    fillCombo<Resolution>(m_resolution, [](Resolution r) { return label(r); });
    fillCombo<VideoCodec>(m_codec, [](VideoCodec c) { return label(c); });
    fillCombo<AudioFormat>(m_audioFormat, [](AudioFormat f) { return toRawValue(f).toUpper(); });
    fillCombo<SubtitleFormat>(m_subtitleFormat, [](SubtitleFormat f) {
        return f == SubtitleFormat::vtt ? u"WebVTT"_s : u"SRT"_s;
    });
    fillCombo<SubtitleStyle>(m_subtitleStyle, [](SubtitleStyle s) {
        return s == SubtitleStyle::phrases ? tr("按句") : tr("逐词");
    });
    m_subtitleStyle->setToolTip(tr("按句：整句一条字幕，在句末标点、较长停顿或过长处断开"));
    m_interchange->setIcon(symbolIcon(u"doc.fill"_s));
    m_interchange->setToolTip(tr("把剪辑交给其他剪辑软件：引用原始素材，按帧精确的剪辑列表"));
    for (const auto &[format, text] : {std::pair {interchange::Format::mlt, u"MLT XML"_s},
                                       {interchange::Format::edl, u"CMX 3600 EDL"_s},
                                       {interchange::Format::fcpxml, u"FCPXML 1.9"_s}})
        m_interchangeFormat->addItem(text, int(format));
    fillCombo<CaptionSize>(m_captionSize, [](CaptionSize size) {
        return size == CaptionSize::small ? tr("小")
                                          : (size == CaptionSize::medium ? tr("中") : tr("大"));
    });
    m_burnIn->setIcon(symbolIcon(u"captions.bubble"_s));
    m_burnIn->setToolTip(tr("把字幕画进视频画面，按“字幕”一栏选的逐词或按句"));
    m_captionSize->setToolTip(tr("字幕文字的大小，随画面高度缩放"));

    auto *layout = new QVBoxLayout(this);
    auto *form = new QFormLayout;
    form->addRow(tr("标题"), m_title);
    auto *folderRow = new QHBoxLayout;
    m_folderLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    folderRow->addWidget(m_folderLabel, 1);
    folderRow->addWidget(m_folder);
    form->addRow(tr("导出目录"), folderRow);
    form->addRow(tr("时长"), m_duration);
    auto *videoRow = new QHBoxLayout;
    videoRow->addWidget(m_video);
    videoRow->addWidget(m_videoFormat);
    videoRow->addWidget(m_resolution);
    videoRow->addWidget(m_codec);
    videoRow->addStretch(1);
    form->addRow(videoRow);
    auto *audioRow = new QHBoxLayout;
    audioRow->addWidget(m_audio);
    audioRow->addWidget(m_audioFormat);
    audioRow->addStretch(1);
    form->addRow(audioRow);
    auto *subtitleRow = new QHBoxLayout;
    subtitleRow->addWidget(m_subtitles);
    subtitleRow->addWidget(m_subtitleFormat);
    subtitleRow->addWidget(m_subtitleStyle);
    subtitleRow->addStretch(1);
    form->addRow(subtitleRow);
    auto *interchangeRow = new QHBoxLayout;
    interchangeRow->addWidget(m_interchange);
    interchangeRow->addWidget(m_interchangeFormat);
    interchangeRow->addStretch(1);
    form->addRow(interchangeRow);
    auto *burnInRow = new QHBoxLayout;
    burnInRow->addWidget(m_burnIn);
    burnInRow->addWidget(m_captionSize);
    burnInRow->addStretch(1);
    form->addRow(burnInRow);
    fillCombo<LoudnessTarget>(m_loudness, [](LoudnessTarget t) { return label(t); });
    fillCombo<NoiseReduction>(m_denoise, [](NoiseReduction n) { return label(n); });
    m_loudness->setToolTip(tr("按 EBU R128 测量剪辑后的声音，整体用同一个增益调到目标响度，"
                              "真峰值不超过 -1 dBTP"));
    m_denoise->setToolTip(tr("去除持续的底噪（嘶声、电源嗡声），不移动任何声音的时间"));
    auto *soundRow = new QHBoxLayout;
    soundRow->addWidget(new QLabel(tr("响度标准化"), this));
    soundRow->addWidget(m_loudness);
    soundRow->addSpacing(12);
    soundRow->addWidget(new QLabel(tr("降噪"), this));
    soundRow->addWidget(m_denoise);
    soundRow->addStretch(1);
    form->addRow(soundRow);
    layout->addLayout(form);
    m_progress->setRange(0, 1000);
    m_progress->setTextVisible(false);
    m_progress->hide();
    layout->addWidget(m_progress);
    m_outcome->setWordWrap(true);
    layout->addWidget(m_outcome);
    auto *buttons = new QHBoxLayout;
    m_reveal->hide();
    buttons->addWidget(m_reveal);
    buttons->addStretch(1);
    buttons->addWidget(m_close);
    buttons->addWidget(m_start);
    m_start->setDefault(true);
    layout->addLayout(buttons);

    connect(m_folder, &QPushButton::clicked, this, [this] {
        if (!m_pickFolder)
            return;
        const ExportSettings &current = m_flow.settings();
        const QString folder = m_pickFolder(tr("选择导出目录"),
                                            current.outputPath ? current.outputPath->toLocalFile()
                                                               : m_flow.defaultExportPath());
        if (folder.isEmpty())
            return;
        ExportSettings s = m_flow.settings();
        s.outputPath = QUrl::fromLocalFile(folder);
        m_flow.setSettings(s);
    });
    for (QCheckBox *box : {m_video, m_audio, m_subtitles, m_interchange, m_burnIn})
        connect(box, &QCheckBox::toggled, this, &ExportDialog::applyControls);
    for (QComboBox *box :
         {m_videoFormat, m_resolution, m_codec, m_audioFormat, m_subtitleFormat, m_subtitleStyle,
          m_interchangeFormat, m_captionSize, m_loudness, m_denoise})
        connect(box, &QComboBox::activated, this, &ExportDialog::applyControls);
    connect(m_title, &QLineEdit::textEdited, this, &ExportDialog::applyControls);
    connect(&flow, &ExportFlow::settingsChanged, this, &ExportDialog::showSettings);
    connect(&flow, &ExportFlow::exportErrorChanged, this, &ExportDialog::showOutcome);
    connect(&flow, &ExportFlow::exportNoticeChanged, this, &ExportDialog::showOutcome);
    connect(&flow, &ExportFlow::exportCompleteChanged, this, &ExportDialog::showOutcome);
    connect(&flow, &ExportFlow::exportCancelledChanged, this, &ExportDialog::showOutcome);
    connect(&flow, &ExportFlow::stepStarted, this,
            [this](const QString &step) { m_outcome->setText(stepText(step)); });
    connect(&flow.renderService(), &LocalRenderService::progressChanged, this,
            [this] { m_progress->setValue(int(m_flow.renderService().progress() * 1000.0)); });
    connect(m_close, &QPushButton::clicked, this, &ExportDialog::reject);
    m_revealFiles = [](const QStringList &files) { revealInFileManager(files); };
    connect(m_reveal, &QPushButton::clicked, this, [this] {
        if (m_revealFiles && !m_flow.writtenFiles().isEmpty())
            m_revealFiles(m_flow.writtenFiles());
    });
    connect(m_start, &QPushButton::clicked, this, [this] {
        applyControls();
        // Nothing of the last run stays on screen once a new one starts, not even its red.
        m_outcome->clear();
        m_outcome->setPalette(palette());
        m_reveal->hide();
        setRunning(true);
        QCoro::connect(m_flow.startExport(subject()), this, [this] {
            setRunning(false);
            showOutcome();
        });
    });

    if (m_flow.settings().title.isEmpty() && m_editor.project()) {
        ExportSettings s = m_flow.settings();
        s.title = m_editor.project()->metadata().title;
        m_flow.setSettings(s);
    }
    m_flow.offerChoicesFor(subject());
    m_duration->setText(ExportFlow::formatDuration(m_flow.editedDuration(subject())));
    showSettings();
}

ExportSubject ExportDialog::subject() const
{
    return {m_editor.project(), m_editor.paragraphs(), m_editor.isAudioTrackMuted()};
}

void ExportDialog::reject()
{
    if (m_running) {
        m_flow.cancel();
        return;
    }
    QDialog::reject();
}

void ExportDialog::showSettings()
{
    const ExportSettings &s = m_flow.settings();
    if (m_title->text() != s.title)
        m_title->setText(s.title);
    m_folderLabel->setText(s.outputPath ? s.outputPath->toLocalFile() : tr("未选择"));
    const QSignalBlocker b1(m_video), b2(m_audio), b3(m_subtitles), b4(m_interchange), b5(m_burnIn);
    m_video->setChecked(s.videoEnabled);
    m_audio->setChecked(s.audioEnabled);
    m_subtitles->setChecked(s.subtitleEnabled);
    m_interchange->setChecked(s.interchangeEnabled);
    selectIn(m_subtitleFormat, s.subtitleFormat);
    selectIn(m_subtitleStyle, s.subtitleStyle);
    selectIn(m_interchangeFormat, s.interchangeFormat);
    m_subtitleFormat->setEnabled(s.subtitleEnabled);
    // Burned-in captions are cut into cues like the subtitle file.
    const bool burning = s.videoEnabled && s.burnSubtitles;
    m_subtitleStyle->setEnabled(s.subtitleEnabled || burning);
    m_burnIn->setChecked(s.burnSubtitles);
    m_burnIn->setEnabled(s.videoEnabled && !m_running);
    selectIn(m_captionSize, s.captionSize);
    m_captionSize->setEnabled(burning);
    m_interchangeFormat->setEnabled(s.interchangeEnabled);
    selectIn(m_videoFormat, s.videoFormat);
    selectIn(m_resolution, s.resolution);
    selectIn(m_codec, s.codec);
    selectIn(m_audioFormat, s.audioFormat);
    selectIn(m_loudness, s.loudness);
    selectIn(m_denoise, s.denoise);
    // Only a movie or a sound file carries sound to finish.
    m_loudness->setEnabled(!m_running && (s.videoEnabled || s.audioEnabled));
    m_denoise->setEnabled(!m_running && (s.videoEnabled || s.audioEnabled));
    for (QWidget *w : {static_cast<QWidget *>(m_videoFormat), static_cast<QWidget *>(m_resolution),
                       static_cast<QWidget *>(m_codec)})
        w->setEnabled(s.videoEnabled);
    m_audioFormat->setEnabled(s.audioEnabled);
    m_start->setEnabled(
        !m_running
        && (s.videoEnabled || s.audioEnabled || s.subtitleEnabled || s.interchangeEnabled));
}

void ExportDialog::applyControls()
{
    ExportSettings s = m_flow.settings();
    s.title = m_title->text();
    s.videoEnabled = m_video->isChecked();
    s.audioEnabled = m_audio->isChecked();
    s.subtitleEnabled = m_subtitles->isChecked();
    s.subtitleFormat = selectedIn<SubtitleFormat>(m_subtitleFormat);
    s.subtitleStyle = selectedIn<SubtitleStyle>(m_subtitleStyle);
    s.interchangeEnabled = m_interchange->isChecked();
    s.interchangeFormat = selectedIn<interchange::Format>(m_interchangeFormat);
    s.videoFormat = selectedIn<VideoFormat>(m_videoFormat);
    s.resolution = selectedIn<Resolution>(m_resolution);
    s.codec = selectedIn<VideoCodec>(m_codec);
    s.audioFormat = selectedIn<AudioFormat>(m_audioFormat);
    s.burnSubtitles = m_burnIn->isChecked();
    s.captionSize = selectedIn<CaptionSize>(m_captionSize);
    s.loudness = selectedIn<LoudnessTarget>(m_loudness);
    s.denoise = selectedIn<NoiseReduction>(m_denoise);
    m_flow.setSettings(s);
}

void ExportDialog::showOutcome()
{
    if (m_running)
        return; // the step under way is shown until the run is over
    QStringList lines;
    if (m_flow.exportCancelled()) {
        lines.append(tr("导出已停止"));
        if (!m_flow.interruptedFile().isEmpty())
            lines.append(
                tr("未写完的 %1 已删除").arg(QFileInfo(m_flow.interruptedFile()).fileName()));
        QStringList kept;
        for (const QString &file : m_flow.writtenFiles())
            kept.append(QFileInfo(file).fileName());
        if (!kept.isEmpty())
            lines.append(tr("已完成的文件已保留：") + kept.join(tr("、")));
    }
    if (m_flow.exportError())
        lines.append(*m_flow.exportError());
    if (m_flow.exportNotice())
        lines.append(*m_flow.exportNotice());
    if (m_flow.exportComplete()) {
        const QStringList &files = m_flow.writtenFiles();
        if (!files.isEmpty() && !m_flow.exportError())
            lines.append(tr("导出完成"));
        else if (files.isEmpty() && !m_flow.exportError())
            lines.append(tr("没有导出任何文件"));
        for (const QString &file : files)
            lines.append(tr("已写出 %1").arg(QFileInfo(file).fileName()));
        if (m_flow.loudnessReport())
            lines.append(loudnessSummary(*m_flow.loudnessReport()));
    }
    m_outcome->setText(lines.join(u'\n'));
    m_reveal->setVisible(!m_flow.writtenFiles().isEmpty());
    QPalette tone = m_outcome->palette();
    tone.setColor(QPalette::WindowText,
                  m_flow.exportError() ? QColor(Qt::red) : palette().color(QPalette::WindowText));
    m_outcome->setPalette(tone);
}

void ExportDialog::setRunning(bool running)
{
    m_running = running;
    m_progress->setVisible(running);
    m_progress->setValue(0);
    showSettings();
    m_close->setText(running ? tr("停止") : (m_flow.exportComplete() ? tr("完成") : tr("取消")));
    for (QWidget *w : {static_cast<QWidget *>(m_title), static_cast<QWidget *>(m_folder),
                       static_cast<QWidget *>(m_video), static_cast<QWidget *>(m_audio),
                       static_cast<QWidget *>(m_subtitles), static_cast<QWidget *>(m_interchange)})
        w->setEnabled(!running);
}

} // namespace kavel::app
