#include "filelist/CustomFileTableView.h"

#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMimeData>
#include <QStyledItemDelegate>
#include <QUrl>
#include <algorithm>

#include "processing/FileListModel.h"

namespace {

// A status reads from its start: a long one loses its end, never its middle (the whole text is
// the row's tooltip). Paths keep eliding in the middle, where their folder is.
class StatusDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
        QStyledItemDelegate::initStyleOption(option, index);
        option->textElideMode = Qt::ElideRight;
    }
};

}  // namespace

CustomFileTableView::CustomFileTableView(QWidget* parent) : QTableView(parent) {
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setWordWrap(false);
    setTextElideMode(Qt::ElideMiddle);
    setAcceptDrops(true);
    setDropIndicatorShown(false);
    setDragDropMode(QAbstractItemView::DropOnly);
    viewport()->setAcceptDrops(true);
    verticalHeader()->hide();
    horizontalHeader()->setHighlightSections(false);
    setItemDelegateForColumn(FileListModel::StatusColumn, new StatusDelegate(this));
    setContextMenuPolicy(Qt::DefaultContextMenu);
}

bool CustomFileTableView::eventIsDeleteKeyPressed(const QKeyEvent* event) {
    return event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace;
}

QList<int> CustomFileTableView::selectedRows() const {
    QList<int> rows;
    if (selectionModel() != nullptr) {
        for (const QModelIndex& index : selectionModel()->selectedRows()) {
            rows.append(index.row());
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

void CustomFileTableView::keyPressEvent(QKeyEvent* event) {
    if (eventIsDeleteKeyPressed(event) && m_deleteKeyHandler &&
        m_deleteKeyHandler(selectedRows())) {
        event->accept();
        return;
    }
    QTableView::keyPressEvent(event);
}

// Any drag is welcome as a copy, wherever it is over the table; what counts is decided on drop.
void CustomFileTableView::dragEnterEvent(QDragEnterEvent* event) {
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void CustomFileTableView::dragMoveEvent(QDragMoveEvent* event) {
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void CustomFileTableView::dropEvent(QDropEvent* event) {
    QStringList paths;
    if (const QMimeData* dropped = event->mimeData(); dropped != nullptr && dropped->hasUrls()) {
        for (const QUrl& url : dropped->urls()) {
            if (url.isLocalFile()) {
                paths.append(url.toLocalFile());
            }
        }
    }
    event->setDropAction(Qt::CopyAction);
    event->accept();
    Q_EMIT filesDropped(paths);
}
