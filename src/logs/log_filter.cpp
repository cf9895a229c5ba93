#include "logs/log_filter.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "logs/ascii_search.h"
#include "logs/row_storage.h"
#include "logs/utf8.h"

namespace varnel {

namespace {

// By LevelChoice's order.
constexpr QStringView kTitles[] = {u"All levels", u"ERROR", u"FATAL", u"WARN",
                                   u"INFO",       u"DEBUG", u"TRACE"};

bool lowerContains(QUtf8StringView field, const QString& needle) {
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
    if (anyLevel && filter.search.isEmpty()) {
        // Nothing to look at: every row passes.
        QList<qsizetype> all(std::max<qsizetype>(to - from, 0));
        std::iota(all.begin(), all.end(), from);
        return all;
    }
    const QByteArray level = levelChoiceTitle(filter.level).toLatin1();
    const QString needle = filter.search.toLower();
    const bool asciiNeedle = QtPrivate::isAscii(QStringView(needle));
    const QByteArray asciiBytes = asciiNeedle ? needle.toLatin1() : QByteArray();
    const AsciiFinder finder(asciiBytes);
    const char* text = d.text->data();
    const char* side = d.side->data();
    const auto bytes = [&](rows::Ref ref) { return utf8::bytes(rows::view(ref, text, side)); };

    // Levels are mostly one of a few fixed words: each is looked at once.
    std::array<bool, std::size(LogParser::kFixedWords)> inWord{};
    for (size_t w = 0; w < inWord.size(); ++w)
        inWord[w] = finder.foundIn(utf8::bytes(LogParser::kFixedWords[w]));
    const auto levelHolds = [&](rows::Ref ref) {
        return rows::baseOf(ref) == rows::kFixedWord ? inWord[size_t(rows::offsetOf(ref))]
                                                     : finder.foundIn(bytes(ref));
    };

    // Text and side text are each written in the order of the rows. A single
    // letter is mostly found within a few bytes of any row's start: looking
    // ahead for it only costs.
    SearchAhead inText(finder, text, d.textEnd);
    SearchAhead inSide(finder, side, d.sideEnd);
    const bool ahead = asciiBytes.size() >= 2;
    const auto holds = [&](rows::Ref ref) {
        const qsizetype at = rows::offsetOf(ref);
        if (ahead && rows::baseOf(ref) == rows::kInText) return inText.within(at, at + ref.size);
        if (ahead && rows::baseOf(ref) == rows::kInSide) return inSide.within(at, at + ref.size);
        return finder.foundIn(bytes(ref));
    };

    QList<qsizetype> shown;
    for (qsizetype i = from; i < to; ++i) {
        const rows::Record& record = d.record(i);
        if (!anyLevel && bytes(record.fields[rows::kLevel]) != level) continue;
        bool pass = needle.isEmpty();
        if (!pass && asciiNeedle && record.bytewise) {
            const auto found = [&](rows::Field field) {
                return finder.foundIn(bytes(record.fields[field]));
            };
            // One look at the line rules most rows out at once; without one,
            // each field is looked for ahead. Fields apart from their line
            // (a folded message, a time made for a JSON line) are in the side
            // text, the others in order in the line.
            const bool inFields =
                record.withinRaw
                    ? holds(record.fields[rows::kRaw]) &&
                          (found(rows::kMessage) || found(rows::kTime) || found(rows::kSource))
                    : holds(record.fields[rows::kMessage]) || holds(record.fields[rows::kTime]) ||
                          holds(record.fields[rows::kSource]);
            pass = inFields || levelHolds(record.fields[rows::kLevel]);
        } else if (!pass) {
            const LogRowView v = d.row(record);
            pass = lowerContains(v.time, needle) || lowerContains(v.level, needle) ||
                   lowerContains(v.source, needle) || lowerContains(v.message, needle);
        }
        if (pass) shown.append(qsizetype(i));
    }
    return shown;
}

}  // namespace varnel
