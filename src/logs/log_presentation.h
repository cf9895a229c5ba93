#pragma once

#include <QString>
#include <QStringView>
#include <QUtf8StringView>
#include <optional>

#include "platform/system_color.h"

// How rows and their counts are shown, wherever they are shown.
namespace varnel {

// "12 of 40 lines", then " · showing last 4 MB" when truncated, then, while a
// search is active, " · " and its count of matches ("17 matches"), then " · "
// and the path when there is one.
QString statusLine(qsizetype shown, qsizetype total, bool truncated, const QString& currentPath,
                   std::optional<qsizetype> matches = std::nullopt);

// The colour of the Level column and of the message, by the row's level.
SystemColor levelColor(QStringView level);
SystemColor levelColor(QUtf8StringView level);
SystemColor messageColor(QStringView level);
SystemColor messageColor(QUtf8StringView level);

}  // namespace varnel
