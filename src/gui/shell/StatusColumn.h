#pragma once

class QTableView;

// A table's column of statuses, often whole sentences such as a failure's reason: it takes the
// width that the other columns leave and grows with the window, and a text too long for it loses
// its end, never its middle, with the whole text one hover away. Paths in the other columns keep
// eliding in the middle, where their folders are.
class StatusColumn {
public:
    StatusColumn() = delete;

    // For a table that has its model, with the column in it.
    static void install(QTableView* table, int column);
};
