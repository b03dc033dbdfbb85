#include "processing/FileListModel.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QHash>
#include <algorithm>
#include <numeric>
#include <vector>

#include "log/VisibleText.h"
#include "platform/PathText.h"
#include "processing/ProcessController.h"

using namespace Qt::Literals::StringLiterals;

const QString FileListModel::kFileColumnTitle = u"File"_s;
const QString FileListModel::kStatusColumnTitle = u"Status"_s;
const QString FileListModel::kPendingEncryption = u"Pending encryption"_s;
const QString FileListModel::kPendingDecryption = u"Pending decryption"_s;
const QString FileListModel::kEncrypting = u"Encrypting"_s;
const QString FileListModel::kDecrypting = u"Decrypting"_s;
const QString FileListModel::kFileNoLongerExists = u"File no longer exists."_s;
const QString FileListModel::kNoFilesToEncrypt = u"No files to encrypt"_s;
const QString FileListModel::kNoFilesToDecrypt = u"No files to decrypt"_s;
const QString FileListModel::kRemoveAllFiles = u"Do you wish to remove all files in the list?"_s;

namespace {

// By file name, then by the whole path, both ignoring letter case.
bool listedBefore(const QString& nameA, const QString& pathA, const QString& nameB,
                  const QString& pathB) {
    if (const int byName = nameA.compare(nameB, Qt::CaseInsensitive); byName != 0) {
        return byName < 0;
    }
    return pathA.compare(pathB, Qt::CaseInsensitive) < 0;
}

}  // namespace

FileListModel::FileListModel(std::shared_ptr<RunEnvironment> environment, QObject* parent)
    : QAbstractTableModel(parent), m_environment(std::move(environment)), m_runner(m_environment) {
    m_folderUse[0].before = m_environment->outputFolder(true);
    m_folderUse[1].before = m_environment->outputFolder(false);
    // The run hands over one file at a time, the one at m_fileIndexCounter.
    connect(&m_runner, &BatchRunner::itemStarting, this,
            [this](qsizetype, ProcessController* controller) {
                m_processController = controller;
                Q_EMIT processStarting(controller, static_cast<int>(m_fileIndexCounter));
            });
    connect(&m_runner, &BatchRunner::itemFinished, this,
            [this](qsizetype index, const QString& processResult) {
                FolderUse& use = m_folderUse[m_runner.item(index).toEncrypt ? 0 : 1];
                if (processResult.isEmpty()) {
                    use.placed = true;
                } else if (processResult != ProcessController::kEncryptionCancelled &&
                           processResult != ProcessController::kDecryptionCancelled) {
                    use.failed = true;
                }
                m_processController = nullptr;
                handleProcessingComplete(processResult);
            });
}

FileListModel::~FileListModel() = default;

int FileListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_fileList.size());
}

int FileListModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant FileListModel::data(const QModelIndex& index, int role) const {
    // The tooltip shows what a narrow column cuts short: a long path or failure text.
    if ((role != Qt::DisplayRole && role != Qt::ToolTipRole) || !index.isValid() ||
        index.row() >= m_fileList.size()) {
        return {};
    }
    const FileDetails& entry = m_fileList.at(index.row());
    switch (index.column()) {
        // A name with a line break or a direction override in it is shown escaped.
        case FileColumn:
            return VisibleText::of(entry.filePath);
        case StatusColumn:
            return VisibleText::of(entry.status);
        default:
            return {};
    }
}

QVariant FileListModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (role != Qt::DisplayRole || orientation != Qt::Horizontal) {
        return QAbstractTableModel::headerData(section, orientation, role);
    }
    switch (section) {
        case FileColumn:
            return kFileColumnTitle;
        case StatusColumn:
            return kStatusColumnTitle;
        default:
            return {};
    }
}

// --- adding and removing ---

int FileListModel::addFiles(const QStringList& paths) {
    QStringList unlisted;
    for (const QString& path : paths) {
        if (!m_listedPaths.contains(path)) {
            m_listedPaths.insert(path);
            unlisted.append(path);
        }
    }
    if (!unlisted.isEmpty()) {
        const auto first = static_cast<int>(m_fileList.size());
        beginInsertRows({}, first, first + static_cast<int>(unlisted.size()) - 1);
        m_fileList.reserve(m_fileList.size() + unlisted.size());
        for (const QString& path : std::as_const(unlisted)) {
            m_fileList.append(FileDetails{path, QString(), QString()});
        }
        endInsertRows();
    }
    // A run walks the rows by index; sorting under it would make it skip or repeat files.
    if (!m_isProcessing) {
        sortFileList();
    }
    return static_cast<int>(unlisted.size());
}

int FileListModel::addDroppedFiles(const QStringList& paths) {
    QStringList files;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (info.exists() && !info.isDir()) {
            files.append(path);
        }
    }
    return addFiles(files);
}

