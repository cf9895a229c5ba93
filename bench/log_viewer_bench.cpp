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

#include "platform/sandbox.h"
#include "support/log_corpus.h"
#include "viewer/log_viewer.h"

using varnel::LogViewer;

namespace {

const QString logPath = QStringLiteral("/Library/Logs/Varnel/agent.stdout.log");

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
    // The corpus the log pipeline is measured on, a little longer than the
    // tail, so every load reads exactly the last 4,000,000 bytes.
    file.write(varnel::test_support::LogCorpus(42).text(4'200'000).toUtf8());
    file.close();

    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
