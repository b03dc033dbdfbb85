#pragma once

#include <QUrl>
#include <QWidget>
#include <functional>

#include "filelist/RunResults.h"

class ProcessController;
class QTableView;

// The results under the main window's list: a line per file finished in this session, with the
// sender of each opened file and whether that sender is verified, and buttons to show an output
// in its folder or open it.
class ResultsPanel final : public QWidget {
    Q_OBJECT

public:
    explicit ResultsPanel(QWidget* parent = nullptr);

    // Records the first outcome `controller` reports (a cancel, then the stopped work's own
    // outcome, makes one line).
    void follow(ProcessController* controller);

    [[nodiscard]] RunResults& model() noexcept { return m_model; }
    [[nodiscard]] QTableView* view() const noexcept { return m_view; }
    // How outputs are shown and opened; the desktop's default application unless replaced.
    void setOpener(std::function<void(const QUrl&)> opener) { m_open = std::move(opener); }

private:
    void addButtons(int row);

    RunResults m_model;
    QTableView* m_view;
    std::function<void(const QUrl&)> m_open;
};
