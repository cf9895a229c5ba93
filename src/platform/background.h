#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QThreadPool>
#include <algorithm>
#include <functional>
#include <latch>
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

// Runs every job at once and returns when all have ended: the first on the
// calling thread, the others on `lane`. The caller must not be one of the lane's
// own threads, whose wait could hold the very thread a job needs; jobs that
// block on tools want a lane of their own with a thread for each.
inline void allAtOnce(QThreadPool& lane, const std::vector<std::function<void()>>& jobs) {
    if (jobs.empty()) return;
    std::latch ended(std::ptrdiff_t(jobs.size()) - 1);
    for (size_t i = 1; i < jobs.size(); ++i)
        lane.start([&job = jobs[i], &ended] {
            job();
            ended.count_down();
        });
    jobs.front()();
    ended.wait();
}

// The same on a lane made for these jobs alone, gone when they have ended.
inline void allAtOnce(const std::vector<std::function<void()>>& jobs) {
    QThreadPool lane;
    lane.setMaxThreadCount(std::max(1, int(jobs.size()) - 1));
    allAtOnce(lane, jobs);
}

}  // namespace varnel
