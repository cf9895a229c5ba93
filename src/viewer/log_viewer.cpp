#include "viewer/log_viewer.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDateTimeEdit>
#include <QEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QShortcut>
#include <QSplitter>
#include <QTableView>
#include <QThreadPool>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "logs/cell_text.h"
#include "logs/log_presentation.h"
#include "logs/row_export.h"
#include "logs/row_height.h"
#include "logs/row_search.h"
#include "platform/background.h"
#include "platform/file_reveal.h"
#include "ui/bring_to_front.h"
#include "ui/system_palette.h"
#include "viewer/log_cell_delegate.h"
#include "viewer/log_table_model.h"
#include "viewer/message_layout.h"
#include "viewer/row_detail_pane.h"
#include "viewer/row_exporter.h"
#include "viewer/timeline_strip.h"

namespace varnel {

// The table, with its geometry brought up to date on request: after a burst of
// row-height changes the scroll range must be right before scrolling, not one
// event-loop turn later.
class LogTableView : public QTableView {
public:
    using QTableView::QTableView;
    void syncGeometry() { updateGeometries(); }
};

namespace {

constexpr quint64 tailBytes = 4'000'000;
constexpr int followIntervalMs = 2500;

// A one-line label that gives up the middle of a long text rather than growing
// the window: the end of a path is what tells logs apart.
class MiddleElidedLabel : public QLabel {
public:
    using QLabel::QLabel;
    QSize minimumSizeHint() const override { return {0, QLabel::minimumSizeHint().height()}; }
    QSize sizeHint() const override { return {0, QLabel::sizeHint().height()}; }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        const QRect box = contentsRect();
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawText(box, Qt::AlignLeft | Qt::AlignVCenter,
                         fontMetrics().elidedText(text(), Qt::ElideMiddle, box.width()));
    }
};

// Table rows whose underlying rows (by index in the load) are in `keep`, both
// lists ascending.
QItemSelection rowsIn(const QList<qsizetype>& shown, const QList<qsizetype>& keep,
                      const QAbstractItemModel* model) {
    QItemSelection selection;
    const int lastColumn = model->columnCount() - 1;
    auto wanted = keep.cbegin();
    for (int row = 0; row < shown.size() && wanted != keep.cend(); ++row) {
        while (wanted != keep.cend() && *wanted < shown[row]) ++wanted;
        if (wanted == keep.cend() || *wanted != shown[row]) continue;
        const int first = row;
        while (row + 1 < shown.size() && wanted + 1 != keep.cend() &&
               shown[row + 1] == *(wanted + 1)) {
            ++row;
            ++wanted;
        }
        selection.select(model->index(first, 0), model->index(row, lastColumn));
    }
    return selection;
}

// The table row showing rows[index], or the first after it; -1 past the end.
int tableRowAtOrAfter(const QList<qsizetype>& shown, qsizetype index) {
    const auto found = std::lower_bound(shown.cbegin(), shown.cend(), index);
    return found == shown.cend() ? -1 : int(found - shown.cbegin());
}

QLabel* labelFor(QWidget* buddy, const QString& text) {
    auto* label = new QLabel(text, buddy->parentWidget());
    // VoiceOver and other readers name the control by this label.
    label->setBuddy(buddy);
    return label;
}

QToolButton* problemButton(QWidget* parent, Qt::ArrowType arrow, const char* name,
                           const QString& what, const QKeySequence& key) {
    auto* button = new QToolButton(parent);
    button->setObjectName(QLatin1String(name));
    button->setArrowType(arrow);
    button->setAccessibleName(what);
    button->setToolTip(QStringLiteral("%1 (%2)").arg(what, key.toString(QKeySequence::NativeText)));
    return button;
}

}  // namespace

LogViewer::LogViewer(QObject* parent)
    : QObject(parent), layout_(std::make_unique<MessageLayout>(logCellFont())) {
    followTimer_ = new QTimer(this);
    followTimer_->setObjectName(QStringLiteral("followTimer"));
    followTimer_->setInterval(followIntervalMs);
    connect(followTimer_, &QTimer::timeout, this, &LogViewer::followSelected);

    // Column resizes come in bursts while the user drags; measure once per burst.
    heightTimer_ = new QTimer(this);
    heightTimer_->setSingleShot(true);
    heightTimer_->setInterval(0);
    connect(heightTimer_, &QTimer::timeout, this, &LogViewer::relayoutRows);

    // One load's instants at a time; a newer load makes an older answer moot anyway.
    timeLane_.setMaxThreadCount(1);
    countLane_.setMaxThreadCount(1);
}

LogViewer::~LogViewer() {
    // The window's children still send events (resize, hide) while they are
    // torn down; the filter must not reach into widgets half destroyed.
    QWidget* window = std::exchange(window_, nullptr);
    table_ = nullptr;
    searchField_ = nullptr;
    delete window;
}

QWidget* LogViewer::window() const {
    return window_;
}

void LogViewer::build() {
    window_ = new QWidget(nullptr, Qt::Window);
    window_->setWindowTitle(QStringLiteral("Varnel Logs"));
    // The tray application lives on without windows.
    window_->setAttribute(Qt::WA_QuitOnClose, false);
    window_->installEventFilter(this);

    // Two tool rows, so that the window fits half a laptop screen: what to
    // look at, then how to look at it and what to do with it.
    auto* content = new QVBoxLayout(window_);
    content->setContentsMargins(12, 10, 12, 8);
    content->setSpacing(0);
    content->addLayout(buildChoosers());
    content->addSpacing(6);
    content->addLayout(buildModesAndActions());
    content->addSpacing(8);
    content->addLayout(buildTimeRow());
    content->addSpacing(6);
    content->addWidget(buildTableAndDetails(), 1);
    content->addSpacing(6);
    content->addLayout(buildStatusRow());
    buildKeysAndMenu();

    window_->resize(1000, 600);
    if (const QScreen* screen = window_->screen())
        window_->move(screen->availableGeometry().center() - window_->rect().center());
}

