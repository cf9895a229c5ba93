#pragma once

#include <QProcess>
#include <QStringList>

namespace varnel::test {

struct Outcome {
    int code = -1;
    QString out;
    QString err;
};

// Runs a program to its end with `input` on its standard input; `env` entries
// (NAME=value) are added to this process's environment.
inline Outcome runProgram(const QString& program, const QStringList& args,
                          const QStringList& env = {}, const QByteArray& input = {},
                          const QString& folder = {}) {
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString& entry : env)
        environment.insert(entry.section(u'=', 0, 0), entry.section(u'=', 1));
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(folder);
    process.start(program, args);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(120'000)) return {};
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

inline Outcome varnelctl(const QStringList& args, const QString& root, const QStringList& env = {},
                         const QString& folder = {}) {
    return runProgram(QStringLiteral(VARNELCTL), args,
                      env + QStringList{QStringLiteral("VARNEL_ROOT=") + root}, {}, folder);
}

}  // namespace varnel::test
