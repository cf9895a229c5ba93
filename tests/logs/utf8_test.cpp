#include "logs/utf8.h"

#include <gtest/gtest.h>

using namespace varnel;

TEST(Utf8, LineScanAgreesOnEveryPathWhereverTheBytesStand) {
    // A line feed, a byte above ASCII and ESC at every offset around the
    // eight-, sixteen- and thirty-two-byte steps, or not there at all (-1).
    constexpr int kSize = 40;
    for (int lineFeed = -1; lineFeed < kSize; ++lineFeed)
        for (int high = -1; high < kSize; ++high)
            for (int escape = -1; escape < kSize; escape += 3)
                for (int from : {0, 3}) {
                    QByteArray bytes(kSize, 'a');
                    if (high >= 0) bytes[high] = char(0xC3);
                    if (escape >= 0) bytes[escape] = '\x1b';
                    // A second line feed a little later must not move the end.
                    if (lineFeed >= 0)
                        bytes[lineFeed] = bytes[qMin(lineFeed + 5, kSize - 1)] = '\n';
                    const qsizetype found = bytes.indexOf('\n', from);
                    const qsizetype end = found < 0 ? kSize : found;
                    const QByteArray line = bytes.sliced(from, end - from);
                    for (auto path :
                         {utf8::ScanPath::portable, utf8::ScanPath::sse2, utf8::fastestScan()}) {
                        const utf8::LineScan got = utf8::scanLine(bytes.data(), from, kSize, path);
                        ASSERT_EQ(std::tuple(got.end, got.ascii, got.escape),
                                  std::tuple(end, !line.contains('\xC3'), line.contains('\x1b')))
                            << bytes.toHex().toStdString() << " from " << from;
                    }
                }
    // Past the steps the vector counters take before they are summed.
    const QByteArray many = QByteArray(20000, '\n').replace(4081, 1, "x");
    for (auto path : {utf8::ScanPath::portable, utf8::ScanPath::sse2, utf8::fastestScan()})
        EXPECT_EQ(utf8::countLineFeeds(many, path), 19999);
}

TEST(Utf8, FirstCodePointsCutsWhereUtf16Does) {
    // One to four bytes a character, in runs that cross the eight-byte steps.
    const QString text = QString::fromUtf8("ab\u00e9c\u20acd\U0001F600e").repeated(6);
    const QByteArray bytes = text.toUtf8();
    qsizetype units = 0;  // UTF-16 units of the first n code points
    for (qsizetype n = 0; n <= text.size(); ++n) {
        ASSERT_EQ(utf8::firstCodePoints(QUtf8StringView(bytes), n).size(),
                  text.first(units).toUtf8().size())
            << n;
        if (units < text.size()) units += text[units].isHighSurrogate() ? 2 : 1;
    }
}

TEST(Utf8, CountsLineFeedsWhereverTheTextEnds) {
    // Line feeds among other bytes, cut at every length around the vector steps.
    const QByteArray mixed = QByteArray("a\nbc\n\n\xc3\xa9\n").repeated(40);
    for (qsizetype size = 0; size <= mixed.size(); ++size)
        for (auto path : {utf8::ScanPath::sse2, utf8::fastestScan()})
            ASSERT_EQ(utf8::countLineFeeds(mixed.first(size), path), mixed.first(size).count('\n'))
                << size;
}
