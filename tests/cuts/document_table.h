// The tables of docs/cut-matrix.md, which the tests themselves write: each run compares its result
// with the table in the document, so the document cannot become untrue.
//
// A table lies between the lines "<!-- table NAME -->" and "<!-- end of table -->". To write the
// tables again after an intended change, run the tests with FW_WRITE_TABLES=1 in the environment.
#pragma once

#include <gtest/gtest.h>

#include <QByteArray>
#include <QString>
#include <string>
#include <vector>

namespace cuts {

// A table in Markdown. Every row has as many cells as the header; a cell may not contain "|" or a
// newline.
class DocumentTable {
public:
    explicit DocumentTable(std::vector<std::string> const& header);

    // Throws std::invalid_argument for a row of another length or a cell that breaks the table.
    void Add(std::vector<std::string> const& row);

    QByteArray const& Text() const { return text_; }

private:
    void Append(std::vector<std::string> const& row);

    size_t columns_;
    QByteArray text_;
};

// docs/cut-matrix.md of this source tree.
QString GetCutMatrixPath();

// Success when the table `name` of the document is `table`. With FW_WRITE_TABLES in the environment
// the table is written into the document first; programs that run side by side may do so. A failure
// contains both tables. A document without that table is a failure in either case.
testing::AssertionResult IsInDocument(DocumentTable const& table, std::string const& name,
                                      QString const& document_path = GetCutMatrixPath());

}  // namespace cuts
