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

// The rows of a table, of which the first is the header. Every row has as many cells as the header;
// a cell may not contain "|" or a newline.
using DocumentTable = std::vector<std::vector<std::string>>;

// The table in Markdown.
QByteArray ToMarkdown(DocumentTable const& table);

// Success when the table `name` of the document is `table`. With FW_WRITE_TABLES in the environment
// the table is written into the document first; programs that run side by side may do so. A failure
// contains both tables. A document without that table is a failure in either case.
testing::AssertionResult IsInDocument(DocumentTable const& table, std::string const& name,
                                      QString const& document_path = QStringLiteral(FW_CUT_MATRIX));

}  // namespace cuts
