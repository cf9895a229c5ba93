#include "cli/diagnose_command.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSysInfo>

#include "cli/atomic_file.h"
#include "cli/history_command.h"
#include "cli/log_output.h"
#include "cli/options.h"
#include "cli/status_formats.h"
#include "cli/tar_gz.h"
#include "cli/terminal_text.h"
#include "logs/log_registry.h"
#include "logs/log_tail.h"
#include "platform/file_system.h"
#include "platform/paths.h"
#include "platform/sandbox.h"
#include "status/status_history.h"

namespace varnel::cli {

namespace {

const char* const diagnoseUsage =
    "Usage: varnelctl diagnose [--output FILE]\n"
    "\n"
    "Writes a support bundle (.tar.gz) and prints its path: the status, the version\n"
    "files and CA certificates, what each system tool answered during one probe, the\n"
    "log list and the last megabyte of every log, the status history, the program's\n"
    "and the system's versions, and a manifest of what was collected and what was\n"
    "left out, and why.\n"
    "Private keys, files named like them and secrets in the state file are left out;\n"
    "home folders read as ~. The bundle holds at most 32 MB before compression.\n"
    "\n"
    "Options:\n"
    "  --output FILE  where to write it (default: varnel-diagnose-TIME.tar.gz in the\n"
    "                 current folder), replacing it whole\n"
    "  -h, --help     show this help\n"
    "\n"
    "Exit status: 0 written, 64 bad usage, 74 the bundle could not be written.\n";

constexpr qsizetype kMegabyte = qsizetype{1024} * 1024;
constexpr qsizetype kMaxBundle = 32 * kMegabyte;
// Kept back for the manifest, which is written last and must always fit.
constexpr qsizetype kManifestRoom = kMegabyte;
constexpr qsizetype kMaxSuiteFile = kMegabyte;
constexpr quint64 kLogTail = quint64(kMegabyte);

const QString supportDir = QStringLiteral("/Library/Application Support/Varnel");

// Both the opening and the closing line of every PEM private key (RSA, EC,
// PKCS#8, encrypted, OpenSSH) end so, and a tail may start past the opening one.
bool holdsPrivateKey(QStringView text) {
    return text.contains(QStringLiteral("PRIVATE KEY-----"));
}

bool namedLikeKey(const QString& path) {
    static const QRegularExpression keyName(
        QStringLiteral("(\\.(key|p12|pfx|p8|jks|keystore)$|^id_(rsa|dsa|ecdsa|ed25519)|"
                       "priv(ate)?[-_.]?key|[-_.]key\\.pem$)"),
        QRegularExpression::CaseInsensitiveOption);
    return keyName.match(QFileInfo(path).fileName()).hasMatch();
}

// The bundle leaves the machine: a link planted in a suite folder must not
// carry a file from elsewhere with it.
bool isLink(const QString& suitePath) {
    return QFileInfo(sandbox::hostPath(suitePath)).isSymLink();
}

// Values under names like these are credentials, whatever the state file calls them.
QJsonValue redacted(const QJsonValue& value) {
    static const QRegularExpression secretName(
        QStringLiteral("token|secret|passw|credential|cookie|session|auth|api.?key|private"),
        QRegularExpression::CaseInsensitiveOption);
    if (value.isArray()) {
        QJsonArray array;
        for (const auto& item : value.toArray()) array.append(redacted(item));
        return array;
    }
    if (!value.isObject()) return value;
    QJsonObject object = value.toObject();
    for (auto it = object.begin(); it != object.end(); ++it)
        it.value() = secretName.match(it.key()).hasMatch()
                         ? QJsonValue(QStringLiteral("[redacted]"))
                         : redacted(it.value());
    return object;
}

// Paths that say who the user is, or where the sandbox lies, as a reader of
// the bundle would see them on a Mac of their own.
class Scrubber {
public:
    Scrubber() {
        QStringList homes{QStringLiteral("/Users/(?!Shared(?![^/\\s]))[^/\\s\"':;,]+")};
        const QString home = QDir::homePath();
        if (home.size() > 1) homes << QRegularExpression::escape(home);
        homes_.setPattern(QStringLiteral("(%1)(?![\\w.-])").arg(homes.join(u'|')));
        if (!sandbox::root().isEmpty())
            root_.setPattern(QRegularExpression::escape(sandbox::root()) + QStringLiteral("(?=/)"));
    }
    QString operator()(QString text) const {
        if (!root_.pattern().isEmpty()) text.replace(root_, QString());
        return text.replace(homes_, QStringLiteral("~"));
    }

private:
    QRegularExpression root_;
    QRegularExpression homes_;
};

class Bundle {
public:
    Bundle(QString top, const QDateTime& made) : top_(std::move(top)), tar_(made) {}

    bool hasRoom(qsizetype bytes) const {
        return tar_.size() + bytes + 512 <= kMaxBundle - kManifestRoom;
    }