QLayout* LogViewer::buildChoosers() {
    logPopup_ = new QComboBox(window_);
    logPopup_->setObjectName(QStringLiteral("logPopup"));
    logPopup_->setAccessibleName(QStringLiteral("Log"));
    logPopup_->setMinimumWidth(220);
    logPopup_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(logPopup_, &QComboBox::currentIndexChanged, this, [this] { loadSelected(false); });

    levelPopup_ = new QComboBox(window_);
    levelPopup_->setObjectName(QStringLiteral("levelPopup"));
    levelPopup_->setAccessibleName(QStringLiteral("Level"));
    for (const LevelChoice choice : levelChoices())
        levelPopup_->addItem(levelChoiceTitle(choice).toString());
    connect(levelPopup_, &QComboBox::currentIndexChanged, this, [this] { applyFilter(false); });

    searchField_ = new QLineEdit(window_);
    searchField_->setObjectName(QStringLiteral("searchField"));
    searchField_->setAccessibleName(QStringLiteral("Search logs"));
    searchField_->setPlaceholderText(QStringLiteral("Search logs\u2026"));
    searchField_->setClearButtonEnabled(true);
    searchField_->setMinimumWidth(120);
    searchField_->setToolTip(
        QStringLiteral("Enter or %1 goes to the next line found, Shift+Enter or %2 back")
            .arg(QKeySequence(Qt::Key_F3).toString(QKeySequence::NativeText),
                 QKeySequence(Qt::SHIFT | Qt::Key_F3).toString(QKeySequence::NativeText)));
    searchField_->installEventFilter(this);
    connect(searchField_, &QLineEdit::textChanged, this, [this] { applyFilter(false); });

    // Room is left after the search for what narrows the rows further.
    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    row->addWidget(labelFor(logPopup_, QStringLiteral("Log:")), 0, Qt::AlignVCenter);
    row->addWidget(logPopup_, 0, Qt::AlignVCenter);
    row->addWidget(labelFor(levelPopup_, QStringLiteral("Level:")), 0, Qt::AlignVCenter);
    row->addWidget(levelPopup_, 0, Qt::AlignVCenter);
    row->addWidget(searchField_, 1, Qt::AlignVCenter);
    return row;
}

QLayout* LogViewer::buildModesAndActions() {
    followCheck_ = new QCheckBox(QStringLiteral("Follow"), window_);
    followCheck_->setObjectName(QStringLiteral("followCheck"));
    followCheck_->setAccessibleName(QStringLiteral("Follow"));
    followCheck_->setAccessibleDescription(QStringLiteral("Keep reading what the log adds"));
    connect(followCheck_, &QCheckBox::toggled, this, &LogViewer::toggleFollow);

    wrapCheck_ = new QCheckBox(QStringLiteral("Wrap"), window_);
    wrapCheck_->setObjectName(QStringLiteral("wrapCheck"));
    wrapCheck_->setAccessibleName(QStringLiteral("Wrap"));
    wrapCheck_->setToolTip(QStringLiteral("Wrap long log messages instead of truncating"));
    wrapCheck_->setAccessibleDescription(wrapCheck_->toolTip());
    connect(wrapCheck_, &QCheckBox::toggled, this, &LogViewer::toggleWrap);

    detailsCheck_ = new QCheckBox(QStringLiteral("Details"), window_);
    detailsCheck_->setObjectName(QStringLiteral("detailsCheck"));
    detailsCheck_->setToolTip(QStringLiteral("Show every field of the selected line"));
    // Off at first: the table keeps the whole window until the user asks for more.
    detailsCheck_->setChecked(false);

    auto* previous = problemButton(window_, Qt::UpArrow, "previousProblemButton",
                                   QStringLiteral("Previous error or warning"),
                                   QKeySequence(Qt::SHIFT | Qt::Key_F8));
    connect(previous, &QToolButton::clicked, this,
            [this] { jumpToProblem(RowDirection::backward); });
    auto* next = problemButton(window_, Qt::DownArrow, "nextProblemButton",
                               QStringLiteral("Next error or warning"), QKeySequence(Qt::Key_F8));
    connect(next, &QToolButton::clicked, this, [this] { jumpToProblem(RowDirection::forward); });

    auto* reload = new QPushButton(QStringLiteral("Reload"), window_);
    reload->setObjectName(QStringLiteral("reloadButton"));
    connect(reload, &QPushButton::clicked, this, &LogViewer::reloadCurrent);

    auto* openFolder = new QPushButton(QStringLiteral("Open Folder"), window_);
    openFolder->setObjectName(QStringLiteral("openFolderButton"));
    connect(openFolder, &QPushButton::clicked, this, &LogViewer::revealCurrent);

    auto* exportButton = new QPushButton(QStringLiteral("Export\u2026"), window_);
    exportButton->setObjectName(QStringLiteral("exportButton"));
    exportButton->setToolTip(QStringLiteral("Save the rows shown, as logged or as CSV"));
    connect(exportButton, &QPushButton::clicked, this, [this] {
        const QString base =
            allMode_ ? QStringLiteral("all-logs") : QFileInfo(currentPath_).completeBaseName();
        exporter_->chooseFile((base.isEmpty() ? QStringLiteral("varnel") : base) +
                              QStringLiteral("-rows.log"));
    });

    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    for (QWidget* widget : {static_cast<QWidget*>(followCheck_), static_cast<QWidget*>(wrapCheck_),
                            static_cast<QWidget*>(detailsCheck_)})
        row->addWidget(widget, 0, Qt::AlignVCenter);
    row->addSpacing(8);
    row->addWidget(previous, 0, Qt::AlignVCenter);
    row->addWidget(next, 0, Qt::AlignVCenter);
    row->addStretch(1);
    for (QWidget* widget : {static_cast<QWidget*>(reload), static_cast<QWidget*>(openFolder),
                            static_cast<QWidget*>(exportButton)})
        row->addWidget(widget, 0, Qt::AlignVCenter);
    return row;
}

