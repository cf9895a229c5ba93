#pragma once

#include <QByteArray>
#include <QString>

namespace varnel {

// Version texts are never validated: any string, empty when unknown.

// The installed suite version from its version file, trimmed; empty when the
// file is missing, unreadable or not UTF-8.
QString readInstalledVersion();

// The latest version the suite's discovery has resolved; empty when the state
// file or the value in it is missing or malformed.
QString readLatestVersion();

// The same from the state file's bytes.
QString latestVersionFromJson(const QByteArray& bytes);

// True when `candidate` is a newer version than `reference`, comparing the
// leading numbers of the dot-separated pieces. An empty candidate is never
// newer; any other candidate is newer than an empty reference.
bool versionIsNewer(const QString& candidate, const QString& reference);

}  // namespace varnel