    // Adds `text` under `entry` in the bundle unless it holds a key or there is no room.
    void add(const QString& entry, const QString& text, const QString& from) {
        if (holdsPrivateKey(text)) return skip(from, QStringLiteral("holds a private key"));
        const QByteArray bytes = scrub_(text).toUtf8();
        if (!hasRoom(bytes.size())) return skip(from, QStringLiteral("the bundle is full"));
        if (!tar_.add(top_ + u'/' + entry, bytes))
            return note(QStringLiteral("failed"), from, QStringLiteral("name cannot be stored"));
        note(QStringLiteral("collected"), entry, from);
    }
    void skip(const QString& what, const QString& why) {
        note(QStringLiteral("skipped"), what, why);
    }
    void fail(const QString& what, const QString& why) {
        note(QStringLiteral("failed"), what, why);
    }

    std::optional<QByteArray> finish(const QString& heading) {
        QString manifest = heading + QStringLiteral("\n\n") + lines_.join(u'\n') + u'\n';
        // A UTF-16 unit takes at most three bytes in UTF-8.
        if (manifest.size() > kManifestRoom / 3)
            manifest = manifest.left(kManifestRoom / 3 - 64) + QStringLiteral("\n… cut here\n");
        tar_.add(top_ + QStringLiteral("/manifest.txt"), manifest.toUtf8());
        return tar_.finish();
    }

private:
    void note(const QString& state, const QString& what, const QString& detail) {
        lines_ << scrub_(QStringLiteral("%1\t%2\t%3").arg(state, what, detail));
    }

