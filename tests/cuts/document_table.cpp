#include "tests/cuts/document_table.h"

#include <QLockFile>

#include "tests/support/files.h"

namespace cuts {

QByteArray ToMarkdown(DocumentTable const& table)
{
    QByteArray text;
    auto const append = [&](std::vector<std::string> const& row) {
        for (auto const& cell : row) {
            text += "| " + QByteArray::fromStdString(cell) + ' ';
        }
        text += "|\n";
    };
    append(table.front());
    append(std::vector<std::string>(table.front().size(), "---"));
    for (size_t i = 1; i < table.size(); ++i) {
        append(table[i]);
    }
    return text;
}

testing::AssertionResult IsInDocument(DocumentTable const& table, std::string const& name,
                                      QString const& document_path)
{
    // Another program may be writing its own table.
    QLockFile lock(document_path + QStringLiteral(".lock"));
    lock.lock();
    auto document = ReadFile(document_path);
    auto const mark = QByteArray::fromStdString("<!-- table " + name + " -->\n");
    auto const found = document.indexOf(mark);
    auto const begin = found + mark.size();
    auto const end = document.indexOf("<!-- ", begin);
    // Another table's mark there means that this one's end is missing.
    if (found < 0 || !document.mid(end).startsWith("<!-- end of table -->\n")) {
        return testing::AssertionFailure()
               << document_path.toStdString() << " has no place for the table " << name;
    }
    auto const text = ToMarkdown(table);
    auto const written = document.mid(begin, end - begin);
    if (written == text) {
        return testing::AssertionSuccess();
    }
    if (qEnvironmentVariableIsSet("FW_WRITE_TABLES")) {
        WriteFile(document_path, document.replace(begin, end - begin, text));
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure()
           << "the table " << name << " of " << document_path.toStdString()
           << " is not this run's; if it should be, run the test with FW_WRITE_TABLES=1\n"
           << "this run:\n"
           << text.toStdString() << "document:\n"
           << written.toStdString();
}

}  // namespace cuts
