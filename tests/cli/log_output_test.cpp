// The escapers work sixteen bytes at a time over UTF-8; what they make of each
// character, wherever it stands, must be what one pass over the characters makes.
#include <gtest/gtest.h>

#include "cli/log_output.h"
#include "cli/terminal_text.h"

using namespace varnel::cli;

namespace {

// JSON string content, or terminal-safe text with tabs kept or shown.
enum class Kind { json, keepTabs, showTabs };

QString oneByOne(QStringView text, Kind kind) {
    QString out;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        const bool c1 = u >= 0x80 && u <= 0x9f;
        if (kind == Kind::json && (u == u'"' || u == u'\\'))
            out += u'\\' + QString(c);
        else if (kind == Kind::json && (u == u'\n' || u == u'\t' || u == u'\r'))
            out += u == u'\n' ? u"\\n" : u == u'\t' ? u"\\t" : u"\\r";
        else if (kind == Kind::json && (u < 0x20 || u == 0x7f))
            out += QStringLiteral("\\u%1").arg(u, 4, 16, QLatin1Char('0'));
        else if (kind != Kind::json && (u < 0x20 || u == 0x7f || c1) &&
                 !(u == u'\t' && kind == Kind::keepTabs))
            out += c1 ? QString(QChar(0x241B)) + QChar(char16_t(u - 0x40))
                      : QString(QChar(u == 0x7f ? 0x2421 : 0x2400 + u));
        else
            out += c;
    }
    return kind == Kind::json ? u'"' + out + u'"' : out;
}

}  // namespace

TEST(LogOutput, EscapesInBulkAsCharacterByCharacter) {
    const QStringList specials = {
        "\"",   "\\",     "\n",     "\r",     "\t",     "\x01",       "\x1b",
        "\x7f", "\u009b", "\u00c2", "\u00e9", "\u27f6", "\U0001F600", "\u0085\"\u0080"};
    for (const QString& special : specials)
        for (int at = 0; at <= 36; ++at)
            for (const int size : {at, 36}) {
                const QString text =
                    QString(size, u'a').insert(at, special) + QString(at % 3, u'z');
                const QByteArray utf8 = text.toUtf8();
                for (const Kind kind : {Kind::json, Kind::keepTabs, Kind::showTabs}) {
                    TextBuffer out;
                    if (kind == Kind::json)
                        appendJsonString(out, utf8);
                    else
                        appendTerminalSafe(out, utf8,
                                           kind == Kind::keepTabs ? Tabs::keep : Tabs::show);
                    ASSERT_EQ(QString::fromUtf8(out.data(), out.size()), oneByOne(text, kind))
                        << text.toStdString();
                }
                ASSERT_EQ(terminalWidth(utf8), oneByOne(text, Kind::keepTabs).toUcs4().size());
            }
}
