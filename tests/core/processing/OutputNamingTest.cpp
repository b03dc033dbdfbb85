// Output names: "tvf" on and off, the tidied inner extension of decrypted files, and the numbering
// that avoids every existing file.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "TestFiles.h"
#include "processing/FileDetails.h"
#include "processing/ProcessController.h"

using namespace Qt::Literals::StringLiterals;

namespace {

struct NamingCase {
    const char* label;
    QString fileName;
    bool toEncrypt;
    QStringList existing;  // files already in the output folder
    QString expected;
};

void PrintTo(const NamingCase& c, std::ostream* os) {
    *os << c.label;
}

class OutputNamingTest : public ::testing::TestWithParam<NamingCase> {};

TEST_P(OutputNamingTest, PicksTheExpectedFreeName) {
    const NamingCase& c = GetParam();
    QTemporaryDir dir;
    for (const QString& name : c.existing) {
        ASSERT_TRUE(putFile(dir.filePath(name)));
    }
    EXPECT_EQ(ProcessController::generateOutputFilePath(dir.path(), c.fileName, c.toEncrypt),
              dir.filePath(c.expected));
}

std::string caseLabel(const ::testing::TestParamInfo<NamingCase>& param) {
    return param.param.label;
}

constexpr bool kEncrypt = true;
constexpr bool kDecrypt = false;

INSTANTIATE_TEST_SUITE_P(
    Encrypting, OutputNamingTest,
    ::testing::Values(
        NamingCase{"appends_tvf", u"report.pdf"_s, kEncrypt, {}, u"report.pdf.tvf"_s},
        NamingCase{"no_extension", u"notes"_s, kEncrypt, {}, u"notes.tvf"_s},
        NamingCase{"already_tvf_kept", u"a.tvf"_s, kEncrypt, {}, u"a.tvf"_s},
        NamingCase{"already_tvf_taken", u"a.tvf"_s, kEncrypt, {u"a.tvf"_s}, u"a(1).tvf"_s},
        NamingCase{"upper_case_TVF_is_not_tvf", u"a.TVF"_s, kEncrypt, {}, u"a.TVF.tvf"_s},
        NamingCase{"inner_extension_counts_with_tvf",
                   u"doc.pdf"_s,
                   kEncrypt,
                   {u"doc.pdf.tvf"_s},
                   u"doc(1).pdf.tvf"_s},
        NamingCase{"number_goes_up",
                   u"doc.pdf"_s,
                   kEncrypt,
                   {u"doc.pdf.tvf"_s, u"doc(1).pdf.tvf"_s},
                   u"doc(2).pdf.tvf"_s},
        NamingCase{"numbered_input_goes_up",
                   u"doc(7).pdf"_s,
                   kEncrypt,
                   {u"doc(7).pdf.tvf"_s},
                   u"doc(8).pdf.tvf"_s}),
    caseLabel);

INSTANTIATE_TEST_SUITE_P(
    Decrypting, OutputNamingTest,
    ::testing::Values(
        NamingCase{"drops_tvf", u"photo.jpg.tvf"_s, kDecrypt, {}, u"photo.jpg"_s},
        NamingCase{"taken_once", u"photo.jpg.tvf"_s, kDecrypt, {u"photo.jpg"_s}, u"photo(1).jpg"_s},
        NamingCase{"taken_twice",
                   u"photo.jpg.tvf"_s,
                   kDecrypt,
                   {u"photo.jpg"_s, u"photo(1).jpg"_s},
                   u"photo(2).jpg"_s},
        NamingCase{
            "zero_is_no_number", u"x(0).txt.tvf"_s, kDecrypt, {u"x(0).txt"_s}, u"x(0)(1).txt"_s},
        NamingCase{"words_are_no_number",
                   u"v(abc).txt.tvf"_s,
                   kDecrypt,
                   {u"v(abc).txt"_s},
                   u"v(abc)(1).txt"_s},
        NamingCase{"leading_digits_are_the_number",
                   u"v(12x).txt.tvf"_s,
                   kDecrypt,
                   {u"v(12x).txt"_s},
                   u"v(13).txt"_s},
        NamingCase{"only_the_last_parenthesis",
                   u"a(1)(4).txt.tvf"_s,
                   kDecrypt,
                   {u"a(1)(4).txt"_s},
                   u"a(1)(5).txt"_s},
        NamingCase{"no_extension_at_all", u"README.tvf"_s, kDecrypt, {}, u"README"_s},
        NamingCase{"no_extension_taken", u"README.tvf"_s, kDecrypt, {u"README"_s}, u"README(1)"_s},
        NamingCase{"dash_cut", u"report.pdf-2.tvf"_s, kDecrypt, {}, u"report.pdf"_s},
        NamingCase{"parenthesis_cut", u"report.pdf(1).tvf"_s, kDecrypt, {}, u"report.pdf"_s},
        NamingCase{"underscore_then_space_cut",
                   u"report.docx_v2 final.tvf"_s,
                   kDecrypt,
                   {},
                   u"report.docx"_s},
        NamingCase{"mark_at_index_1_empties", u"a.a-b.tvf"_s, kDecrypt, {}, u"a"_s},
        NamingCase{"space_at_index_1_empties", u"a.p df.tvf"_s, kDecrypt, {}, u"a"_s},
        NamingCase{"mark_at_index_0_kept", u"a.-pdf.tvf"_s, kDecrypt, {}, u"a.-pdf"_s},
        NamingCase{"later_mark_still_cuts", u"a.-pd_f.tvf"_s, kDecrypt, {}, u"a.-pd"_s},
        NamingCase{"not_protected_kept", u"plain.txt"_s, kDecrypt, {}, u"plain.txt"_s},
        NamingCase{
            "not_protected_taken", u"plain.txt"_s, kDecrypt, {u"plain.txt"_s}, u"plain(1).txt"_s},
        NamingCase{"hidden_file", u".profile.tvf"_s, kDecrypt, {}, u".profile"_s},
        NamingCase{"nothing_left_keeps_name", u".tvf"_s, kDecrypt, {}, u".tvf"_s}),
    caseLabel);

TEST(OutputNaming, JoinsAFolderGivenWithATrailingSeparator) {
    QTemporaryDir dir;
    EXPECT_EQ(ProcessController::generateOutputFilePath(dir.path() + u'/', u"a.txt"_s, true),
              dir.filePath(u"a.txt.tvf"_s));
}

TEST(OutputNaming, AnExistingFolderIsTakenLikeAFile) {
    QTemporaryDir dir;
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"a.txt.tvf"_s));
    EXPECT_EQ(ProcessController::generateOutputFilePath(dir.path(), u"a.txt"_s, true),
              dir.filePath(u"a(1).txt.tvf"_s));
}

