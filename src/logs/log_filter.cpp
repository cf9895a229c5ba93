#include "logs/log_filter.h"

#include "logs/ascii_search.h"
#include "logs/row_storage.h"

namespace varnel {

namespace {

// By LevelChoice's order.
constexpr QStringView kTitles[] = {u"All levels", u"ERROR", u"FATAL", u"WARN",
                                   u"INFO",       u"DEBUG", u"TRACE"};

bool lowerContains(QStringView field, const QString& needle) {
    return field.toString().toLower().contains(needle);
}

}  // namespace

const QList<LevelChoice>& levelChoices() {
    static const QList<LevelChoice> choices = {
        LevelChoice::all,  LevelChoice::error, LevelChoice::fatal, LevelChoice::warn,
        LevelChoice::info, LevelChoice::debug, LevelChoice::trace};
    return choices;
}

QStringView levelChoiceTitle(LevelChoice choice) {
    return kTitles[int(choice)];
}

QList<qsizetype> filterRows(const LogRows& rows, const RowFilter& filter, qsizetype from,
                            qsizetype to) {
    to = to < 0 ? rows.size() : std::min(to, rows.size());
    const LogRows::Data& d = rows.data();
    const bool anyLevel = filter.level == LevelChoice::all;
    const QStringView level = levelChoiceTitle(filter.level);
    const QString needle = filter.search.toLower();
    const bool asciiNeedle = QtPrivate::isAscii(QStringView(needle));
    const AsciiFinder finder(needle);
    QList<qsizetype> shown;
    for (qsizetype i = from; i < to; ++i) {
        const rows::Record& record = d.record(i);
        if (!anyLevel && d.view(record.fields[rows::kLevel]) != level) continue;
        bool pass = needle.isEmpty();
        if (!pass) {
            const LogRowView v = d.row(record);
            if (record.ascii) {
                // ASCII text lower-cases to ASCII, which never holds other letters.
                pass = asciiNeedle && (finder.foundIn(v.time) || finder.foundIn(v.level) ||
                                       finder.foundIn(v.source) || finder.foundIn(v.message));
            } else {
                pass = lowerContains(v.time, needle) || lowerContains(v.level, needle) ||
                       lowerContains(v.source, needle) || lowerContains(v.message, needle);
            }
        }
        if (pass) shown.append(qsizetype(i));
    }
    return shown;
}

}  // namespace varnel
