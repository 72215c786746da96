#include "tests/cuts/document_table.h"

#include <QLockFile>
#include <optional>
#include <stdexcept>

#include "tests/support/files.h"

namespace cuts {
namespace {

constexpr char kEndMark[] = "<!-- end of table -->\n";

// Where the text of a table begins and how long it is.
struct Place {
    qsizetype begin;
    qsizetype size;
};

std::optional<Place> FindTable(QByteArray const& document, std::string const& name)
{
    auto const mark = QByteArray::fromStdString("<!-- table " + name + " -->\n");
    auto const found = document.indexOf(mark);
    if (found < 0) {
        return std::nullopt;
    }
    auto const begin = found + mark.size();
    auto const end = document.indexOf(kEndMark, begin);
    // Another table's mark in between means that this one's end is missing.
    if (end < 0 || document.mid(begin, end - begin).contains("<!-- table ")) {
        return std::nullopt;
    }
    return Place{begin, end - begin};
}

}  // namespace

DocumentTable::DocumentTable(std::vector<std::string> const& header) : columns_(header.size())
{
    Append(header);
    Append(std::vector<std::string>(columns_, "---"));
}

void DocumentTable::Add(std::vector<std::string> const& row)
{
    if (row.size() != columns_) {
        throw std::invalid_argument("a row has another number of cells than the header");
    }
    Append(row);
}

void DocumentTable::Append(std::vector<std::string> const& row)
{
    for (auto const& cell : row) {
        if (cell.find_first_of("|\n") != std::string::npos) {
            throw std::invalid_argument("a cell breaks the table: " + cell);
        }
        text_ += "| " + QByteArray::fromStdString(cell) + ' ';
    }
    text_ += "|\n";
}

QString GetCutMatrixPath()
{
    return QStringLiteral(FW_CUT_MATRIX);
}

testing::AssertionResult IsInDocument(DocumentTable const& table, std::string const& name,
                                      QString const& document_path)
{
    // Another program may be writing its own table.
    QLockFile lock(document_path + QStringLiteral(".lock"));
    lock.lock();
    auto document = ReadFile(document_path);
    auto const place = FindTable(document, name);
    if (!place) {
        return testing::AssertionFailure()
               << document_path.toStdString() << " has no place for the table " << name;
    }
    auto const written = document.mid(place->begin, place->size);
    if (written == table.Text()) {
        return testing::AssertionSuccess();
    }
    if (qEnvironmentVariableIsSet("FW_WRITE_TABLES")) {
        WriteFile(document_path, document.replace(place->begin, place->size, table.Text()));
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << "the table " << name << " of " << document_path.toStdString()
           << " is not this run's; if it should be, run the test with FW_WRITE_TABLES=1\n"
           << "this run:\n"
           << table.Text().toStdString() << "document:\n"
           << written.toStdString();
}

}  // namespace cuts
