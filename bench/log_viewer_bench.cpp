// What the log window costs on a full 4 MB tail (about 30,000 rows), drawn on
// the offscreen platform: opening it until the last row is on screen, one
// keystroke in the search field, and turning Wrap on and off. Report medians:
//   ./log_viewer_bench --benchmark_repetitions=10 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QTemporaryDir>
#include <cstdlib>
#include <memory>
#include <random>

#include "logs/log_viewer.h"
#include "monitor/sandbox.h"

using varnel::LogViewer;

namespace {

const QString logPath = QStringLiteral("/Library/Logs/Varnel/agent.stdout.log");

// A mix like the agent's output: coloured plain lines with tags and
// components, JSON lines, stack traces under errors, now and then a very long
// line. Fixed seed: every run reads the same text.
QByteArray sampleLog(qsizetype bytes) {
    std::mt19937 random(20240501);
    auto pick = [&](int n) { return int(random() % unsigned(n)); };
    const char* levels[] = {"INFO", "INFO", "INFO", "DEBUG", "WARN", "ERROR", "TRACE"};
    const char* colours[] = {"32", "32", "32", "36", "33", "31", "90"};
    const char* sources[] = {"agent::proxy", "agent::ws", "watcher", "tls", "ipc"};
    const char* words[] = {"connection",  "accepted", "from",     "handshake", "failed",
                           "retrying",    "socket",   "closed",   "policy",    "updated",
                           "certificate", "chain",    "verified", "upstream",  "timeout",
                           "after",       "ms",       "peer"};
    QByteArray out;
    out.reserve(bytes + 4096);
    int second = 0;
    while (out.size() < bytes) {
        ++second;
        const QByteArray stamp = QStringLiteral("2024-05-01T%1:%2:%3.%4Z")
                                     .arg(second / 3600 % 24, 2, 10, QChar(u'0'))
                                     .arg(second / 60 % 60, 2, 10, QChar(u'0'))
                                     .arg(second % 60, 2, 10, QChar(u'0'))
                                     .arg(pick(1000), 3, 10, QChar(u'0'))
                                     .toUtf8();
        QByteArray message;
        const int length = pick(20) == 0 ? 60 + pick(60) : 4 + pick(10);
        for (int w = 0; w < length; ++w) {
            if (w) message += ' ';
            message += words[pick(std::size(words))];
        }
        const int level = pick(std::size(levels));
        if (pick(6) == 0) {
            out += "{\"timestamp\":\"" + stamp + "\",\"level\":\"" +
                   QByteArray(levels[level]).toLower() + "\",\"target\":\"" +
                   sources[pick(std::size(sources))] + "\",\"fields\":{\"message\":\"" + message +
                   "\"}}\n";
        } else {
            out += stamp + " \x1b[" + colours[level] + "m" + levels[level] + "\x1b[0m " +
                   sources[pick(std::size(sources))] + ": " + message + '\n';
        }
        if (levels[level] == QByteArrayLiteral("ERROR"))
            for (int frame = pick(4); frame > 0; --frame)
                out += "    at tls.Handshake(conn.rs:" + QByteArray::number(pick(900)) + ")\n";
    }
    return out;
}

class Window {
public:
    Window() { viewer.show(logPath); }
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
        auto* table = viewer->window()->findChild<QTableView*>(QStringLiteral("table"));
        rows = table->model()->rowCount();
        lastShown = lastShown && table->rowAt(table->viewport()->height() - 1) == rows - 1;
        viewer.reset();
        state.ResumeTiming();
    }
    state.counters["rows"] = rows;
    if (!lastShown) state.SkipWithError("the last row was not on screen");
}
BENCHMARK(BM_OpenUntilLastRowShown)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SearchKeystroke(benchmark::State& state) {
    Window window;
    QLineEdit* search = window.find<QLineEdit>("searchField");
    bool typed = false;
    for (auto _ : state) {
        // "e" is in nearly every row: the table changes by a few rows, not all.
        QKeyEvent key(QEvent::KeyPress, typed ? Qt::Key_Backspace : Qt::Key_E, Qt::NoModifier,
                      typed ? QString() : QStringLiteral("e"));
        QApplication::sendEvent(search, &key);
        QCoreApplication::processEvents();
        typed = !typed;
    }
    state.counters["rows"] = window.table()->model()->rowCount();
}
BENCHMARK(BM_SearchKeystroke)->Unit(benchmark::kMillisecond)->UseRealTime();

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

}  // namespace

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QTemporaryDir root;
    qputenv("VARNEL_ROOT", root.path().toUtf8());
    const QString host = varnel::sandbox::hostPath(logPath);
    QDir().mkpath(QFileInfo(host).path());
    QFile file(host);
    if (!file.open(QIODevice::WriteOnly)) return 1;
    // Longer than the tail, so every load reads exactly the last 4,000,000 bytes.
    file.write(sampleLog(4'400'000));
    file.close();

    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
