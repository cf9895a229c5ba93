#include "support/sim_suite.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <cstdio>
#include <cstdlib>

#include "platform/sandbox.h"

namespace varnel::test {

namespace {

[[noreturn]] void fail(const QString& message) {
    std::fprintf(stderr, "sim_suite: %s\n", qPrintable(message));
    std::abort();
}

void writeHostFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        fail(QStringLiteral("cannot write %1").arg(path));
}

QByteArray jobLine(SimSuite::Job state, std::optional<qint64> pid) {
    switch (state) {
        case SimSuite::Job::running:
            return pid ? "running " + QByteArray::number(*pid) + '\n' : "running\n";
        case SimSuite::Job::stopped:
            return "stopped\n";
        case SimSuite::Job::listedOnly:
            break;
    }
    return "listed\n";
}

}  // namespace

bool makeSuite(const QString& hostRoot, const QString& scenario) {
    QProcess generator;
    generator.setProcessChannelMode(QProcess::ForwardedChannels);
    generator.start(QStringLiteral(VARNEL_SIM_DIR "/make-suite.sh"), {hostRoot, scenario});
    return generator.waitForFinished(60'000) && generator.exitStatus() == QProcess::NormalExit &&
           generator.exitCode() == 0;
}

SimSuite& SimSuite::instance() {
    static SimSuite suite;
    return suite;
}

SimSuite::SimSuite() {
    if (!dir_.isValid()) fail(QStringLiteral("no temporary directory"));
    qputenv("VARNEL_ROOT", QFile::encodeName(dir_.path()));
    if (sandbox::root() != QDir(dir_.path()).canonicalPath() && sandbox::root() != dir_.path())
        fail(QStringLiteral("the sandbox root was fixed before the simulated suite was made"));
}

void SimSuite::generate(const QString& scenario) {
    if (!makeSuite(dir_.path(), scenario))
        fail(QStringLiteral("make-suite.sh failed for %1").arg(scenario));
}

QString SimSuite::root() const {
    return dir_.path();
}

QString SimSuite::hostPath(const QString& suitePath) const {
    return dir_.path() + suitePath;
}

void SimSuite::writeState(const QString& relative, const QByteArray& bytes) const {
    writeHostFile(dir_.path() + QStringLiteral("/.sim/") + relative, bytes);
}

void SimSuite::setJob(const QString& label, Job state, std::optional<qint64> pid) {
    QFile::remove(dir_.path() + QStringLiteral("/.sim/jobs/") + label + QStringLiteral(".print"));
    writeState(QStringLiteral("jobs/") + label, jobLine(state, pid));
}

void SimSuite::removeJob(const QString& label) {
    QFile::remove(dir_.path() + QStringLiteral("/.sim/jobs/") + label);
    QFile::remove(dir_.path() + QStringLiteral("/.sim/jobs/") + label + QStringLiteral(".print"));
}

void SimSuite::setJobDescription(const QString& label, const QString& text) {
    writeState(QStringLiteral("jobs/") + label + QStringLiteral(".print"), text.toUtf8());
}

void SimSuite::setProcess(const QString& name, const QList<qint64>& pids) {
    if (pids.isEmpty()) {
        QFile::remove(dir_.path() + QStringLiteral("/.sim/procs/") + name);
        return;
    }
    QByteArray lines;
    for (const qint64 pid : pids) lines += QByteArray::number(pid) + '\n';
    writeState(QStringLiteral("procs/") + name, lines);
}

void SimSuite::setExtensionRows(const QStringList& rows) {
    writeState(QStringLiteral("sysext"),
               rows.isEmpty() ? QByteArray() : (rows.join(u'\n') + u'\n').toUtf8());
}

QString SimSuite::extensionRow(const QString& state, const QString& version) {
    return QStringLiteral(
               "com.apple.system_extension.network_extension|*|*|7QX4PL2M9A|"
               "ai.ostrel.agent.sentinel.extension (%1/%1)|Varnel Network Extension|%2")
        .arg(version, state);
}

void SimSuite::setTrusted(const QString& certFileName, bool trusted) {
    if (trusted)
        writeState(QStringLiteral("trusted/") + certFileName, {});
    else
        QFile::remove(dir_.path() + QStringLiteral("/.sim/trusted/") + certFileName);
}

void SimSuite::setOsascriptAnswer(Answer answer) {
    static const char* const words[] = {"approve\n", "cancel\n", "fail\n", "deny\n"};
    writeState(QStringLiteral("osascript"), words[int(answer)]);
}

void SimSuite::removeTool(const QString& toolPath) {
    QFile::remove(hostPath(toolPath));
}

void SimSuite::replaceTool(const QString& toolPath, const QByteArray& script) {
    writeHostFile(hostPath(toolPath), script);
    QFile::setPermissions(hostPath(toolPath), QFile::ReadOwner | QFile::WriteOwner |
                                                  QFile::ExeOwner | QFile::ReadGroup |
                                                  QFile::ExeGroup | QFile::ReadOther |
                                                  QFile::ExeOther);
}

void SimSuite::writeFile(const QString& suitePath, const QByteArray& bytes) {
    writeHostFile(hostPath(suitePath), bytes);
}

void SimSuite::removePath(const QString& suitePath) {
    const QFileInfo info(hostPath(suitePath));
    if (info.isDir() && !info.isSymLink())
        QDir(info.filePath()).removeRecursively();
    else
        QFile::remove(info.filePath());
}

void SimSuite::setModified(const QString& suitePath, const QDateTime& when) {
    QFile file(hostPath(suitePath));
    if (!file.open(QIODevice::ReadWrite) ||
        !file.setFileTime(when, QFileDevice::FileModificationTime))
        fail(QStringLiteral("cannot set the time of %1").arg(suitePath));
}

void SimSuite::setInstalledVersion(const QByteArray& content) {
    writeFile(QStringLiteral("/Library/Application Support/Varnel/.installed_version"), content);
}

void SimSuite::setLatestVersion(const QString& version) {
    writeFile(QStringLiteral("/Library/Application Support/Varnel/.discovery-state.json"),
              QStringLiteral("{\"last_resolved\": {\"agent_version_mac\": \"%1\"}}\n")
                  .arg(version)
                  .toUtf8());
}

QStringList SimSuite::calls(const QString& tool) const {
    QFile file(dir_.path() + QStringLiteral("/.sim/calls/") + tool);
    if (!file.open(QIODevice::ReadOnly)) return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

}  // namespace varnel::test
