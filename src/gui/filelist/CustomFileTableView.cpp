#include "filelist/CustomFileTableView.h"

#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMimeData>
#include <QUrl>
#include <algorithm>

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
