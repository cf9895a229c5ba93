#pragma once

#include <QList>
#include <QWidget>

#include "logs/log_rows.h"
#include "logs/row_time.h"
#include "logs/timeline.h"

namespace varnel {

// A strip of bars, one per stretch of time, each as tall as the lines shown from that stretch
// and coloured by their levels (errors at the foot, so that they are never hidden by the rest).
// Pointing at a bar tells its span and counts; clicking it asks for its first table row. The
// counting waits until the strip is drawn or asked, so a hidden strip costs nothing.
class TimelineStrip : public QWidget {
    Q_OBJECT
public:
    explicit TimelineStrip(QWidget* parent = nullptr);

    // What the table shows: `shown` indexes `rows` and `instants`, in table order.
    void setContent(const LogRows& rows, const QList<Instant>& instants,
                    const QList<qsizetype>& shown);
    // The same content grown by the table rows from `fromTableRow` on, the rows before them
    // unchanged: counted alone when they fit the buckets as they are.
    void extendContent(const LogRows& rows, const QList<Instant>& instants,
                       const QList<qsizetype>& shown, qsizetype fromTableRow);

    const Timeline& timeline();
    // The bucket under x, or -1.
    qsizetype bucketAt(int x);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

signals:
    // The first table row of the bucket clicked (or of the nearest one after it that holds rows).
    void rowChosen(int tableRow);

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    // At most one bar per this many pixels, so that every bar can be seen and pointed at.
    static constexpr int kPixelsPerBucket = 6;
    int maxBuckets() const;
    // Counts again when the content or the room for bars changed since the last count.
    void ensureBuilt();

    LogRows rows_;
    QList<Instant> instants_;
    QList<qsizetype> shown_;
    Timeline timeline_;
    bool stale_ = true;
    int builtFor_ = -1;  // maxBuckets() the timeline was built for
};

}  // namespace varnel
