#pragma once

#include <QList>
#include <QString>

#include "logs/log_rows.h"

namespace varnel {

struct RowField {
    QString key;
    QString value;

    bool operator==(const RowField&) const = default;
};

// Every field of a row's line, for the detail view. A JSON object line gives
// all its values, nested objects flattened under dotted keys ("span.id"),
// arrays as compact JSON; the keys the columns are taken from come first, the
// others follow in key order. Any other line gives the non-empty columns as
// time, level, source and message. A folded row is read from its first line.
QList<RowField> rowFields(const LogRowView& row);

// The detail view's text: the fields, keys aligned, values of several lines
// kept under their first; then an empty line and the raw lines, whole. A row
// among other logs' rows names its log first.
QString rowDetailText(const LogRowView& row, const QString& log = {});

}  // namespace varnel