QLayout* LogViewer::buildTimeRow() {
    timePopup_ = new QComboBox(window_);
    timePopup_->setObjectName(QStringLiteral("timePopup"));
    timePopup_->setAccessibleName(QStringLiteral("Time"));
    for (const TimeChoice choice : timeChoices())
        timePopup_->addItem(timeChoiceTitle(choice).toString());
    connect(timePopup_, &QComboBox::currentIndexChanged, this, &LogViewer::timeChoiceChanged);

    // Typed or stepped with the arrow keys; without spin buttons both ends fit a narrow window.
    const auto rangeEdit = [this](const char* name, const QString& what) {
        auto* edit = new QDateTimeEdit(window_);
        edit->setObjectName(QLatin1String(name));
        edit->setAccessibleName(what);
        edit->setToolTip(what);
        edit->setDisplayFormat(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
        edit->setButtonSymbols(QAbstractSpinBox::NoButtons);
        connect(edit, &QDateTimeEdit::dateTimeChanged, this, [this] { applyFilter(false); });
        return edit;
    };
    rangeFrom_ = rangeEdit("rangeFrom", QStringLiteral("From"));
    rangeTo_ = rangeEdit("rangeTo", QStringLiteral("To"));
    rangeBox_ = new QWidget(window_);
    auto* range = new QHBoxLayout(rangeBox_);
    range->setContentsMargins(0, 0, 0, 0);
    range->setSpacing(4);
    range->addWidget(rangeFrom_);
    range->addWidget(new QLabel(QStringLiteral("\u2013"), rangeBox_));
    range->addWidget(rangeTo_);
    rangeBox_->hide();

    strip_ = new TimelineStrip(window_);
    connect(strip_, &TimelineStrip::rowChosen, this, &LogViewer::goToTableRow);

    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    row->addWidget(labelFor(timePopup_, QStringLiteral("Time:")), 0, Qt::AlignVCenter);
    row->addWidget(timePopup_, 0, Qt::AlignVCenter);
    row->addWidget(rangeBox_, 0, Qt::AlignVCenter);
    row->addWidget(strip_, 1);
    return row;
}

QWidget* LogViewer::buildTableAndDetails() {
    buildTable();
    detailPane_ = new RowDetailPane(window_);
    detailPane_->setObjectName(QStringLiteral("detailPane"));
    detailPane_->setAccessibleName(QStringLiteral("Line details"));
    detailPane_->setVisible(detailsCheck_->isChecked());
    connect(detailsCheck_, &QCheckBox::toggled, this, [this](bool on) {
        detailPane_->setVisible(on);
        updateDetail();
    });

    exporter_ = new RowExporter(window_, [this](ExportFormat format) {
        return exportRows(model_->rows(), model_->shown(), format, model_->rowLogs());
    });

    auto* splitter = new QSplitter(Qt::Vertical, window_);
    splitter->setChildrenCollapsible(false);
    splitter->addWidget(table_);
    splitter->addWidget(detailPane_);
    splitter->setStretchFactor(0, 1);
    splitter->setSizes({440, 120});
    return splitter;
}

void LogViewer::buildTable() {
    model_ = new LogTableModel(this);
    delegate_ = new LogCellDelegate(*layout_, LogTableModel::messageColumn, this);
    table_ = new LogTableView(window_);
    table_->setObjectName(QStringLiteral("table"));
    table_->setAccessibleName(QStringLiteral("Log lines"));
    table_->setModel(model_);
    table_->setItemDelegate(delegate_);
    table_->setAlternatingRowColors(true);
    table_->setShowGrid(false);  // the delegate draws horizontal lines only
    table_->setWordWrap(false);
    table_->setTextElideMode(Qt::ElideRight);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    table_->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    table_->setTabKeyNavigation(false);
    table_->setCornerButtonEnabled(false);
    table_->installEventFilter(this);
    table_->viewport()->installEventFilter(this);

    QHeaderView* rowsHeader = table_->verticalHeader();
    rowsHeader->hide();
    rowsHeader->setMinimumSectionSize(1);
    rowsHeader->setDefaultSectionSize(RowHeight::plain);

    QHeaderView* columns = table_->horizontalHeader();
    columns->setMinimumSectionSize(36);
    columns->setHighlightSections(false);
    columns->setSectionsMovable(false);
    columns->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    columns->resizeSection(LogTableModel::timeColumn, 175);
    columns->resizeSection(LogTableModel::levelColumn, 62);
    columns->resizeSection(LogTableModel::sourceColumn, 160);
    columns->resizeSection(LogTableModel::messageColumn, 560);
    columns->resizeSection(LogTableModel::logColumn, 130);
    columns->moveSection(columns->visualIndex(LogTableModel::logColumn), 0);
    table_->setColumnHidden(LogTableModel::logColumn, true);
    connect(columns, &QHeaderView::sectionResized, this, [this](int column) {
        if (column != LogTableModel::messageColumn)
            fitMessageColumn();
        else if (wrapEnabled_)
            heightTimer_->start();
    });

    connect(table_->verticalScrollBar(), &QScrollBar::valueChanged, this, [this] {
        if (newRows_ > 0 && viewAtEnd()) setNewRows(0);
    });
    QItemSelectionModel* selection = table_->selectionModel();
    connect(selection, &QItemSelectionModel::selectionChanged, this, &LogViewer::updateDetail);
    connect(selection, &QItemSelectionModel::currentChanged, this, &LogViewer::updateDetail);
    // A row that gains folded lines while selected changes what it details.
    connect(model_, &QAbstractItemModel::dataChanged, this, &LogViewer::updateDetail);
}

QLayout* LogViewer::buildStatusRow() {
    statusLabel_ = new MiddleElidedLabel(window_);
    statusLabel_->setObjectName(QStringLiteral("statusLine"));
    QFont statusFont = QApplication::font();
    statusFont.setPixelSize(11);
    statusLabel_->setFont(statusFont);
    QPalette statusPalette = statusLabel_->palette();
    statusPalette.setColor(QPalette::WindowText, resolve(SystemColor::secondaryLabel));
    statusLabel_->setPalette(statusPalette);

    // A link, not a button: the status row must not grow when it appears.
    newRowsNotice_ = new QLabel(window_);
    newRowsNotice_->setObjectName(QStringLiteral("newRowsNotice"));
    newRowsNotice_->setFont(statusFont);
    newRowsNotice_->setTextInteractionFlags(Qt::LinksAccessibleByMouse |
                                            Qt::LinksAccessibleByKeyboard);
    newRowsNotice_->setToolTip(QStringLiteral("Go to the newest row and follow it again"));
    newRowsNotice_->hide();
    connect(newRowsNotice_, &QLabel::linkActivated, this, &LogViewer::scrollToEnd);

    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    row->addWidget(statusLabel_, 1);
    row->addWidget(newRowsNotice_);
    return row;
}

void LogViewer::buildKeysAndMenu() {
    auto onKey = [this](const QKeySequence& key, auto slot) {
        connect(new QShortcut(key, window_), &QShortcut::activated, this, slot);
    };
    onKey(QKeySequence::Find, [this] {
        searchField_->setFocus(Qt::ShortcutFocusReason);
        searchField_->selectAll();
    });
    onKey(QKeySequence(Qt::Key_Escape), &LogViewer::escapePressed);
    // Qt::CTRL is the Command key on macOS.
    onKey(QKeySequence(Qt::CTRL | Qt::Key_W), [this] { window_->close(); });
    onKey(QKeySequence(Qt::Key_F8), [this] { jumpToProblem(RowDirection::forward); });
    onKey(QKeySequence(Qt::SHIFT | Qt::Key_F8), [this] { jumpToProblem(RowDirection::backward); });
    onKey(QKeySequence(Qt::Key_F3), [this] { jumpToMatch(RowDirection::forward); });
    onKey(QKeySequence(Qt::SHIFT | Qt::Key_F3), [this] { jumpToMatch(RowDirection::backward); });

    rowMenu_ = new QMenu(table_);
    rowMenu_->setObjectName(QStringLiteral("rowMenu"));
    QAction* copy = rowMenu_->addAction(QStringLiteral("Copy"), this, &LogViewer::copySelection);
    copy->setShortcut(QKeySequence::Copy);
    copy->setShortcutVisibleInContextMenu(true);
    rowMenu_->addAction(QStringLiteral("Copy Message"), this, &LogViewer::copyMessages);
    table_->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(table_, &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
        if (table_->selectionModel()->hasSelection())
            rowMenu_->popup(table_->viewport()->mapToGlobal(at));
    });
}

