#include "cli/options.h"

namespace varnel::cli {

Options::Options(QString command, const char* usage) : command_(std::move(command)), usage_(usage) {
    parser_.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser_.addOption(QCommandLineOption(QStringList{QStringLiteral("h"), QStringLiteral("help")}));
}

void Options::flag(const QString& name) {
    parser_.addOption(QCommandLineOption(name));
}

void Options::valued(const QString& name, const QString& valueName) {
    parser_.addOption(QCommandLineOption(name, QString(), valueName));
}

std::optional<int> Options::parse(const QStringList& args, Io& io) {
    // Help wins over every other problem, as people type it to find out what is wrong.
    const qsizetype end = args.indexOf(QStringLiteral("--"));
    const QStringList options = end < 0 ? args : args.first(end);
    if (options.contains(QStringLiteral("-h")) || options.contains(QStringLiteral("--help"))) {
        io.out << usage_;
        return exitOk;
    }
    if (!parser_.parse(QStringList{QStringLiteral("varnelctl")} + args))
        return usageError(io, parser_.errorText());
    return std::nullopt;
}

int Options::usageError(Io& io, const QString& problem) const {
    io.err << "varnelctl " << command_ << ": " << problem << "\n\n" << usage_;
    return exitUsage;
}

}  // namespace varnel::cli
