#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/command_runner.h"

namespace varnel {

// One call of a system tool, as a probe made it.
struct ToolCall {
    QString executable;  // the suite's path of the tool
    QStringList arguments;
    int code = -1;
    QString out;
    double seconds = 0;  // from its start to its end
};

class ToolSession;

// How one part of a probe reaches the system's tools. Made on its own it runs
// every call; handed out by a session it shares that session's answers.
class Tools {
public:
    Tools() = default;

    CommandResult run(const QString& executable, const QStringList& arguments,
                      double timeout = 8.0);
    // pgrep -x, as varnel::isProcessRunning.
    bool isProcessRunning(const QString& name);

private:
    friend class ToolSession;
    Tools(ToolSession* session, int part) : session_(session), part_(part) {}

    ToolSession* session_ = nullptr;
    int part_ = 0;
    int asked_ = 0;
};

// The tool calls of one probe whose parts run at once. Each distinct question
// (tool, arguments, time-out) goes to the system once per session, however many
// parts ask it; a part that asks while the call runs waits for its answer.
class ToolSession {
public:
    explicit ToolSession(bool keepTranscript = false);
    ~ToolSession();
    ToolSession(const ToolSession&) = delete;
    ToolSession& operator=(const ToolSession&) = delete;

    // Parts are numbered in the order a one-at-a-time probe would take them.
    Tools part(int number) { return {this, number}; }

    // Every distinct call with its answer, in the order a one-at-a-time probe
    // would have started them: by the first part that asked, then by that
    // part's own order. So it stays the same however the parts interleave.
    // Empty unless the session was made to keep it.
    QList<ToolCall> transcript() const;

private:
    friend class Tools;
    struct Question;
    using Order = std::pair<int, int>;  // part, then the part's own count

    CommandResult ask(Order order, const QString& executable, const QStringList& arguments,
                      double timeout);

    const bool keepTranscript_;
    mutable std::mutex mutex_;
    std::condition_variable answered_;
    std::vector<std::unique_ptr<Question>> questions_;
};

}  // namespace varnel