QStringList FileListModel::filesInFolder(const QString& folder) {
    QStringList files;
    // Without QDir::Hidden hidden folders are not entered either; links are neither listed nor
    // followed.
    QDirIterator it(folder, QDir::Files | QDir::NoSymLinks, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        files.append(it.next());
    }
    std::sort(files.begin(), files.end());
    return files;
}

QString FileListModel::subFolderOf(const QString& folder, const QString& file) {
    // Both absolute and clean, so that "." or ".." given never makes a level that climbs.
    const QDir above = QFileInfo(QDir::cleanPath(QFileInfo(folder).absoluteFilePath())).dir();
    return PathText::withoutLastComponent(
        above.relativeFilePath(QDir::cleanPath(QFileInfo(file).absoluteFilePath())));
}

int FileListModel::addFolderFiles(const QString& folder, const QStringList& files) {
    const int added = addFiles(files);
    QHash<QString, QString> subFolders;
    for (const QString& file : files) {
        subFolders.insert(file, subFolderOf(folder, file));
    }
    for (FileDetails& entry : m_fileList) {
        if (entry.subFolder.isEmpty()) {
            entry.subFolder = subFolders.value(entry.filePath);
        }
    }
    return added;
}

void FileListModel::clear() {
    beginResetModel();
    m_fileList.clear();
    m_listedPaths.clear();
    endResetModel();
}

bool FileListModel::deleteKeyPressedForTableView(int selectedRow) {
    if (m_fileList.isEmpty() || selectedRow < 0 || selectedRow >= m_fileList.size()) {
        return false;
    }
    const QString& status = m_fileList.at(selectedRow).status;
    if (status == kEncrypting || status == kDecrypting) {
        return false;
    }
    if (m_isProcessing && selectedRow < m_fileIndexCounter && m_fileIndexCounter >= 1) {
        --m_fileIndexCounter;
    }
    dropRow(selectedRow);
    return true;
}

int FileListModel::deleteRows(QList<int> rows) {
    // From the bottom up, so that each row number still names its row.
    std::sort(rows.begin(), rows.end(), std::greater<>());
    int removed = 0;
    for (const int row : std::as_const(rows)) {
        removed += deleteKeyPressedForTableView(row) ? 1 : 0;
    }
    return removed;
}

// --- the buttons ---

FileListModel::Request FileListModel::encryptRequested() {
    if (m_fileList.isEmpty()) {
        return Request::NoFiles;
    }
    if (m_isProcessing) {
        setEncryptStatus();
        return Request::JoinedRun;
    }
    if (getEncryptStatusNumbers() > 0) {
        m_fileIndexCounter = 0;
        m_recipientList.clear();
        return Request::ChooseRecipients;
    }
    return Request::AskToClearList;
}

FileListModel::Request FileListModel::decryptRequested() {
    if (m_fileList.isEmpty()) {
        return Request::NoFiles;
    }
    if (m_isProcessing) {
        setDecryptStatus();
        return Request::JoinedRun;
    }
    if (getDecryptStatusNumbers() == 0) {
        return Request::AskToClearList;
    }
    return Request::ChooseOutputFolder;
}

void FileListModel::startDecryption() {
    m_fileIndexCounter = 0;
    setDecryptStatus();
    startFileProcess();
}

void FileListModel::handleRecipientSelectionComplete(const QList<Contact>& recipients) {
    m_recipientList.append(recipients);
    setEncryptStatus();
    startFileProcess();
}

// --- the queue ---

bool FileListModel::isProtectedFile(const QString& path) {
    return PathText::extension(PathText::lastComponent(path)) ==
           ProcessController::kProtectedExtension;
}

int FileListModel::getEncryptStatusNumbers() const {
    return static_cast<int>(std::count_if(
        m_fileList.cbegin(), m_fileList.cend(),
        [](const FileDetails& e) { return e.status.isEmpty() || e.status == kPendingEncryption; }));
}

int FileListModel::getDecryptStatusNumbers() const {
    return static_cast<int>(
        std::count_if(m_fileList.cbegin(), m_fileList.cend(), [](const FileDetails& e) {
            return (e.status.isEmpty() && isProtectedFile(e.filePath)) ||
                   e.status == kPendingDecryption;
        }));
}

void FileListModel::setEncryptStatus() {
    markUnmarked(kPendingEncryption, false);
}

void FileListModel::setDecryptStatus() {
    markUnmarked(kPendingDecryption, true);
}

void FileListModel::markUnmarked(const QString& status, bool protectedOnly) {
    for (qsizetype i = 0; i < m_fileList.size(); ++i) {
        const FileDetails& entry = m_fileList.at(i);
        if (!entry.status.isEmpty() || (protectedOnly && !isProtectedFile(entry.filePath)) ||
            (!m_markOnly.isEmpty() && !m_markOnly.contains(entry.filePath))) {
            continue;
        }
        // Rows the run has passed wait for the next run instead.
        if (!m_isProcessing || m_fileIndexCounter <= i) {
            setStatus(i, status);
        }
    }
}

