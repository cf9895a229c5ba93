// What one probe of the tray's refresh costs on the simulated demo suite: the
// nine services, both version reads and the certificate check. "CPU" is the
// whole process's (the pool threads included, the tools not); "processes" is
// the tools one probe starts. Whole-process figures, tools included:
//   perf stat -r 30 build/src/cli/varnelctl status   (VARNEL_ROOT on a demo suite)
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdio>

#include "status/suite_probe.h"

static void probe(benchmark::State& state, bool keepTranscript) {
    state.counters["processes"] =
        double(varnel::probeSuite({.keepTranscript = true}).transcript.size());
    for (auto _ : state) {
        auto probe = varnel::probeSuite({.keepTranscript = keepTranscript});
        benchmark::DoNotOptimize(probe);
    }
}

static void BM_Probe(benchmark::State& state) {
    probe(state, false);
}
BENCHMARK(BM_Probe)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->MinTime(3.0);

// A support bundle's probe, which keeps every tool call.
static void BM_ProbeKeepingTranscript(benchmark::State& state) {
    probe(state, true);
}
BENCHMARK(BM_ProbeKeepingTranscript)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->MinTime(3.0);

// With a lane the caller keeps, as a tray that probes every 10 s could.
static void BM_ProbeOnAKeptLane(benchmark::State& state) {
    QThreadPool lane;
    lane.setMaxThreadCount(16);
    for (auto _ : state) {
        auto probe = varnel::probeSuite({.lane = &lane});
        benchmark::DoNotOptimize(probe);
    }
}
BENCHMARK(BM_ProbeOnAKeptLane)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->MinTime(3.0);

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QTemporaryDir root;
    QProcess generator;
    generator.setProcessChannelMode(QProcess::ForwardedChannels);
    generator.start(QStringLiteral(VARNEL_SIM_DIR "/make-suite.sh"), {root.path(), "demo"});
    if (!root.isValid() || !generator.waitForFinished(60'000) || generator.exitCode() != 0) {
        std::fprintf(stderr, "refresh_bench: cannot lay out the simulated suite\n");
        return 1;
    }
    qputenv("VARNEL_ROOT", root.path().toUtf8());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
