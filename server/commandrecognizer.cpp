#include "commandrecognizer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace kavel::server {

using namespace Qt::StringLiterals;

namespace {

constexpr int sampleRate = 16000;
constexpr size_t maxOutput = size_t {16} << 20;
constexpr size_t keptErrorOutput = 4096;

void putLittleEndian(std::string &out, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
}

// A canonical 44-byte-header PCM WAV, written to a private temporary file.
std::string writeWav(std::span<const std::int16_t> samples, const std::string &folder)
{
    const auto dataBytes = static_cast<std::uint32_t>(samples.size() * 2);
    std::string header = "RIFF";
    putLittleEndian(header, 36 + dataBytes, 4);
    header += "WAVEfmt ";
    putLittleEndian(header, 16, 4);
    putLittleEndian(header, 1, 2); // PCM
    putLittleEndian(header, 1, 2); // mono
    putLittleEndian(header, sampleRate, 4);
    putLittleEndian(header, sampleRate * 2, 4);
    putLittleEndian(header, 2, 2);
    putLittleEndian(header, 16, 2);
    header += "data";
    putLittleEndian(header, dataBytes, 4);

    std::string path = folder + "/kavel-stretch-XXXXXX.wav";
    const int fd = ::mkstemps(path.data(), 4);
    if (fd < 0)
        throw RecognitionError("cannot write a temporary WAV file");
    bool ok = ::write(fd, header.data(), header.size()) == static_cast<ssize_t>(header.size());
    const auto *bytes = reinterpret_cast<const char *>(samples.data());
    size_t written = 0;
    while (ok && written < dataBytes) {
        const ssize_t n = ::write(fd, bytes + written, dataBytes - written);
        ok = n > 0;
        written += ok ? static_cast<size_t>(n) : 0;
    }
    ::close(fd);
    if (!ok) {
        ::unlink(path.c_str());
        throw RecognitionError("cannot write a temporary WAV file");
    }
    return path;
}

struct Outcome
{
    std::string output;
    std::string errors;
    int status = 0;
};

std::string lastLine(const std::string &text)
{
    size_t end = text.find_last_not_of(" \r\n\t");
    if (end == std::string::npos)
        return {};
    const size_t start = text.rfind('\n', end);
    return text.substr(start == std::string::npos ? 0 : start + 1,
                       end - (start == std::string::npos ? 0 : start + 1) + 1);
}

class ChildProcess
{
public:
    ChildProcess(const std::string &command, const std::string &argument,
                 const std::string &language)
    {
        // Built before the fork: the child may only call what is safe after it.
        std::vector<std::string> environment {"KAVEL_LANGUAGE=" + language};
        for (char **entry = environ; *entry; ++entry) {
            if (std::string_view(*entry).rfind("KAVEL_LANGUAGE=", 0) != 0)
                environment.emplace_back(*entry);
        }
        std::vector<const char *> envp;
        for (const std::string &entry : environment)
            envp.push_back(entry.c_str());
        envp.push_back(nullptr);
        int out[2];
        int err[2];
        if (::pipe2(out, O_CLOEXEC) != 0)
            throw RecognitionError("cannot start the recognizer command");
        if (::pipe2(err, O_CLOEXEC) != 0) {
            ::close(out[0]);
            ::close(out[1]);
            throw RecognitionError("cannot start the recognizer command");
        }
        // The file is appended as "$1", so the command may be any shell words.
        const std::string script = command + " \"$1\"";
        const char *argv[]
            = {"/bin/sh", "-c", script.c_str(), "kavel-recognizer", argument.c_str(), nullptr};
        m_pid = ::fork();
        if (m_pid == 0) {
            // Its own process group, so that a time-out ends whatever it started too;
            // and it goes when its worker goes.
            ::setpgid(0, 0);
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int null = ::open("/dev/null", O_RDONLY);
            ::dup2(null, 0);
            ::dup2(out[1], 1);
            ::dup2(err[1], 2);
            ::execve("/bin/sh", const_cast<char *const *>(argv),
                     const_cast<char *const *>(envp.data()));
            ::_exit(127);
        }
        ::close(out[1]);
        ::close(err[1]);
        m_out = out[0];
        m_err = err[0];
        if (m_pid < 0) {
            closePipes();
            throw RecognitionError("cannot start the recognizer command");
        }
    }
    ~ChildProcess()
    {
        closePipes();
        if (m_pid > 0) {
            ::kill(-m_pid, SIGKILL);
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    Outcome wait(std::chrono::milliseconds timeLimit, const std::atomic<bool> &cancel)
    {
        Outcome outcome;
        const auto deadline = std::chrono::steady_clock::now() + timeLimit;
        while (m_out >= 0 || m_err >= 0) {
            if (cancel.load())
                throw RecognitionCancelled();
            if (std::chrono::steady_clock::now() >= deadline)
                throw RecognitionError("The recognizer command took longer than "
                                       + std::to_string(timeLimit.count() / 1000) + " s");
            pollfd fds[2] = {{m_out, POLLIN, 0}, {m_err, POLLIN, 0}};
            if (::poll(fds, 2, 100) < 0 && errno != EINTR)
                throw RecognitionError("cannot read from the recognizer command");
            read(m_out, fds[0].revents, outcome.output, false);
            read(m_err, fds[1].revents, outcome.errors, true);
        }
        int status = 0;
        ::waitpid(m_pid, &status, 0);
        m_pid = -1;
        outcome.status = status;
        return outcome;
    }

private:
    void read(int &fd, short events, std::string &into, bool keepTail)
    {
        if (fd < 0 || !(events & (POLLIN | POLLHUP | POLLERR)))
            return;
        char buffer[65536];
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) {
            ::close(fd);
            fd = -1;
            return;
        }
        into.append(buffer, static_cast<size_t>(n));
        if (keepTail && into.size() > keptErrorOutput)
            into.erase(0, into.size() - keptErrorOutput);
        if (!keepTail && into.size() > maxOutput)
            throw RecognitionError("The recognizer command printed more than 16 MiB");
    }
    void closePipes()
    {
        for (int *fd : {&m_out, &m_err}) {
            if (*fd >= 0)
                ::close(*fd);
            *fd = -1;
        }
    }

    pid_t m_pid = -1;
    int m_out = -1;
    int m_err = -1;
};

std::vector<RecognizedWord> parseWords(const std::string &output)
{
    const RecognitionError malformed(
        "The recognizer command did not print {\"words\": [{\"text\", \"start\", \"end\"}, …]}");
    QJsonParseError error;
    const QJsonDocument document
        = QJsonDocument::fromJson(QByteArray::fromStdString(output), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()
        || !document.object().value(u"words"_s).isArray())
        throw malformed;
    std::vector<RecognizedWord> words;
    for (const QJsonValue &value : document.object().value(u"words"_s).toArray()) {
        const QJsonObject word = value.toObject();
        const QString text = word.value(u"text"_s).toString();
        const QJsonValue start = word.value(u"start"_s);
        const QJsonValue end = word.value(u"end"_s);
        if (text.isEmpty() || !start.isDouble() || !end.isDouble() || start.toDouble() < 0.0
            || end.toDouble() < start.toDouble())
            throw malformed;
        // Optional: a recogniser that cannot tell says nothing and its words count as sure.
        const QJsonValue confidence = word.value(u"confidence"_s);
        if (!confidence.isUndefined()
            && (!confidence.isDouble() || confidence.toDouble() < 0.0
                || confidence.toDouble() > 1.0))
            throw malformed;
        const std::string spelled = text.toStdString();
        words.push_back({spelled, start.toDouble(), end.toDouble(),
                         isHesitation(text.toLower().toStdString()), confidence.toDouble(1.0)});
    }
    return words;
}

} // namespace

CommandRecognizer::CommandRecognizer(std::string command, std::chrono::milliseconds timeLimit,
                                     std::string scratch)
    : m_command(std::move(command))
    , m_timeLimit(timeLimit)
    , m_scratch(scratch.empty() ? std::filesystem::temp_directory_path().string()
                                : std::move(scratch))
{ }

std::vector<RecognizedWord> CommandRecognizer::recognize(std::span<const std::int16_t> samples,
                                                         const std::atomic<bool> &cancel)
{
    std::vector<RecognizedWord> words;
    const std::vector<size_t> boundaries = stretchBoundaries(samples);
    for (size_t i = 0; i + 1 < boundaries.size(); ++i) {
        const auto stretch = samples.subspan(boundaries[i], boundaries[i + 1] - boundaries[i]);
        std::vector<RecognizedWord> heard = recognizeStretch(stretch, cancel);
        for (RecognizedWord &word : heard) {
            word.start += static_cast<double>(boundaries[i]) / sampleRate;
            word.end += static_cast<double>(boundaries[i]) / sampleRate;
            words.push_back(std::move(word));
        }
    }
    return words;
}

std::vector<RecognizedWord>
CommandRecognizer::recognizeStretch(std::span<const std::int16_t> samples,
                                    const std::atomic<bool> &cancel)
{
    const std::string wav = writeWav(samples, m_scratch);
    struct Remove
    {
        const std::string &path;
        ~Remove() { ::unlink(path.c_str()); }
    } remove {wav};
    // The tag passed isLanguageTag (letters, digits, hyphens), so it is safe among shell
    // words.
    std::string command = m_command;
    for (size_t at = command.find("{language}"); at != std::string::npos;
         at = command.find("{language}", at + language().size()))
        command.replace(at, std::string_view("{language}").size(), language());
    ChildProcess child(command, wav, language());
    const Outcome outcome = child.wait(m_timeLimit, cancel);
    const std::string reason = lastLine(outcome.errors);
    if (WIFSIGNALED(outcome.status))
        throw RecognitionError("The recognizer command was killed by signal "
                               + std::to_string(WTERMSIG(outcome.status))
                               + (reason.empty() ? "" : ": " + reason));
    if (WEXITSTATUS(outcome.status) != 0)
        throw RecognitionError("The recognizer command failed with exit status "
                               + std::to_string(WEXITSTATUS(outcome.status))
                               + (reason.empty() ? "" : ": " + reason));
    return parseWords(outcome.output);
}

} // namespace kavel::server
