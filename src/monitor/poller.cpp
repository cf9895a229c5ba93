#include "monitor/poller.h"

#include <QStringList>
#include <limits>

#include "platform/background.h"
#include "platform/file_system.h"
#include "platform/paths.h"

namespace varnel::Poller {

namespace {

const QString launchctl = QStringLiteral("/bin/launchctl");
// The core agent's executable name: whichever daemon is probed, a live agent
// process means the suite is doing its work.
const QString agentProcess = QStringLiteral("varnel");
// Older builds registered the extension under a shorter id.
const QString extensionFamily = QStringLiteral("ai.ostrel.agent.sentinel");

bool isBlank(QChar c) {
    return c == u' ' || c == u'\t';
}

// launchd pads with tabs and spaces only; a stray CR or other white space is
// part of the value and makes it unreadable, as it would for the tool's readers.
QStringView trimBlanks(QStringView text) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text[begin])) ++begin;
    while (end > begin && isBlank(text[end - 1])) --end;
    return text.sliced(begin, end - begin);
}

std::optional<qint64> parseDecimal(QStringView text) {
    qsizetype i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
    if (i == text.size()) return std::nullopt;
    // Accumulate toward the negative side so that the minimum still fits.
    qint64 value = 0;
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < u'0' || c > u'9') return std::nullopt;
        const int digit = c - u'0';
        if (value < (std::numeric_limits<qint64>::min() + digit) / 10) return std::nullopt;
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == std::numeric_limits<qint64>::min()) return std::nullopt;
        value = -value;
    }
    return value;
}

QString ageText(qint64 age) {
    if (age < 60) return QStringLiteral("%1s ago").arg(age);
    if (age < 3600) return QStringLiteral("%1m ago").arg(age / 60);
    if (age < 86400) return QStringLiteral("%1h ago").arg(age / 3600);
    return QStringLiteral("%1d ago").arg(age / 86400);
}

ServiceStatus daemonStatus(const ServiceSpec& spec, Tools& tools) {
    const LaunchdState state = launchdState(spec.detector.value, tools);
    if (!state.loaded) return {spec, Health::stopped, QStringLiteral("not loaded")};
    const bool processUp = tools.isProcessRunning(agentProcess);
    const Health health = state.running || processUp ? Health::running : Health::attention;
    QString extra;
    if (state.pid)
        extra = QStringLiteral("pid %1").arg(*state.pid);
    else
        extra = processUp ? QStringLiteral("active") : QStringLiteral("loaded, not running");
    return {spec, health, extra};
}

ServiceStatus extensionStatus(const ServiceSpec& spec, const QString& sysext) {
    const QStringList lines = sysext.split(u'\n', Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        if (!line.contains(spec.detector.value) && !line.contains(extensionFamily)) continue;
        // Only the first line counts: a later one is usually an older copy
        // waiting to be removed at reboot.
        const QString lowered = line.toLower();
        if (lowered.contains(QStringLiteral("activated enabled")))
            return {spec, Health::running, QStringLiteral("activated")};
        if (lowered.contains(QStringLiteral("terminated")))
            return {spec, Health::attention, QStringLiteral("terminated")};
        return {spec, Health::attention, QStringLiteral("registered")};
    }
    return {spec, Health::stopped, QStringLiteral("not registered")};
}

ServiceStatus updaterStatus(const ServiceSpec& spec, Tools& tools) {
    // A loaded updater is idle by definition, even while it happens to run.
    if (!launchdState(spec.detector.value, tools).loaded)
        return {spec, Health::stopped, QStringLiteral("not scheduled")};
    const auto age =
        fileMtimeAgo(Paths::updaterLogDir + QStringLiteral("/varnel_endpoint.stdout.log"));
    return {spec, Health::inactive,
            age ? QStringLiteral("last run ") + *age : QStringLiteral("scheduled")};
}

}  // namespace

QString sysextSnapshot() {
    Tools tools;
    return sysextSnapshot(tools);
}

