#pragma once

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QThreadPool>
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

}  // namespace varnel
