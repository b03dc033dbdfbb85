#include "shell/StatusColumn.h"

#include <QAbstractItemView>
#include <QHeaderView>
#include <QHelpEvent>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QToolTip>

namespace {

class StatusDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // The row's own tooltip when it has one, else the status itself.
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override {
        if (event->type() == QEvent::ToolTip && index.isValid() &&
            index.data(Qt::ToolTipRole).toString().isEmpty()) {
            const QString text = index.data(Qt::DisplayRole).toString();
            if (!text.isEmpty()) {
                QToolTip::showText(event->globalPos(), text, view->viewport(),
                                   view->visualRect(index));
                return true;
            }
        }
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    }

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override {
        QStyledItemDelegate::initStyleOption(option, index);
        option->textElideMode = Qt::ElideRight;
    }
};

}  // namespace

void StatusColumn::install(QTableView* table, int column) {
    table->setItemDelegateForColumn(column, new StatusDelegate(table));
    table->horizontalHeader()->setSectionResizeMode(column, QHeaderView::Stretch);
}
