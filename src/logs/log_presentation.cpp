#include "logs/log_presentation.h"

namespace varnel {

QString statusLine(qsizetype shown, qsizetype total, bool truncated, const QString& currentPath) {
    QString line = QStringLiteral("%1 of %2 lines").arg(shown).arg(total);
    if (truncated) line += QStringLiteral(" \u00B7 showing last 4 MB");
    if (!currentPath.isEmpty()) line += QStringLiteral(" \u00B7 ") + currentPath;
    return line;
}

SystemColor levelColor(QStringView level) {
    if (level == u"ERROR" || level == u"FATAL") return SystemColor::red;
    if (level == u"WARN") return SystemColor::orange;
    if (level == u"INFO") return SystemColor::green;
    if (level == u"DEBUG" || level == u"TRACE") return SystemColor::secondaryLabel;
    return SystemColor::label;
}

SystemColor messageColor(QStringView level) {
    return level == u"ERROR" || level == u"FATAL" ? SystemColor::red : SystemColor::label;
}

}  // namespace varnel
