#include "logs/row_details.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVariant>
#include <algorithm>
#include <array>

#include "logs/utf8.h"

namespace varnel {

namespace {

// The keys the parser reads the columns from, in the order it tries them.
constexpr std::array<QStringView, 15> columnKeys{
    u"timestamp", u"ts",     u"time",   u"@timestamp", u"level",   u"lvl", u"severity", u"target",
    u"module",    u"logger", u"source", u"name",       u"message", u"msg", u"body"};

// Long keys would push every value off to the right; they overhang instead.
constexpr qsizetype widestKeyColumn = 24;

QString scalarText(const QJsonValue& value) {
    switch (value.type()) {
        case QJsonValue::String:
            return value.toString();
        case QJsonValue::Bool:
            return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
        case QJsonValue::Double:
            return value.toVariant().toString();
        case QJsonValue::Array:
            return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
        default:
            return QStringLiteral("null");
    }
}

void flatten(const QJsonObject& object, const QString& prefix, QList<RowField>& out) {
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString key = prefix + it.key();
        if (it->isObject() && !it->toObject().isEmpty())
            flatten(it->toObject(), key + u'.', out);
        else if (it->isObject())
            out.append({key, QStringLiteral("{}")});
        else
            out.append({key, scalarText(*it)});
    }
}

int columnRank(const QString& key) {
    const auto found = std::find(columnKeys.begin(), columnKeys.end(), QStringView(key));
    return int(found - columnKeys.begin());
}

}  // namespace

QList<RowField> rowFields(const LogRowView& row) {
    const QByteArrayView raw = utf8::bytes(row.raw);
    const qsizetype feed = raw.indexOf('\n');
    const QByteArrayView firstLine = feed < 0 ? raw : raw.first(feed);
    QList<RowField> out;
    if (firstLine.startsWith('{')) {
        QJsonParseError error{};
        const QJsonDocument document = QJsonDocument::fromJson(firstLine.toByteArray(), &error);
        if (error.error == QJsonParseError::NoError && document.isObject()) {
            flatten(document.object(), {}, out);
            // Keys come sorted; stable, so the rest keep that order.
            std::stable_sort(out.begin(), out.end(), [](const RowField& a, const RowField& b) {
                return columnRank(a.key) < columnRank(b.key);
            });
            return out;
        }
    }
    const std::array<std::pair<QString, QUtf8StringView>, 4> columns{
        {{QStringLiteral("time"), row.time},
         {QStringLiteral("level"), row.level},
         {QStringLiteral("source"), row.source},
         {QStringLiteral("message"), row.message}}};
    for (const auto& [key, value] : columns)
        if (!value.isEmpty()) out.append({key, value.toString()});
    return out;
}

QString rowDetailText(const LogRowView& row, const QString& log) {
    QList<RowField> fields = rowFields(row);
    if (!log.isEmpty()) fields.prepend({QStringLiteral("log"), log});
    qsizetype keyColumn = 0;
    for (const RowField& field : fields)
        keyColumn = std::max(keyColumn, std::min(field.key.size(), widestKeyColumn));
    const QString indent(keyColumn + 2, u' ');
    QString out;
    for (const RowField& field : fields) {
        out += field.key.leftJustified(keyColumn) + QStringLiteral("  ");
        QString value = field.value;
        out += value.replace(u'\n', u'\n' + indent) + u'\n';
    }
    if (!fields.isEmpty()) out += u'\n';
    out += row.raw.toString();
    return out;
}

}  // namespace varnel
