#include "platform/tool_session.h"

#include <QElapsedTimer>
#include <algorithm>

namespace varnel {

struct ToolSession::Question {
    QString executable;
    QStringList arguments;
    double timeout = 0;
    Order order;
    bool answered = false;
    CommandResult answer;
    double seconds = 0;
};

CommandResult Tools::run(const QString& executable, const QStringList& arguments, double timeout) {
    if (session_ == nullptr) return varnel::run(executable, arguments, timeout);
    return session_->ask({part_, asked_++}, executable, arguments, timeout);
}

bool Tools::isProcessRunning(const QString& name) {
    return run(QStringLiteral("/usr/bin/pgrep"), {QStringLiteral("-x"), name}, 4).code == 0;
}

ToolSession::ToolSession(bool keepTranscript) : keepTranscript_(keepTranscript) {}

ToolSession::~ToolSession() = default;

CommandResult ToolSession::ask(Order order, const QString& executable, const QStringList& arguments,
                               double timeout) {
    std::unique_lock lock(mutex_);
    const auto same = [&](const std::unique_ptr<Question>& q) {
        return q->timeout == timeout && q->executable == executable && q->arguments == arguments;
    };
    if (const auto found = std::find_if(questions_.begin(), questions_.end(), same);
        found != questions_.end()) {
        Question& question = **found;
        question.order = std::min(question.order, order);
        answered_.wait(lock, [&question] { return question.answered; });
        return question.answer;
    }
    questions_.push_back(
        std::make_unique<Question>(Question{executable, arguments, timeout, order, false, {}, 0}));
    Question& question = *questions_.back();
    lock.unlock();

    QElapsedTimer clock;
    clock.start();
    CommandResult answer = varnel::run(executable, arguments, timeout);
    const double seconds = double(clock.nsecsElapsed()) / 1e9;

    lock.lock();
    question.answer = answer;
    question.seconds = seconds;
    question.answered = true;
    answered_.notify_all();
    return answer;
}

QList<ToolCall> ToolSession::transcript() const {
    if (!keepTranscript_) return {};
    const std::lock_guard lock(mutex_);
    std::vector<const Question*> asked;
    for (const auto& question : questions_)
        if (question->answered) asked.push_back(question.get());
    std::sort(asked.begin(), asked.end(),
              [](const Question* a, const Question* b) { return a->order < b->order; });
    QList<ToolCall> calls;
    calls.reserve(qsizetype(asked.size()));
    for (const Question* q : asked)
        calls.append({q->executable, q->arguments, q->answer.code, q->answer.out, q->seconds});
    return calls;
}

}  // namespace varnel
