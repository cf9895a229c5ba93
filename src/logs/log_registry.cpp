#include "logs/log_registry.h"

#include <QHash>
#include <QSet>
#include <algorithm>
#include <limits>
#include <numeric>

#include "platform/file_system.h"
#include "platform/paths.h"

namespace varnel::LogRegistry {

namespace {

const QString logMark = QStringLiteral(".log");
const QString gzSuffix = QStringLiteral(".gz");
const QString titleJoin = QStringLiteral(" \u00B7 ");

// A file whose time cannot be read loses to every sibling that has one.
constexpr qint64 distantPast = std::numeric_limits<qint64>::min();

struct Candidate {
    QString path;
    QString title;
    qint64 mtime = distantPast;
};

qint64 modifiedMsecs(const QString& path) {
    const auto stamp = fs::modified(path);
    if (!stamp || !stamp->isValid()) return distantPast;
    return stamp->toMSecsSinceEpoch();
}

// The rest of a name after its base, less its first character (a whole code point).
QString restTitle(QStringView rest) {
    qsizetype drop = 1;
    if (rest.size() >= 2 && rest.at(0).isHighSurrogate() && rest.at(1).isLowSurrogate()) drop = 2;
    return rest.mid(drop).toString();
}

// QString compares UTF-16 code units, which puts U+10000 and above before U+E000..U+FFFF;
// titles are ordered by code point of their composed form.
bool titleLess(const QList<uint>& a, const QList<uint>& b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
}

QList<Candidate> scanFolder(const QString& folder, const QSet<QString>& seen) {
    QList<Candidate> found;
    const auto names = fs::list(folder);
    if (!names) return found;

    QHash<QString, qsizetype> byBase;  // base name -> index into `found`
    for (const QString& name : *names) {
        const qsizetype mark = name.indexOf(logMark);
        if (mark < 0 || name.endsWith(gzSuffix)) continue;
        const QString path = folder + u'/' + name;
        if (seen.contains(path)) continue;

        const qsizetype baseLength = mark + logMark.size();
        const QString base = name.left(baseLength);
        const QStringView rest = QStringView(name).mid(baseLength);
        Candidate candidate{path, rest.isEmpty() ? base : base + titleJoin + restTitle(rest),
                            modifiedMsecs(path)};

        const auto known = byBase.constFind(base);
        if (known == byBase.cend()) {
            byBase.insert(base, found.size());
            found.append(std::move(candidate));
        } else if (found[*known].mtime < candidate.mtime) {
            found[*known] = std::move(candidate);
        }
    }

    QList<QList<uint>> keys;
    keys.reserve(found.size());
    for (const Candidate& c : found)
        keys.append(c.title.normalized(QString::NormalizationForm_C).toUcs4());
    QList<qsizetype> order(found.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](qsizetype a, qsizetype b) { return titleLess(keys[a], keys[b]); });

    QList<Candidate> sorted;
    sorted.reserve(found.size());
    for (qsizetype i : order) sorted.append(found[i]);
    return sorted;
}

}  // namespace

const QList<LogSource>& known() {
    static const QList<LogSource> list = {
        {QStringLiteral("Agent \u2014 output"), Paths::serviceLogDir + "/agent.stdout.log"},
        {QStringLiteral("Agent \u2014 errors"), Paths::serviceLogDir + "/agent.stderr.log"},
        {QStringLiteral("Updater \u2014 output"),
         Paths::updaterLogDir + "/varnel_endpoint.stdout.log"},
        {QStringLiteral("Updater \u2014 errors"),
         Paths::updaterLogDir + "/varnel_endpoint.stderr.log"},
        {QStringLiteral("Installer \u2014 postinstall"), Paths::postinstallLog},
        {QStringLiteral("Endpoint \u2014 bootstrap"),
         Paths::supportLogDir + "/varnel-endpoint.log"},
        {QStringLiteral("Postinstall \u2014 bootstrap"),
         Paths::supportLogDir + "/postinstall-bootstrap.log"},
    };
    return list;
}

QList<LogSource> discover() {
    static const QStringList folders = {
        Paths::serviceLogDir,
        Paths::supportLogDir,
        Paths::updaterLogDir,
        QStringLiteral("/var/log/ostrel"),
    };

    QList<LogSource> result;
    QSet<QString> seen;
    for (const LogSource& source : known()) {
        if (seen.contains(source.path) || !fs::exists(source.path)) continue;
        result.append(source);
        seen.insert(source.path);
    }
    for (const QString& folder : folders) {
        for (Candidate& candidate : scanFolder(folder, seen)) {
            if (seen.contains(candidate.path)) continue;
            seen.insert(candidate.path);
            result.append({std::move(candidate.title), std::move(candidate.path)});
        }
    }
    return result;
}

std::optional<QString> newest(const QString& fragment) {
    for (const LogSource& source : discover()) {
        const QStringView fileName =
            QStringView(source.path).mid(source.path.lastIndexOf(u'/') + 1);
        if (fileName.contains(fragment)) return source.path;
    }
    return std::nullopt;
}

std::optional<QString> hintFragment(const QString& pathOrHint) {
    if (!pathOrHint.startsWith(Paths::logHintPrefix)) return std::nullopt;
    return pathOrHint.mid(Paths::logHintPrefix.size());
}

std::optional<QString> resolve(const QString& pathOrHint) {
    const std::optional<QString> fragment = hintFragment(pathOrHint);
    return fragment ? newest(*fragment) : pathOrHint;
}

}  // namespace varnel::LogRegistry