void LogViewer::show(const std::optional<QString>& path) {
    if (!window_) build();
    refreshSources(path);
    loadSelected(false);

    window_->show();
    bringToFront(window_->windowHandle());
    searchField_->setFocus(Qt::ActiveWindowFocusReason);
    // The first show gives the message column its real width; wrapped rows
    // depend on it, and the view must still end on the last row.
    updateRowHeights();
    scrollToEnd();
}

void LogViewer::refreshSources(const std::optional<QString>& path) {
    sources_ = LogRegistry::discover();
    const QSignalBlocker quiet(logPopup_);
    logPopup_->clear();
    if (sources_.isEmpty()) {
        logPopup_->addItem(QStringLiteral("No logs found"));
        return;
    }
    for (const LogSource& source : sources_) logPopup_->addItem(source.title);
    if (allLogsIndex() >= 0) {
        logPopup_->insertSeparator(logPopup_->count());
        logPopup_->addItem(QStringLiteral("All logs"));
    }
    const auto match = std::find_if(sources_.cbegin(), sources_.cend(),
                                    [&](const LogSource& s) { return path && s.path == *path; });
    logPopup_->setCurrentIndex(match == sources_.cend() ? 0 : int(match - sources_.cbegin()));
}

QString LogViewer::selectedSourcePath() const {
    const int index = logPopup_->currentIndex();
    return index >= 0 && index < sources_.size() ? sources_[index].path : QString();
}

int LogViewer::allLogsIndex() const {
    // After the logs and a separator: a single log stays what opens first.
    return sources_.size() >= 2 ? int(sources_.size()) + 1 : -1;
}