QString sysextSnapshot(Tools& tools) {
    return tools.run(QStringLiteral("/usr/bin/systemextensionsctl"), {QStringLiteral("list")}, 6)
        .out;
}

std::optional<qint64> pidFromDescription(const QString& description) {
    static const QString marker = QStringLiteral("pid = ");
    const QStringList lines = description.split(u'\n', Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        const QStringView trimmed = trimBlanks(line);
        if (!trimmed.startsWith(marker)) continue;
        if (const auto pid = parseDecimal(trimBlanks(trimmed.sliced(marker.size())))) return pid;
    }
    return std::nullopt;
}

LaunchdState launchdState(const QString& label) {
    Tools tools;
    return launchdState(label, tools);
}

LaunchdState launchdState(const QString& label, Tools& tools) {
    const CommandResult printed =
        tools.run(launchctl, {QStringLiteral("print"), QStringLiteral("system/") + label}, 6);
    if (printed.code == 0)
        return {true, printed.out.contains(QStringLiteral("state = running")),
                pidFromDescription(printed.out)};
    const bool listed = tools.run(launchctl, {QStringLiteral("list"), label}, 4).code == 0;
    return {listed, listed, std::nullopt};
}

std::optional<QString> fileMtimeAgo(const QString& path) {
    return fileMtimeAgo(path, QDateTime::currentDateTimeUtc());
}

std::optional<QString> fileMtimeAgo(const QString& path, const QDateTime& now) {
    const auto when = fs::modified(path);
    if (!when) return std::nullopt;
    // Integer division truncates toward zero, for future dates as well.
    return ageText((now.toMSecsSinceEpoch() - when->toMSecsSinceEpoch()) / 1000);
}

ServiceStatus status(const ServiceSpec& spec, const QString& sysext) {
    Tools tools;
    return status(spec, sysext, tools);
}

ServiceStatus status(const ServiceSpec& spec, const QString& sysext, Tools& tools) {
    switch (spec.detector.kind) {
        case Detector::Kind::process:
            if (tools.isProcessRunning(spec.detector.value))
                return {spec, Health::running, QString()};
            return {spec, Health::stopped, QStringLiteral("not running")};
        case Detector::Kind::launchDaemon:
            return daemonStatus(spec, tools);
        case Detector::Kind::systemExtension:
            return extensionStatus(spec, sysext);
        case Detector::Kind::updater:
            break;
    }
    return updaterStatus(spec, tools);
}

QList<ServiceStatus> snapshot() {
    ToolSession session;
    SnapshotParts parts(session);
    allAtOnce(parts.jobs());
    return parts.statuses();
}

SnapshotParts::SnapshotParts(ToolSession& session, int firstPart)
    : session_(session), firstPart_(firstPart), statuses_(SERVICES.size()) {}

std::vector<std::function<void()>> SnapshotParts::jobs() {
    const auto isExtension = [](const ServiceSpec& spec) {
        return spec.detector.kind == Detector::Kind::systemExtension;
    };
    // The list is taken first on every snapshot, as when the services were
    // probed one after another, whether or not the catalogue has an extension.
    std::vector<std::function<void()>> jobs;
    jobs.emplace_back([this, isExtension] {
        Tools tools = session_.part(firstPart_);
        const QString sysext = sysextSnapshot(tools);
        for (size_t i = 0; i < SERVICES.size(); ++i)
            if (isExtension(SERVICES[i])) statuses_[i] = status(SERVICES[i], sysext, tools);
    });
    for (size_t i = 0; i < SERVICES.size(); ++i) {
        if (isExtension(SERVICES[i])) continue;
        jobs.emplace_back([this, i] {
            Tools tools = session_.part(firstPart_ + 1 + int(i));
            statuses_[i] = status(SERVICES[i], QString(), tools);
        });
    }
    return jobs;
}

QList<ServiceStatus> SnapshotParts::statuses() const {
    return QList<ServiceStatus>(statuses_.begin(), statuses_.end());
}

}  // namespace varnel::Poller
