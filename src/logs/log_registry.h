#pragma once

#include <QList>
#include <QString>
#include <optional>

namespace varnel {

struct LogSource {
    QString title;
    QString path;  // the suite's own path (never the sandbox-mapped one)

    bool operator==(const LogSource&) const = default;
};

namespace LogRegistry {

// The logs that are always offered first, when they exist.
const QList<LogSource>& known();

// Every log that exists now: the known ones, then per folder the newest file of
// each base name, sorted by title. Paths are all different.
QList<LogSource> discover();

// The path of the first discovered log whose file name contains `fragment`.
std::optional<QString> newest(const QString& fragment);

// The fragment of a log named as "hint:FRAGMENT"; nothing for a path.
std::optional<QString> hintFragment(const QString& pathOrHint);

// A path as it is; a hint as the newest log it names, when there is one.
std::optional<QString> resolve(const QString& pathOrHint);

}  // namespace LogRegistry

}  // namespace varnel
