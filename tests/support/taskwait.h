#pragma once

#include <QCoroTask>
#include <QEventLoop>
#include <QTimer>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace kavel::test {

// The outcome of a coroutine run to its end: its value or the exception it threw.
template<typename T> struct TaskOutcome
{
    std::optional<T> value;
    std::exception_ptr error;

    // Rethrows the exception, or returns the value.
    T get() &&
    {
        if (error)
            std::rethrow_exception(error);
        return std::move(*value);
    }

    // The exception as `E`, or nothing when the task succeeded or threw something else.
    template<typename E> std::optional<E> errorAs() const
    {
        try {
            if (error)
                std::rethrow_exception(error);
        } catch (const E &e) {
            return e;
        } catch (...) { }
        return std::nullopt;
    }
};

struct Done
{
};

namespace detail {
template<typename T> struct RunState
{
    TaskOutcome<T> outcome;
    bool finished = false;
    QEventLoop *loop = nullptr;
};

// Owns its state jointly with runTask, so a task that outlives a timed-out wait
// still has somewhere to put its result.
template<typename T> QCoro::Task<> capture(QCoro::Task<T> task, std::shared_ptr<RunState<T>> state)
{
    try {
        state->outcome.value.emplace(co_await std::move(task));
    } catch (...) {
        state->outcome.error = std::current_exception();
    }
    state->finished = true;
    if (state->loop)
        state->loop->quit();
}
} // namespace detail

// Runs the event loop until the task finishes; throws std::runtime_error on time-out,
// because a test that hangs tells nothing.
template<typename T>
TaskOutcome<T> runTask(QCoro::Task<T> task,
                       std::chrono::milliseconds timeout = std::chrono::seconds(30))
{
    auto state = std::make_shared<detail::RunState<T>>();
    detail::capture(std::move(task), state);
    if (!state->finished) {
        QEventLoop loop;
        QTimer::singleShot(timeout, &loop, &QEventLoop::quit);
        state->loop = &loop;
        loop.exec();
        state->loop = nullptr;
    }
    if (!state->finished)
        throw std::runtime_error("task did not finish in time");
    return std::move(state->outcome);
}

inline TaskOutcome<Done> runTask(QCoro::Task<> task,
                                 std::chrono::milliseconds timeout = std::chrono::seconds(30))
{
    return runTask(
        [](QCoro::Task<> inner) -> QCoro::Task<Done> {
            co_await std::move(inner);
            co_return Done {};
        }(std::move(task)),
        timeout);
}

} // namespace kavel::test
