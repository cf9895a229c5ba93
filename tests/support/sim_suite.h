#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <optional>

namespace varnel::test {

// A simulated suite (sim/make-suite.sh) in a temporary directory that is this
// process's sandbox root, and the means to change its state between two probes.
//
//   SimSuite& sim = SimSuite::instance();  // first call sets VARNEL_ROOT
//   sim.generate("demo");                  // demo, healthy or empty; wipes earlier state
//   sim.setProcess("varnel-monitor-v2", {901});
//   ... probe, then check sim.calls("launchctl") ...
//
// sandbox::root() reads VARNEL_ROOT once per process, so the first call of
// instance() must come before anything probes the suite; instance() aborts the
// test program when the root was already fixed elsewhere. Paths taken here are
// the suite's own ("/Library/...") unless a name says host path.
class SimSuite {
public:
    enum class Job { running, stopped, listedOnly };
    enum class Answer { approve, cancel, fail, deny };

    static SimSuite& instance();

    // Lays out a fresh suite for the scenario; state changed before is gone.
    void generate(const QString& scenario = QStringLiteral("demo"));

    QString root() const;
    QString hostPath(const QString& suitePath) const;

    // launchd: a job and its pid (no pid: a running job without a pid line).
    void setJob(const QString& label, Job state, std::optional<qint64> pid = std::nullopt);
    void removeJob(const QString& label);
    // What `launchctl print system/LABEL` prints verbatim (exit 0).
    void setJobDescription(const QString& label, const QString& text);

    // pgrep: the pids of a process name; an empty list removes the process.
    void setProcess(const QString& name, const QList<qint64>& pids);

    // systemextensionsctl: the table's rows, "CATEGORY|ENABLED|ACTIVE|TEAMID|BUNDLE
    // (VERSION)|NAME|STATE" (see sim/README.md); empty: no extension.
    void setExtensionRows(const QStringList& rows);
    // One network-extension row for the suite's extension in the given state.
    static QString extensionRow(const QString& state, const QString& version = "1.9.0");

    void setTrusted(const QString& certFileName, bool trusted);
    void setOsascriptAnswer(Answer answer);

    // Removes a system tool (its suite path, e.g. "/usr/bin/pgrep").
    void removeTool(const QString& toolPath);
    // Puts an executable script of one's own in a system tool's place.
    void replaceTool(const QString& toolPath, const QByteArray& script);

    // The suite's files, by suite path. writeFile creates missing folders.
    void writeFile(const QString& suitePath, const QByteArray& bytes);
    void removePath(const QString& suitePath);
    void setModified(const QString& suitePath, const QDateTime& when);
    void setInstalledVersion(const QByteArray& content);
    void setLatestVersion(const QString& version);  // a well-formed discovery state

    // Lines recorded by a fake tool: "launchctl", "osascript", "security", "open".
    QStringList calls(const QString& tool) const;

private:
    SimSuite();
    void writeState(const QString& relative, const QByteArray& bytes) const;

    QTemporaryDir dir_;
};

// Runs sim/make-suite.sh into any directory (another root than the process's,
// e.g. for a child program); false when the generator fails.
bool makeSuite(const QString& hostRoot, const QString& scenario);

}  // namespace varnel::test
