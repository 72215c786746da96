#include "tests/cuts/document_table.h"

#include <gmock/gmock.h>

#include <QTemporaryDir>

#include "tests/support/files.h"

namespace {

using cuts::DocumentTable;
using cuts::IsInDocument;
using cuts::ToMarkdown;
using testing::HasSubstr;

constexpr char kDocument[] =
    "# Title\n"
    "<!-- table first -->\n"
    "| a | b |\n| --- | --- |\n| 1 | 2 |\n"
    "<!-- end of table -->\n"
    "Prose.\n"
    "<!-- table second -->\n"
    "<!-- end of table -->\n";

class DocumentTableTest : public testing::Test {
protected:
    DocumentTableTest()
    {
        qunsetenv("FW_WRITE_TABLES");
        WriteFile(path_, kDocument);
    }
    ~DocumentTableTest() override { qunsetenv("FW_WRITE_TABLES"); }

    static DocumentTable MakeTable(char const* value) { return {{"a", "b"}, {"1", value}}; }

    QTemporaryDir directory_;
    QString path_ = directory_.filePath(QStringLiteral("document.md"));
};

TEST_F(DocumentTableTest, TheTableInTheDocumentIsAccepted)
{
    EXPECT_TRUE(IsInDocument(MakeTable("2"), "first", path_));
}

TEST_F(DocumentTableTest, AnotherResultFailsWithBothTables)
{
    auto const result = IsInDocument(MakeTable("3"), "first", path_);

    EXPECT_FALSE(result);
    EXPECT_THAT(result.message(), HasSubstr("| 1 | 3 |"));
    EXPECT_THAT(result.message(), HasSubstr("| 1 | 2 |"));
    EXPECT_EQ(ReadFile(path_), kDocument);
}

TEST_F(DocumentTableTest, ADocumentWithoutAPlaceForTheTableFails)
{
    qputenv("FW_WRITE_TABLES", "1");
    EXPECT_FALSE(IsInDocument(MakeTable("2"), "third", path_));
    EXPECT_FALSE(IsInDocument(MakeTable("2"), "first", path_ + QStringLiteral(".missing")));
    WriteFile(path_, QByteArray(kDocument).replace("<!-- end of table -->\nProse.\n", "Prose.\n"));
    EXPECT_FALSE(IsInDocument(MakeTable("2"), "first", path_)) << "its end is the next table's";
}

TEST_F(DocumentTableTest, OnRequestTheTableIsWrittenAndAllElseStays)
{
    qputenv("FW_WRITE_TABLES", "1");

    EXPECT_TRUE(IsInDocument(MakeTable("3"), "second", path_));

    qunsetenv("FW_WRITE_TABLES");
    EXPECT_TRUE(IsInDocument(MakeTable("3"), "second", path_));
    EXPECT_EQ(ReadFile(path_), QByteArray(kDocument).replace(
                                   "second -->\n", "second -->\n" + ToMarkdown(MakeTable("3"))));
}

}  // namespace