void FileListModel::startFileProcess() {
    setProcessing(true);
    while (m_fileIndexCounter < m_fileList.size()) {
        const qsizetype row = m_fileIndexCounter;
        const FileDetails& entry = m_fileList.at(row);
        if (!QFileInfo::exists(entry.filePath)) {
            applyOutcome(kFileNoLongerExists);
            continue;
        }
        if (entry.status == kPendingEncryption) {
            setStatus(row, kEncrypting);
            launch(row, true);
            return;
        }
        if (entry.status == kPendingDecryption) {
            setStatus(row, kDecrypting);
            launch(row, false);
            return;
        }
        ++m_fileIndexCounter;
    }
    setProcessing(false);
}

void FileListModel::launch(qsizetype row, bool toEncrypt) {
    const FileDetails& entry = m_fileList.at(row);
    BatchRunner::Item item{
        entry.filePath, m_environment->outputFolder(toEncrypt),           entry.subFolder,
        toEncrypt,      m_environment->profile().value_or(NivoProfile{}), m_environment->password(),
        m_recipientList};
    m_folderUse[toEncrypt ? 0 : 1].folder = item.outputFolder;
    m_runner.add(std::move(item));
}

void FileListModel::handleProcessingComplete(const QString& processResult) {
    applyOutcome(processResult);
    if (m_fileIndexCounter >= m_fileList.size()) {
        setProcessing(false);
    } else {
        startFileProcess();
    }
}

void FileListModel::applyOutcome(const QString& processResult) {
    if (!processResult.isEmpty()) {
        if (m_fileIndexCounter < m_fileList.size()) {
            setStatus(m_fileIndexCounter, processResult);
        }
        ++m_fileIndexCounter;
    } else if (m_fileIndexCounter < m_fileList.size()) {
        dropRow(m_fileIndexCounter);
    }
}

void FileListModel::dropRow(qsizetype row) {
    beginRemoveRows({}, static_cast<int>(row), static_cast<int>(row));
    m_listedPaths.remove(m_fileList.at(row).filePath);
    m_fileList.removeAt(row);
    endRemoveRows();
}

void FileListModel::setStatus(qsizetype row, const QString& status) {
    m_fileList[row].status = status;
    const QModelIndex cell = index(static_cast<int>(row), StatusColumn);
    Q_EMIT dataChanged(cell, cell, {Qt::DisplayRole});
}

void FileListModel::forgetFailedFolders() {
    for (const bool toEncrypt : {true, false}) {
        FolderUse& use = m_folderUse[toEncrypt ? 0 : 1];
        const QString remembered = m_environment->outputFolder(toEncrypt);
        if (use.failed && !use.placed && !use.folder.isEmpty() && remembered == use.folder) {
            m_environment->setOutputFolder(toEncrypt, use.before);
        }
        use = FolderUse{};
        use.before = m_environment->outputFolder(toEncrypt);
    }
}

void FileListModel::setProcessing(bool processing) {
    if (m_isProcessing == processing) {
        return;
    }
    if (!processing) {
        forgetFailedFolders();
        m_markOnly.clear();
        // Once the runner has finished with the last file: a window open all day runs batch after
        // batch, and the runner would otherwise keep a record of each file.
        QMetaObject::invokeMethod(this, [this] { m_runner.forget(); }, Qt::QueuedConnection);
    }
    m_isProcessing = processing;
    Q_EMIT processingChanged(processing);
}

void FileListModel::sortFileList() {
    // The names are taken once, not at every comparison.
    QStringList names;
    names.reserve(m_fileList.size());
    for (const FileDetails& entry : std::as_const(m_fileList)) {
        names.append(entry.getFilename());
    }
    std::vector<int> order(static_cast<std::size_t>(m_fileList.size()));
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [this, &names](int a, int b) {
        return listedBefore(names.at(a), m_fileList.at(a).filePath, names.at(b),
                            m_fileList.at(b).filePath);
    });
    if (std::is_sorted(order.begin(), order.end())) {
        return;
    }

    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    QList<int> newRowOf(m_fileList.size());
    QList<FileDetails> sorted;
    sorted.reserve(m_fileList.size());
    for (const int oldRow : order) {
        newRowOf[oldRow] = static_cast<int>(sorted.size());
        sorted.append(m_fileList.at(oldRow));
    }
    m_fileList = std::move(sorted);
    const QModelIndexList before = persistentIndexList();
    QModelIndexList after;
    after.reserve(before.size());
    for (const QModelIndex& old : before) {
        after.append(index(newRowOf.at(old.row()), old.column()));
    }
    changePersistentIndexList(before, after);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}
