#include "viewer/timeline_strip.h"

#include <QDateTime>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>

#include "ui/system_palette.h"

namespace varnel {

namespace {

constexpr int kHeight = 40;
constexpr int kPad = 2;
// A class with any lines gets at least this many pixels: one error among thousands of lines
// must still show.
constexpr int kMinSegment = 2;

qint64 localOffsetMs() {
    return qint64(QDateTime::currentDateTime().offsetFromUtc()) * 1000;
}

}  // namespace

TimelineStrip::TimelineStrip(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("timelineStrip"));
    setAccessibleName(QStringLiteral("Timeline"));
    setFixedHeight(kHeight);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setMouseTracking(true);
    setCursor(Qt::PointingHandCursor);
}

void TimelineStrip::setContent(const LogRows& rows, const QList<Instant>& instants,
                               const QList<qsizetype>& shown) {
    rows_ = rows;
    instants_ = instants;
    shown_ = shown;
    stale_ = true;
    update();
}

void TimelineStrip::extendContent(const LogRows& rows, const QList<Instant>& instants,
                                  const QList<qsizetype>& shown, qsizetype fromTableRow) {
    rows_ = rows;
    instants_ = instants;
    shown_ = shown;
    if (!stale_ && builtFor_ == maxBuckets())
        stale_ = !extendTimeline(timeline_, rows_, instants_, shown_, fromTableRow, builtFor_,
                                 localOffsetMs());
    else
        stale_ = true;
    update();
}

int TimelineStrip::maxBuckets() const {
    return std::max(1, (width() - 2 * kPad) / kPixelsPerBucket);
}

void TimelineStrip::ensureBuilt() {
    if (!stale_ && builtFor_ == maxBuckets()) return;
    builtFor_ = maxBuckets();
    timeline_ = buildTimeline(rows_, instants_, shown_, builtFor_, localOffsetMs());
    stale_ = false;
    if (timeline_.buckets.isEmpty()) {
        setAccessibleDescription(QStringLiteral("No timed lines shown"));
        setToolTip(QStringLiteral("No timed lines shown"));
        return;
    }
    // The text alternative to the bars: the whole span, then each bar on pointing.
    Timeline whole = timeline_;
    whole.widthMs *= whole.buckets.size();
    TimelineBucket sum;
    for (const TimelineBucket& bucket : std::as_const(timeline_.buckets))
        for (int c = 0; c < kLevelClasses; ++c) sum.counts[c] += bucket.counts[c];
    whole.buckets = {sum};
    setAccessibleDescription(bucketSummary(whole, 0) +
                             QStringLiteral(". Click a bar to go to its first line."));
    setToolTip({});
}

const Timeline& TimelineStrip::timeline() {
    ensureBuilt();
    return timeline_;
}

qsizetype TimelineStrip::bucketAt(int x) {
    ensureBuilt();
    const qsizetype count = timeline_.buckets.size();
    const int span = width() - 2 * kPad;
    if (count == 0 || span <= 0 || x < kPad || x >= kPad + span) return -1;
    return std::min(count - 1, qsizetype(x - kPad) * count / span);
}

QSize TimelineStrip::sizeHint() const {
    return {400, kHeight};
}

QSize TimelineStrip::minimumSizeHint() const {
    return {60, kHeight};
}

bool TimelineStrip::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        const auto* help = static_cast<QHelpEvent*>(event);
        const qsizetype bucket = bucketAt(help->pos().x());
        if (bucket >= 0)
            QToolTip::showText(help->globalPos(), bucketSummary(timeline_, bucket), this);
        else if (!toolTip().isEmpty())
            QToolTip::showText(help->globalPos(), toolTip(), this);
        else
            QToolTip::hideText();
        return true;
    }
    return QWidget::event(event);
}

void TimelineStrip::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    update();
}

void TimelineStrip::mousePressEvent(QMouseEvent* event) {
    const qsizetype bucket = bucketAt(int(event->position().x()));
    if (event->button() != Qt::LeftButton || bucket < 0) {
        QWidget::mousePressEvent(event);
        return;
    }
    // An empty bar stands for a quiet stretch: the lines that came after it are what follows.
    const QList<TimelineBucket>& buckets = timeline_.buckets;
    int row = -1;
    for (qsizetype b = bucket; b < buckets.size() && row < 0; ++b) row = buckets[b].firstRow;
    for (qsizetype b = bucket; b >= 0 && row < 0; --b) row = buckets[b].firstRow;
    if (row >= 0) emit rowChosen(row);
}

void TimelineStrip::paintEvent(QPaintEvent*) {
    ensureBuilt();
    QPainter painter(this);
    const QRect box = rect();
    painter.fillRect(box, palette().color(QPalette::Base));
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawRect(box.adjusted(0, 0, -1, -1));

    const QList<TimelineBucket>& buckets = timeline_.buckets;
    if (buckets.isEmpty()) return;
    int busiest = 1;
    for (const TimelineBucket& bucket : buckets) busiest = std::max(busiest, bucket.total());
    const int span = box.width() - 2 * kPad;
    const int floor = box.bottom() - kPad;
    const int tallest = box.height() - 2 * kPad - 1;
    const QColor colors[kLevelClasses] = {resolve(levelClassColor(LevelClass::problem)),
                                          resolve(levelClassColor(LevelClass::warning)),
                                          resolve(levelClassColor(LevelClass::other))};
    const qsizetype count = buckets.size();
    for (qsizetype b = 0; b < count; ++b) {
        const TimelineBucket& bucket = buckets[b];
        if (bucket.total() == 0) continue;
        const int left = kPad + int(b * span / count);
        const int right = kPad + int((b + 1) * span / count);
        // A pixel of air between bars once they are wide enough to spare it.
        const int barWidth = std::max(1, right - left - (right - left > 3 ? 1 : 0));
        int top = floor + 1;
        for (int c = 0; c < kLevelClasses; ++c) {
            const int n = bucket.counts[c];
            if (n == 0) continue;
            const int height = std::max(kMinSegment, int(qint64(n) * tallest / busiest));
            const int segment = std::min(height, top - (floor - tallest));
            if (segment <= 0) break;
            top -= segment;
            painter.fillRect(QRect(left, top, barWidth, segment), colors[c]);
        }
    }
}

}  // namespace varnel
