#include "status/suite_problems.h"

#include <QStringList>

#include "update/version.h"

namespace varnel {

namespace {

constexpr qsizetype kMaxVersion = 32;
constexpr qsizetype kMaxNamedServices = 3;

bool isLineBreakOrControl(QChar c) {
    return c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
           c == QChar::ParagraphSeparator;
}

QString shortVersion(const QString& version) {
    QString line = version;
    for (QChar& c : line)
        if (isLineBreakOrControl(c)) c = u' ';
    if (line.size() <= kMaxVersion) return line;
    return line.left(kMaxVersion - 1) + QChar(0x2026);
}

}  // namespace

bool isScheduled(const ServiceSpec& spec) {
    return spec.detector.kind == Detector::Kind::updater;
}

SuiteProblems suiteProblems(const SuiteProbe& probe) {
    SuiteProblems problems;
    for (const ServiceStatus& s : probe.services) {
        if (s.health == Health::running) ++problems.running;
        if (!isScheduled(s.spec)) ++problems.expected;
        const bool good =
            s.health == Health::running || (s.health == Health::inactive && isScheduled(s.spec));
        if (!good) problems.down.append(s);
    }
    problems.deployed = probe.certificates.deployed;
    problems.untrusted = probe.certificates.deployed - probe.certificates.trusted;
    problems.noCertificates = probe.certificates.deployed == 0;
    if (versionIsNewer(probe.latestVersion, probe.installedVersion))
        problems.waitingUpdate = probe.latestVersion;
    return problems;
}

QString problemLine(const SuiteProblems& problems) {
    QStringList parts;
    if (problems.down.size() > kMaxNamedServices) {
        parts << QStringLiteral("%1 services not running").arg(problems.down.size());
    } else if (!problems.down.isEmpty()) {
        QStringList titles;
        for (const ServiceStatus& s : problems.down) titles << s.spec.title;
        parts << titles.join(QStringLiteral(", ")) + QStringLiteral(" not running");
    }
    if (problems.noCertificates)
        parts << QStringLiteral("no CA certificates deployed");
    else if (problems.untrusted > 0)
        parts << QStringLiteral("%1 of %2 CA certificates untrusted")
                     .arg(problems.untrusted)
                     .arg(problems.deployed);
    if (!problems.waitingUpdate.isEmpty())
        parts << QStringLiteral("update %1 waiting").arg(shortVersion(problems.waitingUpdate));
    return parts.join(QStringLiteral("; "));
}

}  // namespace varnel