void LogViewer::loadSelected(bool preserveScroll) {
    if (logPopup_->currentIndex() == allLogsIndex() && allLogsIndex() >= 0) {
        loadAll(preserveScroll);
        return;
    }
    if (std::exchange(allMode_, false)) {
        all_ = AllLogs();
        model_->setRowLogs({}, {});
        table_->setColumnHidden(LogTableModel::logColumn, true);
        table_->selectionModel()->clear();
        fitMessageColumn();
    }
    const QString path = selectedSourcePath();
    if (path.isEmpty()) {
        rows_ = LogRows();
        ++loads_;
        instants_.clear();
        newest_ = kNoInstant;
        instantsReady_ = true;
        currentPath_.clear();
        truncated_ = false;
        heightCacheWidth_ = -1;
        model_->setContent(rows_, {});
        strip_->setContent(rows_, instants_, {});
        setNewRows(0);
        statusLabel_->setText(QStringLiteral("No Varnel logs found yet."));
        return;
    }
    const QString previousPath = std::exchange(currentPath_, path);
    follow_ = LogFollow(currentPath_, tailBytes);
    follow_.load();
    truncated_ = follow_.truncated();
    rows_ = follow_.rows();
    readInstants();
    heightCacheWidth_ = -1;
    if (previousPath != currentPath_) table_->selectionModel()->clear();
    applyFilter(!preserveScroll);
}

void LogViewer::loadAll(bool preserveScroll) {
    const bool entering = !std::exchange(allMode_, true);
    currentPath_.clear();
    follow_ = LogFollow();
    all_ = AllLogs(sources_, tailBytes);
    all_.load();
    takeMerge();
    if (entering) {
        table_->selectionModel()->clear();
        table_->setColumnHidden(LogTableModel::logColumn, false);
        fitMessageColumn();
    }
    applyFilter(!preserveScroll);
}

void LogViewer::takeMerge() {
    QStringList titles;
    for (const LogSource& source : all_.sources()) titles.append(source.title);
    model_->setRowLogs(std::move(titles), all_.merged().logOf);
    rows_ = all_.merged().rows;
    takeInstants(all_.merged().instants);
    truncated_ = all_.truncatedCount() > 0;
    heightCacheWidth_ = -1;
}

void LogViewer::bringAllUpToDate(bool followEnd) {
    const bool toEnd = followEnd && viewAtEnd();
    // The selected rows and the row at the top are looked for in the new
    // merge: rows of a log that is behind the others land among the rows
    // there are, and a log's window moving drops rows at its front.
    const QList<qint32> logsBefore = all_.merged().logOf;
    QList<qsizetype> kept;
    for (const int row : selectedTableRows()) kept.append(model_->shown().at(row));
    const int topTableRow = table_->rowAt(0);
    const int intoTopRow = topTableRow >= 0 ? -table_->rowViewportPosition(topTableRow) : 0;
    if (topTableRow >= 0) kept.append(model_->shown().at(topTableRow));
    const qsizetype shownBefore = model_->shown().size();
    const qsizetype newBefore = newRows_;
    if (!all_.update()) return;

    QList<qsizetype> moved = rowsInNewMerge(logsBefore, all_.merged().logOf, all_.changes(), kept);
    const qsizetype top = topTableRow >= 0 ? moved.takeLast() : -1;
    moved.removeAll(-1);
    std::sort(moved.begin(), moved.end());
    takeMerge();
    table_->selectionModel()->clear();
    applyFilter(toEnd);
    if (!moved.isEmpty())
        table_->selectionModel()->select(rowsIn(model_->shown(), moved, model_),
                                         QItemSelectionModel::Select);
    if (toEnd) return;
    if (const int row = top >= 0 ? tableRowAtOrAfter(model_->shown(), top) : -1; row >= 0)
        table_->verticalScrollBar()->setValue(table_->verticalHeader()->sectionPosition(row) +
                                              intoTopRow);
    if (!viewAtEnd())
        setNewRows(newBefore + std::max<qsizetype>(0, model_->shown().size() - shownBefore));
}

void LogViewer::reloadCurrent() {
    if (allMode_) {
        // Logs that appeared since join the merge; the view stays where it is.
        refreshSources(std::nullopt);
        if (allLogsIndex() >= 0) {
            const QSignalBlocker quiet(logPopup_);
            logPopup_->setCurrentIndex(allLogsIndex());
        }
        if (allLogsIndex() >= 0 && all_.sources() == sources_)
            bringAllUpToDate(false);
        else
            loadSelected(true);
        return;
    }
    // Logs that appeared since the window opened join the list; the log and
    // the rows chosen stay chosen.
    const QString path = currentPath_;
    refreshSources(path.isEmpty() ? std::nullopt : std::optional<QString>(path));
    if (!path.isEmpty() && selectedSourcePath() == path && follow_.path() == path)
        bringUpToDate(false);
    else
        loadSelected(selectedSourcePath() == path);
}

void LogViewer::followSelected() {
    if (allMode_) {
        bringAllUpToDate(true);
        return;
    }
    if (selectedSourcePath() != follow_.path() || follow_.path().isEmpty()) {
        loadSelected(false);
        return;
    }
    bringUpToDate(true);
}

