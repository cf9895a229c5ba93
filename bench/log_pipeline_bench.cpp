// What a log load and a search keystroke cost on a 4 MB tail of mixed lines,
// what printing the rows costs as varnelctl prints them, and the search's two
// ways of finding candidates: x86's vector instructions and the portable code
// other processors run.
// Report the medians: ./log_pipeline_bench --benchmark_repetitions=15
//   --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdint>

#include <QFile>
#include <QTemporaryDir>

#include "cli/log_output.h"
#include "logs/ascii_search.h"
#include "logs/log_filter.h"
#include "logs/log_rows.h"
#include "logs/log_tail.h"
#include "logs/log_text.h"
#include "support/log_corpus.h"

namespace {

using namespace varnel;

// The generated log, written once per run.
struct TailFile {
    QTemporaryDir dir;
    QString path;
    qsizetype bytes = 0;

    TailFile() {
        path = dir.filePath(QStringLiteral("agent.log"));
        // A little over the limit, so the read is a real tail.
        const QByteArray text = test_support::LogCorpus(42).text(4'200'000).toUtf8();
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) std::abort();
        bytes = text.size();
    }
};

const TailFile& tailFile() {
    static const TailFile file;
    return file;
}

long minorFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// Read and build, as the window and varnelctl do on every load; the page
// faults are those of one load, freeing the last one's memory included.
void BM_LoadTail(benchmark::State& state) {
    const TailFile& file = tailFile();
    qsizetype rowCount = 0;
    double ratio = 0;
    long faults = 0;
    for (auto _ : state) {
        const long before = minorFaults();
        {
            const LogTail tail = readLogTail(file.path);
            const LogRows rows = LogRows::build(tail.text);
            benchmark::DoNotOptimize(rows.size());
            state.PauseTiming();
            rowCount = rows.size();
            // Against the bytes read.
            ratio = double(rows.memoryBytes()) / 4'000'000.0;
            state.ResumeTiming();
        }
        faults += minorFaults() - before;
    }
    state.counters["rows"] = double(rowCount);
    state.counters["memory_per_text_byte"] = ratio;
    state.counters["faults"] = double(faults) / double(state.iterations());
}
BENCHMARK(BM_LoadTail)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FilterBySearch(benchmark::State& state) {
    const LogRows rows = LogRows::build(readLogTail(tailFile().path).text);
    const QString search =
        state.range(0) == 0 ? QStringLiteral("handshake") : QStringLiteral("Peer Rot");
    qsizetype shown = 0;
    for (auto _ : state) {
        const QList<qsizetype> indices = filterRows(rows, {LevelChoice::all, search});
        shown = indices.size();
        benchmark::DoNotOptimize(indices.data());
    }
    state.counters["shown"] = double(shown);
    state.counters["rows"] = double(rows.size());
}
BENCHMARK(BM_FilterBySearch)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every row laid out as `varnelctl logs show` prints it: arg 0 aligned text,
// 1 JSON lines. The output buffer is reused, as varnelctl reuses it.
void BM_FormatRows(benchmark::State& state) {
    const LogRows rows = LogRows::build(readLogTail(tailFile().path).text);
    const bool json = state.range(0) != 0;
    cli::TextBuffer out;
    qsizetype bytes = 0;
    for (auto _ : state) {
        cli::RowFormatter text(false);
        if (!json)
            for (qsizetype i = 0; i < rows.size(); ++i) text.fit(rows[i]);
        for (qsizetype i = 0; i < rows.size(); ++i) {
            if (json)
                cli::appendRowJson(out, rows[i]);
            else
                text.row(out, rows[i]);
            if (out.size() > 256 * 1024) {
                bytes += out.size();
                out.clear();
            }
        }
        bytes += out.size();
        out.clear();
    }
    state.counters["rows"] = double(rows.size());
    state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_FormatRows)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every ASCII message searched for a word that is rarely there: arg 0 the
// portable path, 1 SSE2, 2 the fastest this processor has.
void BM_AsciiSearch(benchmark::State& state) {
    const LogRows rows = LogRows::build(readLogTail(tailFile().path).text);
    QList<QByteArrayView> messages;
    for (qsizetype i = 0; i < rows.size(); ++i) {
        const QUtf8StringView message = rows[i].message;
        messages.append(QByteArrayView(message.data(), message.size()));
    }
    const AsciiFinder::Path paths[] = {AsciiFinder::Path::portable, AsciiFinder::Path::sse2,
                                       AsciiFinder::fastest()};
    const AsciiFinder::Path path = paths[state.range(0)];
    const AsciiFinder finder("peer rot", path);
    qsizetype found = 0;
    qsizetype chars = 0;
    for (QByteArrayView message : messages) chars += message.size();
    for (auto _ : state) {
        found = 0;
        for (QByteArrayView message : messages) found += finder.foundIn(message);
        benchmark::DoNotOptimize(found);
    }
    state.counters["found"] = double(found);
    state.SetBytesProcessed(state.iterations() * chars);
}
BENCHMARK(BM_AsciiSearch)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// 2 MB of JSON lines that share a long start and differ in one key, in random
// order: arg 3 kinds of line, which the JSON reader keeps the layouts of, or 8,
// more than it keeps, its worst case.
void BM_BuildJsonLines(benchmark::State& state) {
    QByteArray text;
    std::uint32_t seed = 7;
    const auto next = [&seed] { return seed = seed * 1103515245u + 12345u; };
    while (text.size() < 2'000'000) {
        const unsigned kind = (next() >> 16) % unsigned(state.range(0));
        text += QStringLiteral(R"({"timestamp":"2024-05-01T10:00:%1.%2Z","level":"INFO",)"
                               R"("target":"agent::x","k%3":"%4","message":"request %5 done"})"
                               "\n")
                    .arg((next() >> 16) % 60, 2, 10, QLatin1Char('0'))
                    .arg((next() >> 8) % 1'000'000, 6, 10, QLatin1Char('0'))
                    .arg(kind)
                    .arg(QString(int(5 + (next() >> 16) % 15), u'v'))
                    .arg((next() >> 8) % 100'000)
                    .toUtf8();
    }
    for (auto _ : state) benchmark::DoNotOptimize(LogRows::build(LogText(text)).size());
    state.SetBytesProcessed(state.iterations() * text.size());
}
BENCHMARK(BM_BuildJsonLines)->Arg(3)->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same lines through Qt's JSON reader and regular expressions alone, for scale.
void BM_ParseWithEnginesOnly(benchmark::State& state) {
    const QString text = readLogTail(tailFile().path).text.toString();
    const QList<QStringView> lines = QStringView(text).split(u'\n');
    for (auto _ : state) {
        for (QStringView line : lines) benchmark::DoNotOptimize(LogParser::parseReference(line));
    }
}
BENCHMARK(BM_ParseWithEnginesOnly)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
