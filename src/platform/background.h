#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QRunnable>
#include <QThreadPool>
#include <algorithm>
#include <functional>
#include <latch>
#include <memory>
#include <utility>
#include <vector>

namespace varnel {

// The one way work leaves the main thread: a pool of threads (a lane) runs
// `work`, and its value comes back to the main thread for `deliver`, which is
// skipped when `owner` is gone by then. Owners keep a lane per kind of work, so
// that one kind never waits behind another.
template <typename Work, typename Deliver>
void inBackground(QThreadPool& lane, QObject* owner, Work work, Deliver deliver) {
    QPointer<QObject> guard(owner);
    lane.start([guard, work = std::move(work), deliver = std::move(deliver)]() mutable {
        auto value = work();
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [guard, deliver = std::move(deliver), value = std::move(value)]() mutable {
                if (guard) deliver(std::move(value));
            },
            Qt::QueuedConnection);
    });
}

// Work whose outcome nobody waits for.
template <typename Work>
void inBackground(QThreadPool& lane, Work work) {
    lane.start(std::move(work));
}

namespace detail {

// A runnable that stays with its owner, so that it can be taken back unstarted.
class WaitedWork final : public QRunnable {
public:
    explicit WaitedWork(std::function<void()> work) : work_(std::move(work)) {
        setAutoDelete(false);
    }
    void run() override {
        work_();
        done_.count_down();
    }
    void wait() { done_.wait(); }

private:
    std::function<void()> work_;
    std::latch done_{1};
};

}  // namespace detail

// Runs every job and returns when all have ended: the first on the calling
// thread, the others on `lane` as far as it has threads to spare. A job that no
// thread of the lane has taken by the time the caller's own is done runs on the
// calling thread too, so a busy lane, or a caller that is itself one of the
// lane's threads, only loses concurrency and never waits for room.
inline void allAtOnce(QThreadPool& lane, const std::vector<std::function<void()>>& jobs) {
    if (jobs.empty()) return;
    std::vector<std::unique_ptr<detail::WaitedWork>> others;
    others.reserve(jobs.size() - 1);
    for (size_t i = 1; i < jobs.size(); ++i) {
        others.push_back(std::make_unique<detail::WaitedWork>(jobs[i]));
        lane.start(others.back().get());
    }
    // Taken back or waited for on every way out: the lane must not outlive them.
    struct Join {
        QThreadPool& lane;
        std::vector<std::unique_ptr<detail::WaitedWork>>& others;
        ~Join() {
            for (auto& work : others)
                if (lane.tryTake(work.get())) work->run();
            for (auto& work : others) work->wait();
        }
    } join{lane, others};
    jobs.front()();
}

// The same on a lane made for these jobs alone, a thread for each, gone when
// they have ended: for jobs that block on tools and must not share threads.
inline void allAtOnce(const std::vector<std::function<void()>>& jobs) {
    QThreadPool lane;
    lane.setMaxThreadCount(std::max(1, int(jobs.size()) - 1));
    allAtOnce(lane, jobs);
}

}  // namespace varnel
