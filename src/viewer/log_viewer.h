#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <memory>
#include <optional>

#include "logs/log_filter.h"
#include "logs/log_follow.h"
#include "logs/log_merge.h"
#include "logs/log_registry.h"
#include "logs/log_rows.h"
#include "logs/row_navigation.h"
#include "logs/time_filter.h"

class QCheckBox;
class QComboBox;
class QDateTimeEdit;
class QEvent;
class QLabel;
class QLayout;
class QLineEdit;
class QMenu;
class QTimer;
class QWidget;

namespace varnel {

class LogCellDelegate;
class LogTableModel;
class LogTableView;
class MessageLayout;
class RowDetailPane;
class RowExporter;
class TimelineStrip;

// The one log window, "Varnel Logs": the tail of one of the suite's logs (or,
// as "All logs", of every one merged by time, with a Log column) as a table of
// time, level, source and message, with a level filter, a live search that
// marks what it finds and steps from row to row, a time filter, a timeline of
// the shown rows, Follow, Wrap, a detail pane for the selected row, jumps
// between errors and warnings, Reload, Open Folder and Export. Built on the
// first show() and kept when closed. Children carry object names (logPopup,
// levelPopup, searchField, followCheck, wrapCheck, detailsCheck,
// previousProblemButton, nextProblemButton, reloadButton, openFolderButton,
// exportButton, timePopup, rangeFrom, rangeTo, timelineStrip, table,
// detailPane, statusLine,
// newRowsNotice, rowMenu, exportDialog, exportError, followTimer) so tests and
// tools can find them.
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
    QLayout* buildChoosers();
    QLayout* buildModesAndActions();
    // The time chooser beside the timeline of what the table shows.
    QLayout* buildTimeRow();
    QWidget* buildTableAndDetails();
    void buildTable();
    QLayout* buildStatusRow();
    void buildKeysAndMenu();

    // Lists the logs again and selects the one at `path` (else the first),
    // without loading it.
    void refreshSources(const std::optional<QString>& path);
    QString selectedSourcePath() const;
    // "All logs" is offered after the logs when there are two or more.
    int allLogsIndex() const;
    void loadSelected(bool preserveScroll);
    void loadAll(bool preserveScroll);
    // A Follow tick or Reload in "All logs": merged again when any log changed.
    // The model, rows, instants and truncation of the merge all_ now holds.
    void takeMerge();
    void bringAllUpToDate(bool followEnd);
    // The log Open Folder shows: the current one, or in "All logs" the log of
    // the selected row (else of the last row shown).
    QString revealPath() const;
    void reloadCurrent();
    // A Follow tick.
    void followSelected();
    // What a load would show now, at the cost of what changed. The view stays
    // on the rows it shows unless it was at the end and `followEnd` is set;
    // rows that arrive below a view left elsewhere are counted for the notice.
    void bringUpToDate(bool followEnd);
    void applyFilter(bool scrollToEnd);
    // The chosen level and search; any level when nothing is chosen.
    RowFilter rowFilter() const;
    // The instants the time choice lets through now, none for all times.
    std::optional<TimeWindow> timeWindowNow() const;
    void timeChoiceChanged();
    // The rows' instants for a fresh load: read on the side when nothing waits for them, so
    // that the table shows first; at once when a time choice needs them.
    void readInstants();
    void ensureInstants();
    // Instants read elsewhere (the merge of every log reads them anyway).
    void takeInstants(QList<Instant> instants);
    // Selects a table row and scrolls it to the top.
    void goToTableRow(int row);
    void toggleWrap();
    void toggleFollow();
    void revealCurrent();
    void windowClosed();
    void escapePressed();

    void copySelection();
    void copyMessages();
    // Where a step to the next problem or match starts: the current row, else
    // the selection, else just outside the rows on screen.
    qsizetype stepOrigin(RowDirection direction) const;
    void jumpToProblem(RowDirection direction);
    // Enter and F3: the next row the search is found in, round at the ends.
    void jumpToMatch(RowDirection direction);
    // Selects a table row alone, makes it current and brings it into view.
    void goToRow(int row);
    void updateStatusLine();
    void showStatusLine(std::optional<qsizetype> matches);
    void updateDetail();

    // Row heights for the shown rows and the message column's width; cheap
    // when not wrapping. Leaves the scroll position to the caller.
    void updateRowHeights();
    // The same after Wrap or the column's width changed, keeping the view on
    // its end or on the row at its top.
    void relayoutRows();
    void scrollToEnd();
    bool viewAtEnd() const;
    void setNewRows(qsizetype count);
    // Gives the message column whatever width the other columns leave.
    void fitMessageColumn();
    // Table rows in the order the user sees them.
    QList<int> selectedTableRows() const;

    std::unique_ptr<MessageLayout> layout_;
    QWidget* window_ = nullptr;  // owned: deleted with the viewer
    QComboBox* logPopup_ = nullptr;
    QComboBox* levelPopup_ = nullptr;
    QLineEdit* searchField_ = nullptr;
    QComboBox* timePopup_ = nullptr;
    QWidget* rangeBox_ = nullptr;
    QDateTimeEdit* rangeFrom_ = nullptr;
    QDateTimeEdit* rangeTo_ = nullptr;
    TimelineStrip* strip_ = nullptr;
    QCheckBox* followCheck_ = nullptr;
    QCheckBox* wrapCheck_ = nullptr;
    QCheckBox* detailsCheck_ = nullptr;
    QLabel* statusLabel_ = nullptr;
    QLabel* newRowsNotice_ = nullptr;
    LogTableView* table_ = nullptr;
    RowDetailPane* detailPane_ = nullptr;
    RowExporter* exporter_ = nullptr;
    QMenu* rowMenu_ = nullptr;
    LogTableModel* model_ = nullptr;
    LogCellDelegate* delegate_ = nullptr;
    QTimer* followTimer_ = nullptr;
    QTimer* heightTimer_ = nullptr;

    QList<LogSource> sources_;
    LogFollow follow_;
    AllLogs all_;
    bool allMode_ = false;
    LogRows rows_;
    QList<Instant> instants_;  // of rows_, read once per load and extended as rows arrive
    Instant newest_ = kNoInstant;
    bool instantsReady_ = false;
    quint64 loads_ = 0;  // tells a late answer from the side which load it was for
    QThreadPool timeLane_;
    QThreadPool countLane_;    // match counts of large tables
    quint64 countsAsked_ = 0;  // tells a late count from the side which table it was for
    // The window the shown rows were filtered with: "Last …" moves as newer rows arrive.
    std::optional<TimeWindow> appliedWindow_;
    QString currentPath_;
    bool truncated_ = false;
    bool wrapEnabled_ = false;
    qsizetype newRows_ = 0;

    // Wrapped heights of rows_ (by index in rows_), valid for one box width.
    QList<int> heightCache_;
    double heightCacheWidth_ = -1;
};

}  // namespace varnel
