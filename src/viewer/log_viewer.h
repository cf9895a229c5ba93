#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <memory>
#include <optional>

#include "logs/log_filter.h"
#include "logs/log_follow.h"
#include "logs/log_registry.h"
#include "logs/log_rows.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QTimer;
class QWidget;
class QEvent;

namespace varnel {

class LogCellDelegate;
class LogTableModel;
class LogTableView;
class MessageLayout;

// The one log window, "Varnel Logs": the tail of one of the suite's logs as a
// table of time, level, source and message, with a level filter, a live search,
// Follow, Wrap, Reload and Open Folder. Built on the first show() and kept when
// closed. Children carry object names (logPopup, levelPopup, searchField,
// followCheck, wrapCheck, reloadButton, openFolderButton, table, statusLine,
// followTimer) so tests and tools can find them.
class LogViewer : public QObject {
    Q_OBJECT
public:
    explicit LogViewer(QObject* parent = nullptr);
    ~LogViewer() override;

    // Finds the logs afresh, opens the one at `path` (else the first), loads
    // it, scrolls to its end and brings the window to the front. The level
    // choice, search text, Follow and Wrap stay as the user left them.
    void show(const std::optional<QString>& path = std::nullopt);

    // nullptr before the first show().
    QWidget* window() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void build();
    void loadSelected(bool preserveScroll);
    // A Follow tick: what a load would show now, at the cost of what changed.
    void followSelected();
    void applyFilter(bool scrollToEnd);
    // The chosen level and search; any level when nothing is chosen.
    RowFilter rowFilter() const;
    void toggleWrap();
    void toggleFollow();
    void revealCurrent();
    void windowClosed();
    void copySelection();

    // Row heights for the shown rows and the message column's width; cheap
    // when not wrapping. Leaves the scroll position to the caller.
    void updateRowHeights();
    // The same after Wrap or the column's width changed, keeping the view on
    // its end or on the row at its top.
    void relayoutRows();
    void scrollToEnd();
    // Gives the message column whatever width the other columns leave.
    void fitMessageColumn();

    std::unique_ptr<MessageLayout> layout_;
    QWidget* window_ = nullptr;  // owned: deleted with the viewer
    QComboBox* logPopup_ = nullptr;
    QComboBox* levelPopup_ = nullptr;
    QLineEdit* searchField_ = nullptr;
    QCheckBox* followCheck_ = nullptr;
    QCheckBox* wrapCheck_ = nullptr;
    QLabel* statusLabel_ = nullptr;
    LogTableView* table_ = nullptr;
    LogTableModel* model_ = nullptr;
    LogCellDelegate* delegate_ = nullptr;
    QTimer* followTimer_ = nullptr;
    QTimer* heightTimer_ = nullptr;

    QList<LogSource> sources_;
    LogFollow follow_;
    LogRows rows_;
    QString currentPath_;
    bool truncated_ = false;
    bool wrapEnabled_ = false;

    // Wrapped heights of rows_ (by index in rows_), valid for one box width.
    QList<int> heightCache_;
    double heightCacheWidth_ = -1;
};

}  // namespace varnel