void LogViewer::bringUpToDate(bool followEnd) {
    const bool toEnd = followEnd && viewAtEnd();
    // The row at the top stays there, wherever rows come and go.
    const int topTableRow = table_->rowAt(0);
    const qsizetype topRow = topTableRow >= 0 ? model_->shown().at(topTableRow) : -1;
    const int intoTopRow = topTableRow >= 0 ? -table_->rowViewportPosition(topTableRow) : 0;

    const LogFollowChange change = follow_.update();
    if (change.kind == LogFollowChange::Kind::nothing) return;
    truncated_ = follow_.truncated();
    if (change.kind == LogFollowChange::Kind::reloaded) {
        rows_ = follow_.rows();
        readInstants();
        heightCacheWidth_ = -1;
        applyFilter(toEnd);
        return;
    }
    // Wrapped heights already measured stay with their rows.
    if (heightCacheWidth_ >= 0 && heightCache_.size() == rows_.size()) {
        heightCache_.remove(0, change.dropped);
        heightCache_.insert(0, change.rederived, -1);
        if (change.lastChanged && !heightCache_.isEmpty()) heightCache_.last() = -1;
        heightCache_.append(QList<int>(change.added, -1));
    } else {
        heightCacheWidth_ = -1;
    }
    rows_ = follow_.rows();
    if (!instantsReady_) {
        ensureInstants();
    } else {
        followInstants(instants_, rows_, change);
        if (change.dropped > 0)
            newest_ = newestInstant(instants_);
        else
            for (qsizetype i = rows_.size() - change.added; i < rows_.size(); ++i)
                newest_ = std::max(newest_, instants_[i]);
    }
    // "Last …" counts back from the newest row: when that moved, older rows may have left.
    const std::optional<TimeWindow> window = timeWindowNow();
    if (window != appliedWindow_) {
        applyFilter(toEnd);
        return;
    }
    // The search, the level and the times have not changed, so only new rows need a look.
    const RowFilter filter = rowFilter();
    const qsizetype shownBefore = model_->shown().size();
    const qsizetype lastShownBefore = shownBefore > 0 ? model_->shown().last() : -1;
    model_->applyGrowth(rows_, change, [&](const LogRows& rows, qsizetype from, qsizetype to) {
        return filterRows(rows, instants_, filter, window, from, to);
    });
    const QList<qsizetype>& shown = model_->shown();
    if (change.dropped == 0 && change.rederived == 0 && shown.size() >= shownBefore &&
        (shownBefore == 0 || shown[shownBefore - 1] == lastShownBefore))
        strip_->extendContent(rows_, instants_, shown, shownBefore);
    else
        strip_->setContent(rows_, instants_, shown);
    updateRowHeights();
    updateStatusLine();
    if (toEnd) {
        scrollToEnd();
        return;
    }
    if (topRow >= change.dropped) {
        const int row =
            tableRowAtOrAfter(model_->shown(), topRow - change.dropped + change.rederived);
        if (row >= 0)
            table_->verticalScrollBar()->setValue(table_->verticalHeader()->sectionPosition(row) +
                                                  intoTopRow);
    }
    const qsizetype firstNew = rows_.size() - change.added;
    const int firstNewRow = tableRowAtOrAfter(model_->shown(), firstNew);
    if (firstNewRow >= 0 && !viewAtEnd())
        setNewRows(newRows_ + model_->shown().size() - firstNewRow);
}

RowFilter LogViewer::rowFilter() const {
    return {levelChoices().value(levelPopup_->currentIndex(), LevelChoice::all),
            searchField_->text()};
}

void LogViewer::readInstants() {
    ++loads_;
    instantsReady_ = false;
    instants_.clear();
    newest_ = kNoInstant;
    if (timeChoices().value(timePopup_->currentIndex(), TimeChoice::all) != TimeChoice::all) {
        ensureInstants();
        return;
    }
    inBackground(
        timeLane_, this, [rows = rows_] { return rowInstants(rows); },
        [this, load = loads_](QList<Instant> instants) {
            if (load != loads_ || instantsReady_) return;
            instants_ = std::move(instants);
            newest_ = newestInstant(instants_);
            instantsReady_ = true;
            strip_->setContent(rows_, instants_, model_->shown());
        });
}

void LogViewer::takeInstants(QList<Instant> instants) {
    ++loads_;  // an answer still on its way from the side is for rows no longer shown
    instants_ = std::move(instants);
    newest_ = newestInstant(instants_);
    instantsReady_ = true;
}

void LogViewer::ensureInstants() {
    if (instantsReady_) return;
    instants_ = rowInstants(rows_);
    newest_ = newestInstant(instants_);
    instantsReady_ = true;
}

std::optional<TimeWindow> LogViewer::timeWindowNow() const {
    TimeFilter filter;
    filter.choice = timeChoices().value(timePopup_->currentIndex(), TimeChoice::all);
    if (filter.choice == TimeChoice::range) {
        const Instant from = rangeFrom_->dateTime().toMSecsSinceEpoch();
        const Instant to = rangeTo_->dateTime().toMSecsSinceEpoch();
        // The editors show whole seconds: the later end's second is included whole.
        filter.rangeFrom = std::min(from, to);
        filter.rangeTo = std::max(from, to) + 999;
    }
    return timeWindow(filter, newest_);
}

void LogViewer::timeChoiceChanged() {
    const TimeChoice choice = timeChoices().value(timePopup_->currentIndex(), TimeChoice::all);
    if (choice != TimeChoice::all) ensureInstants();
    const bool range = choice == TimeChoice::range;
    if (range && newest_ != kNoInstant) {
        // A range that misses the whole log is left from another log or another day: start
        // from the span of this one instead.
        Instant oldest = newest_;
        for (const Instant at : std::as_const(instants_))
            if (at != kNoInstant) oldest = std::min(oldest, at);
        const Instant from = rangeFrom_->dateTime().toMSecsSinceEpoch();
        const Instant to = rangeTo_->dateTime().toMSecsSinceEpoch() + 999;
        if (std::max(from, to) < oldest || std::min(from, to) > newest_) {
            const QSignalBlocker quietFrom(rangeFrom_);
            const QSignalBlocker quietTo(rangeTo_);
            rangeFrom_->setDateTime(QDateTime::fromMSecsSinceEpoch(oldest));
            rangeTo_->setDateTime(QDateTime::fromMSecsSinceEpoch(newest_));
        }
    }
    rangeBox_->setVisible(range);
    applyFilter(false);
}

