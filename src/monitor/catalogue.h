#pragma once

#include <QList>
#include <QString>
#include <optional>
#include <vector>

#include "monitor/health.h"

namespace varnel {

// How the poller finds out whether a service is up. Every kind carries one text:
// a process name, a launchd label or a system-extension bundle id.
struct Detector {
    enum class Kind { process, launchDaemon, systemExtension, updater };
    Kind kind;
    QString value;

    static Detector process(QString name) { return {Kind::process, std::move(name)}; }
    static Detector launchDaemon(QString label) { return {Kind::launchDaemon, std::move(label)}; }
    static Detector systemExtension(QString id) { return {Kind::systemExtension, std::move(id)}; }
    static Detector updater(QString label) { return {Kind::updater, std::move(label)}; }

    bool operator==(const Detector&) const = default;
};

// A log offered for a service. `path` is absolute, or "hint:" and a file-name
// fragment that is resolved to the newest matching log only when opened.
struct LogFile {
    QString title;
    QString path;

    bool operator==(const LogFile&) const = default;
};

struct ServiceSpec {
    QString key;
    QString title;
    QString detail;
    Detector detector;
    QList<LogFile> logs;
    std::optional<QString> restartLabel;

    bool operator==(const ServiceSpec&) const = default;
};

struct ServiceStatus {
    ServiceSpec spec;
    Health health = Health::unknown;
    QString extra;

    bool operator==(const ServiceStatus&) const = default;
};

// The nine services of the suite, in the order they are probed and shown.
extern const std::vector<ServiceSpec> SERVICES;

}  // namespace varnel
