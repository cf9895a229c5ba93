// What a Follow tick costs on a log past 4 MB: unchanged, after appends of
// 1 KB, 10 KB and 100 KB (the window moves each time), and the full reload a
// tick used to be; and the same appends streamed as varnelctl follows them. Report the medians:
// ./log_follow_bench --benchmark_repetitions=9
//   --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <QFile>
#include <QTemporaryDir>

#include "logs/log_follow.h"
#include "logs/log_reader.h"
#include "logs/log_rows.h"
#include "logs/log_stream.h"
#include "logs/log_tail.h"
#include "support/log_corpus.h"

namespace {

using namespace varnel;

struct FollowedFile {
    QTemporaryDir dir;
    QString path;

    FollowedFile() {
        path = dir.filePath(QStringLiteral("agent.log"));
        write(test_support::LogCorpus(42).text(4'200'000).toUtf8(), QIODevice::Truncate);
    }

    void write(const QByteArray& bytes, QIODevice::OpenMode mode) const {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | mode) || file.write(bytes) != bytes.size())
            std::abort();
    }
};

// Whole lines of about `bytes` bytes.
QByteArray chunkOf(qsizetype bytes) {
    QByteArray out = test_support::LogCorpus(7).text(bytes).toUtf8();
    return out.left(out.lastIndexOf('\n', bytes) + 1);
}

void BM_TickUnchanged(benchmark::State& state) {
    const FollowedFile file;
    LogFollow follow(file.path);
    follow.load();
    for (auto _ : state) {
        const LogFollowChange change = follow.update();
        if (change.kind != LogFollowChange::Kind::nothing) state.SkipWithError("the rows changed");
    }
}
BENCHMARK(BM_TickUnchanged)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BM_TickAfterAppend(benchmark::State& state) {
    const FollowedFile file;
    const QByteArray chunk = chunkOf(state.range(0));
    LogFollow follow(file.path);
    follow.load();
    qsizetype rows = 0;
    for (auto _ : state) {
        state.PauseTiming();
        file.write(chunk, QIODevice::Append);
        state.ResumeTiming();
        const LogFollowChange change = follow.update();
        if (change.kind != LogFollowChange::Kind::grown) state.SkipWithError("read whole again");
        rows = follow.rows().size();
    }
    state.counters["rows"] = double(rows);
    state.SetBytesProcessed(state.iterations() * chunk.size());
}
BENCHMARK(BM_TickAfterAppend)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

// varnelctl's tick: read on from the offset and hand on the new rows.
void BM_StreamTickAfterAppend(benchmark::State& state) {
    const FollowedFile file;
    const QByteArray chunk = chunkOf(state.range(0));
    LogReader reader(file.path);
    LogStream stream({}, LogStream::Rows::atOnce);
    stream.start(LogRows::build(reader.start(4'000'000).text));
    qsizetype items = 0;
    for (auto _ : state) {
        state.PauseTiming();
        file.write(chunk, QIODevice::Append);
        state.ResumeTiming();
        const LogReader::Chunk lines = reader.next(256 * 1024);
        items = stream.add(lines.text).size();
        if (lines.more || items == 0) state.SkipWithError("not read in one piece");
    }
    state.counters["rows"] = double(items);
    state.SetBytesProcessed(state.iterations() * chunk.size());
}
BENCHMARK(BM_StreamTickAfterAppend)
    ->Arg(1'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

// What every tick cost before, in the window and in varnelctl: read and parse the whole tail.
void BM_FullReload(benchmark::State& state) {
    const FollowedFile file;
    for (auto _ : state) {
        LogTail tail = readLogTail(file.path);
        const LogRows rows = LogRows::build(std::move(tail.text));
        benchmark::DoNotOptimize(rows.size());
    }
}
BENCHMARK(BM_FullReload)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
