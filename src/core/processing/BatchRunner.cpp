#include "processing/BatchRunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "processing/ProcessController.h"

BatchRunner::BatchRunner(std::shared_ptr<RunEnvironment> environment, QObject* parent)
    : QObject(parent), m_environment(std::move(environment)) {}

BatchRunner::~BatchRunner() = default;

qsizetype BatchRunner::add(Item item) {
    const auto index = static_cast<qsizetype>(m_items.size());
    m_items.push_back(Entry{std::move(item), {}, {}, {}});
    m_waiting.push_back(index);
    startMore();
    return index;
}

void BatchRunner::cancel() {
    m_waiting.clear();
    // A copy: each cancel reports at once, which takes its run off the list.
    const QList<qsizetype> underWay = m_underWay;
    for (const qsizetype index : underWay) {
        if (ProcessController* controller = m_items[static_cast<size_t>(index)].controller) {
            controller->cancel();
        }
    }
}

void BatchRunner::forget() {
    if (isBusy()) {
        return;
    }
    m_items.clear();
    m_firstUnfinished = 0;
}

QString BatchRunner::makeSubFolders(const QString& folder, const QString& subFolder) {
    QString path = folder;
    for (const QString& level : subFolder.split(u'/', Qt::SkipEmptyParts)) {
        path = QDir(path).filePath(level);
        if (!QFileInfo(path).isDir()) {
            // Private from the start; a folder that cannot be made fails the file's write, which
            // names it.
            QDir().mkdir(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
    }
    return path;
}

void BatchRunner::startMore() {
    while (!m_waiting.empty()) {
        const int weight = m_items[static_cast<size_t>(m_waiting.front())].item.weight;
        if (m_weightUnderWay > 0 && m_weightUnderWay + weight > m_capacity) {
            return;
        }
        const qsizetype index = m_waiting.front();
        m_waiting.pop_front();
        start(index);
    }
}

void BatchRunner::start(qsizetype index) {
    Entry& entry = m_items[static_cast<size_t>(index)];
    m_underWay.append(index);
    m_weightUnderWay += entry.item.weight;
    auto* controller = new ProcessController(m_environment, this);
    entry.controller = controller;
    connect(controller, &ProcessController::processingCompleted, this,
            [this, index](const QString& outcome) { completed(index, outcome); });
    connect(controller, &ProcessController::progress, this,
            [this, index](qint64 done, qint64 total) { Q_EMIT itemProgress(index, done, total); });
    Q_EMIT itemStarting(index, controller);
    controller->setOutputPathsInUse(m_outputsInUse);
    // Taken out: the key and password are not kept once the run has them, and slots of the
    // signals of processFile may add items.
    Item item = entry.item;
    entry.item.profile = {};
    entry.item.password.clear();
    entry.item.recipients.clear();
    controller->processFile(item.inputPath, item.profile, item.password, item.recipients,
                            makeSubFolders(item.outputFolder, item.subFolder), item.toEncrypt);
    // A run always reports from the event loop, so its output name is known before it ends.
    Entry& started = m_items[static_cast<size_t>(index)];
    if (!started.result.finished && !controller->outputPath().isEmpty()) {
        started.reservedPath = controller->outputPath();
        m_outputsInUse.insert(started.reservedPath);
    }
}

void BatchRunner::completed(qsizetype index, const QString& outcome) {
    Entry& entry = m_items[static_cast<size_t>(index)];
    ProcessController* controller = entry.controller;
    if (entry.result.finished || controller == nullptr) {
        return;
    }
    // Only the first report counts; the abandoned work of a cancelled run reports again.
    controller->disconnect(this);
    controller->deleteLater();
    entry.controller = nullptr;
    entry.result = Result{true, outcome, controller->outputPath(), controller->senderVerdict()};
    m_outputsInUse.remove(entry.reservedPath);
    m_underWay.removeOne(index);
    m_weightUnderWay -= entry.item.weight;
    Q_EMIT itemFinished(index, outcome);
    while (m_firstUnfinished < static_cast<qsizetype>(m_items.size()) &&
           m_items[static_cast<size_t>(m_firstUnfinished)].result.finished) {
        Q_EMIT finishedInOrder(m_firstUnfinished++);
    }
    startMore();
    if (!isBusy()) {
        Q_EMIT idle();
    }
}
