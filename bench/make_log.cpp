// Writes generated log text of the suite's shapes to standard output, for the
// whole-process comparisons: make_log BYTES [SEED]. The same arguments give the
// same bytes.
#include <QByteArray>
#include <cstdio>
#include <cstdlib>

#include "support/log_corpus.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs("usage: make_log BYTES [SEED]\n", stderr);
        return 64;
    }
    const long long wanted = std::atoll(argv[1]);
    varnel::test_support::LogCorpus corpus(argc > 2 ? unsigned(std::atoi(argv[2])) : 42);
    long long written = 0;
    // In pieces, so that a file of hundreds of megabytes never sits in memory.
    while (written < wanted) {
        const QByteArray piece = corpus.text(qMin<long long>(wanted - written, 1 << 20)).toUtf8();
        if (std::fwrite(piece.data(), 1, size_t(piece.size()), stdout) != size_t(piece.size()))
            return 1;
        written += piece.size();
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
