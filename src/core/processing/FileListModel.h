#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>
#include <array>
#include <memory>

#include "model/Contact.h"
#include "model/NivoProfile.h"
#include "processing/BatchRunner.h"
#include "processing/FileDetails.h"
#include "processing/ProcessController.h"

// The file queue behind the main window's list: the rows with their statuses, which files an
// Encrypt or Decrypt marks, and the run that hands them one at a time to a BatchRunner and
// moves on when it reports back. A run walks the rows by index, so rows added meanwhile are
// appended unsorted and the queue's position follows deletions above it.
//
// The main window shows it in a QTableView, turns the answers of encryptRequested() and
// decryptRequested() into its alerts and dialogs, and passes the recipient choice to
// handleRecipientSelectionComplete() or, after storing the chosen folder, calls
// startDecryption(). To show a file's progress it connects to processStarting, which hands over
// each file's controller before it starts. The command-line tool drives the same calls and waits
// for processingChanged(false). The model's runner owns every controller and deletes it (later)
// once it has reported, so keep a QPointer to it, not a plain pointer. Each file takes the
// environment's profile, password and remembered output folder as it is handed over.
class FileListModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { FileColumn = 0, StatusColumn = 1, ColumnCount = 2 };

    static const QString kFileColumnTitle;
    static const QString kStatusColumnTitle;

    // Statuses the queue gives; a run's outcome text replaces them.
    static const QString kPendingEncryption;
    static const QString kPendingDecryption;
    static const QString kEncrypting;
    static const QString kDecrypting;
    static const QString kFileNoLongerExists;

    // Alert texts for the answers below.
    static const QString kNoFilesToEncrypt;
    static const QString kNoFilesToDecrypt;
    static const QString kRemoveAllFiles;

    // What pressing Encrypt or Decrypt asks of the window.
    enum class Request {
        NoFiles,             // alert kNoFilesToEncrypt / kNoFilesToDecrypt
        JoinedRun,           // new files were marked for the run under way; nothing to show
        ChooseRecipients,    // open the recipient window; its choice goes to
                             // handleRecipientSelectionComplete()
        ChooseOutputFolder,  // ask for the decryption folder, store it, call startDecryption()
        AskToClearList,      // ask kRemoveAllFiles with kNoFilesToEncrypt / kNoFilesToDecrypt as
                             // the detail; "Yes" calls clear()
    };

    explicit FileListModel(std::shared_ptr<RunEnvironment> environment, QObject* parent = nullptr);
    ~FileListModel() override;

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] int columnCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index,
                                int role = Qt::DisplayRole) const override;
    [[nodiscard]] QVariant headerData(int section, Qt::Orientation orientation,
                                      int role = Qt::DisplayRole) const override;

    [[nodiscard]] const QList<FileDetails>& fileList() const noexcept { return m_fileList; }
    [[nodiscard]] qsizetype fileIndexCounter() const noexcept { return m_fileIndexCounter; }
    [[nodiscard]] bool isProcessing() const noexcept { return m_isProcessing; }
    [[nodiscard]] const QList<Contact>& recipientList() const noexcept { return m_recipientList; }
    // The controller of the file being processed; null between files.
    [[nodiscard]] ProcessController* processController() const { return m_processController; }

    // --- adding and removing ---

    // Adds each path not yet listed (exact comparison, letter case counts) and sorts the list
    // when no run is under way. Returns how many rows were added. Paths are not checked.
    int addFiles(const QStringList& paths);
    // The same for dropped paths, of which only existing files count (no folders).
    int addDroppedFiles(const QStringList& paths);
    // The regular files under `folder`, at any depth, leaving out hidden files and folders and
    // symbolic links.
    [[nodiscard]] static QStringList filesInFolder(const QString& folder);
    // The folders from `folder`'s own name down to `file`, found under it: "photos/2024" for
    // photos/2024/a.jpg, whose output goes to OUTPUT/photos/2024/a.jpg.tvf.
    [[nodiscard]] static QString subFolderOf(const QString& folder, const QString& file);
    // Adds `files`, found under `folder`, so that each output keeps its place below the folder's
    // name (subFolderOf).
    int addFolderFiles(const QString& folder, const QStringList& files);
    // Empties the list; for the "Yes" of the remove-all question, which is never asked during a
    // run.
    void clear();
    // Removes the row `selectedRow` (-1: none selected). Refuses, with false, a row being
    // processed; keeps the run's position on the same file.
    bool deleteKeyPressedForTableView(int selectedRow);
    // The same for several rows, each under that rule; answers how many went.
    int deleteRows(QList<int> rows);

    // --- the buttons ---

    // Until the next run ends, marking leaves every row but these alone; empty: no limit. For
    // encrypting or decrypting a few chosen rows.
    void setMarkOnly(const QStringList& paths) {
        m_markOnly = QSet<QString>(paths.begin(), paths.end());
    }

    [[nodiscard]] Request encryptRequested();
    [[nodiscard]] Request decryptRequested();
    // Marks and starts decrypting, once the window has stored the chosen output folder.
    void startDecryption();
    // Adds the chosen recipients to the run's list, marks the files and starts encrypting.
    void handleRecipientSelectionComplete(const QList<Contact>& recipients);

    // --- the queue ---

    // Rows that an Encrypt would process: unmarked ones and those pending encryption.
    [[nodiscard]] int getEncryptStatusNumbers() const;
    // Rows that a Decrypt would process: unmarked protected files and those pending decryption.
    [[nodiscard]] int getDecryptStatusNumbers() const;
    // Marks unmarked rows; during a run only those the run has not passed yet.
    void setEncryptStatus();
    void setDecryptStatus();
    // Hands the next pending row, from the current position on, to a new controller; ends the run
    // when none is left.
    void startFileProcess();
    // A run's outcome for the current row: "" removes the row (the next one moves into its
    // place), any other text becomes its status and the run moves on. Then the next file starts.
    void handleProcessingComplete(const QString& processResult);

    // Whether `path` names a protected file ("tvf", letter case counts).
    [[nodiscard]] static bool isProtectedFile(const QString& path);

Q_SIGNALS:
    // `controller` is about to start on `row`; connect to its signals now.
    void processStarting(ProcessController* controller, int row);
    void processingChanged(bool isProcessing);

private:
    void setStatus(qsizetype row, const QString& status);
    void applyOutcome(const QString& processResult);
    void setProcessing(bool processing);
    void markUnmarked(const QString& status, bool protectedOnly);
    void sortFileList();
    void launch(qsizetype row, bool toEncrypt);
    // At the end of a run: a folder where every file of a direction failed is not offered again;
    // the one remembered before it comes back.
    void forgetFailedFolders();
    // Takes a row out of the list and its path out of m_listedPaths.
    void dropRow(qsizetype row);

    QList<FileDetails> m_fileList;
    // The paths of m_fileList, for the check that a path is listed already.
    QSet<QString> m_listedPaths;
    QSet<QString> m_markOnly;
    QList<Contact> m_recipientList;
    qsizetype m_fileIndexCounter = 0;
    bool m_isProcessing = false;
    QPointer<ProcessController> m_processController;
    std::shared_ptr<RunEnvironment> m_environment;
    // Per direction (encrypting first) for the run under way: the output folder used, the one
    // remembered before the run's choice, and whether a file succeeded or failed there.
    struct FolderUse {
        QString folder;
        QString before;
        bool placed = false;
        bool failed = false;
    };
    std::array<FolderUse, 2> m_folderUse;
    // Last, so that it and its controllers go first.
    BatchRunner m_runner;
};
