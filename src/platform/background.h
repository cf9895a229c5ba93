#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QRunnable>
#include <QThreadPool>
#include <functional>
#include <latch>
#include <utility>

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

// Runs `here` on the calling thread while the lane runs `there`, and returns
// when both are done. When no thread of the lane has taken `there` by the time
// `here` is done, it runs on the calling thread too: a busy lane, or a caller
// that is itself one of the lane's threads, never waits for room.
template <typename Here>
void alongside(QThreadPool& lane, Here&& here, std::function<void()> there) {
    detail::WaitedWork work(std::move(there));
    lane.start(&work);
    // Taken back or waited for on every way out: the lane must not outlive it.
    struct Join {
        QThreadPool& lane;
        detail::WaitedWork& work;
        ~Join() {
            if (lane.tryTake(&work)) work.run();
            work.wait();
        }
    } join{lane, work};
    here();
}

}  // namespace varnel
