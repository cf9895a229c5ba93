#include "update/version.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QTextBoundaryFinder>
#include <algorithm>
#include <array>
#include <limits>

#include "platform/file_system.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace varnel {

namespace {

// A version file holds a few bytes and the discovery state a few hundred; far
// larger files are not what the suite writes and are read as missing.
constexpr qsizetype kMaxVersionFile = qsizetype{64} * 1024;
constexpr qsizetype kMaxStateFile = qsizetype{1024} * 1024;

// Han ideographs whose Unicode Numeric_Type is Numeric although their general
// category is a letter. They count as numerals (and so make a piece unreadable),
// exactly like the fractions and Roman numerals that QChar::isNumber already knows.
constexpr std::array<char32_t, 81> hanNumerals = {
    0x3405,  0x3483,  0x382a,  0x3b4d,  0x4e00,  0x4e03,  0x4e07,  0x4e09,  0x4e5d,
    0x4e8c,  0x4e94,  0x4e96,  0x4ebf,  0x4ec0,  0x4edf,  0x4ee8,  0x4f0d,  0x4f70,
    0x5104,  0x5146,  0x5169,  0x516b,  0x516d,  0x5341,  0x5343,  0x5344,  0x5345,
    0x534c,  0x53c1,  0x53c2,  0x53c3,  0x53c4,  0x56db,  0x58f1,  0x58f9,  0x5e7a,
    0x5efe,  0x5eff,  0x5f0c,  0x5f0d,  0x5f0e,  0x5f10,  0x62fe,  0x634c,  0x67d2,
    0x6f06,  0x7396,  0x767e,  0x8086,  0x842c,  0x8cae,  0x8cb3,  0x8d30,  0x9621,
    0x9646,  0x964c,  0x9678,  0x96f6,  0xf96b,  0xf973,  0xf978,  0xf9b2,  0xf9d1,
    0xf9d3,  0xf9fd,  0x20001, 0x20064, 0x200e2, 0x20121, 0x2092a, 0x20983, 0x2098c,
    0x2099c, 0x20aea, 0x20afd, 0x20b19, 0x22390, 0x22998, 0x23b1b, 0x2626d, 0x2f890,
};

bool isNumeral(char32_t codePoint) {
    return QChar::isNumber(codePoint) ||
           std::binary_search(hanNumerals.begin(), hanNumerals.end(), codePoint);
}

// Characters as people see them (a digit with a combining mark is one), the
// unit in which pieces are split and numerals are recognised.
QStringList graphemes(const QString& text) {
    QStringList result;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype start = 0;
    while (finder.toNextBoundary() != -1) {
        const qsizetype end = finder.position();
        result.append(text.sliced(start, end - start));
        start = end;
    }
    return result;
}

// A character is a numeral when its first code point is one.
bool startsWithNumeral(const QString& character) {
    return isNumeral(character.toUcs4().value(0));
}

// The value of a piece's leading numerals; 0 when there are none, when the run
// holds anything but ASCII digits, or when it overflows.
qint64 componentValue(const QStringList& piece) {
    QString run;
    for (const QString& character : piece) {
        if (!startsWithNumeral(character)) break;
        run += character;
    }
    qint64 value = 0;
    for (const QChar c : std::as_const(run)) {
        if (c < u'0' || c > u'9') return 0;
        const int digit = c.unicode() - u'0';
        if (value > (std::numeric_limits<qint64>::max() - digit) / 10) return 0;
        value = value * 10 + digit;
    }
    return value;
}

QList<qint64> components(const QString& version) {
    QList<qint64> values;
    QStringList piece;
    const auto flush = [&] {
        if (!piece.isEmpty()) values.append(componentValue(piece));
        piece.clear();
    };
    for (const QString& character : graphemes(version)) {
        if (character == QStringLiteral("."))
            flush();
        else
            piece.append(character);
    }
    flush();
    return values;
}

}  // namespace

QString readInstalledVersion() {
    const auto bytes = fs::readFile(Paths::installedVer, kMaxVersionFile);
    if (!bytes) return {};
    return text::decodeUtf8Strict(*bytes).value_or(QString()).trimmed();
}

QString readLatestVersion() {
    const auto bytes = fs::readFile(Paths::discoveryState, kMaxStateFile);
    return bytes ? latestVersionFromJson(*bytes) : QString();
}

QString latestVersionFromJson(const QByteArray& bytes) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) return {};
    const QJsonValue resolved = document.object().value(QStringLiteral("last_resolved"));
    if (!resolved.isObject()) return {};
    const QJsonValue version = resolved.toObject().value(QStringLiteral("agent_version_mac"));
    if (!version.isString()) return {};
    return version.toString().trimmed();
}

bool versionIsNewer(const QString& candidate, const QString& reference) {
    if (candidate.isEmpty()) return false;
    if (reference.isEmpty()) return true;
    const QList<qint64> newer = components(candidate);
    const QList<qint64> older = components(reference);
    const qsizetype length = std::max(newer.size(), older.size());
    for (qsizetype i = 0; i < length; ++i) {
        const qint64 a = i < newer.size() ? newer[i] : 0;
        const qint64 b = i < older.size() ? older[i] : 0;
        if (a != b) return a > b;
    }
    return false;
}

}  // namespace varnel