    QString top_;
    TarGz tar_;
    Scrubber scrub_;
    QStringList lines_;
};

QString commandLine(const ToolCall& call) {
    QStringList words{call.executable};
    for (const QString& argument : call.arguments)
        words << (argument.contains(u' ') ? u'\'' + argument + u'\'' : argument);
    return words.join(u' ');
}

void addProbe(Bundle& bundle, const StatusReport& report) {
    bundle.add(QStringLiteral("status.json"), statusJson(report),
               QStringLiteral("varnelctl status --json"));
    QStringList calls;
    const QList<ToolCall>& transcript = report.probe.transcript;
    for (qsizetype i = 0; i < transcript.size(); ++i) {
        const ToolCall& call = transcript[i];
        const QString entry = QStringLiteral("probe/%1-%2.txt")
                                  .arg(i + 1, 2, 10, QChar(u'0'))
                                  .arg(QFileInfo(call.executable).fileName());
        const QString code = call.code == -1 ? QStringLiteral("did not start")
                                             : QStringLiteral("exit %1").arg(call.code);
        calls << QStringLiteral("%1\t%2\t%3 s\t%4")
                     .arg(entry, code, QString::number(call.seconds, 'f', 3), commandLine(call));
        bundle.add(entry, call.out, commandLine(call));
    }
    bundle.add(QStringLiteral("probe/calls.txt"), calls.join(u'\n') + u'\n',
               QStringLiteral("every tool call of the probe: output, exit code, seconds, command"));
}

void addSuiteFiles(Bundle& bundle) {
    const auto names = fs::list(supportDir);
    if (!names) return bundle.fail(supportDir, QStringLiteral("cannot be listed"));
    QStringList sorted = *names;
    sorted.sort();
    for (const QString& required :
         {QFileInfo(Paths::installedVer).fileName(), QFileInfo(Paths::discoveryState).fileName()})
        if (!sorted.contains(required))
            bundle.fail(supportDir + u'/' + required, QStringLiteral("missing"));
    static const QRegularExpression wanted(
        QStringLiteral("^\\.installed_version$|"
                       "^\\.discovery-state\\.json$|"
                       "\\.(pem|crt|cer)$"));
    for (const QString& name : sorted) {
        const QString path = supportDir + u'/' + name;
        if (namedLikeKey(name)) {
            bundle.skip(path, QStringLiteral("named like a private key"));
            continue;
        }
        if (!wanted.match(name).hasMatch()) continue;
        if (isLink(path)) {
            bundle.skip(path, QStringLiteral("a symbolic link, not followed"));
            continue;
        }
        const auto bytes = fs::readFile(path, kMaxSuiteFile);
        if (!bytes) {
            bundle.fail(path, QStringLiteral("not a readable file of at most 1 MB"));
            continue;
        }
        QString text = QString::fromUtf8(*bytes);
        if (path == Paths::discoveryState) {
            const QJsonDocument state = QJsonDocument::fromJson(*bytes);
            if (state.isObject())
                text =
                    QString::fromUtf8(QJsonDocument(redacted(state.object()).toObject()).toJson());
        }
        bundle.add(QStringLiteral("suite/") + name, text, path);
    }
}

void addLogs(Bundle& bundle) {
    const QList<LogSource> sources = LogRegistry::discover();
    QStringList list;
    for (const LogSource& source : sources)
        list << QStringLiteral("{\"title\": %1, \"path\": %2}")
                    .arg(jsonString(source.title), jsonString(source.path));
    bundle.add(QStringLiteral("logs/list.json"),
               u'[' + list.join(QStringLiteral(",\n ")) + QStringLiteral("]\n"),
               QStringLiteral("varnelctl logs list --json"));
    for (qsizetype i = 0; i < sources.size(); ++i) {
        const QString& path = sources[i].path;
        if (namedLikeKey(path) || isLink(path)) {
            bundle.skip(path, isLink(path) ? QStringLiteral("a symbolic link, not followed")
                                           : QStringLiteral("named like a private key"));
            continue;
        }
        // Not read at all once nothing more fits.
        if (!bundle.hasRoom(qsizetype(kLogTail) / 2)) {
            bundle.skip(path, QStringLiteral("the bundle is full"));
            continue;
        }
        const LogTail tail = readLogTail(path, kLogTail);
        if (tail.error) {
            bundle.fail(path, *tail.error);
            continue;
        }
        const QString entry = QStringLiteral("logs/%1-%2")
                                  .arg(i + 1, 2, 10, QChar(u'0'))
                                  .arg(QFileInfo(path).fileName().left(80));
        bundle.add(entry, tail.text.toString(),
                   tail.truncated ? path + QStringLiteral(", its last 1 MB") : path);
    }
}

// The tray application's own record of the suite's ups and downs, in the user's log folder.
void addHistory(Bundle& bundle) {
    for (const QString& path : {previousHistoryPath(), historyPath()}) {
        if (!fs::exists(path)) {
            bundle.skip(path, QStringLiteral("missing"));
            continue;
        }
        if (isLink(path)) {
            bundle.skip(path, QStringLiteral("a symbolic link, not followed"));
            continue;
        }
        bool cut = false;
        const auto bytes = readHistoryTail(path, qsizetype(kLogTail), cut);
        if (!bytes) {
            bundle.fail(path, QStringLiteral("not a readable file"));
            continue;
        }
        bundle.add(QStringLiteral("history/") + QFileInfo(path).fileName(),
                   QString::fromUtf8(*bytes),
                   cut ? path + QStringLiteral(", its last 1 MB") : path);
    }
}

QString about(const StatusReport& report, const QDateTime& made) {
    return QStringLiteral(
               "varnelctl %1\n"
               "system: %2 (%3 %4, %5)\n"
               "made: %6\n"
               "probe: %7 s, ended %8\n"
               "VARNEL_ROOT: %9\n")
        .arg(QStringLiteral(VARNEL_VERSION), QSysInfo::prettyProductName(), QSysInfo::kernelType(),
             QSysInfo::kernelVersion(), QSysInfo::currentCpuArchitecture(),
             made.toString(Qt::ISODate), QString::number(report.probe.seconds, 'f', 3),
             report.probe.finishedUtc.toString(Qt::ISODateWithMs),
             sandbox::root().isEmpty() ? QStringLiteral("unset")
                                       : QStringLiteral("set (a simulated suite)"));
}

}  // namespace

int diagnoseCommand(const QStringList& args, Io& io) {
    Options options(QStringLiteral("diagnose"), diagnoseUsage);
    options.valued(QStringLiteral("output"), QStringLiteral("FILE"));
    if (const auto stop = options.parse(args, io)) return *stop;
    if (!options.positional().isEmpty())
        return options.usageError(io, QStringLiteral("diagnose takes no arguments"));

    const QDateTime made = QDateTime::currentDateTimeUtc();
    const QString top =
        QStringLiteral("varnel-diagnose-") + made.toString(QStringLiteral("yyyyMMdd-HHmmss"));
    const QString path =
        QFileInfo(options.isSet(QStringLiteral("output")) ? options.value(QStringLiteral("output"))
                                                          : top + QStringLiteral(".tar.gz"))
            .absoluteFilePath();

    const StatusReport report = statusReport(probeSuite({.keepTranscript = true}));
    Bundle bundle(top, made);
    bundle.add(QStringLiteral("about.txt"), about(report, made),
               QStringLiteral("versions of this program and the system"));
    addProbe(bundle, report);
    addSuiteFiles(bundle);
    // Before the logs, which may fill the bundle: it is small and says when.
    addHistory(bundle);
    addLogs(bundle);
    const auto archive = bundle.finish(
        QStringLiteral("Varnel support bundle, made %1 by varnelctl %2.\n"
                       "Each line: collected (entry, source), skipped or failed (source, why).")
            .arg(made.toString(Qt::ISODate), QStringLiteral(VARNEL_VERSION)));
    if (!archive) {
        reportLostOutput(io, "diagnose", QStringLiteral("the archive could not be compressed"));
        return exitCannotWrite;
    }
    if (const auto why = replaceFile(path, *archive)) {
        reportLostOutput(io, "diagnose", QStringLiteral("%1: %2").arg(terminalSafe(path), *why));
        return exitCannotWrite;
    }
    io.out << terminalSafe(path) << '\n';
    return flushOut(io, "diagnose") ? exitOk : exitFailure;
}

}  // namespace varnel::cli
