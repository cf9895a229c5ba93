#include "viewer/log_viewer.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QTableView>
#include <QThreadPool>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "logs/log_presentation.h"
#include "logs/row_height.h"
#include "platform/background.h"
#include "platform/file_reveal.h"
#include "ui/bring_to_front.h"
#include "ui/system_palette.h"
#include "viewer/log_cell_delegate.h"
#include "viewer/log_table_model.h"
#include "viewer/message_layout.h"

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

    logPopup_ = new QComboBox(window_);
    logPopup_->setObjectName(QStringLiteral("logPopup"));
    logPopup_->setMinimumWidth(220);
    logPopup_->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    connect(logPopup_, &QComboBox::currentIndexChanged, this, [this] { loadSelected(false); });

    levelPopup_ = new QComboBox(window_);
    levelPopup_->setObjectName(QStringLiteral("levelPopup"));
    for (const LevelChoice choice : levelChoices())
        levelPopup_->addItem(levelChoiceTitle(choice).toString());
    connect(levelPopup_, &QComboBox::currentIndexChanged, this, [this] { applyFilter(false); });

    searchField_ = new QLineEdit(window_);
    searchField_->setObjectName(QStringLiteral("searchField"));
    searchField_->setPlaceholderText(QStringLiteral("Search logs\u2026"));
    searchField_->setClearButtonEnabled(true);
    searchField_->setMinimumWidth(180);
    searchField_->installEventFilter(this);
    connect(searchField_, &QLineEdit::textChanged, this, [this] { applyFilter(false); });

    followCheck_ = new QCheckBox(QStringLiteral("Follow"), window_);
    followCheck_->setObjectName(QStringLiteral("followCheck"));
    connect(followCheck_, &QCheckBox::toggled, this, &LogViewer::toggleFollow);

    wrapCheck_ = new QCheckBox(QStringLiteral("Wrap"), window_);
    wrapCheck_->setObjectName(QStringLiteral("wrapCheck"));
    wrapCheck_->setToolTip(QStringLiteral("Wrap long log messages instead of truncating"));
    connect(wrapCheck_, &QCheckBox::toggled, this, &LogViewer::toggleWrap);

    auto* reload = new QPushButton(QStringLiteral("Reload"), window_);
    reload->setObjectName(QStringLiteral("reloadButton"));
    connect(reload, &QPushButton::clicked, this, [this] { loadSelected(true); });

    auto* openFolder = new QPushButton(QStringLiteral("Open Folder"), window_);
    openFolder->setObjectName(QStringLiteral("openFolderButton"));
    connect(openFolder, &QPushButton::clicked, this, &LogViewer::revealCurrent);

    auto* toolBar = new QHBoxLayout;
    toolBar->setSpacing(8);
    toolBar->addWidget(new QLabel(QStringLiteral("Log:"), window_), 0, Qt::AlignVCenter);
    toolBar->addWidget(logPopup_, 0, Qt::AlignVCenter);
    toolBar->addWidget(new QLabel(QStringLiteral("Level:"), window_), 0, Qt::AlignVCenter);
    toolBar->addWidget(levelPopup_, 0, Qt::AlignVCenter);
    toolBar->addWidget(searchField_, 1, Qt::AlignVCenter);
    toolBar->addWidget(followCheck_, 0, Qt::AlignVCenter);
    toolBar->addWidget(wrapCheck_, 0, Qt::AlignVCenter);
    toolBar->addWidget(reload, 0, Qt::AlignVCenter);
    toolBar->addWidget(openFolder, 0, Qt::AlignVCenter);

    model_ = new LogTableModel(this);
    delegate_ = new LogCellDelegate(*layout_, LogTableModel::messageColumn, this);
    table_ = new LogTableView(window_);
    table_->setObjectName(QStringLiteral("table"));
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
    connect(columns, &QHeaderView::sectionResized, this, [this](int column) {
        if (column != LogTableModel::messageColumn)
            fitMessageColumn();
        else if (wrapEnabled_)
            heightTimer_->start();
    });
    table_->viewport()->installEventFilter(this);

    statusLabel_ = new MiddleElidedLabel(window_);
    statusLabel_->setObjectName(QStringLiteral("statusLine"));
    QFont statusFont = QApplication::font();
    statusFont.setPixelSize(11);
    statusLabel_->setFont(statusFont);
    QPalette statusPalette = statusLabel_->palette();
    statusPalette.setColor(QPalette::WindowText, resolve(SystemColor::secondaryLabel));
    statusLabel_->setPalette(statusPalette);

    auto* content = new QVBoxLayout(window_);
    content->setContentsMargins(12, 10, 12, 8);
    content->setSpacing(0);
    content->addLayout(toolBar);
    content->addSpacing(10);
    content->addWidget(table_, 1);
    content->addSpacing(6);
    content->addWidget(statusLabel_);

    window_->resize(1000, 600);
    if (const QScreen* screen = window_->screen())
        window_->move(screen->availableGeometry().center() - window_->rect().center());
}

void LogViewer::show(const std::optional<QString>& path) {
    if (!window_) build();
    sources_ = LogRegistry::discover();
    {
        const QSignalBlocker quiet(logPopup_);
        logPopup_->clear();
        if (sources_.isEmpty()) {
            logPopup_->addItem(QStringLiteral("No logs found"));
        } else {
            for (const LogSource& source : sources_) logPopup_->addItem(source.title);
            const auto match =
                std::find_if(sources_.cbegin(), sources_.cend(),
                             [&](const LogSource& s) { return path && s.path == *path; });
            logPopup_->setCurrentIndex(match == sources_.cend() ? 0
                                                                : int(match - sources_.cbegin()));
        }
    }
    loadSelected(false);

    window_->show();
    bringToFront(window_->windowHandle());
    searchField_->setFocus(Qt::ActiveWindowFocusReason);
    // The first show gives the message column its real width; wrapped rows
    // depend on it, and the view must still end on the last row.
    updateRowHeights();
    scrollToEnd();
}

