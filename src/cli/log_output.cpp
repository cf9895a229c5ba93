#include "cli/log_output.h"

#include <algorithm>

#include "cli/terminal_text.h"

namespace varnel::cli {

namespace {

const QString gap = QStringLiteral("  ");

// Columns are counted in code points: close enough for log text, and never splits a pair.
qsizetype width(QStringView text) {
    qsizetype n = 0;
    for (QChar c : text)
        if (!c.isLowSurrogate()) ++n;
    return n;
}

const char* ansiCode(SystemColor colour, bool bold) {
    switch (colour) {
        case SystemColor::red:
            return bold ? "1;31" : "31";
        case SystemColor::orange:
        case SystemColor::yellow:
            return bold ? "1;33" : "33";
        case SystemColor::green:
            return bold ? "1;32" : "32";
        case SystemColor::blue:
            return bold ? "1;34" : "34";
        case SystemColor::gray:
        case SystemColor::secondaryLabel:
            return bold ? "1;2" : "2";
        case SystemColor::label:
            return bold ? "1" : nullptr;
    }
    return nullptr;
}

QString paint(const QString& text, SystemColor colour, bool bold, bool enabled) {
    const char* code = enabled && !text.isEmpty() ? ansiCode(colour, bold) : nullptr;
    if (code == nullptr) return text;
    return QStringLiteral("\x1b[") + QLatin1String(code) + u'm' + text + QStringLiteral("\x1b[0m");
}

// The two-letter escapes JSON has for the controls logs hold most.
QLatin1StringView shortEscape(char16_t c) {
    switch (c) {
        case u'\n':
            return QLatin1StringView("\\n");
        case u'\r':
            return QLatin1StringView("\\r");
        case u'\t':
            return QLatin1StringView("\\t");
        default:
            return {};
    }
}

QString padded(const QString& text, qsizetype columnWidth) {
    return QString(std::max<qsizetype>(0, columnWidth - width(text)), u' ');
}

}  // namespace

QString jsonString(QStringView text) {
    QString out;
    out.reserve(text.size() + 2);
    out += u'"';
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u == u'"' || u == u'\\') {
            out += u'\\';
            out += c;
        } else if (const QLatin1StringView escape = shortEscape(u); !escape.isEmpty()) {
            out += escape;
        } else if (u < 0x20 || u == 0x7f) {
            out += QStringLiteral("\\u%1").arg(u, 4, 16, QLatin1Char('0'));
        } else {
            out += c;
        }
    }
    out += u'"';
    return out;
}

QString rowJson(const LogRow& row) {
    return QStringLiteral("{\"time\":%1,\"level\":%2,\"source\":%3,\"message\":%4,\"raw\":%5}")
        .arg(jsonString(row.time), jsonString(row.level), jsonString(row.source),
             jsonString(row.message), jsonString(row.raw));
}

bool wantColour(bool outIsTerminal) {
    return outIsTerminal && qEnvironmentVariableIsEmpty("NO_COLOR");
}

void RowFormatter::fit(const LogRow& row) {
    time_ = std::max(time_, width(terminalSafe(row.time)));
    level_ = std::max(level_, width(terminalSafe(row.level)));
    source_ = std::max(source_, width(terminalSafe(row.source)));
}

qsizetype RowFormatter::messageColumn() const {
    qsizetype column = 0;
    for (qsizetype w : {time_, level_, source_})
        if (w > 0) column += w + gap.size();
    return column;
}

QString RowFormatter::row(const LogRow& row) {
    fit(row);
    QString line;
    const auto cell = [&](const QString& text, qsizetype columnWidth, SystemColor colour,
                          bool bold) {
        if (columnWidth == 0) return;
        line += paint(text, colour, bold, colour_) + padded(text, columnWidth) + gap;
    };
    cell(terminalSafe(row.time), time_, SystemColor::secondaryLabel, false);
    cell(terminalSafe(row.level), level_, levelColor(row.level), true);
    cell(terminalSafe(row.source), source_, SystemColor::secondaryLabel, false);

    if (row.message.isEmpty()) {
        // Padding before nothing is noise in a terminal and in diffs.
        while (line.endsWith(u' ')) line.chop(1);
        return line + u'\n';
    }
    // Line breaks a message holds go on under its column; every other control is shown.
    QStringList lines;
    for (const QStringView part : QStringView(row.message).split(u'\n'))
        lines.append(terminalSafe(part));
    const QString message = lines.join(u'\n' + QString(messageColumn(), u' '));
    return line + paint(message, messageColor(row.level), false, colour_) + u'\n';
}

QString RowFormatter::continuation(QStringView text) const {
    return QString(messageColumn(), u' ') + terminalSafe(text) + u'\n';
}

}  // namespace varnel::cli
