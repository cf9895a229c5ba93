// What one refresh of the tray app costs on the simulated demo suite: the nine
// probes, both version reads and the certificate check, as the refresh runs them.
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <cstdio>

#include "monitor/cert_check.h"
#include "monitor/poller.h"
#include "update/version.h"

static void BM_Refresh(benchmark::State& state) {
    for (auto _ : state) {
        auto snapshot = varnel::Poller::snapshot();
        auto installed = varnel::readInstalledVersion();
        auto latest = varnel::readLatestVersion();
        auto certificates = varnel::certStatus();
        benchmark::DoNotOptimize(snapshot);
        benchmark::DoNotOptimize(installed);
        benchmark::DoNotOptimize(latest);
        benchmark::DoNotOptimize(certificates);
    }
}
BENCHMARK(BM_Refresh)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

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
