#pragma once

#include <QList>
#include <QMainWindow>
#include <QString>
#include <array>

#include "log/LogQuery.h"
#include "model/LogEntry.h"
#include "shell/ExportFolder.h"

class Prompter;
class QAction;
class QComboBox;
class QLineEdit;
class QTableWidget;

// The activity log as a table: filtered to encryptions or decryptions, searched in one chosen
// column, sorted by any column, reloaded, exported and cleared. The rules are LogQuery's; this
// window keeps what is read (logList) apart from what is shown (displayList).
class LogViewerController final : public QMainWindow {
    Q_OBJECT

public:
    explicit LogViewerController(Prompter& prompter, QWidget* parent = nullptr);
    ~LogViewerController() override;

    void reloadTable();
    void searchLog(const QString& text);
    void reorderingData();
    void EncryptButtonTapped();
    void DecryptButtonTapped();
    void ExportButtonTapped();
    void ClearButtonTapped();
    void displayAlertBox(const QString& message);

    [[nodiscard]] const QList<LogEntry>& logList() const noexcept { return m_logList; }
    [[nodiscard]] const QList<LogEntry>& displayList() const noexcept { return m_displayList; }
    [[nodiscard]] LogQuery::Column currentOrderingState() const noexcept {
        return m_currentOrderingState;
    }

private:
    void tableViewDidClickColumn(int section);
    void searchWithFieldText();
    void searchFieldEdited(const QString& text);
    void showImage(QAction* item, const QString& name);
    [[nodiscard]] LogQuery::Operation activeOperation() const;
    void reloadData();

    Prompter& m_prompter;
    ExportFolder m_exportFolder;
    QList<LogEntry> m_logList;
    QList<LogEntry> m_displayList;
    bool m_encryptOnly = false;
    bool m_decryptOnly = false;
    // Direction of each column by LogQuery::Column, kept while the window lives.
    std::array<bool, 7> m_ascending{};
    LogQuery::Column m_currentOrderingState = LogQuery::Column::None;

    QTableWidget* m_logTableView;
    QLineEdit* m_searchField;
    QComboBox* m_comboBox;
    QAction* m_encryptItem;
    QAction* m_decryptItem;
};
