#pragma once

#include <QCoreApplication>
#include <QCoroTask>
#include <QString>
#include <QTextStream>
#include <QTimer>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>

class QCommandLineParser;

namespace kavel {
class KavelProject;
}

namespace kavel::cli {

// Raised by a command for a failure the user must see; main() prints it as one line
// on standard error and exits with `exitCode`.
struct CommandFailure
{
    QString message;
    int exitCode = 1;
};

QTextStream &out();
QTextStream &err();

// "00:01:02.345"
QString formatSeconds(double seconds);

// Parses a command's arguments (without the command name) for exactly the positional
// names given — the last may repeat when `repeatLast` — and throws a usage failure
// otherwise. Options must be added to `parser` beforehand.
QStringList parsePositionals(QCommandLineParser &parser, const QString &command,
                             const QStringList &arguments, const QStringList &names,
                             bool repeatLast = false);

namespace detail {
template<typename T> struct Outcome
{
    bool done = false;
    std::exception_ptr error;
    std::optional<std::conditional_t<std::is_void_v<T>, bool, T>> value;
};

// The outcome is shared: a task given up on at its deadline may still end later, while
// the program winds down, and must then have somewhere to put its result.
template<typename T> QCoro::Task<> settle(QCoro::Task<T> task, std::shared_ptr<Outcome<T>> outcome)
{
    try {
        if constexpr (std::is_void_v<T>) {
            co_await std::move(task);
            outcome->value = true;
        } else {
            outcome->value = co_await std::move(task);
        }
    } catch (...) {
        outcome->error = std::current_exception();
    }
    outcome->done = true;
}
} // namespace detail

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// Runs the event loop until `task` ends and returns its value or rethrows its exception;
// past `deadline` it fails with what `timeoutMessage` says then (what was going on decides
// how the wait is described). QCoro::waitFor is not used: it never
// returns for a task that ended before it began to wait, which is exactly how a refused
// connection or a rejected sign-in ends.
template<typename T>
T awaitTask(QCoro::Task<T> task, Deadline deadline = {},
            const std::function<QString()> &timeoutMessage = {})
{
    const auto outcome = std::make_shared<detail::Outcome<T>>();
    auto running = detail::settle(std::move(task), outcome);
    // Wakes the loop now and then, so that the deadline is seen without busy waiting.
    QTimer tick;
    tick.start(100);
    while (!outcome->done) {
        if (deadline && std::chrono::steady_clock::now() >= *deadline)
            throw CommandFailure {timeoutMessage ? timeoutMessage() : QString()};
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    if (outcome->error)
        std::rethrow_exception(outcome->error);
    if constexpr (!std::is_void_v<T>)
        return std::move(*outcome->value);
}

// Loads the bundle at a path given on the command line (relative paths allowed).
std::unique_ptr<KavelProject> openBundle(const QString &path);
// A transcript that could not be read is shown as empty; a command that shows it says so
// on standard error, naming the file and what is wrong in it.
void warnIfTranscriptUnreadable(const KavelProject &project);
// The same for commands that write to the bundle: refused while a window has it open.
std::unique_ptr<KavelProject> openBundleForWriting(const QString &path);

} // namespace kavel::cli
