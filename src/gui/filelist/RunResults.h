#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QString>

#include "crypto/SenderVerdict.h"

// What became of every file processed in this session, a row each, for the results under the
// main window's list: what happened, where the output went, and for an opened file who sent it
// and whether that sender is verified.
class RunResults final : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { FileColumn, ResultColumn, DetailsColumn, OutputColumn, ActionsColumn, ColumnCount };
    enum class Kind { Protected, Opened, Failed, Cancelled };
    // The output path of a row (Qt::UserRole + 1); empty when the run left none.
    static constexpr int OutputPathRole = Qt::UserRole + 1;

    struct Result {
        QString inputPath;
        Kind kind = Kind::Failed;
        QString failure;     // the failure text of a failed run
        QString outputPath;  // of a protected or opened file
        SenderVerdict sender;  // of an opened file
    };

    using QAbstractTableModel::QAbstractTableModel;

    // Adds a row at the end.
    void add(Result result);
    [[nodiscard]] const QList<Result>& results() const noexcept { return m_results; }

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
    [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation,
                                      int role) const override;

    // The texts of the Result and Details columns, as shown: the details of an opened file are its
    // sender, those of a failed one the failure.
    [[nodiscard]] static QString resultText(const Result& result);
    [[nodiscard]] static QString detailsText(const Result& result);

private:
    QList<Result> m_results;
};
