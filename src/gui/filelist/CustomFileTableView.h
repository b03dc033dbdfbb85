#pragma once

#include <QStringList>
#include <QTableView>
#include <functional>

// The main window's file table. The delete keys remove the selected file when the window
// agrees, and files dropped on the table are passed on as paths.
class CustomFileTableView final : public QTableView {
    Q_OBJECT

public:
    // Answers whether any of the selected rows (ascending; empty: none) was removed; a removal
    // consumes the key.
    using DeleteKeyHandler = std::function<bool(const QList<int>& selectedRows)>;

    explicit CustomFileTableView(QWidget* parent = nullptr);

    void setDeleteKeyHandler(DeleteKeyHandler handler) { m_deleteKeyHandler = std::move(handler); }
    [[nodiscard]] static bool eventIsDeleteKeyPressed(const QKeyEvent* event);
    // The selected rows, ascending.
    [[nodiscard]] QList<int> selectedRows() const;

Q_SIGNALS:
    // Local paths of everything dropped, as dragged; the receiver decides which to keep.
    void filesDropped(const QStringList& paths);

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    DeleteKeyHandler m_deleteKeyHandler;
};
