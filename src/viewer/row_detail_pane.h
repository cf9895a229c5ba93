#pragma once

#include <QPlainTextEdit>
#include <optional>

#include "logs/log_rows.h"

namespace varnel {

// Every field and the raw lines of one row, selectable and copyable, long
// lines whole.
class RowDetailPane : public QPlainTextEdit {
public:
    explicit RowDetailPane(QWidget* parent = nullptr);

    // Nothing shows the placeholder. Showing the row already shown does
    // nothing: the table re-selects its row after every keystroke in the
    // search, and laying out a long line again would cost each one.
    // `log` names the row's log when rows of several logs are shown.
    void showRow(const std::optional<LogRowView>& row, const QString& log = {});

private:
    std::optional<QByteArray> raw_;
    QString log_;
};

}  // namespace varnel
