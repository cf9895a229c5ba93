#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QStringList>
#include <optional>

#include "cli/cli_io.h"

namespace varnel::cli {

// One command's arguments, read by QCommandLineParser under varnelctl's
// conventions: -h or --help prints the command's usage on standard output and
// ends with 0; anything the parser refuses prints "varnelctl COMMAND: problem",
// a blank line and the usage on standard error and ends with 64. "--" ends the
// options, so a path that starts with a dash can still be named.
class Options {
public:
    Options(QString command, const char* usage);

    // The option names as the command's code uses them (no dashes).
    void flag(const QString& name);
    void valued(const QString& name, const QString& valueName);

    // The exit status when the command should stop here; nothing to go on.
    std::optional<int> parse(const QStringList& args, Io& io);

    bool isSet(const QString& name) const { return parser_.isSet(name); }
    QString value(const QString& name) const { return parser_.value(name); }
    QStringList positional() const { return parser_.positionalArguments(); }

    // What the parser refused, once parse() has stopped on it.
    QString problem() const { return parser_.errorText(); }

    // Prints the problem and the usage; returns the usage status.
    int usageError(Io& io, const QString& problem) const;

private:
    QString command_;
    const char* usage_;
    QCommandLineParser parser_;
};

}  // namespace varnel::cli
