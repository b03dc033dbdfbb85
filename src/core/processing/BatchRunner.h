#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QtGlobal>
#include <deque>
#include <memory>

#include "crypto/SenderVerdict.h"
#include "model/Contact.h"
#include "model/NivoProfile.h"
#include "processing/RunEnvironment.h"

class ProcessController;

// Runs files through ProcessControllers, as many at once as its capacity allows, for the file
// queue of the main window (one at a time) and the command-line tool (two small files at a time,
// a large one alone). Items start in the order they were added, each as soon as there is room;
// one added while others run waits its turn behind them. Each item has an index, its place in the
// order of adding, by which the signals name it.
//
// Runs under way together may pick the same output name, as each output appears only once
// complete: the runner keeps the names of the runs under way, which the next run skips, and
// frees each name when its run reports.
//
// A controller is made for each item and deleted (later) once it has reported; only its first
// report counts, as after a cancel the abandoned work reports once more.
class BatchRunner : public QObject {
    Q_OBJECT
public:
    struct Item {
        QString inputPath;
        // The output goes to `subFolder` below `outputFolder`, its levels made when it starts
        // (makeSubFolders); `outputFolder` itself when `subFolder` is empty.
        QString outputFolder;
        QString subFolder;
        bool toEncrypt = true;
        // The key pair, its password and the recipients (read only for encryption) are
        // forgotten once the item has started.
        NivoProfile profile;
        QString password;
        QList<Contact> recipients;
        // Its share of the capacity; an item heavier than the capacity runs alone.
        int weight = 1;
    };
    // What a run left once it reported.
    struct Result {
        bool finished = false;
        QString outcome;  // "" on success, else the text to show for the file
        QString outputPath;
        SenderVerdict sender;
    };

    explicit BatchRunner(std::shared_ptr<RunEnvironment> environment, QObject* parent = nullptr);
    ~BatchRunner() override;

    // How much weight may be under way at once; 1 by default.
    void setCapacity(int capacity) noexcept { m_capacity = capacity; }

    // Queues `item` and starts it at once when there is room. Answers its index.
    qsizetype add(Item item);
    // Cancels the runs under way, each of which then reports its cancel text, and drops the
    // items waiting, which never start.
    void cancel();

    // Forgets every item, when nothing is under way and nothing waits (else does nothing); the
    // next item added has index 0 again.
    void forget();

    // Whether a run is under way or an item waits.
    [[nodiscard]] bool isBusy() const noexcept {
        return !m_underWay.isEmpty() || !m_waiting.empty();
    }
    [[nodiscard]] const Item& item(qsizetype index) const {
        return m_items.at(static_cast<size_t>(index)).item;
    }
    [[nodiscard]] const Result& result(qsizetype index) const {
        return m_items.at(static_cast<size_t>(index)).result;
    }
    // The first item that has not reported yet (or the number of items when all have): the
    // items before it may be shown in order.
    [[nodiscard]] qsizetype firstUnfinished() const noexcept { return m_firstUnfinished; }

    // Creates `subFolder` under `folder`, each new level readable by the user only, and answers
    // the deepest one; `folder` when `subFolder` is empty.
    [[nodiscard]] static QString makeSubFolders(const QString& folder, const QString& subFolder);

Q_SIGNALS:
    // `controller` is about to start on the item; set its options and connect to its signals now.
    void itemStarting(qsizetype index, ProcessController* controller);
    void itemProgress(qsizetype index, qint64 done, qint64 total);
    // The item's run reported; result(index) holds what it left, and its name is free again.
    // An item added in a slot of this signal may start at once.
    void itemFinished(qsizetype index, const QString& outcome);
    // `index` and every item before it have reported; emitted in the order of the indices,
    // firstUnfinished() being past `index` already.
    void finishedInOrder(qsizetype index);
    // Nothing is under way and nothing waits.
    void idle();

private:
    struct Entry {
        Item item;
        Result result;
        QString reservedPath;  // the output name kept from the other runs while it runs
        QPointer<ProcessController> controller;
    };

    void startMore();
    void start(qsizetype index);
    void completed(qsizetype index, const QString& outcome);

    std::shared_ptr<RunEnvironment> m_environment;
    int m_capacity = 1;
    // A deque, so that item() and result() stay valid while items are added.
    std::deque<Entry> m_items;
    std::deque<qsizetype> m_waiting;
    QList<qsizetype> m_underWay;
    int m_weightUnderWay = 0;
    qsizetype m_firstUnfinished = 0;
    QSet<QString> m_outputsInUse;
};