TEST(OutputNaming, PathsOfRunsUnderWayAreSkippedLikeExistingFiles) {
    QTemporaryDir dir;
    QFile taken(dir.filePath(u"a(1).txt.tvf"_s));
    ASSERT_TRUE(taken.open(QIODevice::WriteOnly));
    // In use and on disk in turn: the numbering goes past both.
    const QSet<QString> inUse{dir.filePath(u"a.txt.tvf"_s), dir.filePath(u"a(2).txt.tvf"_s)};
    EXPECT_EQ(ProcessController::generateOutputFilePath(dir.path(), u"a.txt"_s, true, inUse),
              dir.filePath(u"a(3).txt.tvf"_s));
    EXPECT_EQ(ProcessController::generateOutputFilePath(dir.path(), u"a.txt.tvf"_s, false,
                                                        {dir.filePath(u"a.txt"_s)}),
              dir.filePath(u"a(1).txt"_s));
}

TEST(FileDetails, NamesTheFileAndItsFolder) {
    const FileDetails inFolder{u"/home/a/report.pdf"_s, {}, {}};
    EXPECT_EQ(inFolder.getFilename(), u"report.pdf"_s);
    EXPECT_EQ(inFolder.getFolder(), u"/home/a"_s);
    const FileDetails atRoot{u"/report.pdf"_s, {}, {}};
    EXPECT_EQ(atRoot.getFilename(), u"report.pdf"_s);
    EXPECT_EQ(atRoot.getFolder(), u"/"_s);
    const FileDetails bare{u"report.pdf"_s, {}, {}};
    EXPECT_EQ(bare.getFolder(), u""_s);
}

}  // namespace
