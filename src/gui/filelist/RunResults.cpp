#include "filelist/RunResults.h"

#include <QColor>
#include <QFileInfo>

#include "log/VisibleText.h"

using namespace Qt::Literals::StringLiterals;

namespace {

const char* const kHeaders[] = {
    QT_TRANSLATE_NOOP("RunResults", "File"), QT_TRANSLATE_NOOP("RunResults", "Result"),
    QT_TRANSLATE_NOOP("RunResults", "Sender or reason"), QT_TRANSLATE_NOOP("RunResults", "Saved as"),
    ""};
const char* const kProtected = QT_TRANSLATE_NOOP("RunResults", "Protected");
const char* const kOpened = QT_TRANSLATE_NOOP("RunResults", "Opened");
const char* const kFailed = QT_TRANSLATE_NOOP("RunResults", "Failed");
const char* const kCancelled = QT_TRANSLATE_NOOP("RunResults", "Cancelled");
const char* const kVerified = QT_TRANSLATE_NOOP("RunResults", "\u2714 %1 (verified)");
const char* const kNotVerified = QT_TRANSLATE_NOOP("RunResults", "\u26a0 %1: NOT VERIFIED, %2");
const char* const kNobody = QT_TRANSLATE_NOOP("RunResults", "(nobody named)");

// Readable on light and dark backgrounds alike.
const QColor kVerifiedColour(0x1a, 0x7f, 0x37);
const QColor kWarningColour(0xd0, 0x6a, 0x00);

}  // namespace

void RunResults::add(Result result) {
    const int row = static_cast<int>(m_results.size());
    beginInsertRows({}, row, row);
    m_results.append(std::move(result));
    endInsertRows();
}

int RunResults::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_results.size());
}

int RunResults::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QString RunResults::resultText(const Result& result) {
    switch (result.kind) {
    case Kind::Protected:
        return tr(kProtected);
    case Kind::Opened:
        return tr(kOpened);
    case Kind::Cancelled:
        return tr(kCancelled);
    case Kind::Failed:
        break;
    }
    return tr(kFailed);
}

QString RunResults::detailsText(const Result& result) {
    if (result.kind == Kind::Failed) {
        return VisibleText::of(result.failure);
    }
    if (result.kind != Kind::Opened) {
        return {};
    }
    // A name from a certificate may hold line breaks or direction overrides meant to mislead.
    const QString name =
        result.sender.name.isEmpty() ? tr(kNobody) : VisibleText::of(result.sender.name);
    return result.sender.verified()
               ? tr(kVerified).arg(name)
               : tr(kNotVerified).arg(name, VisibleText::of(result.sender.reason()));
}

QVariant RunResults::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= m_results.size()) {
        return {};
    }
    const Result& result = m_results.at(index.row());
    if (role == OutputPathRole) {
        return result.outputPath;
    }
    if (role == Qt::ForegroundRole && index.column() == DetailsColumn &&
        result.kind == Kind::Opened) {
        return result.sender.verified() ? kVerifiedColour : kWarningColour;
    }
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole) {
        return {};
    }
    switch (index.column()) {
    case FileColumn:
        return role == Qt::ToolTipRole ? VisibleText::of(result.inputPath)
                                       : VisibleText::of(QFileInfo(result.inputPath).fileName());
    case ResultColumn:
        return resultText(result);
    case DetailsColumn:
        return detailsText(result);
    case OutputColumn:
        // The folder is a button away; the whole path is in the tooltip.
        return role == Qt::ToolTipRole ? VisibleText::of(result.outputPath)
                                       : VisibleText::of(QFileInfo(result.outputPath).fileName());
    default:
        return {};
    }
}

QVariant RunResults::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 ||
        section >= ColumnCount) {
        return {};
    }
    return section == ActionsColumn ? QString() : tr(kHeaders[section]);
}
