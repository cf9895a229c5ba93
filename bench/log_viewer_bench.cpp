// What the log window costs on a full 4 MB tail (about 30,000 rows), drawn on
// the offscreen platform: opening it until the last row is on screen, one
// keystroke in the search field (the marks it paints and the matches it counts
// included), and turning Wrap on and off. Then a small log
// with one line of 50,000 or 200,000 characters and no break point in it:
// turning Wrap on, and one wheel notch while that line scrolls past, wrapped
// (1) or not (0). Then "All logs" over nine such tails (and the two small
// logs): opening it until its last row is on screen, and one keystroke in its
// search. And what the time filter and the timeline add to a load of the same
// 4 MB tail: reading every row's instant (0), then counting all rows into a
// timeline of at most 150 bars (1). Report medians:
//   ./log_viewer_bench --benchmark_repetitions=10 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollBar>
#include <QTableView>
#include <QTemporaryDir>
#include <QWheelEvent>
#include <cstdlib>
#include <memory>
#include <numeric>

#include "logs/log_follow.h"
#include "logs/time_filter.h"
#include "logs/timeline.h"
#include "platform/sandbox.h"
#include "support/log_corpus.h"
#include "viewer/log_viewer.h"

using varnel::LogViewer;

namespace {

const QString logPath = QStringLiteral("/Library/Logs/Varnel/agent.stdout.log");

// With the agent's, nine logs of 4 MB and more for "All logs".
QString allLogsPath(int n) {
    return QStringLiteral("/Library/Logs/Varnel/service-%1.log").arg(n);
}
constexpr int otherFullLogs = 8;

// A few hundred ordinary rows around one long line of hex digits.
QString longLinePath(qsizetype chars) {
    return QStringLiteral("/Library/Logs/Varnel/long-%1.log").arg(chars);
}
constexpr int rowsAroundLongLine = 300;

QString longLineLog(qsizetype chars) {
    QString text;
    auto ordinary = [&](int from) {
        for (int i = from; i < from + rowsAroundLongLine; ++i)
            text += QStringLiteral("2024-05-01T10:00:00Z INFO agent: ordinary line %1\n").arg(i);
    };
    ordinary(0);
    text += QStringLiteral("2024-05-01T10:00:01Z DEBUG blob: ");
    for (qsizetype i = 0; i < chars; ++i) text += QLatin1Char("0123456789abcdef"[i % 16]);
    text += u'\n';
    ordinary(rowsAroundLongLine);
    return text;
}

class Window {
public:
    explicit Window(const QString& path = logPath) { viewer.show(path); }
    QTableView* table() const { return find<QTableView>("table"); }
    template <typename T>
    T* find(const char* name) const {
        return viewer.window()->findChild<T*>(QLatin1String(name));
    }
    bool lastRowVisible() const {
        QTableView* t = table();
        return t->rowAt(t->viewport()->height() - 1) == t->model()->rowCount() - 1;
    }
    LogViewer viewer;
};

// Whether the table's last row is on screen; `rows` is how many it has.
bool lastRowShown(LogViewer& viewer, int& rows) {
    auto* table = viewer.window()->findChild<QTableView*>(QStringLiteral("table"));
    rows = table->model()->rowCount();
    return table->rowAt(table->viewport()->height() - 1) == rows - 1;
}

void BM_OpenUntilLastRowShown(benchmark::State& state) {
    int rows = 0;
    bool lastShown = true;
    for (auto _ : state) {
        state.PauseTiming();
        auto viewer = std::make_unique<LogViewer>();
        state.ResumeTiming();
        viewer->show(logPath);
        QCoreApplication::processEvents();
        state.PauseTiming();
        lastShown = lastRowShown(*viewer, rows) && lastShown;
        viewer.reset();
        state.ResumeTiming();
    }
    state.counters["rows"] = rows;
    if (!lastShown) state.SkipWithError("the last row was not on screen");
}
BENCHMARK(BM_OpenUntilLastRowShown)->Unit(benchmark::kMillisecond)->UseRealTime();

// "e" typed into the search field and taken back, again and again.
void typeAndTakeBack(benchmark::State& state, Window& window) {
    QLineEdit* search = window.find<QLineEdit>("searchField");
    bool typed = false;
    for (auto _ : state) {
        QKeyEvent key(QEvent::KeyPress, typed ? Qt::Key_Backspace : Qt::Key_E, Qt::NoModifier,
                      typed ? QString() : QStringLiteral("e"));
        QApplication::sendEvent(search, &key);
        QCoreApplication::processEvents();
        typed = !typed;
    }
    state.counters["rows"] = window.table()->model()->rowCount();
}

// "e" is in nearly every row: the table changes by a few rows, not all.
void BM_SearchKeystroke(benchmark::State& state) {
    Window window;
    typeAndTakeBack(state, window);
}
BENCHMARK(BM_SearchKeystroke)->Unit(benchmark::kMillisecond)->UseRealTime();

// The last letter of a word a few rows in ten hold, typed and taken back: the
// table goes from a handful of rows to a few thousand, every one on screen
// with a mark to paint, and the status line counts the matches each time.
void BM_SearchKeystrokeMarked(benchmark::State& state) {
    Window window;
    window.find<QLineEdit>("searchField")->setText(QStringLiteral("handshak"));
    QCoreApplication::processEvents();
    typeAndTakeBack(state, window);
}
BENCHMARK(BM_SearchKeystrokeMarked)->Unit(benchmark::kMillisecond)->UseRealTime();

// "All logs" is the last entry of the log list.
void chooseAllLogs(LogViewer& viewer) {
    auto* popup = viewer.window()->findChild<QComboBox*>(QStringLiteral("logPopup"));
    popup->setCurrentIndex(popup->count() - 1);
}

void BM_AllLogsOpenUntilLastRowShown(benchmark::State& state) {
    int rows = 0;
    bool lastShown = true;
    for (auto _ : state) {
        state.PauseTiming();
        auto viewer = std::make_unique<LogViewer>();
        viewer->show(longLinePath(50'000));
        QCoreApplication::processEvents();
        state.ResumeTiming();
        chooseAllLogs(*viewer);
        QCoreApplication::processEvents();
        state.PauseTiming();
        lastShown = lastRowShown(*viewer, rows) && lastShown;
        viewer.reset();
        state.ResumeTiming();
    }
    state.counters["rows"] = rows;
    if (!lastShown) state.SkipWithError("the last row was not on screen");
}
BENCHMARK(BM_AllLogsOpenUntilLastRowShown)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_AllLogsSearchKeystroke(benchmark::State& state) {
    Window window;
    chooseAllLogs(window.viewer);
    typeAndTakeBack(state, window);
}
BENCHMARK(BM_AllLogsSearchKeystroke)->Unit(benchmark::kMillisecond)->UseRealTime();

// Turning Wrap on measures every row afresh (a reload clears what was
// measured); turning it off is timed separately.
void BM_WrapToggle(benchmark::State& state) {
    Window window;
    QCheckBox* wrap = window.find<QCheckBox>("wrapCheck");
    QPushButton* reload = window.find<QPushButton>("reloadButton");
    const bool on = state.range(0) != 0;
    for (auto _ : state) {
        state.PauseTiming();
        if (on) reload->click();
        wrap->setChecked(!on);
        QCoreApplication::processEvents();
        state.ResumeTiming();
        wrap->setChecked(on);
        QCoreApplication::processEvents();
    }
    if (!window.lastRowVisible()) state.SkipWithError("the view left the last row");
}
BENCHMARK(BM_WrapToggle)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_WrapOnWithLongLine(benchmark::State& state) {
    Window window(longLinePath(state.range(0)));
    QCheckBox* wrap = window.find<QCheckBox>("wrapCheck");
    QPushButton* reload = window.find<QPushButton>("reloadButton");
    for (auto _ : state) {
        state.PauseTiming();
        reload->click();
        wrap->setChecked(false);
        QCoreApplication::processEvents();
        state.ResumeTiming();
        wrap->setChecked(true);
        QCoreApplication::processEvents();
    }
}
BENCHMARK(BM_WrapOnWithLongLine)
    ->Arg(50'000)
    ->Arg(200'000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Each iteration scrolls one wheel notch down; once the long row has left the
// top, the view goes back (untimed) to a few rows above it.
void BM_ScrollPastLongLine(benchmark::State& state) {
    Window window(longLinePath(state.range(0)));
    window.find<QCheckBox>("wrapCheck")->setChecked(state.range(1) != 0);
    QTableView* table = window.table();
    QWidget* viewport = table->viewport();
    QScrollBar* bar = table->verticalScrollBar();
    const int start = table->rowViewportPosition(rowsAroundLongLine - 5) + bar->value();
    auto restart = [&] {
        bar->setValue(start);
        QCoreApplication::processEvents();
    };
    restart();
    const QPointF middle = QRectF(viewport->rect()).center();
    int notches = 0;
    for (auto _ : state) {
        QWheelEvent notch(middle, viewport->mapToGlobal(middle), {}, {0, -120}, Qt::NoButton,
                          Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(viewport, &notch);
        QCoreApplication::processEvents();
        ++notches;
        if (table->rowAt(0) > rowsAroundLongLine || bar->value() >= bar->maximum()) {
            state.PauseTiming();
            restart();
            state.ResumeTiming();
        }
    }
    state.counters["notches"] = notches;
}
BENCHMARK(BM_ScrollPastLongLine)
    ->Args({50'000, 1})
    ->Args({200'000, 1})
    ->Args({200'000, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_InstantsAndTimeline(benchmark::State& state) {
    varnel::LogFollow follow(logPath);
    follow.load();
    const varnel::LogRows& rows = follow.rows();
    QList<qsizetype> all(rows.size());
    std::iota(all.begin(), all.end(), 0);
    const bool buckets = state.range(0) != 0;
    qsizetype counted = 0;
    for (auto _ : state) {
        const QList<varnel::Instant> instants = varnel::rowInstants(rows);
        if (buckets) counted = varnel::buildTimeline(rows, instants, all, 150).buckets.size();
        benchmark::DoNotOptimize(instants.data());
    }
    state.counters["rows"] = double(rows.size());
    if (buckets) state.counters["bars"] = double(counted);
}
BENCHMARK(BM_InstantsAndTimeline)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QTemporaryDir root;
    qputenv("VARNEL_ROOT", root.path().toUtf8());
    const QString host = varnel::sandbox::hostPath(logPath);
    QDir().mkpath(QFileInfo(host).path());
    QFile file(host);
    if (!file.open(QIODevice::WriteOnly)) return 1;
    // The corpus the log pipeline is measured on, a little longer than the
    // tail, so every load reads exactly the last 4,000,000 bytes.
    file.write(varnel::test_support::LogCorpus(42).text(4'200'000).toUtf8());
    file.close();
    for (int n = 1; n <= otherFullLogs; ++n) {
        QFile other(varnel::sandbox::hostPath(allLogsPath(n)));
        if (!other.open(QIODevice::WriteOnly)) return 1;
        other.write(varnel::test_support::LogCorpus(42 + unsigned(n)).text(4'200'000).toUtf8());
    }
    for (const qsizetype chars : {50'000, 200'000}) {
        QFile longFile(varnel::sandbox::hostPath(longLinePath(chars)));
        if (!longFile.open(QIODevice::WriteOnly)) return 1;
        longFile.write(longLineLog(chars).toUtf8());
    }

    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
