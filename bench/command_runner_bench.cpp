// What one tool run costs: the runner against a bare posix_spawn + waitpid of
// the same program. Report the medians: ./command_runner_bench
//   --benchmark_repetitions=20 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>

#include "platform/command_runner.h"

extern char** environ;

static void BM_RunTrue(benchmark::State& state) {
    for (auto _ : state) {
        const varnel::CommandResult result = varnel::run(QStringLiteral("/bin/true"), {});
        benchmark::DoNotOptimize(result.code);
    }
}
BENCHMARK(BM_RunTrue)->Unit(benchmark::kMillisecond)->UseRealTime();

static void BM_BarePosixSpawnTrue(benchmark::State& state) {
    char path[] = "/bin/true";
    char* argv[] = {path, nullptr};
    for (auto _ : state) {
        pid_t pid = -1;
        posix_spawn(&pid, path, nullptr, nullptr, argv, environ);
        int status = 0;
        waitpid(pid, &status, 0);
        benchmark::DoNotOptimize(status);
    }
}
BENCHMARK(BM_BarePosixSpawnTrue)->Unit(benchmark::kMillisecond)->UseRealTime();

// A tool that never stops printing: the run ends at the output limit, not at
// its time-out, and holds no more than the limit.
static void BM_RunFloodingTool(benchmark::State& state) {
    for (auto _ : state) {
        const varnel::CommandResult result =
            varnel::run(QStringLiteral("/usr/bin/yes"), {QStringLiteral("flood")});
        benchmark::DoNotOptimize(result.code);
    }
}
BENCHMARK(BM_RunFloodingTool)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
