#include "filelist/CustomFileTableView.h"

#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QMimeData>
#include <QUrl>

CustomFileTableView::CustomFileTableView(QWidget* parent) : QTableView(parent) {
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
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
}

bool CustomFileTableView::eventIsDeleteKeyPressed(const QKeyEvent* event) {
    return event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace;
}

int CustomFileTableView::selectedRow() const {
    const QModelIndexList rows =
        selectionModel() != nullptr ? selectionModel()->selectedRows() : QModelIndexList();
    return rows.isEmpty() ? -1 : rows.constFirst().row();
}

void CustomFileTableView::keyPressEvent(QKeyEvent* event) {
    if (eventIsDeleteKeyPressed(event) && m_deleteKeyHandler && m_deleteKeyHandler(selectedRow())) {
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