void LogViewer::loadSelected(bool preserveScroll) {
    const int index = logPopup_->currentIndex();
    if (sources_.isEmpty() || index < 0 || index >= sources_.size()) {
        rows_ = LogRows();
        currentPath_.clear();
        truncated_ = false;
        heightCacheWidth_ = -1;
        model_->setContent(rows_, {});
        statusLabel_->setText(QStringLiteral("No Varnel logs found yet."));
        return;
    }
    const QString previousPath = currentPath_;
    currentPath_ = sources_[index].path;
    follow_ = LogFollow(currentPath_, tailBytes);
    follow_.load();
    truncated_ = follow_.truncated();
    rows_ = follow_.rows();
    heightCacheWidth_ = -1;
    if (previousPath != currentPath_) table_->selectionModel()->clear();
    applyFilter(!preserveScroll);
}

void LogViewer::followSelected() {
    const int index = logPopup_->currentIndex();
    if (sources_.isEmpty() || index < 0 || index >= sources_.size() ||
        sources_[index].path != follow_.path()) {
        loadSelected(false);
        return;
    }
    const LogFollowChange change = follow_.update();
    if (change.kind == LogFollowChange::Kind::reloaded) {
        truncated_ = follow_.truncated();
        rows_ = follow_.rows();
        heightCacheWidth_ = -1;
        applyFilter(true);
        return;
    }
    if (change.kind == LogFollowChange::Kind::grown) {
        // Wrapped heights already measured stay with their rows.
        if (heightCacheWidth_ >= 0 && heightCache_.size() == rows_.size()) {
            heightCache_.remove(0, change.dropped);
            heightCache_.insert(0, change.rederived, -1);
            if (change.lastChanged && !heightCache_.isEmpty()) heightCache_.last() = -1;
            heightCache_.append(QList<int>(change.added, -1));
        } else {
            heightCacheWidth_ = -1;
        }
        truncated_ = follow_.truncated();
        rows_ = follow_.rows();
        // The search and the level do not change during a tick, so only the
        // new rows need a look.
        const RowFilter filter = rowFilter();
        model_->applyGrowth(rows_, change, [&](const LogRows& rows, qsizetype from, qsizetype to) {
            return filterRows(rows, filter, from, to);
        });
        updateRowHeights();
        statusLabel_->setText(
            statusLine(model_->shown().size(), rows_.size(), truncated_, currentPath_));
    }
    scrollToEnd();
}

RowFilter LogViewer::rowFilter() const {
    return {levelChoices().value(levelPopup_->currentIndex(), LevelChoice::all),
            searchField_->text()};
}

void LogViewer::applyFilter(bool scrollToEnd) {
    QList<qsizetype> shown = filterRows(rows_, rowFilter());

    // The selection stays on the same lines of the log, wherever they move.
    QList<qsizetype> selected;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows())
        selected.append(model_->shown().at(index.row()));
    std::sort(selected.begin(), selected.end());
    const int scrolledTo = table_->verticalScrollBar()->value();

    model_->setContent(rows_, std::move(shown));
    updateRowHeights();
    if (!selected.isEmpty())
        table_->selectionModel()->select(rowsIn(model_->shown(), selected, model_),
                                         QItemSelectionModel::Select);
    if (scrollToEnd)
        this->scrollToEnd();
    else
        table_->verticalScrollBar()->setValue(scrolledTo);

    statusLabel_->setText(
        statusLine(model_->shown().size(), rows_.size(), truncated_, currentPath_));
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
        if (height < 0)
            height = RowHeight::wrapped(layout_->measure(model_->rowAt(row).message, box));
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
    for (int column = 0; column < LogTableModel::messageColumn; ++column)
        others += table_->columnWidth(column);
    const int width = table_->viewport()->width() - others;
    table_->horizontalHeader()->resizeSection(
        LogTableModel::messageColumn,
        std::max(width, table_->horizontalHeader()->minimumSectionSize()));
}

void LogViewer::scrollToEnd() {
    table_->syncGeometry();
    if (model_->rowCount() > 0) table_->scrollToBottom();
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

void LogViewer::revealCurrent() {
    if (currentPath_.isEmpty()) return;
    // A file manager that has to start first can take seconds to answer.
    inBackground(*QThreadPool::globalInstance(),
                 [path = currentPath_] { revealInFileBrowser(path); });
}

void LogViewer::windowClosed() {
    followTimer_->stop();
    followCheck_->setChecked(false);
}

void LogViewer::copySelection() {
    QModelIndexList picked = table_->selectionModel()->selectedRows();
    if (picked.isEmpty()) return;
    std::sort(picked.begin(), picked.end(),
              [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
    QStringList lines;
    lines.reserve(picked.size());
    for (const QModelIndex& index : picked) lines.append(model_->rowAt(index.row()).raw.toString());
    QGuiApplication::clipboard()->setText(lines.join(u'\n'));
}

bool LogViewer::eventFilter(QObject* watched, QEvent* event) {
    if (watched == window_ && event->type() == QEvent::Close) {
        windowClosed();
    } else if (table_ && watched == table_->viewport() && event->type() == QEvent::Resize) {
        fitMessageColumn();
    } else if (event->type() == QEvent::KeyPress) {
        auto* key = static_cast<QKeyEvent*>(event);
        if (watched == searchField_ && key->key() == Qt::Key_Escape) {
            searchField_->clear();
            return true;
        }
        if (watched == table_ && key->matches(QKeySequence::Copy)) {
            copySelection();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

}  // namespace varnel