void LogViewer::goToTableRow(int row) {
    if (row < 0 || row >= model_->rowCount()) return;
    const QModelIndex target = model_->index(row, 0);
    table_->selectionModel()->setCurrentIndex(
        target, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    table_->scrollTo(target, QAbstractItemView::PositionAtTop);
}

void LogViewer::applyFilter(bool scrollToEnd) {
    const RowFilter filter = rowFilter();
    appliedWindow_ = timeWindowNow();
    QList<qsizetype> shown = filterRows(rows_, instants_, filter, appliedWindow_);
    delegate_->setSearch(filter.search);

    // The selection stays on the same lines of the log, wherever they move.
    QList<qsizetype> selected;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows())
        selected.append(model_->shown().at(index.row()));
    std::sort(selected.begin(), selected.end());
    const int scrolledTo = table_->verticalScrollBar()->value();

    model_->setContent(rows_, std::move(shown));
    // Until the instants are read the strip stays empty rather than count the wrong rows.
    strip_->setContent(rows_, instants_, instantsReady_ ? model_->shown() : QList<qsizetype>());
    updateRowHeights();
    if (!selected.isEmpty())
        table_->selectionModel()->select(rowsIn(model_->shown(), selected, model_),
                                         QItemSelectionModel::Select);
    // The rows below are counted afresh by the next look at the log.
    setNewRows(0);
    if (scrollToEnd)
        this->scrollToEnd();
    else
        table_->verticalScrollBar()->setValue(scrolledTo);
    updateStatusLine();
}

void LogViewer::updateStatusLine() {
    const QString search = searchField_->text();
    const quint64 asked = ++countsAsked_;
    countLane_.clear();  // counts not yet begun are for a table no longer shown
    std::optional<qsizetype> matches;
    // Counting reads every shown character: beyond a small table that costs a
    // keystroke more than filtering did, so the count follows a moment later.
    constexpr qsizetype countInLine = 5'000;
    if (!search.isEmpty() && model_->shown().size() <= countInLine) {
        matches = countMatches(rows_, model_->shown(), search);
    } else if (!search.isEmpty()) {
        inBackground(
            countLane_, this,
            [rows = rows_, shown = model_->shown(), search] {
                return countMatches(rows, shown, search);
            },
            [this, asked](qsizetype counted) {
                if (asked == countsAsked_) showStatusLine(counted);
            });
    }
    showStatusLine(matches);
}

void LogViewer::showStatusLine(std::optional<qsizetype> matches) {
    statusLabel_->setText(
        allMode_
            ? allLogsStatusLine(model_->shown().size(), rows_.size(), all_.truncatedCount(),
                                all_.sources().size(), matches)
            : statusLine(model_->shown().size(), rows_.size(), truncated_, currentPath_, matches));
}

void LogViewer::updateRowHeights() {
    QHeaderView* header = table_->verticalHeader();
    if (!wrapEnabled_) {
        header->setDefaultSectionSize(RowHeight::plain);
        table_->syncGeometry();
        return;
    }
    const double box = RowHeight::wrapBoxWidth(table_->columnWidth(LogTableModel::messageColumn));
    if (box != heightCacheWidth_) {
        heightCache_.fill(-1, rows_.size());
        heightCacheWidth_ = box;
    }
    const int oneLine = RowHeight::wrapped(layout_->lineHeight());
    // With updates on, every resize recomputes all row positions; off, the
    // whole pass stays linear in the number of rows.
    header->setUpdatesEnabled(false);
    header->setDefaultSectionSize(oneLine);
    const QList<qsizetype>& shown = model_->shown();
    for (int row = 0; row < shown.size(); ++row) {
        int& height = heightCache_[shown[row]];
        if (height < 0) {
            // What the cell draws: the head of a long message and its count.
            const CellText cell = cellText(model_->rowAt(row).message);
            height = RowHeight::wrapped(cell.more == 0 ? layout_->measure(cell.head, box)
                                                       : layout_->measure(cell.toString(), box));
        }
        if (height != oneLine) header->resizeSection(row, height);
    }
    header->setUpdatesEnabled(true);
    table_->syncGeometry();
    table_->viewport()->update();
}

void LogViewer::relayoutRows() {
    QScrollBar* bar = table_->verticalScrollBar();
    const bool atEnd = bar->value() >= bar->maximum();
    const int topRow = table_->rowAt(0);
    updateRowHeights();
    if (atEnd)
        scrollToEnd();
    else if (topRow >= 0)
        bar->setValue(table_->verticalHeader()->sectionPosition(topRow));
}

void LogViewer::fitMessageColumn() {
    // Only the message column gives or takes width, so the other three stay
    // as the user left them and the message never runs off to the right.
    int others = 0;
    for (int column = 0; column < LogTableModel::columnCount_; ++column)
        if (column != LogTableModel::messageColumn && !table_->isColumnHidden(column))
            others += table_->columnWidth(column);
    const int width = table_->viewport()->width() - others;
    table_->horizontalHeader()->resizeSection(
        LogTableModel::messageColumn,
        std::max(width, table_->horizontalHeader()->minimumSectionSize()));
}

void LogViewer::scrollToEnd() {
    table_->syncGeometry();
    if (model_->rowCount() > 0) table_->scrollToBottom();
    setNewRows(0);
}

bool LogViewer::viewAtEnd() const {
    const QScrollBar* bar = table_->verticalScrollBar();
    return bar->value() >= bar->maximum();
}

void LogViewer::setNewRows(qsizetype count) {
    newRows_ = count;
    if (count > 0)
        newRowsNotice_->setText(
            QStringLiteral("<a href=\"end\">%1</a>").arg(newRowsText(count).toHtmlEscaped()));
    newRowsNotice_->setVisible(count > 0);
}

void LogViewer::toggleWrap() {
    wrapEnabled_ = wrapCheck_->isChecked();
    delegate_->setWrap(wrapEnabled_);
    relayoutRows();
}

void LogViewer::toggleFollow() {
    followTimer_->stop();
    if (followCheck_->isChecked()) followTimer_->start();
}

QString LogViewer::revealPath() const {
    if (!allMode_) return currentPath_;
    const QList<int> picked = selectedTableRows();
    const int row = picked.isEmpty() ? model_->rowCount() - 1 : picked.first();
    if (row < 0) return {};
    const qint32 log = all_.merged().logOf.value(model_->shown().at(row), -1);
    return log >= 0 && log < all_.sources().size() ? all_.sources()[log].path : QString();
}

void LogViewer::revealCurrent() {
    const QString path = revealPath();
    if (path.isEmpty()) return;
    // A file manager that has to start first can take seconds to answer.
    inBackground(*QThreadPool::globalInstance(), [path] { revealInFileBrowser(path); });
}

void LogViewer::windowClosed() {
    followTimer_->stop();
    followCheck_->setChecked(false);
}

void LogViewer::escapePressed() {
    if (!searchField_->text().isEmpty())
        searchField_->clear();
    else
        window_->close();
}

QList<int> LogViewer::selectedTableRows() const {
    QList<int> rows;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows())
        rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void LogViewer::copySelection() {
    const QList<int> picked = selectedTableRows();
    if (picked.isEmpty()) return;
    QStringList lines;
    lines.reserve(picked.size());
    for (const int row : picked) lines.append(model_->rowAt(row).raw.toString());
    QGuiApplication::clipboard()->setText(lines.join(u'\n'));
}

void LogViewer::copyMessages() {
    const QList<int> picked = selectedTableRows();
    if (picked.isEmpty()) return;
    QStringList messages;
    messages.reserve(picked.size());
    for (const int row : picked) messages.append(model_->rowAt(row).message.toString());
    QGuiApplication::clipboard()->setText(messages.join(u'\n'));
}

qsizetype LogViewer::stepOrigin(RowDirection direction) const {
    const QModelIndex current = table_->currentIndex();
    if (current.isValid()) return current.row();
    // A new search keeps the selection but not the current row.
    if (const QList<int> picked = selectedTableRows(); !picked.isEmpty())
        return direction == RowDirection::forward ? picked.first() : picked.last();
    // Otherwise from the edge of what is on screen, so that its rows come first.
    const int edge = direction == RowDirection::forward
                         ? table_->rowAt(0)
                         : table_->rowAt(table_->viewport()->height() - 1);
    return edge < 0 ? (direction == RowDirection::forward ? -1 : model_->rowCount())
                    : edge + (direction == RowDirection::forward ? -1 : 1);
}

void LogViewer::jumpToProblem(RowDirection direction) {
    const qsizetype row =
        nextProblemRow(model_->rows(), model_->shown(), stepOrigin(direction), direction);
    if (row < 0) {
        QApplication::beep();
        return;
    }
    goToRow(int(row));
}

void LogViewer::jumpToMatch(RowDirection direction) {
    const QString search = searchField_->text();
    if (search.isEmpty()) return;
    const qsizetype row =
        nextMatchingRow(model_->rows(), model_->shown(), search, stepOrigin(direction), direction);
    if (row < 0) {
        QApplication::beep();
        return;
    }
    goToRow(int(row));
}

void LogViewer::goToRow(int row) {
    // Not selectRow(): with Shift held it would extend the selection.
    const QModelIndex target = model_->index(row, 0);
    table_->selectionModel()->setCurrentIndex(
        target, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    table_->scrollTo(target);
}

void LogViewer::updateDetail() {
    if (!detailPane_ || !detailPane_->isVisibleTo(window_)) return;
    const QModelIndex current = table_->currentIndex();
    int row = -1;
    if (current.isValid() && table_->selectionModel()->isRowSelected(current.row()))
        row = current.row();
    else if (const QList<int> picked = selectedTableRows(); !picked.isEmpty())
        row = picked.first();
    detailPane_->showRow(row >= 0 ? std::optional(model_->rowAt(row)) : std::nullopt,
                         row >= 0 && allMode_ ? all_.titleOf(model_->shown().at(row)) : QString());
}

bool LogViewer::eventFilter(QObject* watched, QEvent* event) {
    if (watched == window_ && event->type() == QEvent::Close) {
        windowClosed();
    } else if (table_ && watched == table_->viewport() && event->type() == QEvent::Resize) {
        fitMessageColumn();
    } else if (searchField_ && watched == searchField_ && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
            jumpToMatch((key->modifiers() & Qt::ShiftModifier) ? RowDirection::backward
                                                               : RowDirection::forward);
            return true;
        }
    } else if (table_ && watched == table_ && event->type() == QEvent::KeyPress &&
               static_cast<QKeyEvent*>(event)->matches(QKeySequence::Copy)) {
        copySelection();
        return true;
    }
    return QObject::eventFilter(watched, event);
}

}  // namespace varnel
